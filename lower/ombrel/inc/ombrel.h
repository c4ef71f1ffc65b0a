/// \file
/// ombrel: the lowest of quillon's two platform libraries. One include for all.
#ifndef OMBREL_H
#define OMBREL_H

#include "ombmem.h"
#include "ombtext.h"
#include "ombutf8.h"
#include "ombcrt.h"

#endif

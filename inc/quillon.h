// quillon: the whole public interface in one include.
#ifndef QUILLON_H
#define QUILLON_H

#include "quillonbase.h"
#include "dsdatcol.h"
#include "dsstring.h"
#include "bdtstream.h"
#include "psock.h"

#endif

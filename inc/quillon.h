// quillon: the whole public interface in one include.
#ifndef QUILLON_H
#define QUILLON_H

#include "quillonbase.h"
#include "dsdatcol.h"
#include "dsstring.h"
#include "mbxtext.h"
#include "pfupath.h"
#include "dsortmap.h"
#include "dsunique.h"
#include "prosync.h"
#include "pmtask.h"

#endif

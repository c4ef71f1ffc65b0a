/// \file
/// quillon: the whole public interface in one include.
#ifndef QUILLON_H
#define QUILLON_H

#include "quillonbase.h"
#include "dsdatcol.h"
#include "dsstring.h"
#include "mbxtext.h"
#include "pfupath.h"
#include "pfudir.h"
#include "pfufs.h"
#include "pfulock.h"
#include "dsortmap.h"
#include "dsunique.h"
#include "dsbitset.h"
#include "cmdargxp.h"
#include "profiler.h"
#include "bdtstream.h"
#include "memstream.h"
#include "prosync.h"
#include "pmtask.h"
#include "pipestream.h"
#include "pmprocess.h"
#include "psock.h"

#endif

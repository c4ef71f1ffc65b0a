// quillon: the library frame. Export macros, the status values, the event
// base and the exported variables that every family shares.
#ifndef QUILLONBASE_H
#define QUILLONBASE_H

#include "vekplatform.h"
#include "vekstatus.h"
#include "vekevent.h"
#include "ombmem.h"

// Exported values. Nothing in the library writes them.
extern QUILLON_API int const SystemAssigned;       // port number: let the system choose
extern QUILLON_API void* const badThreadHandle;    // a handle field that holds no thread
extern QUILLON_API int const badProcHandle;        // no process
extern QUILLON_API void* const badIOCtrlHandle;    // no pipe handle (all bits set)

#endif

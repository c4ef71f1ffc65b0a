/// \file
/// quillon: the library frame. Export macros, the status values, the event
/// base and the exported variables that every family shares.
///
/// The status enumeration errstatus, errMapError() and errText() come from
/// vekstatus.h; the event base vekEvent and vekWaitForAny() from vekevent.h;
/// the allocator hooks and vekAbort() from ombmem.h. A status of errOK (1) is
/// success and every other value a failure, so a status is compared with
/// errOK, never tested as a boolean.
///
/// The library needs no call to start: loading it runs its static
/// initialisers, and it is ready. It has no global lock and starts no thread
/// of its own accord; as a rule an object belongs to one thread at a time,
/// and each header says where that differs.
#ifndef QUILLONBASE_H
#define QUILLONBASE_H

#include "vekplatform.h"
#include "vekstatus.h"
#include "vekevent.h"
#include "ombmem.h"

// Exported values. Nothing in the library writes them.
/// Port number 0: let the system choose (psockServer::Initialize).
extern QUILLON_API int const SystemAssigned;
/// Null: a handle field that holds no thread.
extern QUILLON_API void* const badThreadHandle;
/// 0: no process. For callers; the library never reads it.
extern QUILLON_API int const badProcHandle;
/// All bits set: no pipe handle. For callers; the library never reads it.
extern QUILLON_API void* const badIOCtrlHandle;

#endif

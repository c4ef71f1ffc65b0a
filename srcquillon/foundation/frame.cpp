// The library's process-wide data, in load order.
//
// Everything that runs at load is defined in this one file, because only
// within one file does C++ fix the order of static initialisers. Unload runs
// the registered destructors in the reverse order. The exported values below
// are constants in the library's data and need no initialiser at all.
#include "pipestream.h"
#include "pmprocess.h"
#include "quillonbase.h"
#include "dsunique.h"
#include "ombhandle.h"
#include "pmtask.h"
#include "psock.h"

int const SystemAssigned = 0;
void* const badThreadHandle = nullptr;
int const badProcHandle = 0;
void* const badIOCtrlHandle = VEK_INVALID_HANDLE;

// Load order: the steps run in the order they are defined here; each comment
// names its step.

// 1. The kind of vekIPipeEvent.
int vekIPipeEvent::kind = vekIPipeEvent::AllocEventKind();

// 2. The copy of badThreadHandle that pmManageTask takes as its first registry key.
void* const pmManageTask::firstRegistryKey = badThreadHandle;

// 3. The task registry, with its destructor registered for unload.
// It starts without a block, and its destructor releases the block only.
dsScalarMap<pmManageTask*, void*> pmManageTask::registry;

// 4. The kind of ptkExecProcessEvent.
int ptkExecProcessEvent::kind = ptkExecProcessEvent::AllocEventKind();

// 5. The kind of ptkAsyncCallEvent.
int const ptkAsyncCallEvent::kind = vekEvent::AllocEventKind();

// 6. The kind of ptkStrictTaskEvent.
int const ptkStrictTaskEvent::kind = vekEvent::AllocEventKind();

// 7. The kind of vekSocketEvent.
int vekSocketEvent::kind = vekSocketEvent::AllocEventKind();

// 8. The interned-string database, with its destructor registered for unload.
// It starts without a block, and its destructor releases the block only.
dsNonOwnerStringMap<dsStringCell*> dsStringCell::database;

// Strict and managed tasks, and asynchronous calls. The registry, the first
// registry key and the event kinds are built at load in frame.cpp.
#include <new>

#include "foundation/shared.h"
#include "ombhandle.h"
#include "pmtask.h"

namespace {

// What the asynchronous call holds once its thread is released: the handle
// that StrictThread_Launch gives when it makes no thread.
void* const releasedThread = VEK_INVALID_HANDLE;

}  // namespace

bool pmStrictTask::noFork = false;

pmStrictTask::pmStrictTask() = default;

bool pmStrictTask::Start() {
  GetExitStatus().setAlive();
  return LaunchThread();
}

bool pmStrictTask::Kill() {
  GetExitStatus().setKilled();
  return false;
}

pmExitStatus& pmStrictTask::GetExitStatus() { return ownStatus; }

void pmStrictTask::SetNoFork() { noFork = true; }

bool pmStrictTask::IsNoForkSet() { return noFork; }

pmManageTask::pmManageTask(bool firstFlag, bool secondFlag)
    : registryKey(firstRegistryKey), bridge(firstFlag, secondFlag) {}

pmManageTask::~pmManageTask() { LeaveRegistry(); }

void pmManageTask::LeaveRegistry() {
  // Only this task's own entry: a handle value may come back for a later task.
  unsigned int index = 0;
  if (registry.FindIndex(registryKey, index) && registry.GetByIndex(index) == this) {
    registry.RemoveByIndex(index);
  }
}

bool pmManageTask::Start() {
  LeaveRegistry();
  GetExitStatus().setAlive();
  bool started = LaunchThread();
  registryKey = handle;
  if (started) registry.Add(registryKey, this);
  return started;
}

bool pmManageTask::Kill() {
  if (!pmThread::Kill()) return false;  // the entry stays
  LeaveRegistry();
  return true;
}

pmExitStatus& pmManageTask::GetExitStatus() { return ownStatus; }

bool pmManageTask::IsAlive() { return GetExitStatus().IsAlive(); }

bool pmManageTask::MustKillOnDestroy() const { return false; }

pmManageTask* pmManageTask::Fetch(void* const& key) {
  unsigned int index = 0;
  return registry.FindIndex(key, index) ? registry.GetByIndex(index) : nullptr;
}

ptkStrictTaskEvent::ptkStrictTaskEvent(pmStrictTask* task)
    : vekEvent(new (std::nothrow) vekMOEvent(task->handle, vekMOEvent::moThread)), task(task) {}

void* ptkStrictTaskEvent::GetProcess() { return task->handle; }

QUILLON_EVENT_KIND_MEMBERS(ptkStrictTaskEvent)

ptkAsyncCallEvent::ptkAsyncCallEvent(void* thread, void* argument)
    : vekEvent(new (std::nothrow) vekMOEvent(thread, vekMOEvent::moThread)),
      returnValue(-1),
      asyncThread(thread),
      argument(argument) {}

ptkAsyncCallEvent::~ptkAsyncCallEvent() {
  Collect();
  // Nobody else can reach the handle: let it go, and the thread with it once
  // the function returns. The thread runs on either way.
  if (asyncThread != releasedThread) StrictThread_Free(asyncThread);
}

void ptkAsyncCallEvent::Collect() {
  if (asyncThread != releasedThread && StrictThread_GetExitCode(asyncThread, &returnValue)) {
    StrictThread_Free(asyncThread);
    asyncThread = releasedThread;
  }
}

int ptkAsyncCallEvent::GetReturnValue() {
  Collect();
  return returnValue;
}

QUILLON_EVENT_KIND_MEMBERS(ptkAsyncCallEvent)

ptkAsyncCallEvent* call_async_func(int (*func)(void*), void* argument) {
  void* thread = StrictThread_Launch(func, argument, nullptr);
  if (thread == releasedThread) return nullptr;
  return new (std::nothrow) ptkAsyncCallEvent(thread, argument);
}

// The operations on thread and semaphore handles that need nothing of the
// system beyond what each platform's thread.cpp gives (threadrecord.h).
#include "ombhandle.h"
#include "threadrecord.h"
#include "vekthread.h"

using namespace tarnlet;

void* vekGetCurrentThread() { return currentThreadPseudoHandle; }

void* vek_beginthreadex(unsigned int (*start)(void*), void* argument) {
  ThreadRecordBase* record = LaunchThread(start, nullptr, nullptr, argument);
  return record != nullptr ? HandleOf(record) : nullptr;
}

void* StrictThread_Launch(int (*func)(void*), void* argument, void (*done)(void*, bool)) {
  ThreadRecordBase* record = LaunchThread(nullptr, func, done, argument);
  return record != nullptr ? HandleOf(record) : VEK_INVALID_HANDLE;
}

bool StrictThread_GetExitCode(void* handle, int* code) {
  ThreadRecordBase* thread = ThreadOf(handle);
  if (thread == nullptr || !ObserveEnd(thread)) return false;
  *code = static_cast<int>(thread->exitCode.load(std::memory_order_relaxed));
  return true;
}

void StrictThread_Free(void* handle) { vekCloseHandle(handle); }

void* uCreateSemaphore(void* attributes, std::int32_t initialCount, std::int32_t maximumCount,
                       char const* name) {
  if (!SemaphoreUnits::Valid(attributes, initialCount, maximumCount, name)) {
    Fail(Failure::invalidArgument);
    return nullptr;
  }
  SemaphoreRecordBase* semaphore = MakeSemaphore(initialCount, maximumCount);
  return semaphore != nullptr ? HandleOf(semaphore) : nullptr;
}

bool vekReleaseSemaphore(void* handle, std::int32_t count, std::int32_t* previousCount) {
  SemaphoreRecordBase* semaphore = SemaphoreOf(handle);
  if (semaphore == nullptr || count < 1) {
    Fail(semaphore == nullptr ? Failure::badHandle : Failure::invalidArgument);
    return false;
  }
  if (!semaphore->units.Raise(count, previousCount)) {
    Fail(Failure::tooManyPosts);
    return false;
  }
  return PostUnits(semaphore, count);
}

std::uint32_t vekWaitForSingleObject(void* handle, int msec) {
  if (ThreadRecordBase* thread = ThreadOf(handle)) return WaitForEnd(thread, msec);
  if (SemaphoreRecordBase* semaphore = SemaphoreOf(handle)) return TakeUnit(semaphore, msec);
  Fail(Failure::badHandle);
  return vekWaitFailed;
}

bool vekCloseHandle(void* handle) {
  Record* record = ThreadOf(handle);
  if (record == nullptr) record = SemaphoreOf(handle);
  if (record == nullptr) {
    Fail(Failure::badHandle);
    return false;
  }
  Release(record);
  return true;
}

vekMOEvent::vekMOEvent(void* handle, Type type) : record(nullptr) {
  Record* found = RecordOf(handle, type == moThread ? RecordKind::thread : RecordKind::semaphore);
  if (found == nullptr || (type != moThread && type != moSemaphore)) return;
  if (type == moThread && !AcquireEnd(static_cast<ThreadRecordBase*>(found))) return;
  found->references.fetch_add(1, std::memory_order_relaxed);
  record = found;
}

vekMOEvent::~vekMOEvent() {
  if (record == nullptr) return;
  if (ThreadRecordBase* thread = ThreadOf(record)) ReleaseEnd(thread);
  Release(static_cast<Record*>(record));
}

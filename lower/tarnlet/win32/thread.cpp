// Parking, threads and semaphores on Windows: WaitOnAddress, _beginthreadex,
// events and semaphores of the system. Windows code only.
//
// The records behind the handles are those of threadrecord.h. A thread starts
// suspended, so that its HANDLE is in the record before it runs; the record
// keeps that HANDLE while the thread runs, for vekTerminateThread, and whoever
// finishes the thread's end closes it: the thread itself once its function
// returned, or the caller of vekTerminateThread once the system has ended
// the thread. A thread record makes a manual-reset event only while something
// waits for its end, set once when the thread ends. A semaphore record holds
// a semaphore of the system, which a wait through an event takes a unit of
// and gives back (OnWaitSatisfied).
#include "vekthread.h"

#include <process.h>
#include <windows.h>

#include <atomic>
#include <cstdint>

#include "ombmem.h"
#include "threadrecord.h"
#include "waitset.h"

namespace {

using namespace tarnlet;

struct ThreadRecord : ThreadRecordBase {
  using ThreadRecordBase::ThreadRecordBase;

  HANDLE thread = nullptr;    // under `guard`: the running thread's, until its end is finished
  HANDLE endEvent = nullptr;  // under `guard`: a manual-reset event while endUsers > 0
  bool finishing = false;     // under `guard`: the thread or its terminator took the end
};

LiveThreadRecords liveThreadRecords;

void DeleteThreadRecord(ThreadRecord* record) {
  liveThreadRecords.Remove(record);
  delete record;
}

struct SemaphoreRecord : SemaphoreRecordBase {
  SemaphoreRecord(HANDLE semaphore, std::int32_t initial, std::int32_t maximum)
      : SemaphoreRecordBase(initial, maximum), semaphore(semaphore) {}
  ~SemaphoreRecord() { CloseHandle(semaphore); }

  HANDLE const semaphore;
};

ThreadRecord* WindowsThread(ThreadRecordBase* thread) { return static_cast<ThreadRecord*>(thread); }

HANDLE SystemSemaphore(SemaphoreRecordBase* semaphore) {
  return static_cast<SemaphoreRecord*>(semaphore)->semaphore;
}

void Delete(Record* record) {
  if (record->kind == RecordKind::thread) {
    DeleteThreadRecord(static_cast<ThreadRecord*>(record));
  } else {
    delete static_cast<SemaphoreRecord*>(record);
  }
}

void FailWith(DWORD code) { vekSetLastError(static_cast<int>(code)); }

// The system's code for the failure that just happened, or `fallback` where
// the call left none.
void KeepSystemErrorOr(DWORD fallback) {
  if (GetLastError() == ERROR_SUCCESS) {
    FailWith(fallback);
  } else {
    vekKeepSystemError();
  }
}

DWORD Milliseconds(int msec) { return msec < 0 ? INFINITE : static_cast<DWORD>(msec); }

std::uint32_t WaitResult(DWORD result) {
  if (result == WAIT_OBJECT_0) return vekWaitObject0;
  if (result == WAIT_TIMEOUT) return vekWaitTimeout;
  vekKeepSystemError();
  return vekWaitFailed;
}

class Guarded {
 public:
  explicit Guarded(ThreadRecord* record) : record(record) { record->guard.Lock(); }
  ~Guarded() { record->guard.Unlock(); }
  Guarded(Guarded const&) = delete;
  Guarded& operator=(Guarded const&) = delete;

 private:
  ThreadRecord* record;
};

// The event that is set when the thread ends, made by its first user and
// shared by the later ones; null (error kept) if none could be made.
HANDLE AcquireEndEvent(ThreadRecord* thread) {
  Guarded guarded(thread);
  if (thread->endUsers == 0) {
    BOOL const ended = thread->ended.load(std::memory_order_relaxed) ? TRUE : FALSE;
    HANDLE event = CreateEventW(nullptr, TRUE, ended, nullptr);
    if (event == nullptr) {
      vekKeepSystemError();
      return nullptr;
    }
    thread->endEvent = event;
  }
  ++thread->endUsers;
  return thread->endEvent;
}

// The last user closes the event.
void ReleaseEndEvent(ThreadRecord* thread) {
  Guarded guarded(thread);
  if (--thread->endUsers != 0) return;
  CloseHandle(thread->endEvent);
  thread->endEvent = nullptr;
}

// True when the caller takes the thread's end, which then may no longer be
// terminated; false when another caller had taken it.
bool TakeEnd(ThreadRecord* thread) {
  Guarded guarded(thread);
  if (thread->finishing) return false;
  thread->finishing = true;
  return true;
}

// The thread's end as whoever took it finishes it: the exit code, done, the
// signal (under the lock, so that a waiter that returns gives the event
// back) and the thread's own reference.
void FinishEnd(ThreadRecord* thread, bool returned) {
  if (!returned) {
    thread->exitCode.store(thread->terminateCode.load(std::memory_order_relaxed),
                           std::memory_order_relaxed);
  }
  if (thread->done != nullptr) thread->done(thread->argument, returned);
  {
    Guarded guarded(thread);
    CloseHandle(thread->thread);
    thread->thread = nullptr;
    SanitizerRelease(thread);
    thread->ended.store(true, std::memory_order_release);
    if (thread->endUsers != 0) SetEvent(thread->endEvent);
  }
  if (DropReference(thread)) DeleteThreadRecord(thread);
}

unsigned int __stdcall RunThread(void* raw) {
  auto* thread = static_cast<ThreadRecord*>(raw);
  std::uint32_t const code = thread->Call();
  thread->exitCode.store(code, std::memory_order_relaxed);
  // A terminator took the end first: its TerminateThread is under way.
  if (!TakeEnd(thread)) {
    for (;;) Sleep(INFINITE);
  }
  FinishEnd(thread, true);
  return code;
}

}  // namespace

ThreadRecordBase* tarnlet::LaunchThread(unsigned int (*start)(void*), int (*func)(void*),
                                        void (*done)(void*, bool), void* argument) {
  auto* record = new ThreadRecord(start, func, done, argument);
  liveThreadRecords.Add(record);
  SetLastError(ERROR_SUCCESS);
  auto const thread = reinterpret_cast<HANDLE>(
      _beginthreadex(nullptr, 0, RunThread, record, CREATE_SUSPENDED, nullptr));
  if (thread == nullptr) {
    KeepSystemErrorOr(ERROR_NOT_ENOUGH_MEMORY);
    DeleteThreadRecord(record);
    return nullptr;
  }
  record->thread = thread;
  ResumeThread(thread);
  return record;
}

void tarnlet::Release(Record* record) {
  if (DropReference(record)) Delete(record);
}

bool tarnlet::AcquireEnd(ThreadRecordBase* thread) {
  return AcquireEndEvent(WindowsThread(thread)) != nullptr;
}

void tarnlet::ReleaseEnd(ThreadRecordBase* thread) { ReleaseEndEvent(WindowsThread(thread)); }

void tarnlet::Fail(Failure failure) {
  switch (failure) {
    case Failure::badHandle: FailWith(ERROR_INVALID_HANDLE); break;
    case Failure::invalidArgument: FailWith(ERROR_INVALID_PARAMETER); break;
    case Failure::tooManyPosts: FailWith(ERROR_TOO_MANY_POSTS); break;
  }
}

std::uint32_t tarnlet::WaitForEnd(ThreadRecordBase* base, int msec) {
  ThreadRecord* thread = WindowsThread(base);
  if (ObserveEnd(thread)) return vekWaitObject0;
  HANDLE event = AcquireEndEvent(thread);
  if (event == nullptr) return vekWaitFailed;
  std::uint32_t const result = WaitResult(WaitForSingleObject(event, Milliseconds(msec)));
  ReleaseEndEvent(thread);
  if (result == vekWaitObject0) ObserveEnd(thread);
  return result;
}

SemaphoreRecordBase* tarnlet::MakeSemaphore(std::int32_t initial, std::int32_t maximum) {
  HANDLE semaphore = CreateSemaphoreW(nullptr, initial, maximum, nullptr);
  if (semaphore == nullptr) {
    vekKeepSystemError();
    return nullptr;
  }
  return new SemaphoreRecord(semaphore, initial, maximum);
}

bool tarnlet::PostUnits(SemaphoreRecordBase* semaphore, std::int32_t count) {
  if (ReleaseSemaphore(SystemSemaphore(semaphore), count, nullptr)) return true;
  vekKeepSystemError();
  return false;
}

std::uint32_t tarnlet::TakeUnit(SemaphoreRecordBase* semaphore, int msec) {
  std::uint32_t const result =
      WaitResult(WaitForSingleObject(SystemSemaphore(semaphore), Milliseconds(msec)));
  if (result == vekWaitObject0) semaphore->units.Lower();
  return result;
}

// The caller's last error is left as it was: parking is not a failure.
bool vekWaitOnAddress(std::atomic<std::uint32_t>* word, std::uint32_t expected, int msec) {
  static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t) &&
                    std::atomic<std::uint32_t>::is_always_lock_free,
                "WaitOnAddress compares a plain 32-bit word");
  DWORD const callerError = GetLastError();
  bool const woken = WaitOnAddress(word, &expected, sizeof expected, Milliseconds(msec)) != FALSE;
  bool const timedOut = !woken && GetLastError() == ERROR_TIMEOUT;
  SetLastError(callerError);
  return !timedOut;
}

void vekWakeByAddressSingle(std::atomic<std::uint32_t>* word) { WakeByAddressSingle(word); }

// Windows keeps no flag that says the process has one thread only.
namespace {
char const neverSingleThreaded = 0;
}
char const* const vekSingleThreaded = &neverSingleThreaded;

// A read of the thread's own block: nothing to keep per thread.
std::uint32_t vekGetCurrentThreadId() { return GetCurrentThreadId(); }

bool vekTerminateThread(void* handle, std::uint32_t exitCode) {
  ThreadRecordBase* found = ThreadOf(handle);
  if (found == nullptr) {
    FailWith(ERROR_INVALID_HANDLE);
    return false;
  }
  ThreadRecord* thread = WindowsThread(found);
  HANDLE system = nullptr;
  bool self = false;
  {
    // Under the guard the thread cannot take its end, so its HANDLE is open.
    Guarded guarded(thread);
    if (thread->finishing) return true;  // ended, or ending: nothing changes
    self = GetThreadId(thread->thread) == GetCurrentThreadId();
    if (!self && !TerminateThread(thread->thread, exitCode)) {
      vekKeepSystemError();
      return false;
    }
    thread->finishing = true;
    thread->terminateCode.store(exitCode, std::memory_order_relaxed);
    system = thread->thread;
  }
  // A thread that ends itself finishes its end first, then stops at once.
  if (self) {
    FinishEnd(thread, false);
    _endthreadex(exitCode);
  }
  // TerminateThread only starts the end; the thread is gone once its HANDLE
  // is signalled, and then nothing of it runs any more.
  WaitForSingleObject(system, INFINITE);
  FinishEnd(thread, false);
  return true;
}

void vekMOEvent::PrepareWait(vekWaitSet& wait) const {
  // A thread's event stays while this event is one of its users.
  if (ThreadRecordBase* thread = ThreadOf(record)) wait.WatchHandle(WindowsThread(thread)->endEvent);
  if (SemaphoreRecordBase* semaphore = SemaphoreOf(record)) wait.WatchHandle(SystemSemaphore(semaphore));
}

void vekMOEvent::OnWaitSatisfied() const {
  // Pairs with the release store of FinishEnd, so the waiter sees the thread's work.
  if (ThreadRecordBase* thread = ThreadOf(record)) ObserveEnd(thread);
  // The wait took a unit of the system's semaphore; a wait on the event
  // takes none, so it goes back. The library's count never lost it.
  if (SemaphoreRecordBase* semaphore = SemaphoreOf(record)) {
    DWORD const callerError = GetLastError();
    ReleaseSemaphore(SystemSemaphore(semaphore), 1, nullptr);
    SetLastError(callerError);
  }
}

// Parking, threads and semaphores on Linux: futexes, pthreads and eventfds.
// POSIX code only (Linux).
//
// The records behind the handles are those of threadrecord.h. A thread
// record makes an eventfd only while something polls for its end (an event,
// or a wait on the handle), written once when the thread ends; a semaphore's
// eventfd holds the free units (EFD_SEMAPHORE) for the life of the record.
#include <linux/futex.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/single_threaded.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <ctime>

#include "ombhandle.h"
#include "ombmem.h"
#include "threadrecord.h"
#include "vekthread.h"
#include "waitset.h"

namespace {

static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t) &&
                  std::atomic<std::uint32_t>::is_always_lock_free,
              "a futex needs a plain 32-bit word");

long Futex(std::atomic<std::uint32_t>* word, int operation, std::uint32_t value,
           timespec const* timeout) {
  return ::syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(word),
                   operation | FUTEX_PRIVATE_FLAG, value, timeout, nullptr, 0);
}

using namespace tarnlet;

struct ThreadRecord : ThreadRecordBase {
  using ThreadRecordBase::ThreadRecordBase;

  pthread_t thread{};  // valid while `ended` is false; read under `guard`
  int endFd = -1;      // under `guard`: an eventfd while endUsers > 0
};

LiveThreadRecords liveThreadRecords;

void DeleteThreadRecord(ThreadRecord* record) {
  liveThreadRecords.Remove(record);
  delete record;
}

struct SemaphoreRecord : SemaphoreRecordBase {
  SemaphoreRecord(int fd, std::int32_t initial, std::int32_t maximum)
      : SemaphoreRecordBase(initial, maximum), fd(fd) {}
  ~SemaphoreRecord() { ::close(fd); }

  int const fd;  // an eventfd that holds the free units
};

ThreadRecord* PosixThread(ThreadRecordBase* thread) { return static_cast<ThreadRecord*>(thread); }

ThreadRecord* PosixThreadOf(void* handle) { return PosixThread(ThreadOf(handle)); }

SemaphoreRecord* PosixSemaphore(SemaphoreRecordBase* semaphore) {
  return static_cast<SemaphoreRecord*>(semaphore);
}

void Delete(Record* record) {
  if (record->kind == RecordKind::thread) {
    DeleteThreadRecord(static_cast<ThreadRecord*>(record));
  } else {
    delete static_cast<SemaphoreRecord*>(record);
  }
}

// Release by the ending thread, which the system reaps (it is detached).
void ReleaseOnOwnThread(ThreadRecord* record, bool returned) {
  if (!DropReference(record)) return;
  // ThreadSanitizer would take the release of the block after a cancellation
  // for a race with the other holders' last atomic steps, which it cannot
  // order on this thread. Its builds keep the block.
  if (sanitizingThreads && !returned) return;
  DeleteThreadRecord(record);
}

void FailWith(int code) { vekSetLastError(code); }

// Holds a thread record's lock with cancellation off: no holder is ended
// half-way (close and write are cancellation points).
class Guarded {
 public:
  explicit Guarded(ThreadRecord* record) : record(record) {
    ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState);
    record->guard.Lock();
  }
  ~Guarded() {
    record->guard.Unlock();
    ::pthread_setcancelstate(cancelState, nullptr);
  }
  Guarded(Guarded const&) = delete;
  Guarded& operator=(Guarded const&) = delete;

 private:
  ThreadRecord* record;
  int cancelState = PTHREAD_CANCEL_ENABLE;
};

void SignalFd(int fd) {
  std::uint64_t one = 1;
  while (::write(fd, &one, sizeof one) < 0 && errno == EINTR) {
  }
}

// The eventfd that becomes readable when the thread ends, made by its first
// user and shared by the later ones; -1 (error kept) if none could be made.
int AcquireEndFd(ThreadRecord* thread) {
  Guarded guarded(thread);
  if (thread->endUsers == 0) {
    int fd = ::eventfd(0, EFD_CLOEXEC);
    if (fd < 0) {
      vekKeepSystemError();
      return -1;
    }
    if (thread->ended.load(std::memory_order_relaxed)) SignalFd(fd);
    thread->endFd = fd;
  }
  ++thread->endUsers;
  return thread->endFd;
}

// The last user closes the eventfd.
void ReleaseEndFd(ThreadRecord* thread) {
  Guarded guarded(thread);
  if (--thread->endUsers != 0) return;
  ::close(thread->endFd);
  thread->endFd = -1;
}

// One wait's use of the eventfd, given back on every way out of the wait,
// the unwinding of a cancellation included.
class EndFdUse {
 public:
  explicit EndFdUse(ThreadRecord* thread) : thread(thread), fd(AcquireEndFd(thread)) {}
  ~EndFdUse() {
    if (fd >= 0) ReleaseEndFd(thread);
  }
  EndFdUse(EndFdUse const&) = delete;
  EndFdUse& operator=(EndFdUse const&) = delete;

  int Fd() const { return fd; }

 private:
  ThreadRecord* thread;
  int fd;
};

// The write is made under the lock, so that a waiter that returns from its
// wait is the one that gives the eventfd back: a wait leaves no descriptor.
void SignalEnd(ThreadRecord* thread) {
  Guarded guarded(thread);
  SanitizerRelease(thread);
  thread->ended.store(true, std::memory_order_release);
  if (thread->endUsers != 0) SignalFd(thread->endFd);
}

// Runs on the thread as it ends, whether the function returned or the thread
// was cancelled (then from the unwinding).
struct ThreadEnd {
  ThreadRecord* record;
  bool returned = false;

  ~ThreadEnd() {
    ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    if (!returned) {
      record->exitCode.store(record->terminateCode.load(std::memory_order_relaxed),
                             std::memory_order_relaxed);
    }
    if (record->done != nullptr) record->done(record->argument, returned);
    SignalEnd(record);
    ReleaseOnOwnThread(record, returned);
  }
};

void* RunThread(void* raw) {
  ThreadEnd end{static_cast<ThreadRecord*>(raw)};
  end.record->exitCode.store(end.record->Call(), std::memory_order_relaxed);
  end.returned = true;
  return nullptr;
}

std::uint32_t WaitResult(int ready) {
  if (ready > 0) return vekWaitObject0;
  return ready == 0 ? vekWaitTimeout : vekWaitFailed;
}

// Reads one unit of a semaphore's eventfd without blocking: 1 taken, 0 none
// free now, -1 failed.
int TakeUnitNow(SemaphoreRecord* semaphore) {
  std::uint64_t unit = 0;
  for (;;) {
    if (::read(semaphore->fd, &unit, sizeof unit) == sizeof unit) {
      semaphore->units.Lower();
      return 1;
    }
    if (errno == EAGAIN) return 0;
    if (errno != EINTR) {
      vekKeepSystemError();
      return -1;
    }
  }
}

}  // namespace

ThreadRecordBase* tarnlet::LaunchThread(unsigned int (*start)(void*), int (*func)(void*),
                                        void (*done)(void*, bool), void* argument) {
  auto* record = new ThreadRecord(start, func, done, argument);
  liveThreadRecords.Add(record);
  int rc = ::pthread_create(&record->thread, nullptr, RunThread, record);
  if (rc != 0) {
    DeleteThreadRecord(record);
    FailWith(rc);
    return nullptr;
  }
  ::pthread_detach(record->thread);
  return record;
}

void tarnlet::Release(Record* record) {
  if (DropReference(record)) Delete(record);
}

bool tarnlet::AcquireEnd(ThreadRecordBase* thread) {
  return AcquireEndFd(PosixThread(thread)) >= 0;
}

void tarnlet::ReleaseEnd(ThreadRecordBase* thread) { ReleaseEndFd(PosixThread(thread)); }

void tarnlet::Fail(Failure failure) {
  switch (failure) {
    case Failure::badHandle: FailWith(EBADF); break;
    case Failure::invalidArgument: FailWith(EINVAL); break;
    case Failure::tooManyPosts: FailWith(EOVERFLOW); break;
  }
}

std::uint32_t tarnlet::WaitForEnd(ThreadRecordBase* base, int msec) {
  ThreadRecord* thread = PosixThread(base);
  if (ObserveEnd(thread)) return vekWaitObject0;
  EndFdUse use(thread);
  if (use.Fd() < 0) return vekWaitFailed;
  pollfd ready{use.Fd(), POLLIN, 0};
  std::uint32_t result = WaitResult(vekPollUntil(&ready, 1, msec));
  if (result == vekWaitObject0) ObserveEnd(thread);
  return result;
}

SemaphoreRecordBase* tarnlet::MakeSemaphore(std::int32_t initial, std::int32_t maximum) {
  int fd = ::eventfd(static_cast<unsigned int>(initial), EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE);
  if (fd < 0) {
    vekKeepSystemError();
    return nullptr;
  }
  return new SemaphoreRecord(fd, initial, maximum);
}

bool tarnlet::PostUnits(SemaphoreRecordBase* semaphore, std::int32_t count) {
  std::uint64_t units = static_cast<std::uint64_t>(count);
  while (::write(PosixSemaphore(semaphore)->fd, &units, sizeof units) < 0) {
    if (errno != EINTR) {
      vekKeepSystemError();
      return false;
    }
  }
  return true;
}

std::uint32_t tarnlet::TakeUnit(SemaphoreRecordBase* base, int msec) {
  SemaphoreRecord* semaphore = PosixSemaphore(base);
  // Another waiter may take the unit between poll and read: then wait again
  // with what is left of the time.
  pollfd ready{semaphore->fd, POLLIN, 0};
  for (;;) {
    int taken = TakeUnitNow(semaphore);
    if (taken != 0) return taken > 0 ? vekWaitObject0 : vekWaitFailed;
    std::uint32_t result = WaitResult(vekPollUntil(&ready, 1, msec));
    if (result != vekWaitObject0) return result;
  }
}

// The errno of the caller is left as it was: parking is not a failure.
bool vekWaitOnAddress(std::atomic<std::uint32_t>* word, std::uint32_t expected, int msec) {
  int const callerError = errno;
  timespec const limit{msec / 1000, (msec % 1000) * 1000000L};
  bool const timedOut =
      Futex(word, FUTEX_WAIT, expected, msec < 0 ? nullptr : &limit) != 0 && errno == ETIMEDOUT;
  errno = callerError;
  return !timedOut;
}

void vekWakeByAddressSingle(std::atomic<std::uint32_t>* word) {
  int const callerError = errno;
  Futex(word, FUTEX_WAKE, 1, nullptr);
  errno = callerError;
}

// The C library's own flag, which its locks read for the same purpose.
char const* const vekSingleThreaded = &__libc_single_threaded;

// Kept per thread after the first system call.
VEK_FAST_THREAD_LOCAL std::uint32_t currentThreadId = 0;

std::uint32_t vekGetCurrentThreadId() {
  if (currentThreadId == 0) currentThreadId = static_cast<std::uint32_t>(::gettid());
  return currentThreadId;
}

bool vekTerminateThread(void* handle, std::uint32_t exitCode) {
  ThreadRecord* thread = PosixThreadOf(handle);
  if (thread == nullptr) {
    FailWith(EBADF);
    return false;
  }
  // Under the guard the thread cannot pass its end, so its pthread_t is valid.
  Guarded guarded(thread);
  if (thread->ended.load(std::memory_order_relaxed)) return true;
  thread->terminateCode.store(exitCode, std::memory_order_relaxed);
  int rc = ::pthread_cancel(thread->thread);
  if (rc != 0) {
    FailWith(rc);
    return false;
  }
  return true;
}

void vekMOEvent::PrepareWait(vekWaitSet& wait) const {
  // A thread's eventfd stays while this event is one of its users.
  if (ThreadRecord* thread = PosixThreadOf(record)) wait.Watch(thread->endFd, false);
  if (SemaphoreRecordBase* semaphore = SemaphoreOf(record)) {
    wait.Watch(PosixSemaphore(semaphore)->fd, false);
  }
}

void vekMOEvent::OnWaitSatisfied() const {
  // Pairs with the release store of ThreadEnd, so the waiter sees the thread's work.
  if (ThreadRecord* thread = PosixThreadOf(record)) ObserveEnd(thread);
}

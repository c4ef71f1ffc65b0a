// Parking, threads and semaphores on Linux: futexes, pthreads and eventfds.
// POSIX code only (Linux).
//
// A thread or semaphore handle points to a reference-counted record. The
// handle, the running thread and every vekMOEvent on it each hold one
// reference; whoever drops the last one deletes the record. Threads are
// detached at launch, so an ended thread leaves nothing but its record: the
// exit code and the flag that says it has ended. A thread record makes an
// eventfd only while something polls for its end (an event, or a wait on the
// handle), written once when the thread ends; a semaphore's eventfd holds
// the free units (EFD_SEMAPHORE) for the life of the record.
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
#include "pollwait.h"
#include "vekthread.h"
#include "waitset.h"

#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#endif

namespace {

static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t) &&
                  std::atomic<std::uint32_t>::is_always_lock_free,
              "a futex needs a plain 32-bit word");

long Futex(std::atomic<std::uint32_t>* word, int operation, std::uint32_t value,
           timespec const* timeout) {
  return ::syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(word),
                   operation | FUTEX_PRIVATE_FLAG, value, timeout, nullptr, 0);
}

// The errno of the caller is left as it was: parking is not a failure.
bool Park(std::atomic<std::uint32_t>* word, std::uint32_t expected, int msec) {
  int const callerError = errno;
  timespec const limit{msec / 1000, (msec % 1000) * 1000000L};
  bool const timedOut =
      Futex(word, FUTEX_WAIT, expected, msec < 0 ? nullptr : &limit) != 0 && errno == ETIMEDOUT;
  errno = callerError;
  return !timedOut;
}

void WakeOne(std::atomic<std::uint32_t>* word) {
  int const callerError = errno;
  Futex(word, FUTEX_WAKE, 1, nullptr);
  errno = callerError;
}

// A thread cancelled inside a blocking call unwinds with ThreadSanitizer's
// interceptors and atomics switched off (google/sanitizers#646): it would
// miss the orderings of the record's atomics on that path. They are told to
// ThreadSanitizer directly as well; in other builds these do nothing.
#if defined(__SANITIZE_THREAD__)
constexpr bool sanitizingThreads = true;
void SanitizerRelease(void* address) { __tsan_release(address); }
void SanitizerAcquire(void* address) { __tsan_acquire(address); }
#else
constexpr bool sanitizingThreads = false;
void SanitizerRelease(void*) {}
void SanitizerAcquire(void*) {}
#endif

// A lock of one word (unlocked, locked, locked with sleepers) for the short
// steps that order a thread's end against its termination and its eventfd.
class WordLock {
 public:
  void Lock() {
    std::uint32_t expected = unlocked;
    if (!word.compare_exchange_strong(expected, locked, std::memory_order_acquire,
                                      std::memory_order_relaxed)) {
      while (word.exchange(contended, std::memory_order_acquire) != unlocked) {
        Park(&word, contended, -1);
      }
    }
    SanitizerAcquire(this);
  }

  void Unlock() {
    SanitizerRelease(this);
    if (word.exchange(unlocked, std::memory_order_release) == contended) WakeOne(&word);
  }

 private:
  enum : std::uint32_t { unlocked, locked, contended };
  std::atomic<std::uint32_t> word{unlocked};
};

enum class RecordKind : std::uint8_t { thread, semaphore };

struct Record {
  Record(RecordKind kind, int references) : kind(kind), references(references) {}

  RecordKind const kind;
  std::atomic<int> references;
};

// Kept small: a strict or managed task keeps its handle, and so this record,
// until the process ends.
struct ThreadRecord : Record {
  ThreadRecord() : Record(RecordKind::thread, 2) {}

  std::uint32_t Call() {
    return start != nullptr ? start(argument) : static_cast<std::uint32_t>(func(argument));
  }

  pthread_t thread{};  // valid while `ended` is false; read under `guard`
  unsigned int (*start)(void*) = nullptr;  // one of start and func is set
  int (*func)(void*) = nullptr;
  void (*done)(void*, bool) = nullptr;
  void* argument = nullptr;
  std::atomic<std::uint32_t> exitCode{0};
  std::atomic<std::uint32_t> terminateCode{0};
  std::atomic<bool> ended{false};  // set once, under `guard`
  WordLock guard;
  int endFd = -1;      // under `guard`: an eventfd while endFdUsers > 0
  int endFdUsers = 0;  // under `guard`: events and waits that poll endFd
  ThreadRecord* livePrevious = nullptr;  // in the list of live records
  ThreadRecord* liveNext = nullptr;
};

// Every thread record that is still alive. A task may keep its handle until
// the process ends; the list keeps such records held by the library, not
// lost (as a leak checker would otherwise report them).
class LiveThreadRecords {
 public:
  void Add(ThreadRecord* record) {
    guard.Lock();
    record->liveNext = first;
    if (first != nullptr) first->livePrevious = record;
    first = record;
    guard.Unlock();
  }

  void Remove(ThreadRecord* record) {
    guard.Lock();
    if (record->livePrevious != nullptr) {
      record->livePrevious->liveNext = record->liveNext;
    } else {
      first = record->liveNext;
    }
    if (record->liveNext != nullptr) record->liveNext->livePrevious = record->livePrevious;
    guard.Unlock();
  }

 private:
  WordLock guard;
  ThreadRecord* first = nullptr;
};

LiveThreadRecords liveThreadRecords;

void DeleteThreadRecord(ThreadRecord* record) {
  liveThreadRecords.Remove(record);
  delete record;
}

struct SemaphoreRecord : Record {
  SemaphoreRecord(int fd, std::int32_t initial, std::int32_t maximum)
      : Record(RecordKind::semaphore, 1), fd(fd), count(initial), maximum(maximum) {}
  ~SemaphoreRecord() { ::close(fd); }

  int const fd;
  // The free units. Never below the eventfd's value: a release raises it
  // first, a wait lowers it last.
  std::atomic<std::int32_t> count;
  std::int32_t const maximum;
};

void* const currentThreadPseudoHandle = reinterpret_cast<void*>(~std::uintptr_t{0} - 1);

bool IsHandle(void* handle) {
  return handle != nullptr && handle != VEK_INVALID_HANDLE && handle != currentThreadPseudoHandle;
}

// Handles are Record pointers, converted to void* and back as such.
void* HandleOf(Record* record) { return record; }

Record* RecordOf(void* handle, RecordKind kind) {
  if (!IsHandle(handle)) return nullptr;
  auto* record = static_cast<Record*>(handle);
  return record->kind == kind ? record : nullptr;
}

ThreadRecord* ThreadOf(void* handle) {
  return static_cast<ThreadRecord*>(RecordOf(handle, RecordKind::thread));
}

SemaphoreRecord* SemaphoreOf(void* handle) {
  return static_cast<SemaphoreRecord*>(RecordOf(handle, RecordKind::semaphore));
}

void Delete(Record* record) {
  if (record->kind == RecordKind::thread) {
    DeleteThreadRecord(static_cast<ThreadRecord*>(record));
  } else {
    delete static_cast<SemaphoreRecord*>(record);
  }
}

// Drops one reference; true for the last one, which then owns the record.
bool DropReference(Record* record) {
  SanitizerRelease(record);
  if (record->references.fetch_sub(1, std::memory_order_acq_rel) != 1) return false;
  SanitizerAcquire(record);
  return true;
}

void Release(Record* record) {
  if (DropReference(record)) Delete(record);
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
  if (thread->endFdUsers == 0) {
    int fd = ::eventfd(0, EFD_CLOEXEC);
    if (fd < 0) {
      vekKeepSystemError();
      return -1;
    }
    if (thread->ended.load(std::memory_order_relaxed)) SignalFd(fd);
    thread->endFd = fd;
  }
  ++thread->endFdUsers;
  return thread->endFd;
}

// The last user closes the eventfd.
void ReleaseEndFd(ThreadRecord* thread) {
  Guarded guarded(thread);
  if (--thread->endFdUsers != 0) return;
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

// True once the thread has ended; the caller then sees all the thread did.
bool ObserveEnd(ThreadRecord* thread) {
  bool ended = thread->ended.load(std::memory_order_acquire);
  if (ended) SanitizerAcquire(thread);
  return ended;
}

// The write is made under the lock, so that a waiter that returns from its
// wait is the one that gives the eventfd back: a wait leaves no descriptor.
void SignalEnd(ThreadRecord* thread) {
  Guarded guarded(thread);
  SanitizerRelease(thread);
  thread->ended.store(true, std::memory_order_release);
  if (thread->endFdUsers != 0) SignalFd(thread->endFd);
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

// Starts a detached thread that calls start or func; its record, or null
// (error kept) on failure.
ThreadRecord* Launch(unsigned int (*start)(void*), int (*func)(void*), void (*done)(void*, bool),
                     void* argument) {
  auto* record = new ThreadRecord;
  record->start = start;
  record->func = func;
  record->done = done;
  record->argument = argument;
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

std::uint32_t WaitResult(int ready) {
  if (ready > 0) return vekWaitObject0;
  return ready == 0 ? vekWaitTimeout : vekWaitFailed;
}

std::uint32_t WaitForEnd(ThreadRecord* thread, int msec) {
  if (ObserveEnd(thread)) return vekWaitObject0;
  EndFdUse use(thread);
  if (use.Fd() < 0) return vekWaitFailed;
  pollfd ready{use.Fd(), POLLIN, 0};
  std::uint32_t result = WaitResult(vekPollUntil(&ready, 1, msec));
  if (result == vekWaitObject0) ObserveEnd(thread);
  return result;
}

// Reads one unit of a semaphore's eventfd without blocking: 1 taken, 0 none
// free now, -1 failed.
int TakeUnit(SemaphoreRecord* semaphore) {
  std::uint64_t unit = 0;
  for (;;) {
    if (::read(semaphore->fd, &unit, sizeof unit) == sizeof unit) {
      semaphore->count.fetch_sub(1, std::memory_order_relaxed);
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

bool vekWaitOnAddress(std::atomic<std::uint32_t>* word, std::uint32_t expected, int msec) {
  return Park(word, expected, msec);
}

void vekWakeByAddressSingle(std::atomic<std::uint32_t>* word) { WakeOne(word); }

// The C library's own flag, which its locks read for the same purpose.
char const* const vekSingleThreaded = &__libc_single_threaded;

void* vekGetCurrentThread() { return currentThreadPseudoHandle; }

// Kept per thread after the first system call.
VEK_FAST_THREAD_LOCAL std::uint32_t currentThreadId = 0;

std::uint32_t vekGetCurrentThreadId() {
  if (currentThreadId == 0) currentThreadId = static_cast<std::uint32_t>(::gettid());
  return currentThreadId;
}

void* uCreateSemaphore(void* attributes, std::int32_t initialCount, std::int32_t maximumCount,
                       char const* name) {
  if (attributes != nullptr || name != nullptr || maximumCount < 1 || initialCount < 0 ||
      initialCount > maximumCount) {
    FailWith(EINVAL);
    return nullptr;
  }
  int fd = ::eventfd(static_cast<unsigned int>(initialCount),
                     EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE);
  if (fd < 0) {
    vekKeepSystemError();
    return nullptr;
  }
  return HandleOf(new SemaphoreRecord(fd, initialCount, maximumCount));
}

bool vekReleaseSemaphore(void* handle, std::int32_t count, std::int32_t* previousCount) {
  SemaphoreRecord* semaphore = SemaphoreOf(handle);
  if (semaphore == nullptr || count < 1) {
    FailWith(semaphore == nullptr ? EBADF : EINVAL);
    return false;
  }
  std::int32_t now = semaphore->count.load(std::memory_order_relaxed);
  do {
    if (count > semaphore->maximum - now) {
      FailWith(EOVERFLOW);
      return false;
    }
  } while (!semaphore->count.compare_exchange_weak(now, now + count, std::memory_order_relaxed));
  if (previousCount != nullptr) *previousCount = now;
  std::uint64_t units = static_cast<std::uint64_t>(count);
  while (::write(semaphore->fd, &units, sizeof units) < 0) {
    if (errno != EINTR) {
      vekKeepSystemError();
      return false;
    }
  }
  return true;
}

std::uint32_t vekWaitForSingleObject(void* handle, int msec) {
  if (ThreadRecord* thread = ThreadOf(handle)) return WaitForEnd(thread, msec);
  SemaphoreRecord* semaphore = SemaphoreOf(handle);
  if (semaphore == nullptr) {
    FailWith(EBADF);
    return vekWaitFailed;
  }
  // Another waiter may take the unit between poll and read: then wait again
  // with what is left of the time.
  pollfd ready{semaphore->fd, POLLIN, 0};
  for (;;) {
    int taken = TakeUnit(semaphore);
    if (taken != 0) return taken > 0 ? vekWaitObject0 : vekWaitFailed;
    std::uint32_t result = WaitResult(vekPollUntil(&ready, 1, msec));
    if (result != vekWaitObject0) return result;
  }
}

void* vek_beginthreadex(unsigned int (*start)(void*), void* argument) {
  ThreadRecord* record = Launch(start, nullptr, nullptr, argument);
  return record != nullptr ? HandleOf(record) : nullptr;
}

bool vekTerminateThread(void* handle, std::uint32_t exitCode) {
  ThreadRecord* thread = ThreadOf(handle);
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

bool vekCloseHandle(void* handle) {
  Record* record = ThreadOf(handle);
  if (record == nullptr) record = SemaphoreOf(handle);
  if (record == nullptr) {
    FailWith(EBADF);
    return false;
  }
  Release(record);
  return true;
}

void* StrictThread_Launch(int (*func)(void*), void* argument, void (*done)(void*, bool)) {
  ThreadRecord* record = Launch(nullptr, func, done, argument);
  return record != nullptr ? HandleOf(record) : VEK_INVALID_HANDLE;
}

bool StrictThread_GetExitCode(void* handle, int* code) {
  ThreadRecord* thread = ThreadOf(handle);
  if (thread == nullptr || !ObserveEnd(thread)) return false;
  *code = static_cast<int>(thread->exitCode.load(std::memory_order_relaxed));
  return true;
}

void StrictThread_Free(void* handle) { vekCloseHandle(handle); }

vekMOEvent::vekMOEvent(void* handle, Type type) : record(nullptr) {
  Record* found = RecordOf(handle, type == moThread ? RecordKind::thread : RecordKind::semaphore);
  if (found == nullptr || (type != moThread && type != moSemaphore)) return;
  if (type == moThread && AcquireEndFd(static_cast<ThreadRecord*>(found)) < 0) return;
  found->references.fetch_add(1, std::memory_order_relaxed);
  record = found;
}

vekMOEvent::~vekMOEvent() {
  if (record == nullptr) return;
  if (ThreadRecord* thread = ThreadOf(record)) ReleaseEndFd(thread);
  Release(static_cast<Record*>(record));
}

void vekMOEvent::PrepareWait(vekWaitSet& wait) const {
  // A thread's eventfd stays while this event is one of its users.
  if (ThreadRecord* thread = ThreadOf(record)) wait.Watch(thread->endFd, false);
  if (SemaphoreRecord* semaphore = SemaphoreOf(record)) wait.Watch(semaphore->fd, false);
}

void vekMOEvent::OnWaitSatisfied() const {
  // Pairs with the release store of ThreadEnd, so the waiter sees the thread's work.
  if (ThreadRecord* thread = ThreadOf(record)) ObserveEnd(thread);
}

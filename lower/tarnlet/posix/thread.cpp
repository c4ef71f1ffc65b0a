// Threads, semaphores and critical sections on pthreads.
//
// A thread or semaphore handle points to a reference-counted record with an
// eventfd: a thread's eventfd is written once when its function has ended, a
// semaphore's holds the free units (EFD_SEMAPHORE). The handle, the running
// thread and every vekMOEvent on it each hold one reference; whoever drops
// the last one releases the record, and reaps the thread unless it is the
// thread itself.
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <new>

#include "ombmem.h"
#include "pollwait.h"
#include "vekthread.h"

#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#endif

namespace {

static_assert(sizeof(pthread_mutex_t) <= VEK_CRITICAL_SECTION_BYTES,
              "vekCriticalSection is too small for pthread_mutex_t");
static_assert(alignof(pthread_mutex_t) <= 16, "vekCriticalSection is under-aligned");

pthread_mutex_t* MutexOf(vekCriticalSection* section) {
  return std::launder(reinterpret_cast<pthread_mutex_t*>(section->opaque));
}

enum class RecordKind { thread, semaphore };

struct Record {
  Record(RecordKind kind, int fd, int references) : kind(kind), fd(fd), references(references) {}
  virtual ~Record() { ::close(fd); }

  RecordKind const kind;
  int const fd;
  std::atomic<int> references;
};

struct ThreadRecord : Record {
  explicit ThreadRecord(int fd) : Record(RecordKind::thread, fd, 2) {}

  std::uint32_t Call() {
    return start != nullptr ? start(argument) : static_cast<std::uint32_t>(func(argument));
  }

  pthread_t thread{};
  unsigned int (*start)(void*) = nullptr;  // one of start and func is set
  int (*func)(void*) = nullptr;
  void (*done)(void*, bool) = nullptr;
  void* argument = nullptr;
  std::atomic<std::uint32_t> exitCode{0};
  std::atomic<std::uint32_t> terminateCode{0};
  std::atomic<bool> ended{false};
};

struct SemaphoreRecord : Record {
  SemaphoreRecord(int fd, std::int32_t initial, std::int32_t maximum)
      : Record(RecordKind::semaphore, fd, 1), count(initial), maximum(maximum) {}

  // The free units. Never below the eventfd's value: a release raises it
  // first, a wait lowers it last.
  std::atomic<std::int32_t> count;
  std::int32_t const maximum;
};

void* const currentThreadPseudoHandle = reinterpret_cast<void*>(~std::uintptr_t{0} - 1);

bool IsHandle(void* handle) {
  return handle != nullptr && handle != reinterpret_cast<void*>(~std::uintptr_t{0}) &&
         handle != currentThreadPseudoHandle;
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

// Drops one reference; true for the last one, which then owns the record.
bool DropReference(Record* record) {
  SanitizerRelease(record);
  if (record->references.fetch_sub(1, std::memory_order_acq_rel) != 1) return false;
  SanitizerAcquire(record);
  return true;
}

// Release by anyone but the thread itself. A thread record's last reference
// is dropped here only once the thread has ended, so the join is brief.
void Release(Record* record) {
  if (!DropReference(record)) return;
  if (record->kind == RecordKind::thread) {
    ::pthread_join(static_cast<ThreadRecord*>(record)->thread, nullptr);
  }
  delete record;
}

// Release by the ending thread; the system reaps it when it is the last.
void ReleaseOnOwnThread(ThreadRecord* record, bool returned) {
  if (!DropReference(record)) return;
  ::pthread_detach(::pthread_self());
  if (sanitizingThreads && !returned) {
    // ThreadSanitizer would take the release of the block after a
    // cancellation for a race with the other holders' last atomic steps,
    // which it cannot order on this thread. Its builds keep the block.
    record->~ThreadRecord();
    return;
  }
  delete record;
}

void FailWith(int code) { vekSetLastError(code); }

// True once the thread has ended; the caller then sees all the thread did.
bool ObserveEnd(ThreadRecord* thread) {
  bool ended = thread->ended.load(std::memory_order_acquire);
  if (ended) SanitizerAcquire(thread);
  return ended;
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
    SanitizerRelease(record);
    record->ended.store(true, std::memory_order_release);
    std::uint64_t one = 1;
    while (::write(record->fd, &one, sizeof one) < 0 && errno == EINTR) {
    }
    ReleaseOnOwnThread(record, returned);
  }
};

void* RunThread(void* raw) {
  ThreadEnd end{static_cast<ThreadRecord*>(raw)};
  end.record->exitCode.store(end.record->Call(), std::memory_order_relaxed);
  end.returned = true;
  return nullptr;
}

// Starts a thread for a record whose function fields are set; null on failure.
ThreadRecord* Launch(ThreadRecord* record) {
  int rc = ::pthread_create(&record->thread, nullptr, RunThread, record);
  if (rc != 0) {
    delete record;
    FailWith(rc);
    return nullptr;
  }
  return record;
}

ThreadRecord* NewThreadRecord() {
  int fd = ::eventfd(0, EFD_CLOEXEC);
  if (fd < 0) {
    vekKeepSystemError();
    return nullptr;
  }
  return new ThreadRecord(fd);
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

std::uint32_t WaitResult(int ready) {
  if (ready > 0) return vekWaitObject0;
  return ready == 0 ? vekWaitTimeout : vekWaitFailed;
}

}  // namespace

void vekInitializeCriticalSection(vekCriticalSection* section) {
  ::pthread_mutex_init(new (section->opaque) pthread_mutex_t, nullptr);
}

void vekDeleteCriticalSection(vekCriticalSection* section) {
  ::pthread_mutex_destroy(MutexOf(section));
}

void vekEnterCriticalSection(vekCriticalSection* section) {
  ::pthread_mutex_lock(MutexOf(section));
}

void vekLeaveCriticalSection(vekCriticalSection* section) {
  ::pthread_mutex_unlock(MutexOf(section));
}

void* vekGetCurrentThread() { return currentThreadPseudoHandle; }

// Asked on every lock operation, so kept per thread after the first system
// call. Initial-exec: a plain load from the thread pointer, no look-up call.
__attribute__((tls_model("initial-exec"))) thread_local std::uint32_t currentThreadId = 0;

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
  if (ThreadRecord* thread = ThreadOf(handle)) {
    pollfd ready{thread->fd, POLLIN, 0};
    std::uint32_t result = WaitResult(vekPollUntil(&ready, 1, msec));
    if (result == vekWaitObject0) ObserveEnd(thread);
    return result;
  }
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
  ThreadRecord* record = NewThreadRecord();
  if (record == nullptr) return nullptr;
  record->start = start;
  record->argument = argument;
  record = Launch(record);
  return record != nullptr ? HandleOf(record) : nullptr;
}

bool vekTerminateThread(void* handle, std::uint32_t exitCode) {
  ThreadRecord* thread = ThreadOf(handle);
  if (thread == nullptr) {
    FailWith(EBADF);
    return false;
  }
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
  ThreadRecord* record = NewThreadRecord();
  if (record != nullptr) {
    record->func = func;
    record->done = done;
    record->argument = argument;
    record = Launch(record);
  }
  return record != nullptr ? HandleOf(record) : reinterpret_cast<void*>(~std::uintptr_t{0});
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
  found->references.fetch_add(1, std::memory_order_relaxed);
  record = found;
}

vekMOEvent::~vekMOEvent() {
  if (record != nullptr) Release(static_cast<Record*>(record));
}

vekWaitObject vekMOEvent::GetWaitObject() const {
  if (record == nullptr) return {-1, false};
  return {static_cast<Record*>(record)->fd, false};
}

void vekMOEvent::OnWaitSatisfied() const {
  // Pairs with the release store of ThreadEnd, so the waiter sees the thread's work.
  if (ThreadRecord* thread = ThreadOf(record)) ObserveEnd(thread);
}

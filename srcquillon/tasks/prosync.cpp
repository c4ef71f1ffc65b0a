#include "prosync.h"

namespace {

// The calling thread's id, asked of tarnlet once per thread: a call into
// another library on every operation would cost as much as the lock.
VEK_FAST_THREAD_LOCAL std::uint32_t selfId = 0;

std::uint32_t SelfId() {
  if (selfId == 0) selfId = vekGetCurrentThreadId();
  return selfId;
}

// The pseudo-handle that stands for the calling thread: one constant for all,
// asked for once at load rather than behind a guard on every Lock.
void* const currentThreadHandle = vekGetCurrentThread();

// While the process has one thread, no other thread can reach a lock word,
// and plain loads and stores take and give it without a locked instruction.
bool OnlyThread() { return *vekSingleThreaded != 0; }

}  // namespace

proMutex::proMutex() : ownerHandle(badThreadHandle), depth(0), valid(false) { Initialize(); }

bool proMutex::Initialize() {
  // A second call would free a mutex that has an owner and waiters.
  if (valid) return true;
  lockWord.store(0, std::memory_order_relaxed);
  wakes.store(0, std::memory_order_relaxed);
  ownerId.store(noOwner, std::memory_order_relaxed);
  valid = true;
  return true;
}

proMutex::~proMutex() = default;

// The steps of Lock, TryLock and Unlock that need no waiting are inline, so
// that each operation is one call with no calls inside.
inline bool proMutex::NestIfOwner(std::uint32_t self) {
  if (ownerId.load(std::memory_order_relaxed) != self) return false;
  ++depth;
  return true;
}

inline void proMutex::BecomeOwner(std::uint32_t self) {
  ownerHandle = currentThreadHandle;
  ownerId.store(self, std::memory_order_relaxed);
  depth = 1;
}

bool proMutex::Lock() {
  if (!valid) return false;
  std::uint32_t const self = SelfId();
  if (NestIfOwner(self)) return true;
  std::uint32_t seen = 0;
  if (!TakeFree(seen)) WaitForTurn(seen);
  BecomeOwner(self);
  return true;
}

inline bool proMutex::TakeFree(std::uint32_t& seen) {
  if (OnlyThread()) return TakeAlone(seen);
  // Only the owned bit's old value is asked for: one locked bit-test-and-set.
  if ((lockWord.fetch_or(owned, std::memory_order_acquire) & owned) == 0) return true;
  seen = lockWord.load(std::memory_order_relaxed);
  return false;
}

inline bool proMutex::TakeUnwanted(std::uint32_t& seen) {
  if (OnlyThread()) return TakeAlone(seen);
  seen = 0;
  return lockWord.compare_exchange_strong(seen, owned, std::memory_order_acquire,
                                          std::memory_order_relaxed);
}

inline bool proMutex::TakeAlone(std::uint32_t& seen) {
  // Nobody else can own or wait: free is 0.
  seen = lockWord.load(std::memory_order_relaxed);
  if (seen != 0) return false;
  lockWord.store(owned, std::memory_order_relaxed);
  return true;
}

// Kept out of line: the paths that need no waiting stay short.
[[gnu::noinline]] void proMutex::WaitForTurn(std::uint32_t seen) {
  // A free mutex is taken at once, waiters or not; an owned one is waited
  // for as a counted waiter, so that an Unlock wakes one and TryLock fails.
  // A waiter parks on the wake count, read before the step in which it last
  // looked at the word: a wake counted after that step ends the park.
  bool counted = false;
  for (;;) {
    if ((seen & owned) == 0) {
      std::uint32_t const next = counted ? ((seen | owned) - oneWaiter) & ~wakePending : seen | owned;
      if (lockWord.compare_exchange_weak(seen, next, std::memory_order_acquire,
                                         std::memory_order_relaxed)) {
        return;
      }
      continue;
    }
    std::uint32_t const turn = wakes.load(std::memory_order_seq_cst);
    // Each look also takes up a wake given (clears wakePending), so the next
    // Unlock wakes again.
    if (counted) {
      seen = lockWord.fetch_and(~wakePending, std::memory_order_seq_cst) & ~wakePending;
      if ((seen & owned) == 0) continue;
    } else if (lockWord.compare_exchange_weak(seen, (seen + oneWaiter) & ~wakePending,
                                              std::memory_order_seq_cst,
                                              std::memory_order_relaxed)) {
      counted = true;
    } else {
      continue;
    }
    vekWaitOnAddress(&wakes, turn, vekInfinite);
    seen = lockWord.load(std::memory_order_relaxed);
  }
}

bool proMutex::TryLock() {
  if (!valid) return false;
  std::uint32_t const self = SelfId();
  if (NestIfOwner(self)) return true;
  std::uint32_t seen = 0;
  if (!TakeUnwanted(seen)) return false;
  BecomeOwner(self);
  return true;
}

bool proMutex::Unlock() {
  if (!valid) return false;
  if (ownerId.load(std::memory_order_relaxed) != SelfId()) return false;
  if (--depth != 0) return true;
  // The owner fields are cleared while the mutex is still owned.
  ownerHandle = badThreadHandle;
  ownerId.store(noOwner, std::memory_order_relaxed);
  if (OnlyThread() && lockWord.load(std::memory_order_relaxed) == owned) {
    lockWord.store(0, std::memory_order_relaxed);
    return true;
  }
  // Gives up ownership and, when a waiter is counted and no wake is under
  // way, marks one in the same step; the wake itself follows.
  std::uint32_t seen = owned;
  for (;;) {
    bool const wake = seen >= oneWaiter && (seen & wakePending) == 0;
    std::uint32_t const next = (seen - owned) | (wake ? wakePending : 0);
    if (lockWord.compare_exchange_weak(seen, next, std::memory_order_seq_cst,
                                       std::memory_order_relaxed)) {
      if (wake) WakeOne();
      return true;
    }
  }
}

void proMutex::WakeOne() {
  // Counted after the wake was marked in the lock word (both in one total
  // order with the waiters' reads), so a waiter that saw no mark parks on a
  // count older than this one.
  wakes.fetch_add(1, std::memory_order_seq_cst);
  vekWakeByAddressSingle(&wakes);
}

proSemaphoreBase::~proSemaphoreBase() = default;

proSimpleSem::proSimpleSem(unsigned int count)
    : handle(uCreateSemaphore(nullptr, static_cast<std::int32_t>(count),
                              static_cast<std::int32_t>(count), nullptr)) {}

proSimpleSem::~proSimpleSem() { vekCloseHandle(handle); }

bool proSimpleSem::Increment() { return vekReleaseSemaphore(handle, 1, nullptr); }

bool proSimpleSem::Decrement() {
  return vekWaitForSingleObject(handle, vekInfinite) != vekWaitFailed;
}

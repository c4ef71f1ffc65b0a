#include "prosync.h"

proMutex::proMutex() : ownerHandle(badThreadHandle), depth(0), valid(false) { Initialize(); }

bool proMutex::Initialize() {
  // A second call would free a mutex that has an owner and waiters.
  if (valid) return true;
  lockWord.store(0, std::memory_order_relaxed);
  ownerId.store(noOwner, std::memory_order_relaxed);
  valid = true;
  return true;
}

proMutex::~proMutex() = default;

bool proMutex::NestIfOwner(std::uint32_t self) {
  if (ownerId.load(std::memory_order_relaxed) != self) return false;
  ++depth;
  return true;
}

void proMutex::BecomeOwner(std::uint32_t self) {
  ownerHandle = vekGetCurrentThread();
  ownerId.store(self, std::memory_order_relaxed);
  depth = 1;
}

bool proMutex::Lock() {
  if (!valid) return false;
  std::uint32_t const self = vekGetCurrentThreadId();
  if (NestIfOwner(self)) return true;
  std::uint32_t seen = 0;
  if (!lockWord.compare_exchange_strong(seen, owned, std::memory_order_acquire,
                                        std::memory_order_relaxed)) {
    WaitForTurn(seen);
  }
  BecomeOwner(self);
  return true;
}

void proMutex::WaitForTurn(std::uint32_t seen) {
  // A free mutex is taken at once, waiters or not; an owned one is waited
  // for as a counted waiter, so that its Unlock wakes one and TryLock fails.
  bool counted = false;
  for (;;) {
    if ((seen & owned) == 0) {
      std::uint32_t const taken = (seen | owned) - (counted ? oneWaiter : 0);
      if (lockWord.compare_exchange_weak(seen, taken, std::memory_order_acquire,
                                         std::memory_order_relaxed)) {
        return;
      }
    } else if (!counted) {
      if (lockWord.compare_exchange_weak(seen, seen + oneWaiter, std::memory_order_relaxed,
                                         std::memory_order_relaxed)) {
        seen += oneWaiter;
        counted = true;
      }
    } else {
      vekWaitOnAddress(&lockWord, seen, vekInfinite);
      seen = lockWord.load(std::memory_order_relaxed);
    }
  }
}
bool proMutex::TryLock() {
  if (!valid) return false;
  std::uint32_t const self = vekGetCurrentThreadId();
  if (NestIfOwner(self)) return true;
  std::uint32_t free = 0;
  if (!lockWord.compare_exchange_strong(free, owned, std::memory_order_acquire,
                                        std::memory_order_relaxed)) {
    return false;
  }
  BecomeOwner(self);
  return true;
}

bool proMutex::Unlock() {
  if (!valid) return false;
  if (ownerId.load(std::memory_order_relaxed) != vekGetCurrentThreadId()) return false;
  if (--depth != 0) return true;
  // The owner fields are cleared while the mutex is still owned.
  ownerHandle = badThreadHandle;
  ownerId.store(noOwner, std::memory_order_relaxed);
  if (lockWord.fetch_sub(owned, std::memory_order_release) != owned) {
    vekWakeByAddressSingle(&lockWord);
  }
  return true;
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

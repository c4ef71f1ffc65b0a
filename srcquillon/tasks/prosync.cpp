#include "prosync.h"

proMutex::proMutex() : ownerHandle(badThreadHandle), depth(0), valid(false) { Initialize(); }

bool proMutex::Initialize() {
  // Making the locks again over live ones would lose their holders.
  if (valid) return true;
  vekInitializeCriticalSection(&mainLock);
  vekInitializeCriticalSection(&tryHandle);
  contenders = 0;
  ownerId.store(noOwner, std::memory_order_relaxed);
  valid = true;
  return true;
}

proMutex::~proMutex() {
  if (!valid) return;
  vekDeleteCriticalSection(&mainLock);
  vekDeleteCriticalSection(&tryHandle);
  valid = false;
}

bool proMutex::Lock() {
  if (!valid) return false;
  if (IsCurrentThreadOwner()) {
    ++depth;
    return true;
  }
  LockTryHandle();
  ++contenders;
  UnlockTryHandle();
  vekEnterCriticalSection(&mainLock);
  ownerHandle = vekGetCurrentThread();
  ownerId.store(vekGetCurrentThreadId(), std::memory_order_relaxed);
  depth = 1;
  return true;
}

bool proMutex::TryLock() {
  if (!valid) return false;
  if (IsCurrentThreadOwner()) {
    ++depth;
    return true;
  }
  LockTryHandle();
  if (contenders != 0) {
    UnlockTryHandle();
    return false;
  }
  contenders = 1;
  // Free: every other thread passes tryHandle before it contends.
  vekEnterCriticalSection(&mainLock);
  ownerHandle = vekGetCurrentThread();
  ++depth;
  ownerId.store(vekGetCurrentThreadId(), std::memory_order_relaxed);
  UnlockTryHandle();
  return true;
}

bool proMutex::Unlock() {
  if (!valid) return false;
  if (!IsCurrentThreadOwner()) return false;
  if (--depth != 0) return true;
  // The owner fields are cleared while mainLock is held, and contenders falls
  // only once it is free: a TryLock in between fails instead of blocking.
  ownerHandle = badThreadHandle;
  ownerId.store(noOwner, std::memory_order_relaxed);
  vekLeaveCriticalSection(&mainLock);
  LockTryHandle();
  --contenders;
  UnlockTryHandle();
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

// quillon: locks and semaphores for callers.
//
// proMutex is a recursive lock that knows its owner: the owner may take it
// again (each Lock or TryLock is one level, each Unlock gives one back), only
// the owner can give it up, and TryLock never waits for another thread, not
// even for one that is only waiting in Lock. proSimpleSem is a pool of units
// that starts full.
#ifndef PROSYNC_H
#define PROSYNC_H

#include "quillonbase.h"
#include "vekthread.h"

#include <atomic>
#include <cstdint>

class QUILLON_API proMutex {
 public:
  proMutex();
  proMutex(proMutex const&) = delete;
  proMutex& operator=(proMutex const&) = delete;
  // Destroying a mutex that is owned or waited for is the caller's error.
  ~proMutex();

  // Sets up a free mutex, as the constructor does. On a valid mutex it does
  // nothing: the owner and the waiters stay. Always true.
  bool Initialize();
  // Blocks until the calling thread owns the mutex; false only if not valid.
  bool Lock();
  // True if the calling thread now owns the mutex; never waits. Refused
  // while another thread owns the mutex or waits in Lock for it.
  bool TryLock();
  // Gives up one level; false if not valid or the caller is not the owner.
  bool Unlock();

 private:
  static std::uint32_t const noOwner = 0xFFFFFFFFu;
  // The lock word: the owned bit, the bit of a wake given and not yet taken
  // up by a waiter, and one unit for each thread waiting in Lock.
  static std::uint32_t const owned = 1;
  static std::uint32_t const wakePending = 2;
  static std::uint32_t const oneWaiter = 4;

  // One more level when the caller already owns the mutex.
  bool NestIfOwner(std::uint32_t self);
  // Each takes the mutex or gives false with the word as it was seen.
  // TakeFree (Lock) takes a free mutex also while threads wait for it;
  // TakeUnwanted (TryLock) only a word of 0: free, nobody waiting. TakeAlone
  // is their step while the process has one thread.
  bool TakeFree(std::uint32_t& seen);
  bool TakeUnwanted(std::uint32_t& seen);
  bool TakeAlone(std::uint32_t& seen);
  // Takes the mutex once the first attempt found it owned or waited for.
  void WaitForTurn(std::uint32_t seen);
  void BecomeOwner(std::uint32_t self);

  // TryLock takes the word only from 0 (free, nobody waiting) in one
  // compare-and-swap, so it never parks; Unlock gives up ownership and marks
  // a wake in one atomic step and wakes a counted waiter after.
  std::atomic<std::uint32_t> lockWord;
  void* ownerHandle;  // the owner's pseudo-handle; read by nobody
  int depth;          // levels the owner holds; 0 when free
  bool valid;
  // Written by the owner only; other threads read it without a lock just to
  // learn that it is not their own id.
  std::atomic<std::uint32_t> ownerId;
};

class QUILLON_API proSemaphoreBase {
 public:
  proSemaphoreBase() = default;
  virtual ~proSemaphoreBase();
  virtual bool Increment() = 0;
  virtual bool Decrement() = 0;
};

class QUILLON_API proSimpleSem : public proSemaphoreBase {
 public:
  // A pool of `count` units, all free. A count of 0 gives no semaphore:
  // Increment and Decrement then fail.
  explicit proSimpleSem(unsigned int count);
  proSimpleSem(proSimpleSem const&) = delete;
  proSimpleSem& operator=(proSimpleSem const&) = delete;
  ~proSimpleSem() override;

  // Gives one unit back; false when the pool is already full.
  bool Increment() override;
  // Takes one unit, waiting without limit for one to be free.
  bool Decrement() override;
  // For callers that wait on it together with other objects (vekMOEvent).
  void* GetHandle() const { return handle; }

 private:
  void* handle;
};

#endif

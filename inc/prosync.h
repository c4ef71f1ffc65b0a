/// \file
/// quillon: locks and semaphores for callers.
///
/// proMutex is a recursive lock that knows its owner: the owner may take it
/// again (each Lock or TryLock is one level, each Unlock gives one back), only
/// the owner can give it up, and TryLock never waits for another thread, not
/// even for one that is only waiting in Lock. proSimpleSem is a pool of units
/// that starts full.
///
/// These two are made for several threads: any number of threads may call
/// one object at once, from its construction until its destruction begins.
#ifndef PROSYNC_H
#define PROSYNC_H

#include "quillonbase.h"
#include "vekthread.h"

#include <atomic>
#include <cstdint>

/// A recursive lock that knows its owner, for several threads.
class QUILLON_API proMutex {
 public:
  proMutex();  ///< A free mutex.
  ///@{
  /// Not copyable: threads meet on one object.
  proMutex(proMutex const&) = delete;
  proMutex& operator=(proMutex const&) = delete;
  ///@}
  /// Destroying a mutex that is owned or waited for is the caller's error.
  ~proMutex();

  /// Sets up a free mutex, as the constructor does. On a valid mutex it does
  /// nothing: the owner and the waiters stay. Always true.
  bool Initialize();
  /// Blocks, without limit, until the calling thread owns the mutex; the
  /// owner takes one more level at once. \return false only if not valid.
  bool Lock();
  /// True if the calling thread now owns the mutex (one more level for the
  /// owner); never waits. Refused while another thread owns the mutex or
  /// waits in Lock for it.
  bool TryLock();
  /// Gives up one level; the last one frees the mutex and wakes one waiter.
  /// \return false, changing nothing, if not valid or the caller is not the
  ///         owner.
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
  // Counts a wake and wakes one parked waiter.
  void WakeOne();
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
  // The wakes given so far, which counted waiters park on. The owned bit of
  // lockWord changes with every Lock and Unlock of a busy owner, this count
  // only when a waiter is woken, so a parked waiter sleeps until then. It
  // has a cache line of its own (64 bytes): a waiter parking or waking
  // does not take the owner's line away.
  alignas(64) std::atomic<std::uint32_t> wakes;
};

/// The face of a semaphore: a pool of units.
/// A semaphore is for several threads at once.
class QUILLON_API proSemaphoreBase {
 public:
  proSemaphoreBase() = default;
  virtual ~proSemaphoreBase();
  /// Gives one unit back. \return true when it went back.
  virtual bool Increment() = 0;
  /// Takes one unit. \return true when it was taken.
  virtual bool Decrement() = 0;
};

/// A semaphore: a pool of units that starts full, for several threads.
class QUILLON_API proSimpleSem : public proSemaphoreBase {
 public:
  /// A pool of `count` units, all free. A count of 0 gives no semaphore:
  /// Increment and Decrement then fail.
  explicit proSimpleSem(unsigned int count);
  ///@{
  /// Not copyable: threads meet on one object.
  proSimpleSem(proSimpleSem const&) = delete;
  proSimpleSem& operator=(proSimpleSem const&) = delete;
  ///@}
  /// Releases the semaphore; a thread still waiting in Decrement is the
  /// caller's error.
  ~proSimpleSem() override;

  /// Gives one unit back; false when the pool is already full (or there is
  /// no semaphore).
  bool Increment() override;
  /// Takes one unit, waiting without limit for one to be free; false only
  /// when the wait fails (no semaphore).
  bool Decrement() override;
  /// The semaphore's handle, owned by the object: for callers that wait on
  /// it together with other objects (vekMOEvent). Null when there is no
  /// semaphore.
  void* GetHandle() const { return handle; }

 private:
  void* handle;
};

#endif

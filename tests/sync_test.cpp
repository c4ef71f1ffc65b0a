// Locks and semaphores with real threads; every wait is bounded.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "quillon.h"
#include "testsupport.h"

namespace {

// Hooks on the address waits of the watched mutex that hold two windows of
// proMutex open, each of which otherwise lasts a few instructions. The first
// park stops before it reaches the library until the wake meant for it has
// gone out: a waiter still on its way to park when the Unlock comes. The
// first wake stops on a gate: the mutex is then free but still waited for.
// Once the gate opens and the wake has gone out, the Unlock that gave it stays
// until the waiter owns the mutex.
struct MutexWatch {
  std::atomic<proMutex const*> watched{nullptr};
  std::atomic<void*> parked{nullptr};  // the word of the first park
  std::atomic<bool> reached{false};    // the first wake is at the gate
  std::atomic<bool> open{false};
  std::atomic<bool> woken{false};  // the first wake has gone out
  std::atomic<bool> waiterOwns{false};
} watch;

bool Watched(void const* word) {
  auto const* mutex = reinterpret_cast<char const*>(watch.watched.load());
  auto const* at = static_cast<char const*>(word);
  return mutex != nullptr && at >= mutex && at < mutex + sizeof(proMutex);
}

void HoldFirstPark(void const* word) {
  void* none = nullptr;
  if (Watched(word) && watch.parked.compare_exchange_strong(none, const_cast<void*>(word))) {
    qtest::WaitUntil([] { return watch.woken.load(); });
  }
}

void WakeThroughGate(void const* word, std::function<void()> const& next) {
  bool const first = Watched(word) && !watch.reached.exchange(true);
  if (first) qtest::WaitUntil([] { return watch.open.load(); });
  next();
  if (!first) return;
  watch.woken = true;
  qtest::WaitUntil([] { return watch.waiterOwns.load(); });
}

qtest::host::AddressWaitHooks const watchHooks{&HoldFirstPark, &WakeThroughGate};

// TryLock on a thread of its own (QTEST_BOUNDED runs its step on one), which
// gives the level back if it got one: whether it got one.
bool TakenByAnotherThread(proMutex& mutex) {
  return QTEST_BOUNDED("TryLock on another thread", mutex.TryLock() && mutex.Unlock());
}

bool IdIsOwnKernelId() { return vekGetCurrentThreadId() == qtest::host::ThreadId(); }

TEST(SyncMutex, RecursionAndOwnership) {
  proMutex mutex;
  EXPECT_FALSE(mutex.Unlock());  // free: nobody's id matches
  // Run alone, the test takes the levels while the process has one thread,
  // and the threads below meet a mutex taken that way.
  ASSERT_TRUE(mutex.Lock());
  ASSERT_TRUE(mutex.TryLock());
  ASSERT_TRUE(mutex.Lock());
  // Owners are told apart by kernel thread ids, each thread keeping its own.
  EXPECT_TRUE(IdIsOwnKernelId() && QTEST_BOUNDED("the id on another thread", IdIsOwnKernelId()));
  EXPECT_FALSE(QTEST_BOUNDED("Unlock on another thread", mutex.Unlock()));  // only the owner
  EXPECT_TRUE(mutex.Initialize());  // leaves the live lock and its owner alone
  for (int level = 0; level < 2; ++level) {
    EXPECT_TRUE(mutex.Unlock());
    EXPECT_FALSE(TakenByAnotherThread(mutex));
  }
  EXPECT_TRUE(mutex.Unlock());
  EXPECT_FALSE(mutex.Unlock());
  EXPECT_TRUE(QTEST_BOUNDED("levels on another thread", mutex.TryLock() && mutex.Lock() && mutex.Unlock() &&
                                                            mutex.Unlock() && !mutex.Unlock()));
}

TEST(SyncMutex, TryLockRefusedWhileHeldOrWaitedForAndOwnershipPassesWithoutLosingTheWake) {
  QTEST_POSIX_ONLY("the test program's own definitions in front of the library's (symbol interposition)");
  ASSERT_TRUE(qtest::host::WatchAddressWaits(&watchHooks));
  proMutex mutex;
  watch.watched = &mutex;
  std::atomic<bool> held{false};
  std::atomic<bool> release{false};
  std::atomic<bool> unlocked{false};
  std::thread owner([&] {
    EXPECT_TRUE(mutex.Lock());
    held = true;
    qtest::WaitUntil([&] { return release.load(); });
    EXPECT_TRUE(mutex.Unlock());  // stops on the gate: a waiter is to be woken
    unlocked = true;
  });
  EXPECT_TRUE(qtest::WaitUntil([&] { return held.load(); }));
  EXPECT_FALSE(TakenByAnotherThread(mutex)) << "owned";
  // The waiter gives the mutex back only after the old owner's Unlock has
  // returned: nothing of that Unlock may touch the new owner's record.
  std::thread waiter([&] {
    bool const locked = mutex.Lock();
    watch.waiterOwns = true;
    qtest::WaitUntil([&] { return unlocked.load(); });
    EXPECT_TRUE(locked && mutex.Unlock()) << "the woken waiter owns the mutex";
  });
  EXPECT_TRUE(qtest::WaitUntil([] { return watch.parked.load() != nullptr; })) << "the waiter parks in Lock";
  EXPECT_FALSE(TakenByAnotherThread(mutex)) << "owned and waited for";

  release = true;
  EXPECT_TRUE(qtest::WaitUntil([] { return watch.reached.load(); }));
  EXPECT_FALSE(TakenByAnotherThread(mutex)) << "free, but a waiter is counted";

  watch.open = true;  // the wake goes out before the waiter has parked
  bool const taken = qtest::WaitUntil([] { return watch.waiterOwns.load(); });
  EXPECT_TRUE(taken) << "the waiter slept through the wake";
  if (!taken) vekWakeByAddressSingle(static_cast<std::atomic<std::uint32_t>*>(watch.parked.load()));
  owner.join();
  waiter.join();
  watch.watched = nullptr;
  qtest::host::WatchAddressWaits(nullptr);
  EXPECT_TRUE(TakenByAnotherThread(mutex)) << "nobody holds or waits any more";
}

TEST(SyncMutex, MixedLockAndTryLockKeepExclusion) {
  proMutex mutex;
  int inside = 0;  // guarded by mutex; ThreadSanitizer sees any breach
  std::vector<std::thread> workers;
  for (int w = 0; w < 4; ++w) {
    workers.emplace_back([&, w] {
      for (int i = 0; i < 2000; ++i) {
        bool const useTry = (i + w) % 3 == 0;
        if (!(useTry ? mutex.TryLock() : mutex.Lock())) {
          ASSERT_TRUE(useTry);  // only TryLock may be refused
          continue;
        }
        ASSERT_TRUE(mutex.Lock());  // one nested level
        EXPECT_EQ(++inside, 1);
        --inside;
        EXPECT_TRUE(mutex.Unlock() && mutex.Unlock());
      }
    });
  }
  for (auto& worker : workers) QTEST_BOUNDED("a contender for the lock", worker.join());
  EXPECT_TRUE(mutex.TryLock() && mutex.Unlock()) << "contenders went back to 0";
}

TEST(SyncSemaphore, StartsFullAndIsAPoolOfUnits) {
  proSimpleSem pool(2);
  ASSERT_NE(pool.GetHandle(), nullptr);
  EXPECT_FALSE(pool.Increment());  // already full
  EXPECT_TRUE(pool.Decrement() && pool.Decrement());
  vekEvent free(new vekMOEvent(pool.GetHandle(), vekMOEvent::moSemaphore));
  EXPECT_FALSE(free.Wait(20));
  std::thread taker([&] { EXPECT_TRUE(pool.Decrement()); });  // waits: the pool is empty
  EXPECT_TRUE(pool.Increment());
  QTEST_BOUNDED("the taker, once a unit was back", taker.join());
  EXPECT_TRUE(pool.Increment());
  EXPECT_TRUE(free.Wait(5000));  // a unit is free; waiting took none
  EXPECT_TRUE(pool.Increment());
  EXPECT_FALSE(pool.Increment());

  proSimpleSem none(0);
  EXPECT_FALSE(none.GetHandle() != nullptr || none.Increment() || none.Decrement());
  EXPECT_EQ(uCreateSemaphore(nullptr, 3, 2, nullptr), nullptr);
  EXPECT_EQ(errMapError(), errSysInvalidArgument);
}

TEST(SyncSemaphore, HoldersNeverExceedThePoolUnderContention) {
  proSimpleSem pool(3);
  std::atomic<int> holders{0};
  std::vector<std::thread> workers;
  for (int w = 0; w < 6; ++w) {
    workers.emplace_back([&] {
      for (int i = 0; i < 300; ++i) {
        ASSERT_TRUE(pool.Decrement());
        EXPECT_LE(++holders, 3);
        --holders;
        EXPECT_TRUE(pool.Increment());
      }
    });
  }
  for (auto& worker : workers) QTEST_BOUNDED("a contender for the units", worker.join());
  EXPECT_FALSE(pool.Increment());  // every unit came back
}

}  // namespace

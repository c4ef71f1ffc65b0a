// Locks and semaphores with real threads; every wait is bounded.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "quillon.h"
#include "testsupport.h"

namespace {

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

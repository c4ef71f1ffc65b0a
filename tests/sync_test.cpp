// Locks and semaphores with real threads; every wait is bounded.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "quillon.h"
#include "testsupport.h"

namespace {

using namespace std::chrono_literals;

// Runs body on another thread and gives its result; a body that does not
// come back in time (a TryLock that blocks) fails the test.
template <typename Body>
auto OnOtherThread(Body body) {
  return QTEST_BOUNDED("a call on another thread (a TryLock that waits?)", body());
}

bool IdIsOwnKernelId() { return vekGetCurrentThreadId() == qtest::host::ThreadId(); }

TEST(SyncMutex, RecursionAndOwnership) {
  // Owners are told apart by kernel thread ids, each thread keeping its own.
  EXPECT_TRUE(IdIsOwnKernelId() && OnOtherThread(IdIsOwnKernelId));
  proMutex mutex;
  EXPECT_FALSE(mutex.Unlock());  // free: nobody's id matches
  ASSERT_TRUE(mutex.Lock());
  ASSERT_TRUE(mutex.TryLock());
  ASSERT_TRUE(mutex.Lock());
  EXPECT_FALSE(OnOtherThread([&] { return mutex.Unlock(); }));  // only the owner
  EXPECT_TRUE(mutex.Initialize());  // leaves the live lock and its owner alone
  for (int level = 0; level < 2; ++level) {
    EXPECT_TRUE(mutex.Unlock());
    EXPECT_FALSE(OnOtherThread([&] { return mutex.TryLock(); }));
  }
  EXPECT_TRUE(mutex.Unlock());
  EXPECT_FALSE(mutex.Unlock());
  EXPECT_TRUE(OnOtherThread([&] {
    bool taken = mutex.TryLock() && mutex.Lock();
    return taken && mutex.Unlock() && mutex.Unlock() && !mutex.Unlock();
  }));
}

TEST(SyncMutex, TryLockNeverWaitsForAnOwnerOrAWaiter) {
  proMutex mutex;
  ASSERT_TRUE(mutex.Lock());
  std::atomic<bool> waiting{false};
  std::thread waiter([&] {
    waiting = true;
    EXPECT_TRUE(mutex.Lock() && mutex.Unlock());  // blocks until the main thread lets go
  });
  ASSERT_TRUE(qtest::WaitUntil([&] { return waiting.load(); }));
  std::this_thread::sleep_for(20ms);  // gives the waiter time to block in Lock
  EXPECT_FALSE(OnOtherThread([&] { return mutex.TryLock(); }));
  EXPECT_TRUE(mutex.Unlock());
  QTEST_BOUNDED("the waiter, once the lock was free", waiter.join());
  EXPECT_TRUE(mutex.TryLock() && mutex.Unlock());
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

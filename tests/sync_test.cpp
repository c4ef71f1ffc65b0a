// Locks and semaphores with real threads; every wait is bounded.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <future>
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
  auto result = std::async(std::launch::async, body);
  EXPECT_EQ(result.wait_for(10s), std::future_status::ready);
  return result.get();
}

TEST(SyncThreadIdentity, IdsAreKernelIdsAndDiffer) {
  std::uint32_t mine = vekGetCurrentThreadId();
  EXPECT_EQ(mine, static_cast<std::uint32_t>(::syscall(SYS_gettid)));
  EXPECT_NE(OnOtherThread([] { return vekGetCurrentThreadId(); }), mine);
  EXPECT_NE(vekGetCurrentThread(), badThreadHandle);
}

TEST(SyncMutex, RecursionAndOwnership) {
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
  std::atomic<int> stage{0};
  std::thread waiter([&] {
    stage = 1;
    EXPECT_TRUE(mutex.Lock());  // blocks until the main thread lets go
    stage = 2;
    EXPECT_TRUE(qtest::WaitUntil([&] { return stage == 3; }));
    EXPECT_TRUE(mutex.Unlock());
  });
  ASSERT_TRUE(qtest::WaitUntil([&] { return stage == 1; }));
  EXPECT_FALSE(OnOtherThread([&] { return mutex.TryLock(); }));
  EXPECT_TRUE(mutex.Unlock());
  ASSERT_TRUE(qtest::WaitUntil([&] { return stage == 2; }));
  EXPECT_FALSE(OnOtherThread([&] { return mutex.TryLock(); }));
  EXPECT_FALSE(mutex.Unlock());
  stage = 3;
  waiter.join();
  EXPECT_TRUE(mutex.TryLock());
  EXPECT_TRUE(mutex.Unlock());
}

TEST(SyncMutex, MixedLockAndTryLockKeepExclusion) {
  proMutex mutex;
  int inside = 0;  // guarded by mutex; ThreadSanitizer sees any breach
  std::atomic<int> entered{0}, refused{0};
  std::vector<std::thread> workers;
  for (int w = 0; w < 4; ++w) {
    workers.emplace_back([&, w] {
      for (int i = 0; i < 2000; ++i) {
        bool const useTry = (i + w) % 3 == 0;
        if (!(useTry ? mutex.TryLock() : mutex.Lock())) {
          ASSERT_TRUE(useTry);  // only TryLock may be refused
          ++refused;
          continue;
        }
        ASSERT_TRUE(mutex.Lock());  // one nested level
        EXPECT_EQ(++inside, 1);
        --inside;
        ++entered;
        EXPECT_TRUE(mutex.Unlock() && mutex.Unlock());
      }
    });
  }
  for (auto& worker : workers) worker.join();
  EXPECT_EQ(entered + refused, 4 * 2000);
  EXPECT_TRUE(mutex.TryLock());  // contenders went back to 0
  EXPECT_TRUE(mutex.Unlock());
}

TEST(SyncSemaphore, StartsFullAndIsAPoolOfUnits) {
  proSimpleSem pool(2);
  ASSERT_NE(pool.GetHandle(), nullptr);
  EXPECT_FALSE(pool.Increment());  // already full
  EXPECT_TRUE(pool.Decrement() && pool.Decrement());
  vekEvent free(new vekMOEvent(pool.GetHandle(), vekMOEvent::moSemaphore));
  EXPECT_FALSE(free.Wait(20));
  std::atomic<bool> passed{false};
  std::thread taker([&] {
    EXPECT_TRUE(pool.Decrement());  // blocks: the pool is empty
    passed = true;
  });
  EXPECT_FALSE(passed);
  EXPECT_TRUE(pool.Increment());
  taker.join();
  EXPECT_TRUE(pool.Increment());
  EXPECT_TRUE(free.Wait(5000));  // a unit is free; waiting took none
  EXPECT_TRUE(pool.Increment());
  EXPECT_FALSE(pool.Increment());

  proSimpleSem none(0);
  EXPECT_EQ(none.GetHandle(), nullptr);
  EXPECT_FALSE(none.Increment() || none.Decrement());
  EXPECT_EQ(errMapError(), errSysBadHandle);
  EXPECT_EQ(uCreateSemaphore(nullptr, 3, 2, nullptr), nullptr);
  EXPECT_EQ(errMapError(), errSysInvalidArgument);
}

TEST(SyncSemaphore, HoldersNeverExceedThePoolUnderContention) {
  proSimpleSem pool(3);
  std::atomic<int> holders{0}, most{0};
  std::vector<std::thread> workers;
  for (int w = 0; w < 6; ++w) {
    workers.emplace_back([&] {
      for (int i = 0; i < 300; ++i) {
        ASSERT_TRUE(pool.Decrement());
        int now = ++holders, seen = most;
        while (now > seen && !most.compare_exchange_weak(seen, now)) {
        }
        --holders;
        EXPECT_TRUE(pool.Increment());
      }
    });
  }
  for (auto& worker : workers) worker.join();
  EXPECT_LE(most, 3);
  EXPECT_FALSE(pool.Increment());  // every unit came back
}

}  // namespace

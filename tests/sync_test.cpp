// Locks and semaphores with real threads; every wait is bounded.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "quillon.h"
#include "testsupport.h"

namespace {

// Whether word lies inside the mutex watched (none when null).
bool IsIn(std::atomic<proMutex const*> const& watched, void const* word) {
  auto const* mutex = reinterpret_cast<char const*>(watched.load());
  auto const* at = static_cast<char const*>(word);
  return mutex != nullptr && at >= mutex && at < mutex + sizeof(proMutex);
}

// The first wake that proMutex::Unlock gives a waiter of the watched mutex
// stops on a gate: the mutex is then free but still waited for, a state that
// otherwise lasts a few instructions. Once the gate opens, the Unlock that
// gave the wake stays until the waiter owns the mutex. Parks are counted.
struct WakeGate {
  std::atomic<proMutex const*> watched{nullptr};
  std::atomic<int> parks{0};
  std::atomic<bool> reached{false};
  std::atomic<bool> open{false};
  std::atomic<bool> waiterOwns{false};
} gate;

void CountPark(void const* word) {
  if (IsIn(gate.watched, word)) ++gate.parks;
}

void WakeThroughGate(void const* word, std::function<void()> const& next) {
  bool const first = IsIn(gate.watched, word) && !gate.reached.exchange(true);
  if (first) qtest::WaitUntil([] { return gate.open.load(); });
  next();
  if (first) qtest::WaitUntil([] { return gate.waiterOwns.load(); });
}

qtest::host::AddressWaitHooks const gateHooks{&CountPark, &WakeThroughGate};

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

TEST(SyncMutex, TryLockIsRefusedWithoutWaitingWhileAnotherThreadHoldsOrWaits) {
  QTEST_POSIX_ONLY("the test program's own definitions in front of the library's (symbol interposition)");
  ASSERT_TRUE(qtest::host::WatchAddressWaits(&gateHooks));
  proMutex mutex;
  gate.watched = &mutex;
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
    gate.waiterOwns = true;
    qtest::WaitUntil([&] { return unlocked.load(); });
    EXPECT_TRUE(locked && mutex.Unlock()) << "the woken waiter owns the mutex";
  });
  EXPECT_TRUE(qtest::WaitUntil([] { return gate.parks > 0; })) << "the waiter parks in Lock";
  EXPECT_FALSE(TakenByAnotherThread(mutex)) << "owned and waited for";

  release = true;
  EXPECT_TRUE(qtest::WaitUntil([] { return gate.reached.load(); }));
  EXPECT_FALSE(TakenByAnotherThread(mutex)) << "free, but a waiter is counted";

  gate.open = true;
  owner.join();
  waiter.join();
  gate.watched = nullptr;
  qtest::host::WatchAddressWaits(nullptr);
  EXPECT_TRUE(TakenByAnotherThread(mutex)) << "nobody holds or waits any more";
}

// The first park on the watched mutex stops before it reaches the library
// until the wake that should end it has gone out: a waiter on its way to
// park when the Unlock comes.
struct LatePark {
  std::atomic<proMutex const*> watched{nullptr};
  std::atomic<void*> word{nullptr};
  std::atomic<bool> woken{false};
} late;

void HoldFirstPark(void const* word) {
  void* expected = nullptr;
  if (IsIn(late.watched, word) && late.word.compare_exchange_strong(expected, const_cast<void*>(word))) {
    qtest::WaitUntil([] { return late.woken.load(); });
  }
}

void PassWake(void const*, std::function<void()> const& next) { next(); }

qtest::host::AddressWaitHooks const lateParkHooks{&HoldFirstPark, &PassWake};

TEST(SyncMutex, AWakeThatComesBeforeTheWaiterParksIsNotLost) {
  QTEST_POSIX_ONLY("the test program's own definitions in front of the library's (symbol interposition)");
  ASSERT_TRUE(qtest::host::WatchAddressWaits(&lateParkHooks));
  proMutex mutex;
  late.watched = &mutex;
  ASSERT_TRUE(mutex.Lock());
  std::atomic<bool> waiterOwns{false};
  std::thread waiter([&] {
    if (!mutex.Lock()) return;
    waiterOwns = true;
    mutex.Unlock();
  });
  EXPECT_TRUE(qtest::WaitUntil([] { return late.word.load() != nullptr; })) << "the waiter parks";
  EXPECT_TRUE(mutex.Unlock());
  late.woken = true;
  bool const taken = qtest::WaitUntil([&] { return waiterOwns.load(); });
  EXPECT_TRUE(taken) << "the waiter slept through the wake";
  if (!taken) vekWakeByAddressSingle(static_cast<std::atomic<std::uint32_t>*>(late.word.load()));
  waiter.join();
  late.watched = nullptr;
  qtest::host::WatchAddressWaits(nullptr);
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

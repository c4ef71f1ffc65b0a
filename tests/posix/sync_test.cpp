// The sync suite's cases that put the test program's own parking in front
// of the library's, through the dynamic linker (POSIX only; part of the
// sync suite's program there).
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "quillon.h"
#include "testsupport.h"

namespace {

// The first wake that proMutex::Unlock gives a waiter of the watched mutex
// stops on a gate: the mutex is then free but still waited for, a state that
// otherwise lasts only a few instructions. Once the gate opens and the wake
// has gone out, the Unlock that gave it stays until the waiter owns the
// mutex. Parks on it are counted.
struct WakeGate {
  std::atomic<proMutex const*> watched{nullptr};
  std::atomic<int> parks{0};
  std::atomic<bool> reached{false};
  std::atomic<bool> open{false};
  std::atomic<bool> waiterOwns{false};

  bool Watches(void const* word) const {
    auto const* mutex = reinterpret_cast<char const*>(watched.load());
    auto const* at = static_cast<char const*>(word);
    return mutex != nullptr && at >= mutex && at < mutex + sizeof(proMutex);
  }
} gate;

template <typename Function>
Function Next(char const* name) {
  return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

// The test program's own definitions come before tarnlet's; they pass every
// call on to it.
extern "C" bool vekWaitOnAddress(std::atomic<std::uint32_t>* word, std::uint32_t expected,
                                 int msec) {
  static auto const next = Next<bool (*)(std::atomic<std::uint32_t>*, std::uint32_t, int)>(
      "vekWaitOnAddress");
  if (gate.Watches(word)) ++gate.parks;
  return next(word, expected, msec);
}

extern "C" void vekWakeByAddressSingle(std::atomic<std::uint32_t>* word) {
  static auto const next = Next<void (*)(std::atomic<std::uint32_t>*)>("vekWakeByAddressSingle");
  bool const first = gate.Watches(word) && !gate.reached.exchange(true);
  if (first) qtest::WaitUntil([] { return gate.open.load(); });
  next(word);
  if (first) qtest::WaitUntil([] { return gate.waiterOwns.load(); });
}

namespace {

// TryLock on a thread of its own (QTEST_BOUNDED runs its step on one), which
// gives the level back if it got one: whether it got one.
bool TakenByAnotherThread(proMutex& mutex) {
  return QTEST_BOUNDED("TryLock on another thread", mutex.TryLock() && mutex.Unlock());
}

TEST(SyncMutex, TryLockIsRefusedWithoutWaitingWhileAnotherThreadHoldsOrWaits) {
  proMutex mutex;
  gate.watched = &mutex;
  gate.parks = 0;
  gate.reached = false;
  gate.open = false;
  gate.waiterOwns = false;
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
  EXPECT_TRUE(TakenByAnotherThread(mutex)) << "nobody holds or waits any more";
}

}  // namespace

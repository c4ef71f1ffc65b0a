// Tasks on real threads. Every wait is bounded; a task object outlives its body.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "quillon.h"
#include "testsupport.h"

namespace {

using namespace std::chrono_literals;

// Sets a flag when destroyed: on a return, and on the unwinding of a kill.
struct Unwound {
  std::atomic<bool>& flag;
  ~Unwound() { flag = true; }
};

// A body that runs until released (or killed) and may record its end. Strict
// and managed tasks leave their handle open: the test closes it.
template <typename Base>
class Worker : public Base {
 public:
  using Base::Base;

  std::atomic<int> runs{0};
  std::atomic<bool> release{false};
  std::atomic<bool> ended{false};
  bool recordEnd = false;

  void* Handle() const { return this->GetHandle(); }
  bool Running() { return qtest::WaitUntil([&] { return runs > 0; }); }

 protected:
  unsigned int ThreadBody() override {
    Unwound guard{ended};
    ++runs;
    while (!release) std::this_thread::sleep_for(1ms);  // a cancellation point
    if (recordEnd) this->GetExitStatus().setStatus(errOK);
    return 7;
  }
};

// A managed task whose body returns at once and records nothing.
struct Quick : Worker<pmManageTask> {
  Quick() : Worker(false, false) { release = true; }
};

bool Ends(void* handle) { return vekWaitForSingleObject(handle, 10000) == vekWaitObject0; }

TEST(TasksThread, RecordsOnlyWhatTheBodyWrites) {
  Worker<pmThread> task;
  EXPECT_TRUE(task.GetExitStatus().IsAlive());  // alive before any thread runs
  ASSERT_TRUE(task.Start());
  EXPECT_EQ(task.GetExitStatus().GetExitCode(), errNothingYet);
  ASSERT_TRUE(task.Running());
  task.recordEnd = true;  // written before the body can read it: release comes after
  task.release = true;
  ASSERT_TRUE(Ends(task.Handle()));
  EXPECT_FALSE(task.GetExitStatus().IsAlive());
  EXPECT_EQ(task.GetExitStatus().GetExitCode(), errOK);
}

// A body that ends its own thread through its handle: the end is finished as
// for a kill from outside, with the code given and done told of it.
TEST(TasksThread, ABodyThatTerminatesItsOwnThreadEndsWithTheCodeGiven) {
  static std::atomic<void*> own{nullptr};
  static std::atomic<int> doneCalls{0}, doneReturns{0};
  void* const handle = StrictThread_Launch(
      [](void*) {
        qtest::WaitUntil([] { return own.load() != nullptr; });
        vekTerminateThread(own.load(), 9);
        for (;;) std::this_thread::sleep_for(10ms);  // where the end is deferred, it comes here
        return 0;
      },
      nullptr,
      [](void*, bool returned) {
        ++doneCalls;
        doneReturns += returned;
      });
  ASSERT_NE(handle, VEK_INVALID_HANDLE);
  own = handle;
  ASSERT_TRUE(Ends(handle));
  int code = 0;
  EXPECT_TRUE(StrictThread_GetExitCode(handle, &code) && code == 9) << code;
  EXPECT_TRUE(doneCalls == 1 && doneReturns == 0) << "done is told once, of an end without a return";
  EXPECT_TRUE(vekTerminateThread(handle, 3)) << "ended: succeeds, changing nothing";
  EXPECT_TRUE(StrictThread_GetExitCode(handle, &code) && code == 9);
  StrictThread_Free(handle);
}

// A thread cannot be made once the address space has no room for its stack.
QTEST_HELPER(start_without_room) {
  (void)args;
  if (!qtest::host::LeaveNoRoomForAThread()) return 2;
  auto failed = [](pmThread& task) {
    return !task.Start() && task.GetExitStatus().GetExitCode() == errThreadCreate && !task.GetExitStatus().IsAlive();
  };
  Worker<pmThread> task;
  Worker<pmStrictTask> strict;
  Worker<pmManageTask> managed(false, false);
  if (!failed(task) || !failed(strict) || !failed(managed)) return 3;
  if (pmManageTask::Fetch(badThreadHandle) != nullptr || managed.Kill()) return 4;
  return call_async_func([](void*) { return 0; }, nullptr) == nullptr ? 0 : 5;
}

TEST(TasksStart, FailedStartRecordsThreadCreationInEveryKindOfTask) {
  QTEST_POSIX_ONLY("a limit on the address space");
  EXPECT_EQ(qtest::RunProgram({qtest::SelfPath(), "--helper", "start_without_room"}), 0);
}

TEST(TasksManaged, RegistryFollowsStartAndKill) {
  Worker<pmManageTask> task(true, false);
  EXPECT_FALSE(task.IsAlive());
  ASSERT_TRUE(task.Start());
  EXPECT_TRUE(task.IsAlive());
  void* const first = task.Handle();
  EXPECT_EQ(pmManageTask::Fetch(first), &task);
  task.release = true;
  ASSERT_TRUE(Ends(first));
  EXPECT_TRUE(task.IsAlive());  // the body wrote nothing

  // A second Start makes a second thread and moves the entry to its handle.
  task.release = false;
  task.ended = false;
  ASSERT_TRUE(task.Start());
  void* const second = task.Handle();
  EXPECT_EQ(pmManageTask::Fetch(first), nullptr);
  EXPECT_EQ(pmManageTask::Fetch(second), &task);
  EXPECT_TRUE(vekCloseHandle(first));  // Start overwrote it

  // Kill ends the thread at its next cancellation point and takes out the entry.
  vekEvent end(new vekMOEvent(second, vekMOEvent::moThread));  // keeps its own reference
  ASSERT_TRUE(qtest::WaitUntil([&] { return task.runs == 2; }));
  EXPECT_TRUE(task.Kill());
  EXPECT_EQ(task.Handle(), badThreadHandle);
  EXPECT_EQ(pmManageTask::Fetch(second), nullptr);
  ASSERT_TRUE(end.Wait(10000));
  // POSIX ends the thread by unwinding it, which runs the body's destructors;
  // Windows' TerminateThread runs none.
  EXPECT_EQ(task.ended.load(), qtest::host::kIsPosix);
  EXPECT_FALSE(task.Kill() || task.IsAlive()) << "no thread: fails, marks killed all the same";
}

// The record behind a handle is freed once the thread has ended and the
// handle is closed; the next thread's record may then take its address.
TEST(TasksManaged, DestructionTakesOutOnlyItsOwnEntryAfterHandleReuse) {
  bool reused = false;
  for (int attempt = 0; attempt < 20 && !reused; ++attempt) {
    auto killed = std::make_unique<Quick>();
    ASSERT_TRUE(killed->Start());
    void* const key = killed->Handle();
    ASSERT_TRUE(Ends(key));
    // Until the thread has let go of the record too, closing only drops a reference.
    std::this_thread::sleep_for(2ms);
    ASSERT_TRUE(killed->Kill());
    auto next = std::make_unique<Quick>();
    ASSERT_TRUE(next->Start());
    void* const nextKey = next->Handle();
    reused = nextKey == key;
    if (reused) {
      ASSERT_EQ(pmManageTask::Fetch(key), next.get());
      killed.reset();
      EXPECT_EQ(pmManageTask::Fetch(key), next.get()) << "the killed task took out another task's entry";
    }
    ASSERT_TRUE(Ends(nextKey));
    next.reset();
    EXPECT_EQ(pmManageTask::Fetch(nextKey), nullptr) << "a destroyed task left its entry";
    EXPECT_TRUE(vekCloseHandle(nextKey));
  }
  if (!reused) GTEST_SKIP() << "the allocator never gave a freed handle record back (a sanitizer's quarantine)";
}

// Managed tasks run to their ends one after the other, each keeping its handle
// open, each beside an asynchronous call waited for and destroyed: the ended
// threads hold no descriptor and little memory; the handles stay waitable.
TEST(TasksEnded, KeepNoDescriptorAndLittleMemoryWhileTheirHandlesStayWaitable) {
  if (qtest::host::OpenDescriptorCount() < 0 || qtest::host::ResidentBytes() < 0) {
    GTEST_SKIP() << "counts descriptors and resident memory, which this host does not tell";
  }
  std::vector<void*> handles;
  auto runToTheirEnds = [&handles](int count) {
    for (int i = 0; i < count; ++i) {
      Quick task;
      ASSERT_TRUE(task.Start()) << "task " << i << ": status " << task.GetExitStatus().GetExitCode();
      handles.push_back(task.Handle());
      ASSERT_TRUE(Ends(task.Handle()));
      std::unique_ptr<ptkAsyncCallEvent> call(call_async_func([](void*) { return 7; }, nullptr));
      ASSERT_TRUE(call != nullptr && call->Wait(10000) && call->GetReturnValue() == 7) << "call " << i;
    }
  };
  runToTheirEnds(100);  // the allocator's and the thread library's caches fill
  ASSERT_FALSE(HasFatalFailure());
  int const descriptors = qtest::host::OpenDescriptorCount();
  [[maybe_unused]] long const resident = qtest::host::ResidentBytes();
  runToTheirEnds(10000);
  ASSERT_FALSE(HasFatalFailure());
  EXPECT_EQ(qtest::host::OpenDescriptorCount(), descriptors);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // a sanitizer's quarantine keeps freed blocks
  EXPECT_LT(qtest::host::ResidentBytes() - resident, 2 << 20);
#endif
  {
    vekEvent end(new vekMOEvent(handles.front(), vekMOEvent::moThread));
    EXPECT_TRUE(end.Wait(0) && vekWaitForSingleObject(handles.front(), 0) == vekWaitObject0);
  }
  EXPECT_EQ(qtest::host::OpenDescriptorCount(), descriptors) << "the event gave its descriptor back";
  for (void* handle : handles) vekCloseHandle(handle);
}

// Returns 42 once the gate is 1, leaving 2 in it.
int Gated(void* raw) {
  auto& gate = *static_cast<std::atomic<int>*>(raw);
  while (gate != 1) std::this_thread::sleep_for(1ms);
  gate = 2;
  return 42;
}

TEST(TasksStrictAndAsync, KillOnlyMarksTheRecordAndTheEventsSeeTheRealEnds) {
  std::atomic<int> gate{0};
  std::unique_ptr<ptkAsyncCallEvent> async(call_async_func(Gated, &gate));
  ASSERT_NE(async, nullptr);
  EXPECT_EQ(async->GetReturnValue(), -1);
  Worker<pmStrictTask> task;
  EXPECT_FALSE(task.GetExitStatus().IsAlive());  // not alive until Start
  ASSERT_TRUE(task.Start());
  EXPECT_TRUE(task.GetExitStatus().IsAlive());
  ptkStrictTaskEvent strict(&task);
  EXPECT_TRUE(ptkStrictTaskEvent::cast(&strict) == &strict && ptkAsyncCallEvent::cast(&strict) == nullptr);
  ASSERT_TRUE(task.Running());
  EXPECT_FALSE(task.Kill());
  EXPECT_FALSE(task.GetExitStatus().IsAlive());
  EXPECT_EQ(task.Handle(), strict.GetProcess());  // nothing was closed
  vekEvent* both[] = {&strict, async.get()};
  EXPECT_EQ(vekWaitForAny(both, 2, 30), -1);  // and the thread runs on
  gate = 1;
  EXPECT_EQ(vekWaitForAny(both, 2, 10000), 1);
  EXPECT_TRUE(async->GetReturnValue() == 42 && async->GetReturnValue() == 42) << "stable once released";
  task.recordEnd = true;
  task.release = true;
  EXPECT_EQ(vekWaitForAny(both, 1, 10000), 0);
  EXPECT_EQ(task.GetExitStatus().GetExitCode(), errOK);  // the body's own record
  EXPECT_TRUE(vekCloseHandle(task.Handle()));

  // Deleting the event early leaves the call running.
  std::atomic<int> early{0};
  delete call_async_func(Gated, &early);
  early = 1;
  EXPECT_TRUE(qtest::WaitUntil([&] { return early == 2; }));
}

}  // namespace

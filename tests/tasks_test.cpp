// Tasks on real threads. Every wait is bounded; a task object outlives its body.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <thread>
#include <type_traits>

#include "quillon.h"
#include "testsupport.h"

namespace {

using namespace std::chrono_literals;

// Sets a flag when destroyed: on a return, and on the unwinding of a kill.
struct Unwound {
  std::atomic<bool>& flag;
  ~Unwound() { flag = true; }
};

// A body that runs until released (or killed) and may record its end.
template <typename Base>
class Worker : public Base {
 public:
  using Base::Base;

  std::atomic<int> runs{0};
  std::atomic<bool> release{false};
  std::atomic<bool> ended{false};
  bool recordEnd = false;
  unsigned int code = 7;

  ~Worker() override {
    // Strict and managed tasks leave their handle open; the test closes it.
    if (!std::is_same<Base, pmThread>::value && this->handle != badThreadHandle) {
      vekCloseHandle(this->handle);
    }
  }

  void* Handle() const { return this->GetHandle(); }
  bool WaitEnded() { return qtest::WaitUntil([&] { return ended.load(); }); }

 protected:
  unsigned int ThreadBody() override {
    Unwound guard{ended};
    ++runs;
    while (!release) std::this_thread::sleep_for(1ms);  // a cancellation point
    if (recordEnd) this->GetExitStatus().setStatus(errOK);
    return code;
  }
};

TEST(TasksExitStatus, StatusAndExitCodeAreSetApart) {
  pmExitStatus status;
  status.setAlive();
  status.setStatus(errSysNotFound);
  status.setExitCode(42);  // leaves the status as it was
  EXPECT_FALSE(status.IsAlive());
  EXPECT_EQ(status.GetExitCode(), errSysNotFound);
  status.setKilled();
  EXPECT_EQ(status.GetExitCode(), errNothingYet);
}

TEST(TasksThread, RunsItsBodyAndRecordsOnlyWhatTheBodyWrites) {
  Worker<pmThread> task;
  EXPECT_TRUE(task.GetExitStatus().IsAlive());  // alive before any thread runs
  ASSERT_TRUE(task.Start());
  EXPECT_NE(task.Handle(), badThreadHandle);
  EXPECT_EQ(task.GetExitStatus().GetExitCode(), errNothingYet);
  ASSERT_TRUE(qtest::WaitUntil([&] { return task.runs == 1; }));
  task.recordEnd = true;  // written before the body can read it: release comes after
  task.release = true;
  ASSERT_TRUE(task.WaitEnded());
  vekEvent end(new vekMOEvent(task.Handle(), vekMOEvent::moThread));
  ASSERT_TRUE(end.Wait(5000));
  EXPECT_FALSE(task.GetExitStatus().IsAlive());
  EXPECT_EQ(task.GetExitStatus().GetExitCode(), errOK);
  // The status no longer says alive, so the destructor closes the handle.
}

TEST(TasksThread, KillEndsTheThreadAtItsNextCancellationPoint) {
  Worker<pmThread> task;
  EXPECT_FALSE(task.Kill());  // no thread yet: fails, and marks killed all the same
  EXPECT_EQ(errMapError(), errSysBadHandle);
  EXPECT_FALSE(task.GetExitStatus().IsAlive());
  ASSERT_TRUE(task.Start());
  void* handle = task.Handle();
  vekEvent end(new vekMOEvent(handle, vekMOEvent::moThread));  // keeps its own reference
  ASSERT_TRUE(qtest::WaitUntil([&] { return task.runs == 1; }));
  EXPECT_TRUE(task.Kill());
  EXPECT_EQ(task.Handle(), badThreadHandle);
  EXPECT_FALSE(task.GetExitStatus().IsAlive());
  EXPECT_EQ(task.GetExitStatus().GetExitCode(), errNothingYet);
  ASSERT_TRUE(end.Wait(10000));
  EXPECT_TRUE(task.ended);  // the unwinding ran the body's destructors
  // There is nothing left to end.
  EXPECT_FALSE(task.Kill());
  EXPECT_FALSE(task.GetExitStatus().IsAlive());
}

TEST(TasksThread, ASecondStartMakesASecondThread) {
  Worker<pmThread> task;
  task.release = true;
  ASSERT_TRUE(task.Start());
  void* first = task.Handle();
  ASSERT_EQ(vekWaitForSingleObject(first, 10000), vekWaitObject0);
  ASSERT_TRUE(task.Start());
  EXPECT_NE(task.Handle(), first);
  ASSERT_EQ(vekWaitForSingleObject(task.Handle(), 10000), vekWaitObject0);
  EXPECT_EQ(task.runs, 2);
  EXPECT_TRUE(vekCloseHandle(first));  // Start overwrote it
  task.GetExitStatus().setStatus(errOK);
}

// A thread cannot be made once the address space has no room for its stack.
QTEST_HELPER(start_without_room) {
  (void)args;
  std::ifstream statm("/proc/self/statm");
  unsigned long pages = 0;
  statm >> pages;
  rlimit limit{};
  getrlimit(RLIMIT_AS, &limit);
  // Room for half a default thread stack: enough for small allocations, not
  // for the stack of a new thread.
  pthread_attr_t defaults;
  std::size_t stack = 0;
  if (pthread_getattr_default_np(&defaults) != 0) return 2;
  pthread_attr_getstacksize(&defaults, &stack);
  pthread_attr_destroy(&defaults);
  limit.rlim_cur = pages * static_cast<unsigned long>(sysconf(_SC_PAGESIZE)) + stack / 2;
  if (setrlimit(RLIMIT_AS, &limit) != 0) return 2;
  Worker<pmThread> task;
  if (task.Start()) return 3;
  if (task.GetExitStatus().GetExitCode() != errThreadCreate) return 4;
  if (task.GetExitStatus().IsAlive()) return 5;
  Worker<pmStrictTask> strict;
  if (strict.Start() || strict.GetExitStatus().GetExitCode() != errThreadCreate) return 6;
  if (strict.GetExitStatus().IsAlive()) return 7;
  Worker<pmManageTask> managed(false, false);
  if (managed.Start() || managed.IsAlive()) return 8;
  if (managed.GetExitStatus().GetExitCode() != errThreadCreate) return 9;
  if (pmManageTask::Fetch(badThreadHandle) != nullptr) return 10;
  if (managed.Kill()) return 11;
  if (call_async_func([](void*) { return 0; }, nullptr) != nullptr) return 12;
  return 0;
}

TEST(TasksStart, FailedStartRecordsThreadCreationInEveryKindOfTask) {
  EXPECT_EQ(qtest::RunProgram({qtest::SelfPath(), "--helper", "start_without_room"}), 0);
}

TEST(TasksStrict, KillOnlyMarksTheRecordAndTheEventSeesTheRealEnd) {
  Worker<pmStrictTask> task;
  EXPECT_FALSE(task.GetExitStatus().IsAlive());  // not alive until Start
  EXPECT_FALSE(pmStrictTask::IsNoForkSet());
  pmStrictTask::SetNoFork();                     // a note only: Start ignores it
  EXPECT_TRUE(pmStrictTask::IsNoForkSet());
  ASSERT_TRUE(task.Start());
  EXPECT_TRUE(task.GetExitStatus().IsAlive());
  EXPECT_EQ(task.GetExitStatus().GetExitCode(), errNothingYet);
  ptkStrictTaskEvent end(&task);
  EXPECT_EQ(end.GetProcess(), task.Handle());
  EXPECT_EQ(ptkStrictTaskEvent::cast(&end), &end);
  EXPECT_EQ(ptkAsyncCallEvent::cast(&end), nullptr);
  ASSERT_TRUE(qtest::WaitUntil([&] { return task.runs == 1; }));

  EXPECT_FALSE(task.Kill());
  EXPECT_FALSE(task.GetExitStatus().IsAlive());
  EXPECT_EQ(task.Handle(), end.GetProcess());  // nothing was closed
  EXPECT_FALSE(end.Wait(50));                    // and the thread runs on
  EXPECT_FALSE(task.ended);

  task.recordEnd = true;
  task.release = true;
  ASSERT_TRUE(end.Wait(10000));
  EXPECT_TRUE(task.ended);
  EXPECT_EQ(task.GetExitStatus().GetExitCode(), errOK);  // the body's own record
  EXPECT_TRUE(pmStrictTask::IsNoForkSet());
}

TEST(TasksManaged, RegistryFollowsStartKillAndDestruction) {
  void* const unknown = reinterpret_cast<void*>(0x1234);
  EXPECT_EQ(pmManageTask::Fetch(unknown), nullptr);
  Worker<pmManageTask> killed(true, false);
  auto* kept = new Worker<pmManageTask>(false, true);
  EXPECT_FALSE(killed.IsAlive());
  ASSERT_TRUE(killed.Start());
  ASSERT_TRUE(kept->Start());
  EXPECT_TRUE(killed.IsAlive());
  void* const killedKey = killed.Handle();
  void* const keptKey = kept->Handle();
  EXPECT_EQ(pmManageTask::Fetch(killedKey), &killed);
  EXPECT_EQ(pmManageTask::Fetch(keptKey), kept);

  vekEvent killedEnd(new vekMOEvent(killedKey, vekMOEvent::moThread));
  ASSERT_TRUE(qtest::WaitUntil([&] { return killed.runs == 1; }));
  EXPECT_TRUE(killed.Kill());
  EXPECT_FALSE(killed.IsAlive());
  EXPECT_EQ(pmManageTask::Fetch(killedKey), nullptr);
  EXPECT_EQ(pmManageTask::Fetch(keptKey), kept);
  ASSERT_TRUE(killedEnd.Wait(10000));
  EXPECT_FALSE(killed.Kill());  // no thread any more

  kept->release = true;
  ASSERT_TRUE(kept->WaitEnded());
  ASSERT_EQ(vekWaitForSingleObject(keptKey, 10000), vekWaitObject0);
  EXPECT_TRUE(kept->IsAlive());  // the body wrote nothing
  delete kept;
  EXPECT_EQ(pmManageTask::Fetch(keptKey), nullptr);
}

TEST(TasksManaged, ASecondStartMovesTheEntry) {
  Worker<pmManageTask> task(false, false);
  task.release = true;
  ASSERT_TRUE(task.Start());
  void* const first = task.Handle();
  ASSERT_EQ(vekWaitForSingleObject(first, 10000), vekWaitObject0);
  ASSERT_TRUE(task.Start());
  EXPECT_EQ(pmManageTask::Fetch(first), nullptr);
  EXPECT_EQ(pmManageTask::Fetch(task.Handle()), &task);
  EXPECT_TRUE(vekCloseHandle(first));
  ASSERT_EQ(vekWaitForSingleObject(task.Handle(), 10000), vekWaitObject0);
}

// Returns the int it is given once the gate opens.
int Gated(void* raw) {
  auto* call = static_cast<std::pair<std::atomic<bool>, int>*>(raw);
  while (!call->first) std::this_thread::sleep_for(1ms);
  return call->second;
}

TEST(TasksAsync, ReturnValueIsMinusOneUntilTheEndThenStable) {
  std::pair<std::atomic<bool>, int> call{false, 42};
  ptkAsyncCallEvent* event = call_async_func(Gated, &call);
  ASSERT_NE(event, nullptr);
  EXPECT_EQ(ptkAsyncCallEvent::cast(event), event);
  EXPECT_EQ(ptkStrictTaskEvent::cast(event), nullptr);
  EXPECT_EQ(event->GetReturnValue(), -1);
  EXPECT_FALSE(event->Wait(20));
  call.first = true;
  ASSERT_TRUE(event->Wait(10000));
  EXPECT_EQ(event->GetReturnValue(), 42);
  EXPECT_EQ(event->GetReturnValue(), 42);
  EXPECT_TRUE(event->Wait(0));  // still signalled after the thread is released
  delete event;
}

TEST(TasksAsync, WaitOnStrictAndAsyncEventsTogether) {
  std::pair<std::atomic<bool>, int> call{false, -1};
  std::unique_ptr<ptkAsyncCallEvent> async(call_async_func(Gated, &call));
  ASSERT_NE(async, nullptr);
  Worker<pmStrictTask> task;
  ASSERT_TRUE(task.Start());
  ptkStrictTaskEvent strict(&task);
  vekEvent* both[] = {&strict, async.get()};
  EXPECT_EQ(vekWaitForAny(both, 2, 30), -1);
  call.first = true;
  EXPECT_EQ(vekWaitForAny(both, 2, 10000), 1);
  EXPECT_EQ(async->GetReturnValue(), -1);  // the function's own -1
  task.release = true;
  EXPECT_EQ(vekWaitForAny(both, 1, 10000), 0);
}

TEST(TasksAsync, DeletingTheEventEarlyLeavesTheCallRunning) {
  auto call = std::make_unique<std::pair<std::atomic<bool>, int>>(false, 5);
  std::atomic<bool> returned{false};
  static std::atomic<bool>* returnedFlag = nullptr;
  returnedFlag = &returned;
  delete call_async_func(
      [](void* raw) {
        int value = Gated(raw);
        *returnedFlag = true;
        return value;
      },
      call.get());
  call->first = true;
  EXPECT_TRUE(qtest::WaitUntil([&] { return returned.load(); }));
}

}  // namespace

// Tasks on real threads. Every wait is bounded; a task object outlives its body.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <string>
#include <thread>

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

TEST(TasksExitStatus, EachSetterWritesItsPartOfTheRecord) {
  pmExitStatus status;
  EXPECT_FALSE(status.IsAlive());
  EXPECT_EQ(status.GetExitCode(), errNothingYet);
  status.setAlive();
  EXPECT_TRUE(status.IsAlive());
  status.setStatus(errSysNotFound);
  EXPECT_FALSE(status.IsAlive());
  EXPECT_EQ(status.GetExitCode(), errSysNotFound);
  status.setExitCode(42);  // leaves the status as it was
  EXPECT_EQ(status.GetExitCode(), errSysNotFound);
  status.setAlive();
  status.setKilled();
  EXPECT_FALSE(status.IsAlive());
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

TEST(TasksThread, KillBeforeStartFailsButMarksKilled) {
  Worker<pmThread> task;
  EXPECT_FALSE(task.Kill());
  EXPECT_EQ(errMapError(), errSysBadHandle);
  EXPECT_FALSE(task.GetExitStatus().IsAlive());
  EXPECT_FALSE(task.Kill());
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
  limit.rlim_cur = pages * static_cast<unsigned long>(sysconf(_SC_PAGESIZE)) + (1u << 20);
  if (setrlimit(RLIMIT_AS, &limit) != 0) return 2;
  Worker<pmThread> task;
  task.release = true;
  bool started = task.Start();
  if (started) return 3;
  if (task.GetExitStatus().GetExitCode() != errThreadCreate) return 4;
  return task.GetExitStatus().IsAlive() ? 5 : 0;
}

TEST(TasksThread, FailedStartRecordsThreadCreation) {
  EXPECT_EQ(qtest::RunProgram({qtest::SelfPath(), "--helper", "start_without_room"}), 0);
}

TEST(TasksInfoBridge, CarriesNothingAndKeepsItsMutexUsable) {
  pmInfoBridge bridge(true, false);
  void* const partner = GetTaskSelfHandle();
  EXPECT_EQ(partner, vekGetCurrentThread());
  EXPECT_TRUE(bridge.Initialize(partner));
  EXPECT_TRUE(bridge.Initialize(partner));
  EXPECT_TRUE(bridge.TurnOn());
  char buffer[4] = {'a', 'b', 'c', 'd'};
  EXPECT_TRUE(bridge.Send(buffer, 4));
  EXPECT_TRUE(bridge.Receive(buffer, 4));
  EXPECT_EQ(std::string(buffer, 4), "abcd");
}

}  // namespace

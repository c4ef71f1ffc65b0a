// Child processes: command lines, launching, waiting, signals, reaping and the
// ExecProcess task with its pipes (a child outliving its object: leak_test.cpp).
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iostream>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "quillon.h"
#include "testsupport.h"
#include "vekproc.h"

namespace {

void* const kNone = reinterpret_cast<void*>(~std::uintptr_t{0});

using qtest::HelperCommand;
using qtest::host::ProcessIsGone;

// Takes what waits on a signalled pipe stream; false when it has ended instead.
bool takeWaiting(iPipeStream& stream, std::string& text) {
  static thread_local char chunk[1 << 16];
  std::streamsize const waiting = stream.rdbuf()->in_avail();
  if (waiting <= 0) return false;
  stream.read(chunk, std::min<std::streamsize>(waiting, sizeof chunk));
  text.append(chunk, static_cast<std::size_t>(stream.gcount()));
  return true;
}

// Reads a pipe stream to its end, never waiting longer than 10 s for a piece.
bool readToEnd(iPipeStream& stream, std::string& text) {
  std::unique_ptr<vekEvent> readable(stream.GetReadEvent());
  while (readable->Wait(10000)) {
    if (!takeWaiting(stream, text)) return true;
  }
  return false;
}

// Writes args[0] bytes of noise, each piece to both standard streams in turn.
QTEST_HELPER(same_to_both) {
  std::minstd_rand noise(7);
  std::string piece;
  for (long left = std::stol(args.at(0)); left > 0; left -= static_cast<long>(piece.size())) {
    piece.resize(static_cast<std::size_t>(std::min(left, 4096L)));
    for (char& c : piece) c = static_cast<char>(noise());
    if (!std::cout.write(piece.data(), static_cast<std::streamsize>(piece.size())).flush()) return 1;
    if (!std::cerr.write(piece.data(), static_cast<std::streamsize>(piece.size())).flush()) return 1;
  }
  return 0;
}

// Prints its arguments, each followed by a NUL byte, copies its input, then
// complains on its error stream.
QTEST_HELPER(args) {
  for (auto const& arg : args) std::cout << arg << '\0';
  std::cout << std::cin.rdbuf();
  std::cerr << "failed\n";
  return 0;
}

// Exits with 3 when descriptor args[0] is open on the file args[1], and
// sleeps for 30 s otherwise.
QTEST_HELPER(exit_if_inherited) {
  if (qtest::host::DescriptorIsOnFile(std::stoi(args.at(0)), args.at(1))) return 3;
  std::this_thread::sleep_for(std::chrono::seconds(30));
  return 0;
}

TEST(CommandLine, SplitsByTheWindowsRulesAndJoinsBackTheSame) {
  struct Case {
    char const* line;
    std::vector<std::string> args;
  };
  Case const cases[] = {
      {"", {}},
      {"  prog  a\tb  ", {"prog", "a", "b"}},
      {"p \"a b\" c\"d e\"f", {"p", "a b", "cd ef"}},
      {"p \"a\\\\\" b", {"p", "a\\", "b"}},
      {"p \\\\\\\\\"x y\"", {"p", "\\\\x y"}},
      {"p \"say \"\"hi\"\" now\"", {"p", "say \"hi\" now"}},
  };
  for (auto const& c : cases) EXPECT_EQ(vekSplitCommandLine(c.line), c.args) << c.line;
  EXPECT_TRUE(vekSplitCommandLine(nullptr).empty());

  std::vector<std::string> const args = {
      "C:\\Program Files\\tool.exe", "", "plain", "two words", "tab\there", "\"", "a\\\"b",
      "ends\\", "ends in space\\", "\\\\\"\"", "\\\\server\\share"};
  std::string const line = vekJoinCommandLine(args);
  EXPECT_EQ(vekSplitCommandLine(line.c_str()), args) << line;
  EXPECT_EQ(vekJoinCommandLine({"p", "plain"}), "\"p\" plain");
  EXPECT_EQ(vekJoinCommandLine({"pro\"g"}), "");
  EXPECT_EQ(vekJoinCommandLine({}), "");
}

// A detached child gets a session of its own and no descriptor but its
// standard streams; its status and exit code are read without reaping it.
TEST(LowerProcess, DetachedChildInheritsNothingAndStatusNeverReaps) {
  QTEST_POSIX_ONLY("descriptor inheritance, sessions, and reaping, which a zombie's entry in /proc shows");
  qtest::TempDir dir;
  int stray = qtest::host::OpenInheritableDescriptor(dir / "stray");  // inheritable on purpose
  ASSERT_GE(stray, 3);
  std::string const probe = HelperCommand("exit_if_inherited", {std::to_string(stray), dir / "stray"});
  void* process = nullptr;
  std::uint32_t pid = 0;
  ASSERT_TRUE(Process_Launch(&process, &pid, probe.c_str(), nullptr, kNone, kNone, kNone, 2));
  qtest::host::CloseDescriptor(stray);
  EXPECT_EQ(qtest::host::SessionOf(pid), static_cast<long>(pid)) << "a session of its own";
  EXPECT_FALSE(qtest::WaitUntil([&] { return IsAlive(process) != asAlive; }, std::chrono::milliseconds(300)))
      << "the stray descriptor reached the child";
  std::int32_t code = -5;
  EXPECT_FALSE(GetProcExitCode(process, &code) || Process_Wait(process, &code, false, true));
  vekEvent ended(new vekPROCESSEvent(process));
  ASSERT_TRUE(Process_Kill(process) && ended.Wait(10000));
  EXPECT_EQ(IsAlive(process), asNotAlive);
  EXPECT_TRUE(GetProcExitCode(process, &code) && code == qtest::host::kExitAfterKill);
  EXPECT_FALSE(ProcessIsGone(pid)) << "ended but not reaped yet";
  ASSERT_TRUE(QTEST_BOUNDED("the wait for a killed child", Process_Wait(process, &code, true, false)));
  EXPECT_TRUE(ProcessIsGone(pid));
  code = -5;
  EXPECT_TRUE(Process_Wait(process, &code, false, false) && code == qtest::host::kExitAfterKill)
      << "reaped once, the code stays";
  EXPECT_FALSE(Process_Kill(process));
  Process_Free(process);
  EXPECT_FALSE(Process_Interrupt(0)) << "never the whole process group";
}

TEST(LowerProcess, FailedLaunchLeavesNoChildAndNoEnd) {
  void* process = kNone;
  std::uint32_t pid = 0;
  auto launch = [&](char const* command, unsigned mode = 1) {
    return Process_Launch(&process, &pid, command, nullptr, kNone, kNone, kNone, mode);
  };
  EXPECT_FALSE(launch("no-such-program-quillon x"));
  EXPECT_EQ(errMapError(), errSysNotFound);
  EXPECT_FALSE(launch("  ") || launch(HelperCommand("exit", {"0"}).c_str(), 3));
  EXPECT_TRUE(process == kNone && pid == 0u);

  QTEST_POSIX_ONLY("file modes, descriptors in /proc, children in the process table");
  qtest::TempDir dir;
  qtest::WriteFile(dir / "plain", "not a program\n");
  EXPECT_FALSE(launch((dir / "plain").c_str())) << "not executable";
  EXPECT_EQ(errMapError(), errSysAccessDenied);
  EXPECT_TRUE(process == kNone && pid == 0u);

  ExecProcess task("no-such-program-quillon --flag", 7);
  // The pipe helper releases every end it made and writes no out-parameter.
  int const before = qtest::host::OpenDescriptorCount();
  oPipeStream* toChild = reinterpret_cast<oPipeStream*>(&task);
  EXPECT_EQ(OpenPipeWithChildProc(&toChild, nullptr, nullptr, &task), errNothingYet);
  EXPECT_EQ(toChild, reinterpret_cast<oPipeStream*>(&task));
  EXPECT_EQ(qtest::host::OpenDescriptorCount(), before);
  EXPECT_FALSE(qtest::host::AnyChildLeft()) << "a failed launch leaves no child behind";
}

TEST(ExecProcessTask, ArgumentsAndInputArriveExactlyWithoutTheErrorEnd) {
  std::string const command = "\"" + qtest::SelfPath() + R"(" --helper args "two words" "" quote\"inside ends\ b\\\"s\\")";
  std::string expected;
  for (std::string arg : {"two words", "", "quote\"inside", "ends\\", "b\\\"s\\"}) expected += arg + '\0';
  ExecProcess task(command.c_str(), 7);
  oPipeStream* toChild = nullptr;
  iPipeStream* fromChild = nullptr;
  ASSERT_EQ(OpenPipeWithChildProc(&toChild, &fromChild, nullptr, &task), errOK);
  *toChild << "and the input";
  DeletePipe(toChild);
  std::string all;
  ASSERT_TRUE(readToEnd(*fromChild, all));
  EXPECT_EQ(all, expected + "and the input");
  EXPECT_EQ(QTEST_BOUNDED("the wait for the child", task.WaitForProcess()), 0);
  DeletePipe(fromChild);
}

TEST(ExecProcessTask, StateTableFromConstructionToTheFetchedCode) {
  ExecProcess task(HelperCommand("exit", {"5"}).c_str(), 0);
  // Nothing to act on before Start, nor once the code is fetched: no system call, no change.
  auto idle = [&] {
    return !task.Kill() && !task.Interrupt() && !task.IsAppAlive() && task.WaitForProcess() == 0 &&
           task.GetExitEvent() == nullptr;
  };
  EXPECT_TRUE(idle());
  EXPECT_TRUE(task.GetExitCode().IsAlive());
  EXPECT_EQ(task.GetExitStatus().GetExitCode(), errNothingYet);

  ASSERT_TRUE(task.Start());
  EXPECT_FALSE(task.GetExitStatus().IsAlive()) << "alive says: nothing launched yet";
  EXPECT_EQ(task.GetExitStatus().GetExitCode(), errOK);
  ASSERT_TRUE(task.Start()) << "a second child; the first runs on without its handle";
  vekEvent* ended = task.GetExitEvent();
  ASSERT_NE(ended, nullptr);
  EXPECT_EQ(ptkExecProcessEvent::cast(ended), ended);
  ASSERT_TRUE(ended->Wait(10000));
  EXPECT_FALSE(task.IsAppAlive());
  EXPECT_EQ(QTEST_BOUNDED("the wait for an ended child", task.WaitForProcess()), 5);
  EXPECT_TRUE(idle());
  EXPECT_TRUE(ended->Wait(0)) << "the event outlives the handle";
  delete ended;

  // A fetched task starts anew; GetExitCode fetches without blocking.
  ASSERT_TRUE(task.Start());
  ASSERT_TRUE(qtest::WaitUntil([&] {
    task.GetExitCode();
    std::unique_ptr<vekEvent> held(task.GetExitEvent());
    return held == nullptr;
  }));
}

TEST(ExecProcessTask, KillAndInterruptASleepingChild) {
  std::string const sleeper = HelperCommand("sleep", {"30000"});
  ExecProcess killed(sleeper.c_str(), 0);
  ASSERT_TRUE(killed.Start());
  EXPECT_TRUE(killed.IsAppAlive());
  EXPECT_EQ(killed.GetExitCode().GetExitCode(), errOK) << "running: no block, no change";
  EXPECT_TRUE(killed.Kill());
  EXPECT_EQ(QTEST_BOUNDED("the wait for the killed child", killed.WaitForProcess()), qtest::host::kExitAfterKill);

  QTEST_WINE_GAP("GenerateConsoleCtrlEvent fails without a console");
  ExecProcess interrupted(sleeper.c_str(), 0);
  ASSERT_TRUE(interrupted.Start(false));
  EXPECT_TRUE(interrupted.Interrupt());
  EXPECT_EQ(QTEST_BOUNDED("the wait for the interrupted child", interrupted.WaitForProcess()),
            qtest::host::kExitAfterInterrupt);
}

TEST(ExecProcessTask, AssignedStreamsAreTakenWhereAllowedAndTheLastWins) {
  qtest::TempDir dir;
  std::ofstream overridden(dir / "overridden");
  oPipeStream* writer = nullptr;
  iPipeStream* reader = nullptr;
  ASSERT_EQ(CreatePipeSt(&writer, &reader), errOK);
  ExecProcess limited(HelperCommand("print-error", {"to-err"}).c_str(), 5);
  limited.AssignCout(oAssignableStream(overridden));  // not allowed: ignored
  limited.AssignCerr(oAssignableStream(overridden));
  limited.AssignCerr(oAssignableStream(*writer));
  ASSERT_TRUE(limited.Start());
  EXPECT_EQ(QTEST_BOUNDED("the wait for the child", limited.WaitForProcess()), 0);
  DeletePipe(writer);
  std::string text;
  EXPECT_TRUE(readToEnd(*reader, text));
  DeletePipe(reader);
  EXPECT_EQ(qtest::ReadFile(dir / "overridden") + "|" + text, "|to-err\n");

  // File streams become the child's streams.
  qtest::WriteFile(dir / "in", "line one\nline two\n");
  std::ifstream source(dir / "in");
  std::ofstream sink(dir / "out");
  std::fstream both(dir / "err", std::ios::in | std::ios::out | std::ios::trunc);
  ExecProcess task(HelperCommand("args").c_str(), 7);
  task.AssignCin(iAssignableStream(source));
  task.AssignCout(oAssignableStream(sink));
  task.AssignCerr(oAssignableStream(both));
  ASSERT_TRUE(task.Start());
  EXPECT_EQ(QTEST_BOUNDED("the wait for the child on files", task.WaitForProcess()), 0);
  EXPECT_EQ(qtest::ReadFile(dir / "out"), "line one\nline two\n");
  EXPECT_EQ(qtest::ReadFile(dir / "err"), "failed\n");
}

TEST(ExecProcessTask, LargeOutputOnBothStreamsReadByEvents) {
  // A parent that reads only one of the streams blocks the child on the other.
  std::size_t const size = 3u << 20;
  ExecProcess task(HelperCommand("same_to_both", {std::to_string(size)}).c_str(), 7);
  oPipeStream* toChild = nullptr;
  iPipeStream* streams[2] = {nullptr, nullptr};
  ASSERT_EQ(OpenPipeWithChildProc(&toChild, &streams[0], &streams[1], &task), errOK);
  DeletePipe(toChild);
  vekEvent* events[2] = {streams[0]->GetReadEvent(), streams[1]->GetReadEvent()};
  std::string got[2];
  // Wait only on the streams that have not ended: an ended one stays signalled.
  for (int first = 0, count = 2; count > first;) {
    int const ready = vekWaitForAny(events + first, count - first, 10000);
    ASSERT_GE(ready, 0) << "no stream became readable within 10 s";
    int const i = first + ready;
    if (takeWaiting(*streams[i], got[i])) continue;
    if (i == first) ++first; else --count;
  }
  EXPECT_TRUE(got[0].size() == size && got[0] == got[1]);
  EXPECT_EQ(QTEST_BOUNDED("the wait for the child", task.WaitForProcess()), 0);
  for (int i = 0; i < 2; ++i) {
    delete events[i];
    DeletePipe(streams[i]);
  }
}

}  // namespace

// OpenPipeWithChildProc leaves the end of a null out-parameter open and
// unowned on purpose (the child may still write to it); that one block is not
// a leak of the library.
extern "C" __attribute__((visibility("default"), used)) char const* __lsan_default_suppressions() {
  return "leak:OpenPipeWithChildProc\n";
}

// Child processes: command lines, launching, waiting, signals, reaping, and
// the ExecProcess task with its pipes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "quillon.h"
#include "testsupport.h"
#include "vekpipe.h"
#include "vekproc.h"

namespace {

void* const kNone = reinterpret_cast<void*>(~std::uintptr_t{0});

void* handleOf(int fd) { return reinterpret_cast<void*>(static_cast<std::intptr_t>(fd)); }

// Quotes an argument so that the Windows rules give it back unchanged.
std::string quoteArg(std::string const& arg) {
  std::string quoted = "\"";
  std::size_t slashes = 0;
  for (char c : arg) {
    if (c == '\\') {
      ++slashes;
      continue;
    }
    quoted.append(c == '"' ? slashes * 2 + 1 : slashes, '\\');
    slashes = 0;
    quoted += c;
  }
  quoted.append(slashes * 2, '\\');
  return quoted + "\"";
}

std::string selfCommand(std::string const& helper) {
  return quoteArg(qtest::SelfPath()) + " --helper " + helper;
}

// Everything from a read end until its writers have all gone.
std::string drain(int fd) {
  std::string all;
  char chunk[4096];
  ssize_t n;
  while ((n = ::read(fd, chunk, sizeof chunk)) > 0) all.append(chunk, static_cast<std::size_t>(n));
  return all;
}

bool gone(std::uint32_t pid) {
  // A zombie keeps its /proc entry until it is reaped.
  return ::access(("/proc/" + std::to_string(pid)).c_str(), F_OK) != 0;
}

// Prints its arguments, each followed by a NUL byte.
QTEST_HELPER(args) {
  for (auto const& arg : args) std::cout << arg << '\0';
  return 0;
}

// Exit 3 if the descriptor given is open in the child, 0 if not.
QTEST_HELPER(fdopen) { return ::fcntl(std::stoi(args.at(0)), F_GETFD) != -1 ? 3 : 0; }

TEST(CommandLine, SplitsByTheWindowsRules) {
  struct Case {
    char const* line;
    std::vector<std::string> args;
  };
  Case const cases[] = {
      {"", {}},
      {"   \t ", {}},
      {"prog", {"prog"}},
      {"  prog  a\tb  ", {"prog", "a", "b"}},
      {"\"C:\\Program Files\\x\" y", {"C:\\Program Files\\x", "y"}},
      {"p \"a b\" c\"d e\"f", {"p", "a b", "cd ef"}},
      {"p \"\" x", {"p", "", "x"}},
      {"p a\\\\b a\\\\\\\"b", {"p", "a\\\\b", "a\\\"b"}},
      {"p \"a\\\\\" b", {"p", "a\\", "b"}},
      {"p \\\\\\\\\"x y\"", {"p", "\\\\x y"}},
      {"p \"say \"\"hi\"\" now\"", {"p", "say \"hi\" now"}},
      {"p \\\"", {"p", "\""}},
      {"p trailing\\", {"p", "trailing\\"}},
  };
  for (auto const& c : cases) EXPECT_EQ(vekSplitCommandLine(c.line), c.args) << c.line;
  EXPECT_TRUE(vekSplitCommandLine(nullptr).empty());
}

class LowerProcess : public ::testing::Test {
 protected:
  // Starts command with its standard output on a fresh pipe.
  void LaunchCapturing(std::string const& command) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    bool started = Process_Launch(&process, &pid, command.c_str(), nullptr, kNone,
                                  handleOf(ends[1]), kNone, 1);
    ::close(ends[1]);
    if (!started) ::close(ends[0]);
    ASSERT_TRUE(started) << command;
    output = ends[0];
  }

  std::string TakeOutput() {
    std::string all = drain(output);
    ::close(output);
    output = -1;
    return all;
  }

  void* process = nullptr;
  std::uint32_t pid = 0;
  int output = -1;
};

TEST_F(LowerProcess, ArgumentsArriveExactlyAndTheExitCodeComesBack) {
  std::vector<std::string> const sent = {"plain", "two words", "", "quote\"inside",
                                         "back\\slash", "ends\\", "\\\\\"mixed\\\" \\", "tab\tx"};
  std::string command = selfCommand("args");
  for (auto const& arg : sent) command += " " + quoteArg(arg);
  LaunchCapturing(command);
  std::string const all = TakeOutput();
  std::vector<std::string> got;
  for (std::size_t start = 0, end; (end = all.find('\0', start)) != std::string::npos; start = end + 1) {
    got.push_back(all.substr(start, end - start));
  }
  EXPECT_EQ(got, sent);
  std::int32_t code = -5;
  ASSERT_TRUE(Process_Wait(process, &code, true, true));
  EXPECT_EQ(code, 0);
}

TEST_F(LowerProcess, StatusAndExitCodeNeverReap) {
  ASSERT_TRUE(Process_Launch(&process, &pid, "sleep 30", nullptr, kNone, kNone, kNone, 1));
  std::int32_t code = -5;
  EXPECT_EQ(Process_GetStatus(process), asAlive);
  EXPECT_FALSE(Process_GetExitCode(process, &code));
  EXPECT_FALSE(Process_Wait(process, &code, false, true)) << "still sleeping";
  EXPECT_EQ(code, -5);
  vekEvent event(new vekPROCESSEvent(process));
  EXPECT_FALSE(event.Wait(0));
  ASSERT_TRUE(Process_Kill(process));
  ASSERT_TRUE(event.Wait(10000));
  for (int i = 0; i < 2; ++i) EXPECT_EQ(Process_GetStatus(process), asNotAlive);
  EXPECT_TRUE(Process_GetExitCode(process, &code));
  EXPECT_EQ(code, 128 + SIGKILL);
  EXPECT_FALSE(gone(pid)) << "ended but not reaped yet";
  ASSERT_TRUE(Process_Wait(process, &code, true, false));
  EXPECT_EQ(code, 128 + SIGKILL);
  EXPECT_TRUE(gone(pid));
  // Reaped: the code stays, signals fail.
  code = -5;
  EXPECT_TRUE(Process_Wait(process, &code, false, false));
  EXPECT_EQ(code, 128 + SIGKILL);
  EXPECT_FALSE(Process_Kill(process));
  EXPECT_TRUE(event.Wait(0));
  Process_Free(process);
  EXPECT_TRUE(event.Wait(0)) << "the event outlives the handle";

  ASSERT_TRUE(Process_Launch(&process, &pid, "/bin/sh -c \"exit 7\"", nullptr, kNone, kNone, kNone, 1));
  ASSERT_TRUE(qtest::WaitUntil([&] { return Process_GetStatus(process) == asNotAlive; }));
  ASSERT_TRUE(Process_Wait(process, &code, true, true));
  EXPECT_EQ(code, 7);
}

TEST_F(LowerProcess, InterruptEndsASleepingChild) {
  ASSERT_TRUE(Process_Launch(&process, &pid, "sleep 30", nullptr, kNone, kNone, kNone, 1));
  EXPECT_TRUE(Process_Interrupt(pid));
  std::int32_t code = 0;
  ASSERT_TRUE(Process_Wait(process, &code, true, true));
  EXPECT_EQ(code, 128 + SIGINT);
  EXPECT_FALSE(Process_Interrupt(0)) << "never the whole process group";
}

TEST_F(LowerProcess, MissingOrUnrunnableProgramLeavesNoChild) {
  void* untouched = &pid;
  process = untouched;
  EXPECT_FALSE(Process_Launch(&process, &pid, "no-such-program-quillon x", nullptr, kNone, kNone,
                              kNone, 1));
  EXPECT_EQ(errMapError(), errSysNotFound);
  EXPECT_FALSE(Process_Launch(&process, &pid, "/no/such/dir/prog", nullptr, kNone, kNone, kNone, 1));
  EXPECT_EQ(errMapError(), errSysNotFound);
  qtest::TempDir dir;
  qtest::WriteFile(dir / "plain", "#!/bin/sh\nexit 0\n");
  EXPECT_FALSE(Process_Launch(&process, &pid, (dir / "plain").c_str(), nullptr, kNone, kNone, kNone, 1));
  EXPECT_EQ(errMapError(), errSysAccessDenied);
  EXPECT_FALSE(Process_Launch(&process, &pid, "  ", nullptr, kNone, kNone, kNone, 1));
  EXPECT_FALSE(Process_Launch(&process, &pid, "true", nullptr, kNone, kNone, kNone, 3));
  EXPECT_EQ(process, untouched);
  EXPECT_EQ(pid, 0u);
  errno = 0;
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD) << "a failed launch leaves no child behind";
}

TEST_F(LowerProcess, ChildGetsOnlyItsStandardStreams) {
  int stray = ::open("/dev/null", O_RDONLY);  // inheritable on purpose
  ASSERT_GE(stray, 3);
  ASSERT_TRUE(Process_Launch(&process, &pid, (selfCommand("fdopen") + " " + std::to_string(stray)).c_str(),
                             nullptr, kNone, kNone, kNone, 1));
  std::int32_t code = -1;
  ASSERT_TRUE(Process_Wait(process, &code, true, true));
  EXPECT_EQ(code, 0);
  ::close(stray);
}

TEST_F(LowerProcess, FreedChildIsReapedWhenItEnds) {
  // Detached: a session of its own.
  ASSERT_TRUE(Process_Launch(&process, &pid, "sleep 30", nullptr, kNone, kNone, kNone, 2));
  EXPECT_EQ(::getsid(static_cast<pid_t>(pid)), static_cast<pid_t>(pid));
  Process_Free(process);
  EXPECT_FALSE(gone(pid));
  ASSERT_EQ(::kill(static_cast<pid_t>(pid), SIGKILL), 0);
  EXPECT_TRUE(qtest::WaitUntil([&] { return gone(pid); })) << "left as a zombie";
}

TEST(LowerFileHandle, FileStreamsGiveTheirDescriptor) {
  qtest::TempDir dir;
  std::ofstream file(dir / "f");
  int fd = static_cast<int>(reinterpret_cast<std::intptr_t>(vekStreamFileHandle(file.rdbuf())));
  ASSERT_GE(fd, 0);
  struct stat byFd, byName;
  ASSERT_EQ(::fstat(fd, &byFd), 0);
  ASSERT_EQ(::stat((dir / "f").c_str(), &byName), 0);
  EXPECT_EQ(byFd.st_ino, byName.st_ino);
  std::ifstream closed;
  EXPECT_EQ(vekStreamFileHandle(closed.rdbuf()), kNone);
}

}  // namespace

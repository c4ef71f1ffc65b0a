// Child processes: command lines, launching, waiting, signals, reaping, and
// the ExecProcess task with its pipes.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iostream>
#include <memory>
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

std::string pattern(std::size_t size, char base) {
  std::string text(size, 0);
  for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>(base + (i * 13 + i / 4093) % 26);
  return text;
}

int openDescriptors() {
  int count = 0;
  if (DIR* dir = ::opendir("/proc/self/fd")) {
    while (::readdir(dir) != nullptr) ++count;
    ::closedir(dir);
  }
  return count;
}

// Reads a pipe stream to its end, never waiting longer than 10 s for a piece.
bool readToEnd(iPipeStream& stream, std::string& text) {
  std::unique_ptr<vekEvent> readable(stream.GetReadEvent());
  char chunk[4096];
  for (;;) {
    if (!readable->Wait(10000)) return false;
    std::streamsize waiting = stream.rdbuf()->in_avail();
    if (waiting <= 0) return stream.get() == std::char_traits<char>::eof();
    stream.read(chunk, std::min<std::streamsize>(waiting, sizeof chunk));
    text.append(chunk, static_cast<std::size_t>(stream.gcount()));
  }
}

// Writes the given number of bytes to standard output and to standard error,
// a piece to each in turn: a parent that reads only one of them blocks both.
QTEST_HELPER(both) {
  std::size_t const size = std::stoul(args.at(0));
  std::string const out = pattern(size, 'a'), err = pattern(size, 'A');
  for (std::size_t done = 0; done < size; done += 4096) {
    std::size_t piece = size - done < 4096 ? size - done : 4096;
    if (::write(1, out.data() + done, piece) != static_cast<ssize_t>(piece)) return 1;
    if (::write(2, err.data() + done, piece) != static_cast<ssize_t>(piece)) return 1;
  }
  return 0;
}

// Tells its pid, then lives until its standard input ends.
QTEST_HELPER(pidwait) {
  std::cout << ::getpid() << std::endl;
  std::string ignored;
  while (std::getline(std::cin, ignored)) {
  }
  return args.empty() ? 0 : std::stoi(args[0]);
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

TEST(ExecProcessTask, StateTableFromConstructionToTheFetchedCode) {
  ExecProcess task("sh -c \"exit 5\"", 0);
  EXPECT_FALSE(task.IsCinToAssign() || task.IsCoutToAssign() || task.IsCerrToAssign());
  auto const untouched = [&] {
    return task.GetExitStatus().IsAlive() && task.GetExitStatus().GetExitCode() == errNothingYet;
  };
  EXPECT_TRUE(untouched()) << "constructed: nothing launched yet";
  // Nothing to act on before Start: no system call, no change.
  EXPECT_FALSE(task.Kill());
  EXPECT_FALSE(task.Interrupt());
  EXPECT_FALSE(task.IsAppAlive());
  EXPECT_EQ(task.WaitForProcess(), 0);
  EXPECT_EQ(task.GetExitEvent(), nullptr);
  EXPECT_EQ(&task.GetExitCode(), &task.GetExitStatus());
  EXPECT_TRUE(untouched());

  ASSERT_TRUE(task.Start());
  EXPECT_FALSE(task.GetExitStatus().IsAlive()) << "alive says: nothing launched yet";
  EXPECT_EQ(task.GetExitStatus().GetExitCode(), errOK);
  EXPECT_FALSE(task.Start()) << "a child is held already";
  vekEvent* ended = task.GetExitEvent();
  ASSERT_NE(ended, nullptr);
  EXPECT_EQ(ptkExecProcessEvent::cast(ended), ended);
  EXPECT_EQ(vekIPipeEvent::cast(ended), nullptr);
  ASSERT_TRUE(ended->Wait(10000));
  EXPECT_FALSE(task.IsAppAlive());
  EXPECT_EQ(task.GetExitStatus().GetExitCode(), errOK);
  EXPECT_EQ(task.WaitForProcess(), 5);
  // Fetched and released: no second wait, and nothing else to act on.
  EXPECT_EQ(task.WaitForProcess(), 0);
  EXPECT_FALSE(task.Kill());
  EXPECT_FALSE(task.IsAppAlive());
  EXPECT_EQ(task.GetExitEvent(), nullptr);
  EXPECT_EQ(task.GetExitStatus().GetExitCode(), errOK);
  EXPECT_TRUE(ended->Wait(0)) << "the event outlives the handle";
  delete ended;

  // A fetched task starts anew; GetExitCode fetches without blocking.
  ASSERT_TRUE(task.Start());
  ASSERT_TRUE(qtest::WaitUntil([&] {
    task.GetExitCode();
    std::unique_ptr<vekEvent> held(task.GetExitEvent());
    return held == nullptr;
  }));
  EXPECT_EQ(task.WaitForProcess(), 0);
}

TEST(ExecProcessTask, MissingProgramFailsToStartAndLeavesNoChild) {
  ExecProcess task("no-such-program-quillon --flag", 7);
  EXPECT_FALSE(task.Start());
  EXPECT_FALSE(task.Start(false));
  EXPECT_TRUE(task.GetExitStatus().IsAlive());
  EXPECT_EQ(task.GetExitStatus().GetExitCode(), errNothingYet);
  EXPECT_EQ(task.GetExitEvent(), nullptr);
  errno = 0;
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);

  // Through the pipe helper: every end it made is released again.
  int const before = openDescriptors();
  oPipeStream* toChild = reinterpret_cast<oPipeStream*>(&task);
  iPipeStream* fromChild = reinterpret_cast<iPipeStream*>(&task);
  EXPECT_EQ(OpenPipeWithChildProc(&toChild, &fromChild, nullptr, &task), errNothingYet);
  EXPECT_EQ(toChild, reinterpret_cast<oPipeStream*>(&task));
  EXPECT_EQ(fromChild, reinterpret_cast<iPipeStream*>(&task));
  EXPECT_EQ(openDescriptors(), before);
}

TEST(ExecProcessTask, KillAndInterruptASleepingChild) {
  ExecProcess killed("sleep 30", 0);
  ASSERT_TRUE(killed.Start());
  EXPECT_TRUE(killed.IsAppAlive());
  pmExitStatus& running = killed.GetExitCode();
  EXPECT_EQ(running.GetExitCode(), errOK) << "running: the record unchanged, no block";
  EXPECT_TRUE(killed.Kill());
  EXPECT_EQ(killed.GetExitStatus().GetExitCode(), errOK);
  EXPECT_EQ(killed.WaitForProcess(), 128 + SIGKILL);

  ExecProcess interrupted("sleep 30", 0);
  ASSERT_TRUE(interrupted.Start(false));
  EXPECT_TRUE(interrupted.Interrupt());
  EXPECT_EQ(interrupted.WaitForProcess(), 128 + SIGINT);
  EXPECT_FALSE(interrupted.Interrupt()) << "the pid is no longer ours";
}

TEST(ExecProcessTask, DestroyedObjectLeavesTheChildRunningAndNoZombie) {
  oPipeStream* toChild = nullptr;
  iPipeStream* fromChild = nullptr;
  iPipeStream* errFromChild = nullptr;
  std::uint32_t pid = 0;
  {
    ExecProcess task((selfCommand("pidwait") + " 4").c_str(), 7);
    ASSERT_EQ(OpenPipeWithChildProc(&toChild, &fromChild, &errFromChild, &task), errOK);
    *fromChild >> pid;
    ASSERT_GT(pid, 0u);
  }
  EXPECT_FALSE(gone(pid)) << "the child runs on";
  DeletePipe(toChild);  // its input ends, so it ends
  EXPECT_TRUE(qtest::WaitUntil([&] { return gone(pid); })) << "left as a zombie";
  DeletePipe(fromChild);
  DeletePipe(errFromChild);
}

TEST(ExecProcessTask, OnlyTheAllowedStreamsAreAssignedAndTheLastWins) {
  oPipeStream *outW, *errW, *err2W;
  iPipeStream *outR, *errR, *err2R;
  ASSERT_EQ(CreatePipeSt(&outW, &outR), errOK);
  ASSERT_EQ(CreatePipeSt(&errW, &errR), errOK);
  ASSERT_EQ(CreatePipeSt(&err2W, &err2R), errOK);
  ExecProcess task("sh -c \"echo to-out >/dev/null; echo to-err >&2\"", 5);
  EXPECT_TRUE(task.IsCinToAssign() && task.IsCerrToAssign() && !task.IsCoutToAssign());
  task.AssignCout(oAssignableStream(*outW));  // not allowed: ignored
  task.AssignCerr(oAssignableStream(*errW));
  task.AssignCerr(oAssignableStream(*err2W));
  ASSERT_TRUE(task.Start());
  EXPECT_EQ(task.WaitForProcess(), 0);
  DeletePipe(outW);
  DeletePipe(errW);
  DeletePipe(err2W);
  std::string text;
  std::getline(*err2R, text);
  EXPECT_EQ(text, "to-err");
  EXPECT_EQ(errR->get(), std::char_traits<char>::eof());
  EXPECT_EQ(outR->get(), std::char_traits<char>::eof());
  DeletePipe(outR);
  DeletePipe(errR);
  DeletePipe(err2R);
}

TEST(ExecProcessTask, FileStreamsBecomeTheChildsStreams) {
  qtest::TempDir dir;
  qtest::WriteFile(dir / "in", "line one\nline two\n");
  std::ifstream source(dir / "in");
  std::ofstream sink(dir / "out");
  std::fstream both(dir / "err", std::ios::in | std::ios::out | std::ios::trunc);
  ExecProcess task("sh -c \"cat; echo failed >&2\"", 7);
  task.AssignCin(iAssignableStream(source));
  task.AssignCout(oAssignableStream(sink));
  task.AssignCerr(oAssignableStream(both));
  ASSERT_TRUE(task.Start());
  EXPECT_EQ(task.WaitForProcess(), 0);
  EXPECT_EQ(qtest::ReadFile(dir / "out"), "line one\nline two\n");
  EXPECT_EQ(qtest::ReadFile(dir / "err"), "failed\n");
}

TEST(ExecProcessTask, ThreeStreamsThroughPipesWithoutTheErrorEnd) {
  ExecProcess task("sh -c \"tr a-z A-Z; echo done >&2\"", 7);
  oPipeStream* toChild = nullptr;
  iPipeStream* fromChild = nullptr;
  ASSERT_EQ(OpenPipeWithChildProc(&toChild, &fromChild, nullptr, &task), errOK);
  *toChild << "hello child\n";
  DeletePipe(toChild);
  std::string line;
  std::getline(*fromChild, line);
  EXPECT_EQ(line, "HELLO CHILD");
  EXPECT_EQ(fromChild->get(), std::char_traits<char>::eof());
  EXPECT_EQ(task.WaitForProcess(), 0) << "the error end stayed open for the child";
  DeletePipe(fromChild);
}

TEST(ExecProcessTask, LargeOutputOnBothStreamsReadByEvents) {
  std::size_t const size = 3u << 20;
  ExecProcess task((selfCommand("both") + " " + std::to_string(size)).c_str(), 7);
  oPipeStream* toChild = nullptr;
  iPipeStream* streams[2] = {nullptr, nullptr};
  ASSERT_EQ(OpenPipeWithChildProc(&toChild, &streams[0], &streams[1], &task), errOK);
  DeletePipe(toChild);
  vekEvent* events[2] = {streams[0]->GetReadEvent(), streams[1]->GetReadEvent()};
  std::string got[2];
  bool open[2] = {true, true};
  std::vector<char> chunk(1 << 16);
  while (open[0] || open[1]) {
    vekEvent* waiting[2];
    int which[2], count = 0;
    for (int i = 0; i < 2; ++i) {
      if (open[i]) {
        waiting[count] = events[i];
        which[count++] = i;
      }
    }
    int ready = vekWaitForAny(waiting, count, 10000);
    ASSERT_GE(ready, 0) << "stuck";
    iPipeStream& stream = *streams[which[ready]];
    std::streamsize waitingBytes = stream.rdbuf()->in_avail();
    if (waitingBytes > 0) {
      std::streamsize take = std::min<std::streamsize>(waitingBytes, static_cast<std::streamsize>(chunk.size()));
      stream.read(chunk.data(), take);
      got[which[ready]].append(chunk.data(), static_cast<std::size_t>(take));
    } else if (stream.get() == std::char_traits<char>::eof()) {
      open[which[ready]] = false;
    }
  }
  EXPECT_EQ(got[0].size(), size);
  EXPECT_TRUE(got[0] == pattern(size, 'a'));
  EXPECT_TRUE(got[1] == pattern(size, 'A'));
  EXPECT_EQ(task.WaitForProcess(), 0);
  for (int i = 0; i < 2; ++i) {
    delete events[i];
    DeletePipe(streams[i]);
  }
}

TEST(ExecProcessTask, FreeFunctionsForwardToTheLowerLibrary) {
  void* process = nullptr;
  std::uint32_t pid = 0;
  ASSERT_TRUE(Process_Launch(&process, &pid, "sh -c \"exit 9\"", nullptr, kNone, kNone, kNone, 1));
  ASSERT_TRUE(qtest::WaitUntil([&] { return IsAlive(process) == asNotAlive; }));
  std::int32_t code = 0;
  EXPECT_TRUE(GetProcExitCode(process, &code));
  EXPECT_EQ(code, 9);
  ASSERT_TRUE(Process_Wait(process, &code, true, true));
}

TEST(ExecProcessTask, ChildrenStartedAtOnceHoldOnlyTheirOwnEnds) {
  // Were a child to inherit another one's pipe end, that pipe would never end.
  auto worker = [](int id, bool* ok) {
    for (int round = 0; round < 5 && *ok; ++round) {
      ExecProcess cat("cat", 7);
      oPipeStream* toChild = nullptr;
      iPipeStream* fromChild = nullptr;
      iPipeStream* errors = nullptr;
      if (OpenPipeWithChildProc(&toChild, &fromChild, &errors, &cat) != errOK) {
        *ok = false;
        return;
      }
      std::string const line = "worker " + std::to_string(id) + " round " + std::to_string(round) + "\n";
      *toChild << line;
      DeletePipe(toChild);
      std::string echoed;
      *ok = readToEnd(*fromChild, echoed) && echoed == line;
      std::unique_ptr<vekEvent> ended(cat.GetExitEvent());
      *ok = *ok && ended->Wait(10000) && cat.WaitForProcess() == 0;
      DeletePipe(fromChild);
      DeletePipe(errors);
    }
  };
  bool ok[4] = {true, true, true, true};
  std::vector<std::thread> threads;
  for (int id = 0; id < 4; ++id) threads.emplace_back(worker, id, &ok[id]);
  for (auto& thread : threads) thread.join();
  for (int id = 0; id < 4; ++id) EXPECT_TRUE(ok[id]) << "worker " << id;
}

}  // namespace

// OpenPipeWithChildProc leaves the end of a null out-parameter open and
// unowned on purpose (the child may still write to it); that one block is not
// a leak of the library.
extern "C" __attribute__((visibility("default"), used)) char const* __lsan_default_suppressions() {
  return "leak:OpenPipeWithChildProc\n";
}

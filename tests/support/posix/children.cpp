// Forked children for the tests that must confine what the code under test
// can reach, or drop privilege: POSIX by nature (testsupport.h).
#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "testsupport.h"

namespace qtest {

namespace {

// What a child reports through its pipe: whether the body ran, and its result
// or the error of the set-up step that failed, named in step.
struct ChildReport {
  int ran;
  int value;
  char step[64];
};

// setUp gives the name of the step that failed, with errno its error, or
// null when all went well.
ChildOutcome Fork(std::function<char const*()> const& setUp, std::function<int()> const& body,
                  std::chrono::milliseconds limit) {
  ChildOutcome outcome;
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    outcome.why = "pipe failed";
    return outcome;
  }
  pid_t const pid = fork();
  if (pid == 0) {
    close(ends[0]);
    ChildReport report{};
    if (char const* failed = setUp()) {
      report.value = errno;
      std::snprintf(report.step, sizeof report.step, "%s", failed);
    } else {
      report.ran = 1;
      report.value = body();
    }
    ssize_t written = write(ends[1], &report, sizeof report);
    _exit(written == static_cast<ssize_t>(sizeof report) ? 0 : 1);
  }
  close(ends[1]);
  if (pid < 0) {
    close(ends[0]);
    outcome.why = "fork failed";
    return outcome;
  }
  int status = 0;
  bool const ended = WaitUntil([&] { return waitpid(pid, &status, WNOHANG) == pid; }, limit);
  if (!ended) {
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
  }
  ChildReport report{};
  ssize_t const got = read(ends[0], &report, sizeof report);
  close(ends[0]);
  if (!ended) {
    outcome.why = "the child did not end in time";
  } else if (got != static_cast<ssize_t>(sizeof report)) {
    outcome.why = "the child ended without a report, status " + std::to_string(status);
  } else if (report.ran != 0) {
    outcome.ran = true;
    outcome.value = report.value;
  } else {
    outcome.unprivileged = report.value == EPERM;
    outcome.why = std::string(report.step) + ": " + std::strerror(report.value);
  }
  return outcome;
}

}  // namespace

ChildOutcome RunInChild(std::function<int()> const& body, std::chrono::milliseconds limit) {
  return Fork([] { return nullptr; }, body, limit);
}

ChildOutcome RunConfined(std::string const& dir, std::string const& marker,
                         std::function<int()> const& body, std::chrono::milliseconds limit) {
  std::string const markerInside = "/" + marker;
  auto confine = [&]() -> char const* {
    if (chroot(dir.c_str()) != 0) return "chroot";
    if (chdir("/") != 0) return "chdir";
    struct stat info;
    return stat(markerInside.c_str(), &info) != 0 ? "the marker inside the jail" : nullptr;
  };
  return Fork(confine, body, limit);
}

ChildOutcome RunUnprivileged(std::function<int()> const& body, std::chrono::milliseconds limit) {
  auto dropPrivilege = []() -> char const* {
    if (geteuid() != 0) return nullptr;
    if (setgroups(0, nullptr) != 0) return "setgroups";
    if (setgid(65534) != 0) return "setgid";
    return setuid(65534) != 0 ? "setuid" : nullptr;
  };
  return Fork(dropPrivilege, body, limit);
}

}  // namespace qtest

#include "testsupport.h"

#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <thread>

extern char** environ;

namespace qtest {

TempDir::TempDir(std::string const& base) {
  char const* tmp = std::getenv("TMPDIR");
  std::string pattern = (!base.empty() ? base : tmp != nullptr && *tmp != 0 ? tmp : "/tmp") +
                        std::string("/quillon-test-XXXXXX");
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back(0);
  if (mkdtemp(buffer.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  path = buffer.data();
}

TempDir::~TempDir() {
  std::error_code ignored;
  // Make everything removable first: a test may leave read-only entries.
  for (auto it = std::filesystem::recursive_directory_iterator(path, ignored);
       it != std::filesystem::recursive_directory_iterator(); it.increment(ignored)) {
    if (it->is_directory(ignored) && !it->is_symlink(ignored)) {
      std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                   std::filesystem::perm_options::add, ignored);
    }
  }
  std::filesystem::remove_all(path, ignored);
}

void WriteFile(std::string const& path, std::string const& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!out) throw std::runtime_error("cannot write " + path);
}

std::string PathOfLength(TempDir const& dir, std::size_t length, char fill) {
  // Directories of 200-byte names, then one name of 56 to 256 bytes: no name
  // passes the system's limit of 255.
  std::string path = dir.Path();
  while (length - path.size() > 256) {
    path += "/" + std::string(200, 'p');
    mkdir(path.c_str(), 0777);
  }
  return path + "/" + std::string(length - path.size() - 1, fill);
}

std::string ReadFile(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

bool WaitUntil(std::function<bool()> const& condition, std::chrono::milliseconds limit) {
  auto const deadline = std::chrono::steady_clock::now() + limit;
  for (;;) {
    if (condition()) return true;
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

std::string SelfPath() {
  std::error_code ignored;
  return std::filesystem::read_symlink("/proc/self/exe", ignored).string();
}

namespace {

std::map<std::string, HelperMain>& helpers() {
  static std::map<std::string, HelperMain> table;
  return table;
}

}  // namespace

bool RegisterHelper(char const* name, HelperMain body) {
  helpers()[name] = body;
  return true;
}

int RunHelperIfAsked(int argc, char** argv, bool* asked) {
  *asked = argc >= 3 && std::string(argv[1]) == "--helper";
  if (!*asked) return 0;
  auto found = helpers().find(argv[2]);
  if (found == helpers().end()) return 99;
  return found->second(std::vector<std::string>(argv + 3, argv + argc));
}

int RunProgram(std::vector<std::string> const& argv, std::string* output,
               std::chrono::milliseconds limit) {
  int pipeEnds[2] = {-1, -1};
  if (output != nullptr && pipe2(pipeEnds, O_CLOEXEC) != 0) return -1;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (output != nullptr) posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], 1);
  std::vector<char*> args;
  for (auto const& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  pid_t pid = 0;
  int rc = posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (output != nullptr) close(pipeEnds[1]);
  if (rc != 0) {
    if (output != nullptr) close(pipeEnds[0]);
    return -1;
  }
  if (output != nullptr) fcntl(pipeEnds[0], F_SETFL, O_NONBLOCK);
  auto drain = [&] {
    if (output == nullptr) return;
    char chunk[4096];
    ssize_t n;
    while ((n = read(pipeEnds[0], chunk, sizeof chunk)) > 0) output->append(chunk, n);
  };
  int status = 0;
  bool const ended = WaitUntil(
      [&] {
        drain();
        return waitpid(pid, &status, WNOHANG) == pid;
      },
      limit);
  if (!ended) {
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
  }
  drain();
  if (output != nullptr) close(pipeEnds[0]);
  if (!ended) return -1;
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  return 128 + WTERMSIG(status);
}

namespace {

// What a child reports through its pipe: whether the body ran, and its result
// or the error of the set-up step that failed, named in step.
struct ChildReport {
  int ran;
  int value;
  char step[64];
};

// A set-up step that failed, with its error; no name when all went well.
struct StepFailure {
  char const* name;
  int error;
};

StepFailure Succeeded() { return {nullptr, 0}; }

ChildOutcome Fork(std::function<StepFailure()> const& setUp, std::function<int()> const& body,
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
    StepFailure const failure = setUp();
    if (failure.name == nullptr) {
      report.ran = 1;
      report.value = body();
    } else {
      report.value = failure.error;
      std::snprintf(report.step, sizeof report.step, "%s", failure.name);
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
  return Fork(Succeeded, body, limit);
}

ChildOutcome RunConfined(std::string const& dir, std::string const& marker,
                         std::function<int()> const& body, std::chrono::milliseconds limit) {
  std::string const markerInside = "/" + marker;
  auto confine = [&]() -> StepFailure {
    if (chroot(dir.c_str()) != 0) return {"chroot", errno};
    if (chdir("/") != 0) return {"chdir", errno};
    struct stat info;
    if (stat(markerInside.c_str(), &info) != 0) return {"the marker inside the jail", errno};
    return Succeeded();
  };
  return Fork(confine, body, limit);
}

ChildOutcome RunUnprivileged(std::function<int()> const& body, std::chrono::milliseconds limit) {
  auto dropPrivilege = []() -> StepFailure {
    if (geteuid() != 0) return Succeeded();
    if (setgroups(0, nullptr) != 0) return {"setgroups", errno};
    if (setgid(65534) != 0) return {"setgid", errno};
    if (setuid(65534) != 0) return {"setuid", errno};
    return Succeeded();
  };
  return Fork(dropPrivilege, body, limit);
}

}  // namespace qtest

// The test support's host operations on POSIX (Linux).
#include "platform.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>

extern char** environ;

namespace qtest::host {

bool const kIsPosix = true;
char const kSeparator = '/';
int const kErrorNotFound = ENOENT;
int const kErrorAccessDenied = EACCES;
int const kErrorInvalidArgument = EINVAL;
int const kErrorUnmapped = EHOSTDOWN;
int const kExitAfterKill = 128 + SIGKILL;
int const kExitAfterInterrupt = 128 + SIGINT;
int const kSocketLevel = SOL_SOCKET;
int const kReuseAddressOption = SO_REUSEADDR;
char const* const kUtf8Locale = "C.UTF-8";

std::string TempFolder() {
  char const* base = std::getenv("TMPDIR");
  return base != nullptr && *base != 0 ? base : "/tmp";
}

std::string MakeUniqueDirectory(std::string const& parent, std::string const& prefix) {
  std::string pattern = parent + "/" + prefix + "XXXXXX";
  return mkdtemp(&pattern[0]) != nullptr ? pattern : std::string();
}

std::string ExecutablePath() {
  std::error_code ignored;
  return std::filesystem::read_symlink("/proc/self/exe", ignored).string();
}

std::vector<std::string> ProgramArguments(int argc, char** argv) {
  return std::vector<std::string>(argv, argv + argc);
}

std::optional<std::string> GetEnv(char const* name) {
  char const* value = getenv(name);
  return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

void SetEnv(char const* name, char const* value) {
  value != nullptr ? setenv(name, value, 1) : unsetenv(name);
}

std::uint32_t ProcessId() { return static_cast<std::uint32_t>(getpid()); }

std::uint32_t ThreadId() { return static_cast<std::uint32_t>(syscall(SYS_gettid)); }

void FailWithBadHandle() { close(-1); }

void UseBinaryStandardStreams() {}

namespace {

// One end of the child's standard streams as the parent holds it.
struct ParentEnd {
  int fd = -1;
  std::string* collected = nullptr;

  void Close() {
    if (fd >= 0) close(fd);
    fd = -1;
  }
  // Takes what waits; closes at the end of the stream.
  void Drain() {
    char chunk[4096];
    ssize_t n;
    while (fd >= 0 && (n = read(fd, chunk, sizeof chunk)) != 0) {
      if (n < 0) {
        if (errno != EINTR) return;  // nothing more yet
        continue;
      }
      collected->append(chunk, static_cast<std::size_t>(n));
    }
    Close();
  }
};

}  // namespace

int RunProgram(std::vector<std::string> const& argv, std::string const& input, std::string* output,
               std::string* errors, std::chrono::milliseconds limit) {
  if (argv.empty()) return -1;
  // Input goes through a socket, whose send can refuse SIGPIPE when the child
  // has stopped reading.
  int inputEnds[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, inputEnds) != 0) return -1;
  ParentEnd in{inputEnds[0]}, out{-1, output}, err{-1, errors};
  int childEnds[3] = {inputEnds[1], -1, -1};
  for (int stream : {1, 2}) {
    ParentEnd& end = stream == 1 ? out : err;
    int ends[2];
    if (end.collected != nullptr && pipe2(ends, O_CLOEXEC) == 0) {
      end.fd = ends[0];
      childEnds[stream] = ends[1];
    }
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (int stream = 0; stream < 3; ++stream) {
    if (childEnds[stream] >= 0) posix_spawn_file_actions_adddup2(&actions, childEnds[stream], stream);
  }
  std::vector<char*> args;
  for (auto const& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  pid_t pid = 0;
  int const spawned = posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  for (int end : childEnds) {
    if (end >= 0) close(end);
  }
  if (spawned != 0) {
    for (ParentEnd* end : {&in, &out, &err}) end->Close();
    return -1;
  }
  for (ParentEnd* end : {&in, &out, &err}) {
    if (end->fd >= 0) fcntl(end->fd, F_SETFL, O_NONBLOCK);
  }

  auto const deadline = std::chrono::steady_clock::now() + limit;
  std::size_t sent = 0;
  int status = 0;
  bool ended = false;
  while (!ended) {
    if (in.fd >= 0 && sent == input.size()) in.Close();  // the child's input ends
    pollfd watched[3];
    nfds_t count = 0;
    if (in.fd >= 0) watched[count++] = {in.fd, POLLOUT, 0};
    for (ParentEnd* end : {&out, &err}) {
      if (end->fd >= 0) watched[count++] = {end->fd, POLLIN, 0};
    }
    poll(watched, count, 10);
    if (in.fd >= 0) {
      ssize_t n = send(in.fd, input.data() + sent, input.size() - sent, MSG_NOSIGNAL);
      if (n > 0) sent += static_cast<std::size_t>(n);
      if (n < 0 && errno != EAGAIN && errno != EINTR) in.Close();  // it stopped reading
    }
    out.Drain();
    err.Drain();
    ended = waitpid(pid, &status, WNOHANG) == pid;
    if (!ended && std::chrono::steady_clock::now() >= deadline) break;
  }
  if (!ended) {
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
  }
  // What the child wrote before it ended; a grandchild may keep the ends open,
  // so take what is there and stop.
  for (ParentEnd* end : {&in, &out, &err}) {
    if (end != &in) end->Drain();
    end->Close();
  }
  if (!ended) return -1;
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  return 128 + WTERMSIG(status);
}

bool SendAll(std::uint64_t socket, void const* data, std::size_t size) {
  auto const* bytes = static_cast<char const*>(data);
  while (size > 0) {
    ssize_t n = send(static_cast<int>(socket), bytes, size, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    bytes += n;
    size -= static_cast<std::size_t>(n);
  }
  return true;
}

bool ResetOnClose(std::uint64_t socket) {
  linger const abortive{1, 0};
  return setsockopt(static_cast<int>(socket), SOL_SOCKET, SO_LINGER, &abortive, sizeof abortive) == 0;
}

bool IsInheritable(std::uintptr_t handle) {
  int flags = fcntl(static_cast<int>(handle), F_GETFD);
  return flags != -1 && (flags & FD_CLOEXEC) == 0;
}

int OpenDescriptorCount() {
  std::error_code failed;
  std::filesystem::directory_iterator entries("/proc/self/fd", failed);
  return failed ? -1 : static_cast<int>(std::distance(entries, {}));
}

long ResidentBytes() {
  std::ifstream statm("/proc/self/statm");
  long pages = 0;
  if (!(statm >> pages >> pages)) return -1;
  return pages * sysconf(_SC_PAGESIZE);
}

// A zombie keeps its /proc entry until it is reaped.
bool UnderWine() { return false; }

bool ProcessIsGone(std::uint32_t pid) { return access(("/proc/" + std::to_string(pid)).c_str(), F_OK) != 0; }

bool AnyChildLeft() {
  siginfo_t info{};
  // WNOWAIT: looks without reaping what it finds.
  return !(waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == -1 && errno == ECHILD);
}

int OpenInheritableDescriptor(std::string const& path) { return open(path.c_str(), O_RDONLY | O_CREAT, 0600); }

bool CloseDescriptor(int descriptor) { return close(descriptor) == 0; }

bool DescriptorIsOnFile(int descriptor, std::string const& path) {
  struct stat open {}, named {};
  return fstat(descriptor, &open) == 0 && stat(path.c_str(), &named) == 0 && open.st_dev == named.st_dev &&
         open.st_ino == named.st_ino;
}

long SessionOf(std::uint32_t pid) { return static_cast<long>(getsid(static_cast<pid_t>(pid))); }

bool KillProcess(std::uint32_t pid) { return kill(static_cast<pid_t>(pid), SIGKILL) == 0; }

unsigned SetFileCreationMask(unsigned mask) { return umask(static_cast<mode_t>(mask)); }

bool MakeFifo(std::string const& path) { return mkfifo(path.c_str(), 0666) == 0; }

bool MakeSymbolicLink(std::string const& target, std::string const& link) {
  return symlink(target.c_str(), link.c_str()) == 0;
}

bool IsPrivileged() { return geteuid() == 0; }

bool OnOtherFileSystems(std::string const& first, std::string const& second) {
  struct stat one {}, other {};
  return stat(first.c_str(), &one) == 0 && stat(second.c_str(), &other) == 0 && one.st_dev != other.st_dev;
}

namespace {

struct sigaction savedBrokenPipeAction;
rlimit savedDescriptorLimit;

}  // namespace

DefaultBrokenPipeSignal::DefaultBrokenPipeSignal() {
  struct sigaction plain {};
  plain.sa_handler = SIG_DFL;
  active = sigaction(SIGPIPE, &plain, &savedBrokenPipeAction) == 0;
}

DefaultBrokenPipeSignal::~DefaultBrokenPipeSignal() {
  if (active) sigaction(SIGPIPE, &savedBrokenPipeAction, nullptr);
}

namespace {
void Nothing(int) {}
}  // namespace

bool InterruptThread(std::thread& thread) {
  struct sigaction interrupt {};
  interrupt.sa_handler = Nothing;  // no SA_RESTART: the waiting call returns
  sigemptyset(&interrupt.sa_mask);
  return sigaction(SIGUSR2, &interrupt, nullptr) == 0 && pthread_kill(thread.native_handle(), SIGUSR2) == 0;
}

bool BrokenPipeSignalPending() {
  sigset_t pending;
  sigemptyset(&pending);
  return sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
}

NoMoreDescriptors::NoMoreDescriptors() : active(false) {
  if (getrlimit(RLIMIT_NOFILE, &savedDescriptorLimit) != 0) return;
  int probe = open("/dev/null", O_RDONLY | O_CLOEXEC);  // the lowest free number
  if (probe < 0) return;
  close(probe);
  rlimit tight = savedDescriptorLimit;
  tight.rlim_cur = static_cast<rlim_t>(probe);
  active = setrlimit(RLIMIT_NOFILE, &tight) == 0;
}

NoMoreDescriptors::~NoMoreDescriptors() {
  if (active) setrlimit(RLIMIT_NOFILE, &savedDescriptorLimit);
}

bool LeaveNoRoomForAThread() {
  std::ifstream statm("/proc/self/statm");
  unsigned long pages = 0;
  if (!(statm >> pages)) return false;
  pthread_attr_t defaults;
  std::size_t stack = 0;
  if (pthread_getattr_default_np(&defaults) != 0) return false;
  pthread_attr_getstacksize(&defaults, &stack);
  pthread_attr_destroy(&defaults);
  rlimit limit{};
  getrlimit(RLIMIT_AS, &limit);
  limit.rlim_cur = pages * static_cast<unsigned long>(sysconf(_SC_PAGESIZE)) + stack / 2;
  return setrlimit(RLIMIT_AS, &limit) == 0;
}

}  // namespace qtest::host

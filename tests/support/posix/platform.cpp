// The test support's host operations on POSIX (Linux).
#include "platform.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
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

std::string ExecutablePath() {
  std::error_code ignored;
  return std::filesystem::read_symlink("/proc/self/exe", ignored).string();
}

std::vector<std::string> ProgramArguments(int argc, char** argv) {
  return std::vector<std::string>(argv, argv + argc);
}

void SetEnv(char const* name, char const* value) {
  value != nullptr ? setenv(name, value, 1) : unsetenv(name);
}

std::uint32_t ProcessId() { return static_cast<std::uint32_t>(getpid()); }

std::uint32_t ThreadId() { return static_cast<std::uint32_t>(syscall(SYS_gettid)); }

void FailWithBadHandle() { close(-1); }

void UseBinaryStandardStreams() {}

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

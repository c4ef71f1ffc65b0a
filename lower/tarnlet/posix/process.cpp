// Child processes on posix_spawn and pidfds, and the descriptor of a standard
// file buffer. POSIX code only.
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "system.h"
#include "launch.h"
#include "ombmem.h"
#include "vekproc.h"
#include "waitset.h"

extern char** environ;

namespace {

struct ProcessRecord {
  pid_t pid;
  int pidfd;  // pollable, and immune to the reuse of the pid
  bool reaped;
  std::int32_t code;
};

ProcessRecord* recordOf(void* process) {
  if (process == nullptr || process == VEK_INVALID_HANDLE) {
    vekSetLastError(EBADF);
    return nullptr;
  }
  return static_cast<ProcessRecord*>(process);
}

std::int32_t codeOfStatus(int status) {
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return WEXITSTATUS(status);
}

bool isRunnable(std::string const& path) {
  struct stat info;
  return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
         ::access(path.c_str(), X_OK) == 0;
}

// The program as posix_spawn needs it: a name with a slash as it is, any
// other name looked up on PATH (an empty entry is the current directory).
bool findProgram(std::string const& name, std::string& path) {
  if (name.find('/') != std::string::npos) {
    path = name;
    return true;
  }
  char const* search = std::getenv("PATH");
  std::string dirs = search != nullptr ? search : "/usr/local/bin:/usr/bin:/bin";
  bool sawOne = false;
  std::size_t start = 0;
  for (;;) {
    std::size_t colon = dirs.find(':', start);
    std::string dir = dirs.substr(start, colon == std::string::npos ? std::string::npos : colon - start);
    std::string candidate = dir.empty() ? name : dir + "/" + name;
    if (isRunnable(candidate)) {
      path = candidate;
      return true;
    }
    sawOne = sawOne || ::access(candidate.c_str(), F_OK) == 0;
    if (colon == std::string::npos) break;
    start = colon + 1;
  }
  vekSetLastError(sawOne ? EACCES : ENOENT);
  return false;
}

// waitpid, gone on after a signal.
pid_t waitChild(pid_t pid, int* status, int options) {
  pid_t done;
  while ((done = ::waitpid(pid, status, options)) < 0 && errno == EINTR) {
  }
  return done;
}

void* reapWhenEnded(void* pid) {
  waitChild(static_cast<pid_t>(reinterpret_cast<std::intptr_t>(pid)), nullptr, 0);
  return nullptr;
}

// A child that outlives its handle gets a small detached thread that waits
// for it, so it never lingers as a zombie.
void reapLater(pid_t pid) {
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
  pthread_attr_setstacksize(&attr, 256 * 1024);
  pthread_t reaper;
  pthread_create(&reaper, &attr, reapWhenEnded,
                 reinterpret_cast<void*>(static_cast<std::intptr_t>(pid)));
  pthread_attr_destroy(&attr);
}

// Fills in the code of an ended child without reaping it; false while it runs.
bool peekExit(ProcessRecord const& record, std::int32_t* code) {
  siginfo_t info{};
  if (::waitid(P_PID, static_cast<id_t>(record.pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0) {
    vekKeepSystemError();
    return false;
  }
  if (info.si_pid == 0) return false;
  *code = info.si_code == CLD_EXITED ? info.si_status : 128 + info.si_status;
  return true;
}

}  // namespace

bool Process_Launch(void** process, std::uint32_t* processId, char const* command,
                    char const* second, void* in, void* out, void* err, unsigned int mode) {
  std::vector<std::string> args;
  if (!vekLaunchArguments(process, processId, command, second, mode, args)) {
    vekSetLastError(EINVAL);
    return false;
  }
  std::string path;
  if (!findProgram(args[0], path)) return false;
  std::vector<char*> argv;
  for (auto& arg : args) argv.push_back(&arg[0]);
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  void* const ends[3] = {in, out, err};
  for (int stream = 0; stream < 3; ++stream) {
    if (vekDescriptorOf(ends[stream]) >= 0) posix_spawn_file_actions_adddup2(&actions, vekDescriptorOf(ends[stream]), stream);
  }
  // Exactly the three standard streams reach the child, whatever others the
  // process has open without close-on-exec.
  posix_spawn_file_actions_addclosefrom_np(&actions, 3);

  posix_spawnattr_t attr;
  posix_spawnattr_init(&attr);
  sigset_t none;
  sigemptyset(&none);
  sigset_t defaults;
  sigemptyset(&defaults);
  sigaddset(&defaults, SIGPIPE);
  sigaddset(&defaults, SIGINT);
  short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
  if (mode == 2) flags |= POSIX_SPAWN_SETSID;
  posix_spawnattr_setflags(&attr, flags);
  posix_spawnattr_setsigmask(&attr, &none);
  posix_spawnattr_setsigdefault(&attr, &defaults);

  pid_t pid = 0;
  // The C library reaps a child whose exec failed and reports the exec's error.
  int failure = ::posix_spawn(&pid, path.c_str(), &actions, &attr, argv.data(), environ);
  posix_spawnattr_destroy(&attr);
  posix_spawn_file_actions_destroy(&actions);
  if (failure != 0) {
    vekSetLastError(failure);
    return false;
  }
  int pidfd = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
  if (pidfd < 0) {
    vekKeepSystemError();
    ::kill(pid, SIGKILL);
    waitChild(pid, nullptr, 0);
    return false;
  }
  *process = new ProcessRecord{pid, pidfd, false, -1};
  *processId = static_cast<std::uint32_t>(pid);
  return true;
}

bool Process_Wait(void* process, std::int32_t* code, bool wait, bool release) {
  ProcessRecord* record = recordOf(process);
  if (record == nullptr) return false;
  if (!record->reaped) {
    int status = 0;
    pid_t done = waitChild(record->pid, &status, wait ? 0 : WNOHANG);
    if (done < 0) {
      vekKeepSystemError();
      return false;
    }
    if (done == 0) return false;
    record->reaped = true;
    record->code = codeOfStatus(status);
  }
  *code = record->code;
  if (release) Process_Free(process);
  return true;
}

bool Process_Interrupt(std::uint32_t processId) {
  // 0 and the values that turn negative would reach whole process groups.
  if (processId == 0 || processId > 0x7fffffffu) {
    vekSetLastError(ESRCH);
    return false;
  }
  if (::kill(static_cast<pid_t>(processId), SIGINT) != 0) {
    vekKeepSystemError();
    return false;
  }
  return true;
}

bool Process_Kill(void* process) {
  ProcessRecord* record = recordOf(process);
  if (record == nullptr) return false;
  if (record->reaped) {
    vekSetLastError(ESRCH);
    return false;
  }
  if (::syscall(SYS_pidfd_send_signal, record->pidfd, SIGKILL, nullptr, 0) != 0) {
    vekKeepSystemError();
    return false;
  }
  return true;
}

AliveStatus Process_GetStatus(void* process) {
  ProcessRecord* record = recordOf(process);
  if (record == nullptr) return asUnknown;
  if (record->reaped) return asNotAlive;
  // A pidfd turns readable when the process ends; reading that reaps nothing.
  pollfd probe{record->pidfd, POLLIN, 0};
  int ready = vekPollUntil(&probe, 1, 0);
  if (ready < 0) return asUnknown;
  return ready == 0 ? asAlive : asNotAlive;
}

bool Process_GetExitCode(void* process, std::int32_t* code) {
  ProcessRecord* record = recordOf(process);
  if (record == nullptr) return false;
  if (record->reaped) {
    *code = record->code;
    return true;
  }
  return peekExit(*record, code);
}

void Process_Free(void* process) {
  ProcessRecord* record = recordOf(process);
  if (record == nullptr) return;
  if (!record->reaped && waitChild(record->pid, nullptr, WNOHANG) == 0) reapLater(record->pid);
  ::close(record->pidfd);
  delete record;
}

vekPROCESSEvent::vekPROCESSEvent(void* process) : handle(VEK_INVALID_HANDLE) {
  ProcessRecord* record = recordOf(process);
  if (record == nullptr) return;
  int const own = ::fcntl(record->pidfd, F_DUPFD_CLOEXEC, 0);
  if (own >= 0) handle = vekHandleOf(own);
}

vekPROCESSEvent::~vekPROCESSEvent() {
  if (handle != VEK_INVALID_HANDLE) ::close(vekDescriptorOf(handle));
}

void vekPROCESSEvent::PrepareWait(vekWaitSet& wait) const {
  if (handle != VEK_INVALID_HANDLE) wait.Watch(vekDescriptorOf(handle), false);
}

#if defined(__GLIBCXX__)
void* vekStreamFileHandle(std::basic_filebuf<char>* buffer) {
  return buffer != nullptr && buffer->is_open() ? vekHandleOf(vekFileBufAccess::Descriptor(buffer))
                                                : VEK_INVALID_HANDLE;
}
#else
void* vekStreamFileHandle(std::basic_filebuf<char>*) {
  vekSetLastError(ENOTSUP);
  return VEK_INVALID_HANDLE;
}
#endif

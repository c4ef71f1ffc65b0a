// Anonymous pipes on POSIX pipes: making, peeking, reading, writing without
// SIGPIPE, closing, and the read event. POSIX code only.
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "system.h"
#include "ombmem.h"
#include "vekfile.h"
#include "vekpipe.h"
#include "waitset.h"

namespace {

// Blocks SIGPIPE on the calling thread for the life of the object. A write to
// a pipe without reader then fails with EPIPE and leaves the signal pending on
// this thread; the destructor takes that signal back unless it was pending
// already before, so nothing of it reaches the process.
class SigpipeGuard {
 public:
  SigpipeGuard() {
    sigemptyset(&pipeOnly);
    sigaddset(&pipeOnly, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipeOnly, &saved);
    sigset_t pending;
    sigemptyset(&pending);
    sigpending(&pending);
    pendingBefore = sigismember(&pending, SIGPIPE) == 1;
  }

  ~SigpipeGuard() {
    if (raised && !pendingBefore) {
      int keep = errno;
      timespec const none{0, 0};
      while (sigtimedwait(&pipeOnly, nullptr, &none) == -1 && errno == EINTR) {
      }
      errno = keep;
    }
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
  }

  SigpipeGuard(SigpipeGuard const&) = delete;
  SigpipeGuard& operator=(SigpipeGuard const&) = delete;

  void Raised() { raised = true; }

 private:
  sigset_t pipeOnly;
  sigset_t saved;
  bool pendingBefore = false;
  bool raised = false;
};

}  // namespace

bool vekAnonymousPipe::Create(vekOutputPipe& out, vekInputPipe& in) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) {
    vekKeepSystemError();
    return false;
  }
  static_cast<vekAnonymousPipe&>(in).handle = vekHandleOf(ends[0]);
  static_cast<vekAnonymousPipe&>(out).handle = vekHandleOf(ends[1]);
  return true;
}

bool vekPipePeek(void* handle, int* available) {
  int fd = vekDescriptorOf(handle);
  int count = 0;
  if (::ioctl(fd, FIONREAD, &count) != 0) {
    vekKeepSystemError();
    return false;
  }
  if (count == 0) {
    // Nothing waiting: either the writer is still there, or it has gone.
    pollfd probe{fd, POLLIN, 0};
    if (::poll(&probe, 1, 0) == 1 && (probe.revents & POLLHUP) != 0) {
      vekSetLastError(EPIPE);
      return false;
    }
  }
  *available = count;
  return true;
}

// A pipe end is a file handle: reading it is reading a file.
bool vekPipeRead(void* handle, void* buffer, unsigned size, unsigned* got) {
  return vekReadFile(handle, buffer, size, got);
}

// Writing one is writing a file, with SIGPIPE kept away from the process.
bool vekPipeWrite(void* handle, void const* data, unsigned size, unsigned* written) {
  SigpipeGuard guard;
  bool ok = vekWriteFile(handle, data, size, written);
  if (!ok && vekGetLastError() == EPIPE) guard.Raised();
  return ok;
}

bool vekPipeClose(void* handle) {
  // Linux releases the fd even when close reports EINTR: never retry.
  if (::close(vekDescriptorOf(handle)) != 0) {
    vekKeepSystemError();
    return false;
  }
  return true;
}

namespace {

// Readable while data waits, and once the writer has gone.
class PipeReadable : public vekBaseEvent {
 public:
  explicit PipeReadable(void* handle) : handle(handle) {}
  void PrepareWait(vekWaitSet& wait) const override {
    if (handle != VEK_INVALID_HANDLE) wait.Watch(vekDescriptorOf(handle), false);
  }

 private:
  void* handle;
};

}  // namespace

vekPipeEvent::vekPipeEvent(void* handle) : vekEvent(new PipeReadable(handle)) {}

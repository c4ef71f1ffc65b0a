#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "ombmem.h"
#include "vekfile.h"
#include "vekpipe.h"

namespace {

// Large enough for a whole pipe's worth (64 KiB on Linux) in one system call.
constexpr unsigned kAreaSize = 1u << 16;

int toFd(void* handle) { return static_cast<int>(reinterpret_cast<std::intptr_t>(handle)); }
void* toHandle(int fd) { return reinterpret_cast<void*>(static_cast<std::intptr_t>(fd)); }

bool isNoEnd(void* handle) { return toFd(handle) < 0; }

// One system call's share of a large request.
unsigned chunkOf(std::streamsize left) {
  return left > 0x40000000 ? 0x40000000u : static_cast<unsigned>(left);
}

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
  static_cast<vekAnonymousPipe&>(in).handle = toHandle(ends[0]);
  static_cast<vekAnonymousPipe&>(out).handle = toHandle(ends[1]);
  return true;
}

bool vekPipePeek(void* handle, int* available) {
  int fd = toFd(handle);
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

bool vekPipeDrain(void* handle, char* area, unsigned* pending) {
  if (*pending == 0) return true;
  unsigned written = 0;
  bool ok = vekPipeWrite(handle, area, *pending, &written);
  // Whatever went is gone from the area; the rest stays for a later try.
  std::memmove(area, area + written, *pending - written);
  *pending -= written;
  return ok;
}

bool vekPipeClose(void* handle) {
  // Linux releases the fd even when close reports EINTR: never retry.
  if (::close(toFd(handle)) != 0) {
    vekKeepSystemError();
    return false;
  }
  return true;
}

vekIPipeSBuf::vekIPipeSBuf(vekInputPipe end) : end(end), area(new char[kAreaSize]) {
  setg(area, area, area);
}

vekIPipeSBuf::~vekIPipeSBuf() {
  if (!isNoEnd(end.fd())) vekPipeClose(end.fd());
  delete[] area;
}

vekIPipeSBuf::int_type vekIPipeSBuf::underflow() {
  if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
  unsigned got = 0;
  if (!vekPipeRead(end.fd(), area, kAreaSize, &got) || got == 0) return traits_type::eof();
  setg(area, area, area + got);
  return traits_type::to_int_type(*gptr());
}

std::streamsize vekIPipeSBuf::xsgetn(char_type* data, std::streamsize count) {
  std::streamsize done = 0;
  while (done < count) {
    std::streamsize buffered = egptr() - gptr();
    if (buffered > 0) {
      std::streamsize take = count - done < buffered ? count - done : buffered;
      std::memcpy(data + done, gptr(), static_cast<std::size_t>(take));
      gbump(static_cast<int>(take));
      done += take;
      continue;
    }
    // Large requests go straight into the caller's memory, without a copy.
    std::streamsize left = count - done;
    if (left >= static_cast<std::streamsize>(kAreaSize)) {
      unsigned got = 0;
      if (!vekPipeRead(end.fd(), data + done, chunkOf(left), &got) || got == 0) break;
      done += got;
    } else if (traits_type::eq_int_type(underflow(), traits_type::eof())) {
      break;
    }
  }
  return done;
}

std::streamsize vekIPipeSBuf::showmanyc() {
  int available = 0;
  if (!vekPipePeek(end.fd(), &available)) return -1;
  return available;
}

vekOPipeSBuf::vekOPipeSBuf(vekOutputPipe end) : end(end), area(new char[kAreaSize]) {
  setp(area, area + kAreaSize);
}

vekOPipeSBuf::~vekOPipeSBuf() {
  if (!isNoEnd(end.fd())) {
    Flush();
    vekPipeClose(end.fd());
  }
  delete[] area;
}

bool vekOPipeSBuf::Flush() {
  unsigned pending = static_cast<unsigned>(pptr() - pbase());
  bool ok = vekPipeDrain(end.fd(), area, &pending);
  setp(area, area + kAreaSize);
  pbump(static_cast<int>(pending));
  return ok;
}

vekOPipeSBuf::int_type vekOPipeSBuf::overflow(int_type c) {
  if (!Flush()) return traits_type::eof();
  if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
  *pptr() = traits_type::to_char_type(c);
  pbump(1);
  return c;
}

int vekOPipeSBuf::sync() { return Flush() ? 0 : -1; }

std::streamsize vekOPipeSBuf::xsputn(char_type const* data, std::streamsize count) {
  std::streamsize room = epptr() - pptr();
  if (count <= room) {
    std::memcpy(pptr(), data, static_cast<std::size_t>(count));
    pbump(static_cast<int>(count));
    return count;
  }
  // Too big for the area: send what is pending, then the data itself.
  if (!Flush()) return 0;
  std::streamsize done = 0;
  while (done < count) {
    unsigned written = 0;
    bool ok = vekPipeWrite(end.fd(), data + done, chunkOf(count - done), &written);
    done += written;
    if (!ok) break;
  }
  return done;
}

namespace {

class PipeReadable : public vekBaseEvent {
 public:
  explicit PipeReadable(void* handle) : fd(toFd(handle)) {}
  vekWaitObject GetWaitObject() const override { return vekWaitObject{fd, false}; }

 private:
  int fd;
};

}  // namespace

vekPipeEvent::vekPipeEvent(void* handle) : vekEvent(new PipeReadable(handle)) {}

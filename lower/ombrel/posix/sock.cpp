// Stream sockets on BSD sockets: descriptors close-on-exec, sends without
// SIGPIPE, interrupted calls resumed. POSIX code only.
#include "ombsock.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include "ombmem.h"

namespace {

// A handle that no fd can be: the call then fails with EBADF like any other.
int Fd(unsigned long long sock) {
  return sock > static_cast<unsigned long long>(INT_MAX) ? -1 : static_cast<int>(sock);
}

int Fail() {
  vekKeepSystemError();
  return -1;
}

std::size_t Clamp(long long length) {
  if (length < 0) return 0;
  return length > INT_MAX ? static_cast<std::size_t>(INT_MAX) : static_cast<std::size_t>(length);
}

// Framed messages go out as a count and a payload in two sends; with Nagle's
// algorithm the second would wait for the peer to acknowledge the first.
// Fails harmlessly on sockets that are not TCP.
void SendAtOnce(int fd) {
  int on = 1;
  (void)::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

// getsockname or getpeername with the int length of the contract.
int AddressOf(int (*call)(int, sockaddr*, socklen_t*), unsigned long long sock,
              sockaddr* address, int* length) {
  socklen_t size = static_cast<socklen_t>(*length);
  if (call(Fd(sock), address, &size) != 0) return Fail();
  *length = static_cast<int>(size);
  return 0;
}

int PlatformFlags(int flags) { return (flags & vekMsgOob) != 0 ? MSG_OOB : 0; }

}  // namespace

unsigned long long vek_socket(int family, int type, int protocol) {
  int fd = ::socket(family, type | SOCK_CLOEXEC, protocol);
  if (fd < 0) {
    vekKeepSystemError();
    return vekInvalidSocket;
  }
  if ((family == AF_INET || family == AF_INET6) && type == SOCK_STREAM) SendAtOnce(fd);
  if (family == AF_INET6) {
    int off = 0;
    // Best effort: a host without IPv4 keeps a plain IPv6 socket.
    (void)::setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
  }
  return static_cast<unsigned long long>(fd);
}

int vek_bind(unsigned long long sock, sockaddr const* address, int length) {
  return ::bind(Fd(sock), address, static_cast<socklen_t>(length)) == 0 ? 0 : Fail();
}

int vek_listen(unsigned long long sock, int backlog) {
  return ::listen(Fd(sock), backlog) == 0 ? 0 : Fail();
}

unsigned long long vek_accept(unsigned long long sock, sockaddr* address, int* length) {
  socklen_t size = length != nullptr ? static_cast<socklen_t>(*length) : 0;
  for (;;) {
    int fd = ::accept4(Fd(sock), address, length != nullptr ? &size : nullptr, SOCK_CLOEXEC);
    if (fd >= 0) {
      SendAtOnce(fd);
      if (length != nullptr) *length = static_cast<int>(size);
      return static_cast<unsigned long long>(fd);
    }
    if (errno != EINTR) {
      vekKeepSystemError();
      return vekInvalidSocket;
    }
  }
}

int vek_connect(unsigned long long sock, sockaddr const* address, int length) {
  int fd = Fd(sock);
  if (::connect(fd, address, static_cast<socklen_t>(length)) == 0) return 0;
  if (errno != EINTR) return Fail();
  // An interrupted connect goes on in the background; wait for its outcome.
  pollfd entry{fd, POLLOUT, 0};
  while (::poll(&entry, 1, -1) < 0) {
    if (errno != EINTR) return Fail();
  }
  int outcome = 0;
  socklen_t size = sizeof outcome;
  if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &outcome, &size) != 0) return Fail();
  if (outcome == 0) return 0;
  errno = outcome;
  return Fail();
}

int vek_recv(unsigned long long sock, void* buffer, long long length, int flags) {
  for (;;) {
    ssize_t got = ::recv(Fd(sock), buffer, Clamp(length), PlatformFlags(flags));
    if (got > 0) return static_cast<int>(got);
    if (got == 0) {
      // Nothing asked for is nothing received; only a real end is the peer's close.
      vekSetLastError(Clamp(length) != 0 ? vekErrPeerClosed : 0);
      return 0;
    }
    if (errno != EINTR) return Fail();
  }
}

int vek_send(unsigned long long sock, void const* buffer, long long length, int flags) {
  for (;;) {
    ssize_t sent = ::send(Fd(sock), buffer, Clamp(length), PlatformFlags(flags) | MSG_NOSIGNAL);
    if (sent >= 0) return static_cast<int>(sent);
    if (errno != EINTR) return Fail();
  }
}

int vek_send_gathered(unsigned long long sock, void const* head, long long headLength,
                      void const* body, long long bodyLength, int flags) {
  std::size_t const headBytes = Clamp(headLength);
  iovec pieces[2] = {{const_cast<void*>(head), headBytes},
                     {const_cast<void*>(body), Clamp(std::min<long long>(bodyLength, INT_MAX - headBytes))}};
  msghdr message{};
  message.msg_iov = pieces;
  message.msg_iovlen = 2;
  for (;;) {
    ssize_t sent = ::sendmsg(Fd(sock), &message, PlatformFlags(flags) | MSG_NOSIGNAL);
    if (sent >= 0) return static_cast<int>(sent);
    if (errno != EINTR) return Fail();
  }
}

long long vek_recv_queued(unsigned long long sock) {
  int queued = 0;
  if (::ioctl(Fd(sock), FIONREAD, &queued) != 0) return Fail();
  return queued;
}

int vek_setsockopt(unsigned long long sock, int level, int option, void const* value,
                   int length) {
  int platformLevel = -1;
  int platformOption = -1;
  if (level == vekSolSocket) {
    platformLevel = SOL_SOCKET;
    if (option == vekSoReuseAddr) platformOption = SO_REUSEADDR;
  }
  if (platformLevel < 0 || platformOption < 0) {
    vekSetLastError(EINVAL);
    return -1;
  }
  return ::setsockopt(Fd(sock), platformLevel, platformOption, value,
                      static_cast<socklen_t>(length)) == 0
             ? 0
             : Fail();
}

int vek_getsockname(unsigned long long sock, sockaddr* address, int* length) {
  return AddressOf(::getsockname, sock, address, length);
}

int vek_getpeername(unsigned long long sock, sockaddr* address, int* length) {
  return AddressOf(::getpeername, sock, address, length);
}

int vek_closesocket(unsigned long long sock) {
  // Linux releases the fd even when close reports EINTR; never close twice.
  if (::close(Fd(sock)) == 0 || errno == EINTR) return 0;
  return Fail();
}

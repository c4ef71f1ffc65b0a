// Stream sockets on Winsock: started once, lazily; sockets never inherited
// by a child, sent without delay. Windows code only.
#include "ombsock.h"

#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>

#include <algorithm>
#include <climits>

#include "ombmem.h"

namespace {

SOCKET Sock(unsigned long long sock) { return static_cast<SOCKET>(sock); }

int Fail() {
  vekSetLastError(WSAGetLastError());
  return -1;
}

int Clamp(long long length) {
  if (length < 0) return 0;
  return length > INT_MAX ? INT_MAX : static_cast<int>(length);
}

// Winsock starts on the first socket, once, whichever thread comes first;
// never from a DLL's entry function, which runs under the loader's lock. It
// is not cleaned up: the end of the process releases it.
bool WinsockStarted() {
  static int const outcome = [] {
    WSADATA data;
    return WSAStartup(MAKEWORD(2, 2), &data);
  }();
  if (outcome != 0) vekSetLastError(outcome);
  return outcome == 0;
}

// Framed messages go out as a count and a payload in two sends; with Nagle's
// algorithm the second would wait for the peer to acknowledge the first.
void SendAtOnce(SOCKET sock) {
  BOOL on = TRUE;
  (void)::setsockopt(sock, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<char const*>(&on), sizeof on);
}

int PlatformFlags(int flags) { return (flags & vekMsgOob) != 0 ? MSG_OOB : 0; }

}  // namespace

unsigned long long vek_socket(int family, int type, int protocol) {
  if (!WinsockStarted()) return vekInvalidSocket;
  // Overlapped, as socket() makes them, and never inherited by a child.
  SOCKET sock = ::WSASocketW(family, type, protocol, nullptr, 0,
                             WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
  if (sock == INVALID_SOCKET) {
    Fail();
    return vekInvalidSocket;
  }
  if ((family == AF_INET || family == AF_INET6) && type == SOCK_STREAM) SendAtOnce(sock);
  if (family == AF_INET6) {
    DWORD off = 0;
    (void)::setsockopt(sock, IPPROTO_IPV6, IPV6_V6ONLY, reinterpret_cast<char const*>(&off), sizeof off);
  }
  return sock;
}

int vek_bind(unsigned long long sock, sockaddr const* address, int length) {
  return ::bind(Sock(sock), address, length) == 0 ? 0 : Fail();
}

int vek_listen(unsigned long long sock, int backlog) {
  return ::listen(Sock(sock), backlog) == 0 ? 0 : Fail();
}

unsigned long long vek_accept(unsigned long long sock, sockaddr* address, int* length) {
  SOCKET accepted = ::accept(Sock(sock), address, length);
  if (accepted == INVALID_SOCKET) {
    Fail();
    return vekInvalidSocket;
  }
  // An accepted socket takes the listener's settings; this one is not left to that.
  SetHandleInformation(reinterpret_cast<HANDLE>(accepted), HANDLE_FLAG_INHERIT, 0);
  SendAtOnce(accepted);
  return accepted;
}

int vek_connect(unsigned long long sock, sockaddr const* address, int length) {
  return ::connect(Sock(sock), address, length) == 0 ? 0 : Fail();
}

int vek_recv(unsigned long long sock, void* buffer, long long length, int flags) {
  // Nothing asked for is nothing received, at once: Wine's recv of 0 bytes
  // would wait for data.
  if (Clamp(length) == 0) {
    vekSetLastError(0);
    return 0;
  }
  int got = ::recv(Sock(sock), static_cast<char*>(buffer), Clamp(length), PlatformFlags(flags));
  if (got == SOCKET_ERROR) return Fail();
  if (got == 0) vekSetLastError(vekErrPeerClosed);
  return got;
}

int vek_send(unsigned long long sock, void const* buffer, long long length, int flags) {
  int sent = ::send(Sock(sock), static_cast<char const*>(buffer), Clamp(length), PlatformFlags(flags));
  return sent == SOCKET_ERROR ? Fail() : sent;
}

int vek_send_gathered(unsigned long long sock, void const* head, long long headLength,
                      void const* body, long long bodyLength, int flags) {
  int const headBytes = Clamp(headLength);
  WSABUF pieces[2] = {{static_cast<ULONG>(headBytes), static_cast<char*>(const_cast<void*>(head))},
                      {static_cast<ULONG>(Clamp(std::min<long long>(bodyLength, INT_MAX - headBytes))),
                       static_cast<char*>(const_cast<void*>(body))}};
  DWORD sent = 0;
  if (::WSASend(Sock(sock), pieces, 2, &sent, PlatformFlags(flags), nullptr, nullptr) == SOCKET_ERROR) {
    return Fail();
  }
  return static_cast<int>(sent);
}

long long vek_recv_queued(unsigned long long sock) {
  u_long queued = 0;
  if (::ioctlsocket(Sock(sock), FIONREAD, &queued) != 0) return Fail();
  return static_cast<long long>(queued);
}

int vek_setsockopt(unsigned long long sock, int level, int option, void const* value,
                   int length) {
  if (level != vekSolSocket || option != vekSoReuseAddr) {
    vekSetLastError(WSAEINVAL);
    return -1;
  }
  if (value == nullptr || length != static_cast<int>(sizeof(int))) {
    vekSetLastError(WSAEFAULT);
    return -1;
  }
  // A Windows listener takes a port that has connections in TIME_WAIT by
  // default. Winsock's SO_REUSEADDR would also let a second socket bind a
  // port that a live listener holds, which this option does not mean, so
  // there is nothing to hand to the system; the socket must still be one.
  int type = 0;
  int size = sizeof type;
  return ::getsockopt(Sock(sock), SOL_SOCKET, SO_TYPE, reinterpret_cast<char*>(&type), &size) == 0 ? 0 : Fail();
}

int vek_getsockname(unsigned long long sock, sockaddr* address, int* length) {
  return ::getsockname(Sock(sock), address, length) == 0 ? 0 : Fail();
}

int vek_getpeername(unsigned long long sock, sockaddr* address, int* length) {
  return ::getpeername(Sock(sock), address, length) == 0 ? 0 : Fail();
}

int vek_closesocket(unsigned long long sock) {
  return ::closesocket(Sock(sock)) == 0 ? 0 : Fail();
}

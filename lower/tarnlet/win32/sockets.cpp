// select() on fd_sets, name look-ups (getaddrinfo, getnameinfo) and the
// socket event, on Winsock. Windows code only.
#include "veksock.h"  // first: the library's size of an fd_set

#include "lookup.h"
#include "ombmem.h"
#include "waitset.h"

namespace {

// The look-ups need Winsock as sockets do; WSAStartup counts its callers, so
// tarnlet starts it once for itself, on the first look-up, never from a
// DLL's entry function. The end of the process releases it.
bool WinsockStarted() {
  static int const outcome = [] {
    WSADATA data;
    return ::WSAStartup(MAKEWORD(2, 2), &data);
  }();
  if (outcome != 0) vekSetLastError(outcome);
  return outcome == 0;
}

bool HostHasIPv6() {
  SOCKET sock = ::WSASocketW(AF_INET6, SOCK_STREAM, 0, nullptr, 0, WSA_FLAG_NO_HANDLE_INHERIT);
  if (sock == INVALID_SOCKET) return false;
  ::closesocket(sock);
  return true;
}

// A failed look-up keeps "name not resolved" for what the resolver says of
// the name or service, the system's error for a failure of the system; the
// outcome is handed back.
int KeepLookUpError(int outcome) {
  switch (outcome) {
    case EAI_NONAME:
    case EAI_SERVICE:
    case EAI_FAIL:
    case EAI_AGAIN:
    case WSANO_DATA:
      vekSetLastError(vekErrNameNotResolved);
      break;
    default:
      vekSetLastError(outcome);
  }
  return outcome;
}

bool IsEmpty(fd_set const* set) { return set == nullptr || set->fd_count == 0; }

}  // namespace

void fds_zero(fd_set& set) { FD_ZERO(&set); }

// FD_SET itself leaves out a socket beyond the set's room, and one already
// in it; the invalid socket is left out as well.
void fds_set(unsigned long long sock, fd_set& set) {
  if (static_cast<SOCKET>(sock) != INVALID_SOCKET) FD_SET(static_cast<SOCKET>(sock), &set);
}

// Winsock's select ignores its first argument and leaves the timeout alone;
// the handle is looked at only to refuse the invalid socket as POSIX does.
// Winsock refuses sets that are all empty, where a POSIX select only lets
// the time pass: that is done here.
int fds_select(int sock, fd_set* read, fd_set* write, fd_set* except, timeval* timeout) {
  if (sock < 0) {
    vekSetLastError(WSAEINVAL);
    return -1;
  }
  if (IsEmpty(read) && IsEmpty(write) && IsEmpty(except)) {
    if (timeout == nullptr) {
      ::Sleep(INFINITE);
    } else {
      long long const msec = static_cast<long long>(timeout->tv_sec) * 1000 + timeout->tv_usec / 1000;
      ::Sleep(msec > 0 ? static_cast<DWORD>(msec) : 0);
    }
    return 0;
  }
  int ready = ::select(0, read, write, except, timeout);
  if (ready == SOCKET_ERROR) {
    vekSetLastError(::WSAGetLastError());
    return -1;
  }
  return ready;
}

int vek_get_nodeaddrinfo(char const* node, char const* service, addrinfo const* hints,
                         addrinfo** result) {
  if (!WinsockStarted()) return -1;
  addrinfo* list = nullptr;
  int outcome = ::getaddrinfo(node, service, hints, &list);
  if (outcome != 0) return KeepLookUpError(outcome);
  *result = vekOrderLookUp(list, node, hints, HostHasIPv6);
  return 0;
}

void vek_free_nodeaddrinfo(addrinfo* result) {
  if (result != nullptr) ::freeaddrinfo(result);
}

int vek_get_nodenameinfo(sockaddr const* address, int length, char* host, int hostSize,
                         char* service, int serviceSize, int flags) {
  if (!WinsockStarted()) return -1;
  int outcome = ::getnameinfo(address, length, host, static_cast<DWORD>(hostSize), service,
                              static_cast<DWORD>(serviceSize), flags);
  return outcome == 0 ? 0 : KeepLookUpError(outcome);
}

vekSelectEvent::vekSelectEvent(unsigned long long sock, Type type) : sock(sock), type(type) {}

void vekSelectEvent::PrepareWait(vekWaitSet& wait) const {
  if (static_cast<SOCKET>(sock) != INVALID_SOCKET) wait.WatchSocket(static_cast<SOCKET>(sock), type == Writable);
}

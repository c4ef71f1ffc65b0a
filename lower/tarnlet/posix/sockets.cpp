// select() on fd_sets, name look-ups (getaddrinfo, getnameinfo) and the
// socket event. POSIX code only.
#include "veksock.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "lookup.h"
#include "ombmem.h"
#include "waitset.h"

void fds_zero(fd_set& set) { FD_ZERO(&set); }

void fds_set(unsigned long long sock, fd_set& set) {
  // FD_SET beyond the set's size would write outside it.
  if (sock < static_cast<unsigned long long>(FD_SETSIZE)) FD_SET(static_cast<int>(sock), &set);
}

int fds_select(int sock, fd_set* read, fd_set* write, fd_set* except, timeval* timeout) {
  if (sock < 0 || sock >= FD_SETSIZE) {
    vekSetLastError(EINVAL);
    return -1;
  }
  timeval left{};
  if (timeout != nullptr) left = *timeout;
  for (;;) {
    int ready = ::select(sock + 1, read, write, except, timeout != nullptr ? &left : nullptr);
    if (ready >= 0) return ready;
    if (errno != EINTR) {
      vekKeepSystemError();
      return -1;
    }
  }
}

namespace {

bool HostHasIPv6() {
  int fd = ::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  ::close(fd);
  return true;
}

// A failed look-up keeps the system's error, or "name not resolved" for a
// failure of the resolver itself; the outcome is handed back.
int KeepLookUpError(int outcome) {
  if (outcome == EAI_SYSTEM) {
    vekKeepSystemError();
  } else {
    vekSetLastError(vekErrNameNotResolved);
  }
  return outcome;
}

}  // namespace

int vek_get_nodeaddrinfo(char const* node, char const* service, addrinfo const* hints,
                         addrinfo** result) {
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
  int outcome = ::getnameinfo(address, static_cast<socklen_t>(length), host,
                              static_cast<socklen_t>(hostSize), service,
                              static_cast<socklen_t>(serviceSize), flags);
  return outcome == 0 ? 0 : KeepLookUpError(outcome);
}

vekSelectEvent::vekSelectEvent(unsigned long long sock, Type type) : sock(sock), type(type) {}

void vekSelectEvent::PrepareWait(vekWaitSet& wait) const {
  // A handle that no descriptor can be leaves the event without an object.
  if (sock <= static_cast<unsigned long long>(INT_MAX)) wait.Watch(static_cast<int>(sock), type == Writable);
}

/// \file
/// tarnlet: waiting on sockets, and the names of hosts.
///
/// Contract ("fails with errSysX": errMapError() then gives that status):
/// - fds_zero(set) empties a set; fds_set(sock, set) adds a socket handle.
///   A set has room for FD_SETSIZE (1024 on Windows, see vekplatform.h): on
///   POSIX it holds the handles below FD_SETSIZE, on Windows any FD_SETSIZE
///   sockets; fds_set leaves out a handle that does not fit.
/// - fds_select(sock, read, write, except, timeout) is select() for sets that
///   hold handles up to sock: the caller passes the handle itself and the
///   wrapper passes what the platform wants (sock + 1 on POSIX). Null sets are
///   allowed; a null timeout waits without limit. The caller's timeval is left
///   as it was on every platform (Linux's own select would write the time
///   left into it). Interrupted waits resume with the time that is left.
///   Returns the number of ready handles, 0 on timeout, -1 on failure with the
///   system error kept (on POSIX a handle beyond the sets' reach fails with
///   errSysInvalidArgument).
/// - vek_get_nodeaddrinfo(node, service, hints, &result) is getaddrinfo: 0 on
///   success, with result released by vek_free_nodeaddrinfo; otherwise
///   non-zero, result untouched and the last error vekErrNameNotResolved
///   (errSysNameNotResolved), or the system error for a failure of the system
///   itself. For a passive
///   request for the wildcard of any family, an IPv6 result comes first when
///   the host can make IPv6 sockets: such a socket is dual-stack (ombsock.h),
///   so a listener made from the first result hears both families.
/// - vek_get_nodenameinfo(address, length, host, hostSize, service,
///   serviceSize, flags) is getnameinfo: 0 on success; host or service may be
///   null with a size of 0.
/// - vekSelectEvent(sock, type) is the object behind an event that fires when
///   the socket is readable (Readable) or writable (Writable). It does not own
///   the socket.
#ifndef VEKSOCK_H
#define VEKSOCK_H

#include "vekevent.h"
#include "vekplatform.h"

/// Empties set.
TARNLET_API void fds_zero(fd_set& set);
/// Adds the socket handle sock to set; leaves out a handle that does not fit.
TARNLET_API void fds_set(unsigned long long sock, fd_set& set);
/// select() for sets that hold handles up to sock; null sets allowed, a null
/// timeout waits without limit, *timeout left as it was. \return the ready
/// handles, 0 on timeout, -1 with the system error kept.
TARNLET_API int fds_select(int sock, fd_set* read, fd_set* write, fd_set* except,
                           timeval* timeout);

/// getaddrinfo. \return 0 with *result, owned by the caller and released
/// with vek_free_nodeaddrinfo; otherwise non-zero, *result untouched and the
/// last error vekErrNameNotResolved (errSysNameNotResolved) or the system's.
TARNLET_API int vek_get_nodeaddrinfo(char const* node, char const* service, addrinfo const* hints,
                                     addrinfo** result);
/// Releases a result of vek_get_nodeaddrinfo.
TARNLET_API void vek_free_nodeaddrinfo(addrinfo* result);
/// getnameinfo: host and service names of address into the buffers given
/// (either may be null with a size of 0). \return 0 on success, non-zero
/// otherwise.
TARNLET_API int vek_get_nodenameinfo(sockaddr const* address, int length, char* host,
                                     int hostSize, char* service, int serviceSize, int flags);

/// The object behind an event that fires when a socket is readable or
/// writable. It does not own the socket. Waits may run on any thread.
class TARNLET_API vekSelectEvent : public vekBaseEvent {
 public:
  /// What the event waits for.
  enum Type {
    Readable,  ///< the socket has data, a connection or an end to read
    Writable   ///< the socket takes a send
  };

  vekSelectEvent(unsigned long long sock, Type type);  ///< An object on sock.
  /// Adds the socket to wait, for reading or for writing.
  void PrepareWait(vekWaitSet& wait) const override;

 private:
  unsigned long long sock;
  Type type;
};

#endif

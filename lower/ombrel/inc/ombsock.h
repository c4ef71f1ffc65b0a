/// \file
/// ombrel: stream sockets.
///
/// Contract ("fails with errSysX": errMapError() then gives that status):
/// - A socket handle is an unsigned 64-bit number (the fd on POSIX, the SOCKET
///   on Windows); vekInvalidSocket, all bits set, stands for none.
/// - Each operation is the socket call of the same name without the prefix,
///   with the same results: 0 (or a handle, or a count) on success, -1 (or
///   vekInvalidSocket) on failure with the system error kept for errMapError().
///   Lengths of addresses are ints on every platform.
/// - Every socket these operations make (vek_socket, vek_accept) is
///   close-on-exec, so no child process inherits it. An IPv6 socket is made
///   dual-stack: bound to the wildcard it also hears IPv4. TCP sockets send
///   at once (no Nagle delay), since a framed message may go out in two sends.
/// - Interrupted calls are resumed; none of them fails for a signal.
/// - vek_recv and vek_send take a 64-bit length (more than INT_MAX bytes are
///   handled as INT_MAX) and the flags below. vek_send never raises SIGPIPE: a
///   send to a closed peer fails with errSysBrokenPipe or errSysConnReset.
///   When vek_recv returns 0, the peer has closed the connection, and
///   vekErrPeerClosed is recorded as the last error, so that errMapError()
///   reports errSysPeerClosed; a receive of 0 bytes returns 0 and records no
///   error (the last error is cleared).
/// - vek_send_gathered sends two buffers, one after the other, in one call
///   (sendmsg on POSIX, WSASend on Windows) as vek_send sends one: the bytes
///   sent count through the first buffer into the second.
/// - vek_recv_queued has no call of its name either: how many
///   bytes a receive could take now without waiting, those that have arrived
///   and not been received (FIONREAD, of ioctl on POSIX and of ioctlsocket on
///   Windows); 0 when none have.
/// - vek_setsockopt takes the level and the option by meaning (the constants
///   below, the same numbers on every platform); the implementation hands the
///   platform's own values to the system, and any other level or option fails
///   with errSysInvalidArgument.
#ifndef OMBSOCK_H
#define OMBSOCK_H

#include "vekplatform.h"

/// No socket: all bits set.
unsigned long long const vekInvalidSocket = ~0ULL;

/// The flags of vek_recv and vek_send.
enum vekSockFlag : int {
  vekMsgOob = 1  ///< out-of-band data
};

/// The levels of vek_setsockopt.
enum vekSockLevel : int {
  vekSolSocket = 0xffff  ///< the socket itself
};

/// The options of vek_setsockopt.
enum vekSockOption : int {
  vekSoReuseAddr = 4  ///< an int: 1 lets a listener take a port that has connections in TIME_WAIT
};

/// socket: a new close-on-exec socket (dual-stack for IPv6, without Nagle's
/// delay for TCP), owned by the caller and closed with vek_closesocket.
/// \return vekInvalidSocket on failure, with the system error kept.
OMBREL_API unsigned long long vek_socket(int family, int type, int protocol);
/// bind: 0, or -1 with the system error kept (errSysAddressInUse for an
/// address taken or not this host's).
OMBREL_API int vek_bind(unsigned long long sock, sockaddr const* address, int length);
/// listen: 0, or -1 with the system error kept.
OMBREL_API int vek_listen(unsigned long long sock, int backlog);
/// accept: the connected socket (close-on-exec, owned by the caller), or
/// vekInvalidSocket with the system error kept.
/// address and length may both be null.
OMBREL_API unsigned long long vek_accept(unsigned long long sock, sockaddr* address, int* length);
/// connect: 0, or -1 with the system error kept (errSysConnRefused when no
/// one listens).
OMBREL_API int vek_connect(unsigned long long sock, sockaddr const* address, int length);
/// recv: the bytes received (at most INT_MAX), 0 when the peer has closed
/// (last error vekErrPeerClosed, so errSysPeerClosed) or for a length of 0
/// (last error cleared), -1 with the system error kept.
OMBREL_API int vek_recv(unsigned long long sock, void* buffer, long long length, int flags);
/// send: the bytes sent (at most INT_MAX), or -1 with the system error kept
/// (errSysBrokenPipe or errSysConnReset to a closed peer); never raises
/// SIGPIPE.
OMBREL_API int vek_send(unsigned long long sock, void const* buffer, long long length, int flags);
/// send of head (headLength bytes) followed by body (bodyLength bytes), as one
/// buffer: the bytes sent (at most INT_MAX, head's first), or -1 with the
/// system error kept, as vek_send.
OMBREL_API int vek_send_gathered(unsigned long long sock, void const* head, long long headLength,
                                 void const* body, long long bodyLength, int flags);
/// The bytes that have arrived and not been received, which a receive could
/// take now without waiting; 0 when none have, -1 with the system error kept.
OMBREL_API long long vek_recv_queued(unsigned long long sock);
/// setsockopt with a vekSockLevel and a vekSockOption: 0, or -1 with the
/// system error kept (errSysInvalidArgument for another level or option).
OMBREL_API int vek_setsockopt(unsigned long long sock, int level, int option, void const* value,
                              int length);
///@{
/// getsockname (the socket's own address), getpeername (the peer's): 0, or -1
/// with the system error kept.
/// *length holds the size of address on entry and the size of the address on return.
OMBREL_API int vek_getsockname(unsigned long long sock, sockaddr* address, int* length);
OMBREL_API int vek_getpeername(unsigned long long sock, sockaddr* address, int* length);
///@}
/// closesocket: releases the socket. \return 0, or -1 with the system error
/// kept (errSysBadHandle for no socket).
OMBREL_API int vek_closesocket(unsigned long long sock);

#endif

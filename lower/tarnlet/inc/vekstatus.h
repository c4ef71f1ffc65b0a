/// \file
/// tarnlet: the status values of quillon and the mapping of system errors.
///
/// Contract:
/// - errstatus is 32 bits wide and unscoped, so it compares with plain numbers.
///   1 is success; 0 means that no outcome has been recorded yet. The fixed
///   values below keep their numbers on every platform.
/// - errMapError() maps the calling thread's last error (see ombmem.h) to a
///   value of the system band (100 and up). The band has the same names and
///   numbers on every platform; each platform maps its own codes into it (the
///   table is the platform's: errno values on POSIX, GetLastError and
///   WSAGetLastError values on Windows), and the library's own codes map the
///   same everywhere: vekErrSharingViolation to errSysSharingViolation,
///   vekErrPeerClosed to errSysPeerClosed, vekErrNameNotResolved to
///   errSysNameNotResolved, vekErrPathTooLong to errSysNameTooLong,
///   vekErrRuntimeOther to errSysOther. A system code without a name of its
///   own gives errSysOther. With no error recorded it returns errOK.
///   The headers of the lower libraries say "fails with errSysX" where
///   errMapError() then gives errSysX, on every platform.
/// - errText(status) gives a short English text for every value, also for
///   numbers outside the enumeration. It never returns null.
#ifndef VEKSTATUS_H
#define VEKSTATUS_H

#include "vekplatform.h"

#include <cstdint>

/// The outcome of an operation of quillon or of the lower libraries.
enum errstatus : std::int32_t {
  errNothingYet = 0,          ///< no outcome recorded (a task's status)
  errOK = 1,                  ///< success
  errOutOfRange = 3,          ///< a position is out of range
  errNoFileInfo = 5,          ///< the information of a file could not be read
  errNoMemoryOrIO = 6,        ///< no memory for a block, or a file could not be opened, read or written
  errNotADirectory = 14,      ///< the path is not a directory
  errNotOnPlatform = 16,      ///< the operation is not available on this platform
  errComponentNotDir = 30,    ///< a component of a path exists and is not a directory
  errDiskQuery = 34,          ///< the disk could not be queried
  errPipeCreate = 37,         ///< a pipe could not be created
  errThreadCreate = 38,       ///< a thread could not be created
  errFramedReceive = 41,      ///< a receive failed, or the peer closed, inside a framed message

  // The system band: what errMapError() gives. Each value is a meaning; the
  // platform's table sends its codes of that meaning there.
  errSysOther = 100,          ///< any system error without a name of its own
  errSysNotFound,             ///< no such file, directory, process or FIFO peer
  errSysAccessDenied,         ///< permission refused, or a read-only file system
  errSysExists,               ///< the file or directory is there already
  errSysNotDirectory,         ///< a directory was needed
  errSysIsDirectory,          ///< a file was needed
  errSysNotEmpty,             ///< the directory holds entries
  errSysSharingViolation,     ///< another open, or a running program, holds the file
  errSysNoSpace,              ///< the disk or the quota is full, or the file too large
  errSysBrokenPipe,           ///< the reader of a pipe or connection has gone
  errSysConnRefused,          ///< nobody accepts connections at the address
  errSysConnReset,            ///< reset or aborted by the peer or the network
  errSysPeerClosed,           ///< the peer closed the connection (vekErrPeerClosed)
  errSysTimedOut,             ///< the time for the call passed
  errSysWouldBlock,           ///< not now: would block, or in progress
  errSysInterrupted,          ///< a signal interrupted the call
  errSysInvalidArgument,      ///< an argument the call does not take
  errSysBadHandle,            ///< not an open handle (or not a socket)
  errSysNameTooLong,          ///< a path or name is longer than the system or the library takes
  errSysAddressInUse,         ///< the address is taken, or not this host's
  errSysNameNotResolved,      ///< a host or service name has no address (vekErrNameNotResolved)
  errSysTooManyFiles          ///< no handle left, in the process or the system
};

/// What Process_GetStatus reports of a child.
enum AliveStatus : std::int32_t {
  asNotAlive = 0,  ///< the child has ended
  asAlive = 1,     ///< the child runs
  asUnknown = 2    ///< no such child, or the system could not tell
};

/// The calling thread's last error as a value of the system band (errSysX),
/// the same on every platform; errOK with no error recorded.
TARNLET_API errstatus errMapError();
/// A short English text for status, also for a number outside the
/// enumeration; static, never null.
TARNLET_API char const* errText(errstatus status);

#endif

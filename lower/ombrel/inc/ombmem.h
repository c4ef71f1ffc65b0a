/// \file
/// ombrel: memory hooks, the stop, and the thread's last system error.
///
/// Contract kept by every implementation:
/// - vekAlloc(n) returns a block of at least n bytes (a distinct block also for
///   n == 0). When memory cannot be had it does not return: it ends the process
///   through vekAbort with a message saying so. vekReAlloc likewise.
/// - vekReAlloc(block, n) keeps the contents up to the smaller size. A null
///   block allocates afresh; n == 0 releases the block and returns null.
/// - vekFree(block) releases a block of vekAlloc/vekReAlloc; null is allowed.
/// - vekLiveBlocks() counts the blocks handed out and not yet released, over
///   the whole process, so a caller can see that nothing was left behind.
/// - vekAbort(message, file, line) writes one line with the message (which may
///   be null), the file and the line to standard error, then aborts.
/// - The last error: every failing operation of the lower libraries records,
///   per thread, a code of one domain per platform: the system's own codes
///   (errno values on POSIX; GetLastError and WSAGetLastError values on
///   Windows) or one of the library's own codes below. errMapError (tarnlet)
///   maps it. A code of one platform never stands for a failure on another.
#ifndef OMBMEM_H
#define OMBMEM_H

#include "vekplatform.h"

#include <cstddef>

/// A block of at least bytes bytes (a distinct block also for 0), released
/// with vekFree. Never null: when memory cannot be had the process ends
/// through vekAbort.
OMBREL_API void* vekAlloc(std::size_t bytes);
/// Resizes block, keeping its contents up to the smaller size; a null block
/// allocates afresh, 0 bytes releases the block and returns null. Ends the
/// process through vekAbort when memory cannot be had.
OMBREL_API void* vekReAlloc(void* block, std::size_t bytes);
/// Releases a block of vekAlloc or vekReAlloc; null is allowed.
OMBREL_API void vekFree(void* block);
/// The blocks handed out and not yet released, over the whole process.
OMBREL_API long long vekLiveBlocks();

/// Writes the message (may be null), the file and the line to standard error
/// as one line, then aborts the process.
[[noreturn]] OMBREL_API void vekAbort(char const* message, char const* file, int line);

/// Failures that no system has a code of its own for. They lie in a range of
/// their own, with bit 29 set (0x20000000 and up): no errno value comes near
/// it, and Windows leaves that bit to applications (no system code has it).
/// So they mean the same on every platform and never collide with a system
/// code.
enum vekOwnError : int {
  vekOwnErrorBase = 0x20000000,  ///< The start of the range; no failure of its own.
  vekErrSharingViolation,  ///< an open conflicts with another open's share mode
  vekErrPeerClosed,        ///< the other end of a connection closed it
  vekErrNameNotResolved,   ///< a host or service name has no address
  vekErrPathTooLong,       ///< a path longer than quillon's path objects hold,
                           ///< refused before it reached the system
  vekErrRuntimeOther,      ///< a C runtime failure that has no system code of
                           ///< the platform (see vekKeepRuntimeError)
};

/// Records code as the calling thread's last error.
OMBREL_API void vekSetLastError(int code);
/// The calling thread's last error: a system code or a vekOwnError.
OMBREL_API int vekGetLastError();
/// Records the system's own code for the failure that just happened.
OMBREL_API void vekKeepSystemError();

#endif

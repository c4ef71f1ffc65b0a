// The table of errno values for errMapError. POSIX code only.
#include <cerrno>

#include "systemerror.h"

int const vekNameTooLongCode = ENAMETOOLONG;

errstatus vekStatusOfSystemCode(int code) {
  switch (code) {
    case ENOENT: case ENXIO: case ESRCH: return errSysNotFound;
    case EACCES: case EPERM: case EROFS: return errSysAccessDenied;
    case EEXIST: return errSysExists;
    case ENOTDIR: return errSysNotDirectory;
    case EISDIR: return errSysIsDirectory;
    case ENOTEMPTY: return errSysNotEmpty;
    case ETXTBSY: case EBUSY: return errSysSharingViolation;
    case ENOSPC: case EDQUOT: case EFBIG: return errSysNoSpace;
    case EPIPE: return errSysBrokenPipe;
    case ECONNREFUSED: return errSysConnRefused;
    case ECONNRESET: case ECONNABORTED: return errSysConnReset;
    case ETIMEDOUT: return errSysTimedOut;
    case EAGAIN: case EINPROGRESS: case EALREADY: return errSysWouldBlock;
    case EINTR: return errSysInterrupted;
    case EINVAL: case EDOM: case ERANGE: return errSysInvalidArgument;
    case EBADF: case ENOTSOCK: return errSysBadHandle;
    case ENAMETOOLONG: return errSysNameTooLong;
    case EADDRINUSE: case EADDRNOTAVAIL: return errSysAddressInUse;
    case EMFILE: case ENFILE: return errSysTooManyFiles;
    default: return errSysOther;
  }
}

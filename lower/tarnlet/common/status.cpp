// The status values: the mapping of the last error and every value's text.
// The band is the same on every platform; only the table of the system's own
// codes is the platform's (vekStatusOfSystemCode).
#include "vekstatus.h"

#include "ombmem.h"
#include "systemerror.h"

errstatus errMapError() {
  int const code = vekGetLastError();
  switch (code) {
    case 0: return errOK;
    case vekErrSharingViolation: return errSysSharingViolation;
    case vekErrPeerClosed: return errSysPeerClosed;
    case vekErrNameNotResolved: return errSysNameNotResolved;
    case vekErrPathTooLong: return errSysNameTooLong;
    case vekErrRuntimeOther: return errSysOther;
    default: return vekStatusOfSystemCode(code);
  }
}

char const* errText(errstatus status) {
  switch (status) {
    case errNothingYet: return "no outcome recorded yet";
    case errOK: return "success";
    case errOutOfRange: return "position out of range";
    case errNoFileInfo: return "file information could not be read";
    case errNoMemoryOrIO: return "no memory, or a file could not be opened, read or written";
    case errNotADirectory: return "not a directory";
    case errNotOnPlatform: return "not available on this platform";
    case errComponentNotDir: return "a path component is not a directory";
    case errDiskQuery: return "the disk could not be queried";
    case errPipeCreate: return "a pipe could not be created";
    case errThreadCreate: return "a thread could not be created";
    case errFramedReceive: return "receive failed or peer closed inside a framed message";
    case errSysOther: return "system error";
    case errSysNotFound: return "not found";
    case errSysAccessDenied: return "access denied";
    case errSysExists: return "already exists";
    case errSysNotDirectory: return "not a directory";
    case errSysIsDirectory: return "is a directory";
    case errSysNotEmpty: return "directory not empty";
    case errSysSharingViolation: return "in use by another open (sharing violation)";
    case errSysNoSpace: return "no space left";
    case errSysBrokenPipe: return "broken pipe";
    case errSysConnRefused: return "connection refused";
    case errSysConnReset: return "connection reset";
    case errSysPeerClosed: return "peer closed the connection";
    case errSysTimedOut: return "timed out";
    case errSysWouldBlock: return "would block";
    case errSysInterrupted: return "interrupted";
    case errSysInvalidArgument: return "invalid argument";
    case errSysBadHandle: return "bad handle";
    case errSysNameTooLong: return "name too long";
    case errSysAddressInUse: return "address in use";
    case errSysNameNotResolved: return "name not resolved";
    case errSysTooManyFiles: return "too many open files";
  }
  return "unknown status";
}

// The table of GetLastError and WSAGetLastError values for errMapError.
// Windows code only.
#include "systemerror.h"

#include <winsock2.h>
#include <windows.h>

#include "system.h"


int const vekNameTooLongCode = ERROR_FILENAME_EXCED_RANGE;

errstatus vekStatusOfSystemCode(int code) {
  switch (code) {
    case ERROR_FILE_NOT_FOUND: case ERROR_PATH_NOT_FOUND: case ERROR_INVALID_DRIVE:
    case ERROR_BAD_NETPATH: case ERROR_BAD_NET_NAME: case ERROR_DEV_NOT_EXIST:
    case ERROR_MOD_NOT_FOUND: case ERROR_NOT_FOUND:
      return errSysNotFound;
    case ERROR_ACCESS_DENIED: case ERROR_WRITE_PROTECT: case ERROR_NETWORK_ACCESS_DENIED:
    case ERROR_PRIVILEGE_NOT_HELD: case ERROR_CANT_ACCESS_FILE:
    case WSAEACCES:
      return errSysAccessDenied;
    case ERROR_FILE_EXISTS: case ERROR_ALREADY_EXISTS: return errSysExists;
    case ERROR_DIRECTORY: return errSysNotDirectory;
    case vekErrorDirectoryNotSupported: return errSysIsDirectory;
    case ERROR_DIR_NOT_EMPTY: return errSysNotEmpty;
    case ERROR_SHARING_VIOLATION: case ERROR_BUSY: case ERROR_USER_MAPPED_FILE:
    case ERROR_CURRENT_DIRECTORY: case ERROR_DRIVE_LOCKED:
      return errSysSharingViolation;
    case ERROR_DISK_FULL: case ERROR_HANDLE_DISK_FULL: case ERROR_FILE_TOO_LARGE:
    case vekErrorDiskQuotaExceeded: case WSAEDQUOT:
      return errSysNoSpace;
    case ERROR_BROKEN_PIPE: case ERROR_NO_DATA: case ERROR_PIPE_NOT_CONNECTED: case WSAESHUTDOWN:
      return errSysBrokenPipe;
    case WSAECONNREFUSED: case ERROR_CONNECTION_REFUSED: return errSysConnRefused;
    case WSAECONNRESET: case WSAECONNABORTED: case WSAENETRESET: case ERROR_NETNAME_DELETED:
    case ERROR_CONNECTION_ABORTED:
      return errSysConnReset;
    case WSAETIMEDOUT: case WAIT_TIMEOUT: case ERROR_TIMEOUT: case ERROR_SEM_TIMEOUT:
      return errSysTimedOut;
    // A byte-range lock held by another handle: what a lock that may not
    // wait reports on every host.
    case WSAEWOULDBLOCK: case WSAEINPROGRESS: case WSAEALREADY: case ERROR_IO_PENDING:
    case ERROR_IO_INCOMPLETE: case ERROR_LOCK_VIOLATION: case ERROR_PIPE_BUSY:
      return errSysWouldBlock;
    case WSAEINTR: case ERROR_OPERATION_ABORTED: return errSysInterrupted;
    case ERROR_INVALID_PARAMETER: case ERROR_INVALID_FUNCTION: case ERROR_INVALID_NAME:
    case ERROR_BAD_PATHNAME: case ERROR_NEGATIVE_SEEK: case ERROR_INVALID_FLAGS:
    case ERROR_NOT_A_REPARSE_POINT: case WSAEINVAL: case WSAEFAULT:
      return errSysInvalidArgument;
    case ERROR_INVALID_HANDLE: case ERROR_INVALID_TARGET_HANDLE: case WSAENOTSOCK:
      return errSysBadHandle;
    case ERROR_FILENAME_EXCED_RANGE: case ERROR_BUFFER_OVERFLOW: case ERROR_INSUFFICIENT_BUFFER:
    case WSAENAMETOOLONG:
      return errSysNameTooLong;
    case WSAEADDRINUSE: case WSAEADDRNOTAVAIL: return errSysAddressInUse;
    case WSAHOST_NOT_FOUND: case WSANO_DATA: return errSysNameNotResolved;
    case ERROR_TOO_MANY_OPEN_FILES: case ERROR_NO_MORE_SEARCH_HANDLES: case WSAEMFILE:
      return errSysTooManyFiles;
    default: return errSysOther;
  }
}

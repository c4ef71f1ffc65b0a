// tarnlet, inside: system error codes that the Windows code uses and that
// mingw-w64's headers do not name. Windows code only.
#ifndef TARNLET_WIN32_ERRORCODES_H
#define TARNLET_WIN32_ERRORCODES_H

// "An operation is not supported on a directory": a file operation given a
// directory.
constexpr int vekErrorDirectoryNotSupported = 336;
// The quota of the user on the volume is used up.
constexpr int vekErrorDiskQuotaExceeded = 1295;

#endif

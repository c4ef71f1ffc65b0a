/// \file
/// ombrel: closing the handles that tarnlet hands out.
///
/// Contract ("fails with errSysX": errMapError() then gives that status):
/// - A file handle is a void* that holds the platform's own handle (the
///   descriptor on POSIX, the HANDLE on Windows); the invalid handle is all
///   bits set, as VEK_INVALID_HANDLE gives it, on every platform.
/// - win32CloseFileHandle(handle): closes a file handle. True on success; false
///   with the system error kept (a bad or invalid handle fails with
///   errSysBadHandle). A successful close leaves the last error as it was.
/// - win32FindClose(handle): ends a directory search of uFindFirstFile and
///   releases its record (a record of the platform's own). True on success;
///   false with errSysBadHandle for a null or invalid handle.
#ifndef OMBHANDLE_H
#define OMBHANDLE_H

#include "vekplatform.h"

/// The invalid file handle: all bits set, on every platform.
#define VEK_INVALID_HANDLE (reinterpret_cast<void*>(~static_cast<unsigned long long>(0)))

/// Closes a file handle. \return true on success, leaving the last error
/// as it was; false with the system error kept (errSysBadHandle for a bad or
/// invalid handle).
OMBREL_API bool win32CloseFileHandle(void* handle);
/// Ends a directory search of uFindFirstFile and releases its record.
/// \return true on success; false with errSysBadHandle for a null or invalid
/// handle.
OMBREL_API bool win32FindClose(void* handle);

#endif

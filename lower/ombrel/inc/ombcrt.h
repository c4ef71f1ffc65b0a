/// \file
/// ombrel: wrappers of the C library.
///
/// Contract: each operation is the C library's function of the same name
/// without the prefix, with the same results. A failure keeps the system error
/// for errMapError().
/// - vek_getenv(name): the value text (owned by the environment) or null; null
///   for a null name.
/// - vek_printf(format, ...): printf to the standard output, flushed at once so
///   that the line is out before the caller goes on; returns what printf does.
/// - vek_chdir(path), vek_unlink(path): 0 on success, -1 on failure.
/// - vekResetRuntimeError() clears the C runtime's error code (errno) before a
///   call of the C or C++ library that reports failure only through it (a
///   standard stream's open). vekKeepRuntimeError() then records that failure
///   as the last error, as a code of this platform's domain (ombmem.h): on
///   POSIX errno is the system's code already and is kept as it is. On
///   Windows the runtime's errno is not a system code (EACCES, 13, is
///   ERROR_INVALID_DATA there): the system code that the runtime translated
///   (_doserrno) is kept when there is one, else the Win32 code of the same
///   meaning (EINVAL: ERROR_INVALID_PARAMETER, ENOENT: ERROR_FILE_NOT_FOUND,
///   EACCES: ERROR_ACCESS_DENIED, EEXIST: ERROR_FILE_EXISTS, EMFILE:
///   ERROR_TOO_MANY_OPEN_FILES, ENOSPC: ERROR_DISK_FULL), and
///   vekErrRuntimeOther for a code without one. When the runtime set no code
///   at all, the invalid-argument code of the platform is kept.
/// - vekPrintSystemError(prefix, code) writes one line to standard error:
///   prefix and ": " (both left out for a null or empty prefix), the
///   platform's own text for code (a code of the last error,
///   ombmem.h) and a line end, as perror does on POSIX. A code the platform
///   has no text for (the library's own among them) reads as the C library
///   reports an unknown one ("Unknown error <code>" with glibc); on Windows
///   the system's message without its line end, or "Unknown error <code>".
#ifndef OMBCRT_H
#define OMBCRT_H

#include "vekplatform.h"

/// getenv: the value of the variable name, owned by the environment (not to
/// be released), or null when it is not set or name is null.
OMBREL_API char const* vek_getenv(char const* name);
/// printf to the standard output, flushed before it returns. \return what
/// printf returns: the bytes written, or a negative number on failure.
OMBREL_API int vek_printf(char const* format, ...)
#if defined(__GNUC__)
    __attribute__((format(VEK_PRINTF_FORMAT, 1, 2)))
#endif
    ;
/// chdir: makes path the current directory. \return 0, or -1 with the
/// system error kept for errMapError().
OMBREL_API int vek_chdir(char const* path);
/// unlink: removes the name path. \return 0, or -1 with the system error
/// kept for errMapError().
OMBREL_API int vek_unlink(char const* path);
/// Clears the C runtime's error code (errno) before a call that reports
/// failure only through it.
OMBREL_API void vekResetRuntimeError();
/// Records the C runtime's error code as the calling thread's last error, as
/// a code of this platform's domain (see the file's contract for Windows).
OMBREL_API void vekKeepRuntimeError();
/// Writes "prefix: text of code" and a line end to standard error, as perror
/// does; a null or empty prefix leaves out the prefix and ": ".
OMBREL_API void vekPrintSystemError(char const* prefix, int code);

#endif

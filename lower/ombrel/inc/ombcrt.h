// ombrel: wrappers of the C library.
//
// Contract: each operation is the C library's function of the same name
// without the prefix, with the same results. A failure keeps the system error
// for errMapError().
// - vek_getenv(name): the value text (owned by the environment) or null; null
//   for a null name.
// - vek_printf(format, ...): printf to the standard output, flushed at once so
//   that the line is out before the caller goes on; returns what printf does.
// - vek_chdir(path), vek_unlink(path): 0 on success, -1 on failure.
// - vekResetRuntimeError() clears the C runtime's error code (errno) before a
//   call of the C or C++ library that reports failure only through it (a
//   standard stream's open); vekKeepRuntimeError() then records that code as
//   the last error, or invalid argument when the runtime set none.
#ifndef OMBCRT_H
#define OMBCRT_H

#include "vekplatform.h"

OMBREL_API char const* vek_getenv(char const* name);
OMBREL_API int vek_printf(char const* format, ...)
#if defined(__GNUC__)
    __attribute__((format(VEK_PRINTF_FORMAT, 1, 2)))
#endif
    ;
OMBREL_API int vek_chdir(char const* path);
OMBREL_API int vek_unlink(char const* path);
OMBREL_API void vekResetRuntimeError();
OMBREL_API void vekKeepRuntimeError();

#endif

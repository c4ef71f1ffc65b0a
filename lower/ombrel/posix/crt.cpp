// The C library wrappers, the runtime error and the system error text on a
// POSIX C library. POSIX code only.
#include "ombcrt.h"

#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "ombmem.h"

char const* vek_getenv(char const* name) {
  return name == nullptr ? nullptr : std::getenv(name);
}

int vek_printf(char const* format, ...) {
  std::va_list args;
  va_start(args, format);
  int written = std::vprintf(format, args);
  va_end(args);
  std::fflush(stdout);
  return written;
}

int vek_chdir(char const* path) {
  int result = ::chdir(path);
  if (result != 0) vekKeepSystemError();
  return result;
}

int vek_unlink(char const* path) {
  int result = ::unlink(path);
  if (result != 0) vekKeepSystemError();
  return result;
}

void vekResetRuntimeError() { errno = 0; }

void vekKeepRuntimeError() { vekSetLastError(errno != 0 ? errno : EINVAL); }

void vekPrintSystemError(char const* prefix, int code) {
  // The last error holds errno values here: perror prints exactly their text.
  int const keep = errno;
  errno = code;
  std::perror(prefix);
  errno = keep;
}

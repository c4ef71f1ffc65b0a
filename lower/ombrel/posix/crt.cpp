// The environment, the directory and unlink calls, the runtime error as a
// system code and the system error text, on a POSIX C library. POSIX code only.
#include "ombcrt.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "ombmem.h"

char const* vek_getenv(char const* name) {
  return name == nullptr ? nullptr : std::getenv(name);
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

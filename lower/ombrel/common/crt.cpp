// The C library wrappers that are the same on every host.
#include "ombcrt.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

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

void vekResetRuntimeError() { errno = 0; }

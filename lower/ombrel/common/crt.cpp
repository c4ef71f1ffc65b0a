// The C library's wrappers that are the same on every platform.
#include <cstdarg>
#include <cstdio>

#include "ombcrt.h"

int vek_printf(char const* format, ...) {
  std::va_list args;
  va_start(args, format);
  int written = std::vprintf(format, args);
  va_end(args);
  std::fflush(stdout);
  return written;
}

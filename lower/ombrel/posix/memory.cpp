// The POSIX part of the memory hooks and the stop (common/memory.cpp).
#include <unistd.h>

#include <cerrno>

#include "../common/stopline.h"
#include "ombmem.h"

void vekWriteStopLine(char const* text, std::size_t size) {
  std::size_t written = 0;
  while (written < size) {
    ssize_t n = ::write(STDERR_FILENO, text + written, size - written);
    if (n <= 0 && errno != EINTR) break;
    if (n > 0) written += static_cast<std::size_t>(n);
  }
}

void vekKeepSystemError() { vekSetLastError(errno); }

// The stop's line to standard error with write(2), and the system's last
// error (errno). POSIX code only.
#include <unistd.h>

#include <cerrno>

#include "ombmem.h"
#include "stderr.h"

void vekWriteStandardError(char const* text, std::size_t size) {
  std::size_t written = 0;
  while (written < size) {
    ssize_t n = ::write(STDERR_FILENO, text + written, size - written);
    if (n <= 0 && errno != EINTR) break;
    if (n > 0) written += static_cast<std::size_t>(n);
  }
}

void vekKeepSystemError() { vekSetLastError(errno); }

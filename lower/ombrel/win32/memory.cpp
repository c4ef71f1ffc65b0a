// The stop's line to standard error with WriteFile, and the system's last
// error (GetLastError). Windows code only.
#include "ombmem.h"

#include <windows.h>

#include "stderr.h"

void vekWriteStandardError(char const* text, std::size_t size) {
  HANDLE const error = GetStdHandle(STD_ERROR_HANDLE);
  if (error == nullptr || error == INVALID_HANDLE_VALUE) return;
  std::size_t written = 0;
  while (written < size) {
    DWORD n = 0;
    if (!WriteFile(error, text + written, static_cast<DWORD>(size - written), &n, nullptr) || n == 0) break;
    written += n;
  }
}

void vekKeepSystemError() { vekSetLastError(static_cast<int>(GetLastError())); }

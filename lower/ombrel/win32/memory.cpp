// The Windows part of the memory hooks and the stop (common/memory.cpp).
#include "ombmem.h"

#include <windows.h>

#include "../common/stopline.h"

void vekWriteStopLine(char const* text, std::size_t size) {
  HANDLE const error = GetStdHandle(STD_ERROR_HANDLE);
  if (error == nullptr || error == INVALID_HANDLE_VALUE) return;
  std::size_t written = 0;
  while (written < size) {
    DWORD n = 0;
    if (!WriteFile(error, text + written, static_cast<DWORD>(size - written), &n, nullptr) || n == 0) break;
    written += n;
  }
}

// Winsock's own error (WSAGetLastError) is the thread's system error too, so
// socket calls keep theirs the same way.
void vekKeepSystemError() { vekSetLastError(static_cast<int>(GetLastError())); }

// Closing file handles (HANDLEs) and directory searches (FindFirstFileW's).
// Windows code only.
#include "ombhandle.h"

#include <windows.h>

#include "ombmem.h"
#include "system.h"

bool win32CloseFileHandle(void* handle) {
  if (handle == VEK_INVALID_HANDLE) {
    vekSetLastError(ERROR_INVALID_HANDLE);
    return false;
  }
  if (!CloseHandle(vekSystemHandleOf(handle))) {
    vekKeepSystemError();
    return false;
  }
  return true;
}

bool win32FindClose(void* handle) {
  if (handle == nullptr || handle == VEK_INVALID_HANDLE) {
    vekSetLastError(ERROR_INVALID_HANDLE);
    return false;
  }
  auto* record = static_cast<vekFindRecord*>(handle);
  bool closed = FindClose(record->search) != 0;
  if (!closed) vekKeepSystemError();
  delete[] record->pattern;
  delete record;
  return closed;
}

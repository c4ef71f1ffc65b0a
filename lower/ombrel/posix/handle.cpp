// Closing file handles (descriptors) and directory searches (DIR streams).
// POSIX code only.
#include "ombhandle.h"

#include <dirent.h>
#include <unistd.h>

#include <cerrno>

#include "system.h"
#include "ombmem.h"

bool win32CloseFileHandle(void* handle) {
  if (handle == VEK_INVALID_HANDLE) {
    vekSetLastError(EBADF);
    return false;
  }
  // Linux releases the descriptor even when close reports EINTR, so the
  // close is never repeated.
  if (::close(vekDescriptorOf(handle)) != 0 && errno != EINTR) {
    vekKeepSystemError();
    return false;
  }
  return true;
}

bool win32FindClose(void* handle) {
  if (handle == nullptr || handle == VEK_INVALID_HANDLE) {
    vekSetLastError(EBADF);
    return false;
  }
  auto* record = static_cast<vekFindRecord*>(handle);
  bool closed = ::closedir(record->stream) == 0;
  if (!closed) vekKeepSystemError();
  delete[] record->pattern;
  delete record;
  return closed;
}

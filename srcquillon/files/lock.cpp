// File locks between processes, and the lock file's stream buffer.
#include "pfulock.h"

#include <new>

#include "foundation/shared.h"
#include "pfufs.h"
#include "vekfile.h"

namespace {

std::uint32_t const retryMilliseconds = 1000;

// The region calls take the size's two 16-bit halves as the low and high
// words of the length.
std::uint32_t LowHalf(std::uint32_t size) { return size & 0xFFFFu; }
std::uint32_t HighHalf(std::uint32_t size) { return size >> 16; }

}  // namespace

pfuFileLock::~pfuFileLock() {}

pfuFileLock* pfuFileLock::Construct(pfuDirPath const& path) {
  return new (std::nothrow) pfuFileLockImpl(path);
}

pfuFileLockImpl::pfuFileLockImpl(pfuDirPath const& path) : path(path), size(0) {}

void* pfuFileLockImpl::Open() {
  return uCreateFile(path, vekGenericWrite, 0, nullptr, vekOpenAlways, vekFileAttributeNormal, nullptr);
}

errstatus pfuFileLockImpl::Lock() {
  void* handle = Open();
  // Only another holder of the file is worth waiting for; a missing
  // directory or a refused access would never end the wait.
  while (handle == VEK_INVALID_HANDLE) {
    if (vekGetLastError() != vekErrSharingViolation) return errMapError();
    vekSleep(retryMilliseconds);
    handle = Open();
  }
  size = vekGetFileSize(handle, nullptr);
  vekLockFile(handle, 0, 0, LowHalf(size), HighHalf(size));
  return StatusOf(win32CloseFileHandle(handle));
}

errstatus pfuFileLockImpl::Release() {
  void* handle = Open();
  if (handle == VEK_INVALID_HANDLE) return errMapError();
  vekUnlockFile(handle, 0, 0, LowHalf(size), HighHalf(size));
  return StatusOf(win32CloseFileHandle(handle));
}

bool lockFileBuf::Open(char const* path, int mode, int) {
  return OpenFile(*this, path, mode, 0x1A4) == nullptr;
}

bool lockFileBuf::Close() {
  seekpos(0, std::ios_base::in | std::ios_base::out);
  return close() == nullptr;
}

errstatus lockFileBuf::LockAction(int) { return errOK; }

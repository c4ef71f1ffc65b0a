// quillon: locks between cooperating processes on a named file.
//
// pfuFileLock::Lock waits, one try a second, until the file can be opened
// with no sharing (making it when missing), records its size and closes it
// again: on return nobody had the file open at that moment. It returns at
// once, with the mapped status, when the open fails for any reason other
// than another holder of the file. Release opens the file once more, with no
// sharing and no wait. No handle outlives a call, so a crashed holder leaves
// nothing held; the lock file itself stays on disk.
#ifndef PFULOCK_H
#define PFULOCK_H

#include <cstdint>
#include <fstream>

#include "quillonbase.h"
#include "pfupath.h"

class QUILLON_API pfuFileLock {
 public:
  virtual errstatus Lock() = 0;
  virtual errstatus Release() = 0;
  virtual ~pfuFileLock();

  // A new pfuFileLockImpl on path, owned by the caller; null without memory.
  static pfuFileLock* Construct(pfuDirPath const& path);
};

class QUILLON_API pfuFileLockImpl : public pfuFileLock {
 public:
  explicit pfuFileLockImpl(pfuDirPath const& path);
  errstatus Lock() override;
  // Uses the size of the last Lock, or 0 before any.
  errstatus Release() override;

 private:
  void* Open();

  pfuOSPath path;
  std::uint32_t size;
};

class QUILLON_API lockFileBuf : public std::filebuf {
 public:
  // True when the open failed, false when the file is open.
  bool Open(char const* path, int mode, int protection);
  // Back to position 0, then closed; true when the close failed.
  bool Close();

 private:
  errstatus LockAction(int);
};

#endif

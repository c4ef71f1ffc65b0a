/// \file
/// quillon: locks between cooperating processes on a named file.
///
/// pfuFileLock::Lock waits, one try a second, until the file can be opened
/// with no sharing (making it when missing), records its size and closes it
/// again: on return nobody had the file open at that moment. It returns at
/// once, with the mapped status, when the open fails for any reason other
/// than another holder of the file. Release opens the file once more, with no
/// sharing and no wait. No handle outlives a call, so a crashed holder leaves
/// nothing held; the lock file itself stays on disk.
///
/// A lock object has no lock of its own: one thread at a time. Lock waits on
/// the caller's thread.
#ifndef PFULOCK_H
#define PFULOCK_H

#include <cstdint>
#include <fstream>

#include "quillonbase.h"
#include "pfupath.h"

/// A lock between processes on a named file, made by Construct.
/// One thread at a time.
class QUILLON_API pfuFileLock {
 public:
  /// Waits until nobody holds the file open, as the file comment says.
  /// \return errOK; the mapped status (errSysNotFound for a missing
  ///         directory, errSysAccessDenied, ...) when the open fails for
  ///         another reason than a holder; the mapped status of the close
  ///         when that fails.
  virtual errstatus Lock() = 0;
  /// Opens and closes the file once, with no sharing and no wait.
  /// \return errOK, or the mapped status (errSysSharingViolation while
  ///         another holds the file).
  virtual errstatus Release() = 0;
  virtual ~pfuFileLock();  ///< Touches neither the file nor the lock.

  /// A new pfuFileLockImpl on path: a heap object the caller deletes; null
  /// without memory.
  static pfuFileLock* Construct(pfuDirPath const& path);
};

/// The lock of Construct. One thread at a time.
class QUILLON_API pfuFileLockImpl : public pfuFileLock {
 public:
  /// A lock on path, kept in native form; nothing is opened yet.
  explicit pfuFileLockImpl(pfuDirPath const& path);
  errstatus Lock() override;
  /// Uses the size of the last Lock, or 0 before any.
  errstatus Release() override;

 private:
  void* Open();

  pfuOSPath path;
  std::uint32_t size;
};

/// A file buffer for a lock file, opened refusing no other opener. One
/// thread at a time.
class QUILLON_API lockFileBuf : public std::filebuf {
 public:
  /// Opens path with mode (std::ios_base flags); protection plays no part.
  /// \return true when the open failed, false when the file is open.
  bool Open(char const* path, int mode, int protection);
  /// Back to position 0, then closed. \return true when the close failed.
  bool Close();

 private:
  errstatus LockAction(int);
};

#endif

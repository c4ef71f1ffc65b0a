/// \file
/// quillon: operations on the file system, and file content operations.
///
/// Every path is taken in any of the path forms (normally neutral, `|`) and
/// converted by the call; a null path reads as the empty one. A path of 1024
/// bytes or more is refused before the disk is touched: the errstatus
/// operations answer errSysNameTooLong, the queries false, the content
/// operations errNoMemoryOrIO. Failures of the system come back as
/// errMapError() gives them (errSysNotFound, errSysAccessDenied, ...). An
/// operation that fails leaves its output argument alone, unless it says
/// otherwise.
///
/// The operations keep no state of their own and may run on any thread; what
/// several threads do to the same files at once is up to the file system.
/// pfuChangeDir changes the process's current directory, which every thread
/// shares.
#ifndef PFUFS_H
#define PFUFS_H

#include <cstdint>
#include <fstream>

#include "quillonbase.h"
#include "dsstring.h"
#include "pfupath.h"

/// What a query of a file's information gives: a plain value. Every field
/// but initialized() means something only when initialized() is true.
/// A plain value.
class QUILLON_API pfStat {
 public:
  pfStat();  ///< Not initialized.
  /// Reads the information of path (trailing separators removed); a link is
  /// reported as a link. When it cannot be read, the object stays not
  /// initialized.
  explicit pfStat(pfuDirPath const& path);
  pfStat(pfStat const& other);                         ///< A plain copy.
  pfStat& operator=(pfStat const& other) = default;    ///< A plain copy.
  ~pfStat();

  bool initialized() const { return init; }  ///< Whether the information was read.
  bool isDir() const { return directory; }   ///< A directory.
  /// True for every file whose information was read: the system's
  /// permissions are not consulted.
  bool canExe() const { return executable; }
  bool isLink() const { return link; }       ///< A symbolic link.
  /// The size in bytes, in 32 bits: a size of 2 GiB or more does not fit.
  std::int32_t fileSize() const { return size; }
  /// The time of the last change, in seconds since 1970.
  long long modTime() const { return time; }

 private:
  // Fills the object from the information of path; false if it cannot be read.
  bool Fill(char const* path);

  bool init;
  bool directory;
  bool executable;
  bool readable;
  bool writable;
  bool link;
  long long time;
  std::int32_t size;
};

/// The file-system operations: static functions only. Each returns errOK,
/// or a failing status as the file comment says, unless its own comment
/// names others. Any thread; the functions keep no state.
class QUILLON_API pfuFS {
 public:
  /// Makes one directory; its parent must exist.
  static errstatus pfuMakeDir(char const* path);
  /// Removes one empty directory.
  static errstatus pfuRemoveDir(char const* path);
  /// Deletes a file through the system's file deletion.
  static errstatus pfuDeleteFile(char const* path);
  /// Deletes a file through the C runtime's unlink.
  static errstatus pfuUnlink(char const* path);
  /// Replaces an existing target; across file systems the file is copied.
  static errstatus pfuRenameFile(char const* from, char const* to);
  /// The bytes, with the source's permissions; the target is made or
  /// emptied, and held with no sharing while it is written. A source that
  /// is not a plain file (a directory, say) fails. A copy stopped half way
  /// leaves the partial target.
  static errstatus pfuCopyFile(char const* from, char const* to);
  /// Makes path the current directory of the process (with its drive, where
  /// there are drives). \return errNotADirectory when path is not a
  /// directory.
  static errstatus pfuChangeDir(char const* path);
  /// Makes every missing directory of path, from the top.
  /// \return errComponentNotDir when a component exists and is not a
  ///         directory; the directories made before it stay.
  static errstatus pfuMakeDirRec(char const* path);
  /// Makes each component of relative below base (which must exist), judging
  /// each level by what the create reports: a level that exists already ends
  /// the call with errSysExists, as any other refusal ends it with its mapped
  /// status (a mapped errOK counts as no failure). A refused object, or a
  /// join that does not fit, gives errSysNameTooLong.
  static errstatus pfuMakeDirRec(pfuDirPath const& base, pfuDirPath const& relative);
  /// Removes a directory with everything in it, depth first; a link is removed
  /// itself, never what it points to. An empty path or a root is refused with
  /// errSysInvalidArgument; a refused object, or a tree too deep for a path
  /// object, ends with errSysNameTooLong.
  static errstatus pfuRemoveDirRec(pfuDirPath const& path);

  /// \return errOK and info filled, or errNoFileInfo with info left alone.
  static errstatus pfuStat(char const* path, pfStat& info);
  ///@{
  /// The information of path can be read and it is a directory.
  static bool pfuIsDir(char const* path);
  static bool pfuIsValidDirectory(char const* path);
  ///@}
  /// The information of path can be read and it is a symbolic link.
  static bool pfuIsLink(char const* path);
  /// True whenever the information can be read, whatever the file.
  static bool pfuIsExecutable(char const* path);
  /// The information of path can be read and it is no directory.
  static bool pfuIsValidFile(char const* path);
  /// pfStat::fileSize widened with its sign. \return as pfuStat.
  static errstatus pfuGetFileSize(char const* path, long long& size);
  /// pfStat::modTime. \return as pfuStat.
  static errstatus pfuGetModTime(char const* path, long long& time);
  /// The target of a link, in neutral form.
  /// \return errNotOnPlatform on a platform without links.
  static errstatus pfuReadLink(char const* path, pfuDirPath& target);
  /// Free bytes of the file system that holds path: -2.0 at first, -1.0 and
  /// errDiskQuery when it cannot be queried (-1.0 and errSysNameTooLong for
  /// a path too long).
  static errstatus pfuGetFreeSpace(char const* path, double& bytes);
  /// One letter per drive; empty where there are no drives. Always errOK.
  static errstatus pfuGetLogicalDrives(dsString& drives);
  ///@{
  /// The name of this computer (of the user running the process).
  /// \return false, with "UnknownComputer" or "UnknownUser" in name, when the
  ///         name cannot be had.
  static bool pfuGetComputerName(dsString& name);
  static bool pfuGetUserName(dsString& name);
  ///@}
  /// Whether parent names path or a directory above it, on text alone (`|`
  /// the only separator); rest is what follows parent. An empty path gives
  /// true and leaves rest alone; an empty parent gives true and the whole
  /// path.
  static bool pfuIsParentPath(char const* path, char const* parent, pfuDirPath& rest);

  ///@{
  /// Clears the stream's state and opens path with mode (std::ios_base
  /// flags), refusing no other opener.
  /// \return errOK, or the mapped error when the stream fails to open.
  static errstatus pfuOpenStream(char const* path, int mode, std::fstream& stream);
  static errstatus pfuOpenStream(char const* path, int mode, std::ifstream& stream);
  static errstatus pfuOpenStream(char const* path, int mode, std::ofstream& stream);
  ///@}

  /// Count of bytes modulo 65536 in bits 31-16, their sum modulo 256 in bits
  /// 15-8, their exclusive or in bits 7-0.
  /// \return errOK, or errNoMemoryOrIO (the file cannot be opened or read)
  ///         with checksum left alone.
  static errstatus pfuCalcCheckSumByPath(char const* path, unsigned int& checksum);
  /// Writes source to target with every search (left to right, without
  /// overlap) replaced by replacement. Bytes are matched as they stand, zero
  /// bytes of the file included. target is written directly and left as it
  /// is on failure; source is never changed.
  /// \return errOK, or errNoMemoryOrIO when a file cannot be opened, read or
  ///         written, or search is empty.
  static errstatus pfuReplaceString(char const* const search, char const* const replacement,
                                    char const* source, char const* target);
};

/// Opens path for input, refusing no other opener; the stream tells the outcome.
QUILLON_API void OpenFile(std::ifstream& stream, char const* path);
/// Opens path with mode (std::ios_base flags), refusing no other opener,
/// whatever protection says. \return what open gives: &buffer, or null on
/// failure.
QUILLON_API std::filebuf* OpenFile(std::filebuf& buffer, char const* path, int mode, int protection);

#endif

// quillon: operations on the file system, and file content operations.
//
// Every path is taken in any of the path forms (normally neutral, `|`) and
// converted by the call. A path of 1024 bytes or more is refused before the
// disk is touched: the errstatus operations answer errSysNameTooLong, the
// queries false, the content operations 6. Failures of the system come back
// as errMapError() gives them.
#ifndef PFUFS_H
#define PFUFS_H

#include <cstdint>
#include <fstream>

#include "quillonbase.h"
#include "dsstring.h"
#include "pfupath.h"

// What a query of a file's information gives. Every field but initialized()
// means something only when initialized() is true.
class QUILLON_API pfStat {
 public:
  pfStat();
  // Reads the information of path (trailing separators removed); a link is
  // reported as a link.
  explicit pfStat(pfuDirPath const& path);
  pfStat(pfStat const& other);
  pfStat& operator=(pfStat const& other) = default;
  ~pfStat();

  bool initialized() const { return init; }
  bool isDir() const { return directory; }
  bool canExe() const { return executable; }
  bool isLink() const { return link; }
  std::int32_t fileSize() const { return size; }
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

class QUILLON_API pfuFS {
 public:
  static errstatus pfuMakeDir(char const* path);
  static errstatus pfuRemoveDir(char const* path);
  static errstatus pfuDeleteFile(char const* path);
  static errstatus pfuUnlink(char const* path);
  // Replaces an existing target; across file systems the file is copied.
  static errstatus pfuRenameFile(char const* from, char const* to);
  // The bytes only; the target is a new file. A copy stopped half way leaves
  // the partial target.
  static errstatus pfuCopyFile(char const* from, char const* to);
  // 14 when path is not a directory.
  static errstatus pfuChangeDir(char const* path);
  // Makes every missing directory of path, from the top; 30 when a component
  // exists and is not a directory.
  static errstatus pfuMakeDirRec(char const* path);
  // Makes each component of relative below base (which must exist), judging
  // each level by what the create reports.
  static errstatus pfuMakeDirRec(pfuDirPath const& base, pfuDirPath const& relative);
  // Removes a directory with everything in it, depth first; a link is removed
  // itself, never what it points to. An empty path or a root is refused with
  // errSysInvalidArgument; a tree too deep for a path object ends with
  // errSysNameTooLong.
  static errstatus pfuRemoveDirRec(pfuDirPath const& path);

  // 1 and info filled, or 5 with info left alone.
  static errstatus pfuStat(char const* path, pfStat& info);
  static bool pfuIsDir(char const* path);
  static bool pfuIsValidDirectory(char const* path);
  static bool pfuIsLink(char const* path);
  // True whenever the information can be read, whatever the file.
  static bool pfuIsExecutable(char const* path);
  static bool pfuIsValidFile(char const* path);
  static errstatus pfuGetFileSize(char const* path, long long& size);
  static errstatus pfuGetModTime(char const* path, long long& time);
  // The target of a link, in neutral form; 16 on a platform without links.
  static errstatus pfuReadLink(char const* path, pfuDirPath& target);
  // Free bytes of the file system that holds path: -2.0 at first, -1.0 and
  // 34 when it cannot be queried.
  static errstatus pfuGetFreeSpace(char const* path, double& bytes);
  // One letter per drive; empty where there are no drives. Always 1.
  static errstatus pfuGetLogicalDrives(dsString& drives);
  // False, with "UnknownComputer" or "UnknownUser", when the name cannot be had.
  static bool pfuGetComputerName(dsString& name);
  static bool pfuGetUserName(dsString& name);
  // Whether parent names path or a directory above it, on text alone (`|`
  // the only separator); rest is what follows parent.
  static bool pfuIsParentPath(char const* path, char const* parent, pfuDirPath& rest);

  // Opens path with mode, refusing no other opener; 1, or the mapped error
  // when the stream fails to open.
  static errstatus pfuOpenStream(char const* path, int mode, std::fstream& stream);
  static errstatus pfuOpenStream(char const* path, int mode, std::ifstream& stream);
  static errstatus pfuOpenStream(char const* path, int mode, std::ofstream& stream);

  // Count of bytes modulo 65536 in bits 31-16, their sum modulo 256 in bits
  // 15-8, their exclusive or in bits 7-0. 1, or 6 with checksum left alone.
  static errstatus pfuCalcCheckSumByPath(char const* path, unsigned int& checksum);
  // Writes source to target with every search (left to right, without
  // overlap) replaced by replacement. Bytes are matched as they stand, zero
  // bytes included. target is written directly and left as it is on failure;
  // source is never changed. 1, or 6 when a file cannot be opened, read or
  // written, or search is empty.
  static errstatus pfuReplaceString(char const* const search, char const* const replacement,
                                    char const* source, char const* target);
};

// Opens path for input, refusing no other opener; the stream tells the outcome.
QUILLON_API void OpenFile(std::ifstream& stream, char const* path);
// Opens path with mode, refusing no other opener, whatever protection says;
// what open gives, null on failure.
QUILLON_API std::filebuf* OpenFile(std::filebuf& buffer, char const* path, int mode, int protection);

#endif

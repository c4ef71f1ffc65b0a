// quillon paths: the neutral path that crosses the library's interface, one
// name, and the native path that reaches the operating system.
//
// Each class is a plain value: one array of pfuPathSize bytes holding a
// NUL-terminated string (at most 1023 bytes), copied byte for byte, with no
// heap storage, no virtual operations and no failure results.
//
// Separators: '|', '\' and '/' all read as separators everywhere. The neutral
// separator '|' is the only one the library writes into a pfuDirPath; the
// native one (VEK_NATIVE_SEPARATOR: '/' on POSIX, '\' on Windows) is the only
// one a pfuOSPath holds, up to the first invalid multibyte sequence. A
// pfuDirPath made from a char const* keeps the text as given.
//
// Absolute paths: "|..." or "/..." (Unix style), and a letter, ':' and '|' or
// '\' (Windows style, the same on every host). The root is the first character
// of the first form and the first three of the second.
//
// Nothing is cut: a text too long for the array is refused. A copy then
// leaves the object empty and refused: it holds no path, which is not the
// empty path (the root or the current directory to the operations that take
// one), and every file operation given it fails with name-too-long. A refused
// object stays so through appends and joins until a text is copied into it
// or it is set empty; a join with a refused right refuses the result. An
// append that would not fit (the join, pfuDirEntry::operator+=, AddWildcard)
// leaves the object as it was. A null text counts as empty.
#ifndef PFUPATH_H
#define PFUPATH_H

#include "quillonbase.h"

int const pfuPathSize = 1024;

// Looks at the one byte *c.
QUILLON_API bool issep(char const* c);
inline bool issep(char* c) { return issep(static_cast<char const*>(c)); }
QUILLON_API bool IsUnixStyleAbsPath(char const* text);
QUILLON_API bool IsWinStyleAbsPath(char const* text);
QUILLON_API bool pfuIsStringPathAbsolute(char const* text);

class pfuDirPath;

// One name, or the first component of a path (with its separator if the path
// is absolute).
class QUILLON_API pfuDirEntry {
 public:
  pfuDirEntry() { entry[0] = entry[1] = 0; }
  pfuDirEntry& operator=(char const* text);
  pfuDirEntry& operator+=(char const* text);  // no separator in between
  operator char const*() const { return entry; }

 private:
  friend class pfuDirPath;
  char entry[pfuPathSize];
};

// A neutral path.
class QUILLON_API pfuDirPath {
 public:
  pfuDirPath() { path[0] = path[1] = 0; }
  pfuDirPath(char const* text);
  // left, then the join of right.
  pfuDirPath(pfuDirPath const& left, pfuDirPath const& right);
  pfuDirPath(pfuDirPath const& left, pfuDirEntry const& right);
  pfuDirPath& operator=(char const* text);

  // The join: right behind a '|' (none if the path already ends in '|'), right
  // taken as it is. An empty right changes nothing, an empty path becomes
  // right. When the two lengths add up to 1022 or more nothing changes, with
  // or without a '|' to add. A refused path stays refused; a refused right
  // refuses the path.
  pfuDirPath& operator+=(pfuDirPath const& right);
  pfuDirPath& operator+=(pfuDirEntry const& right);

  operator char const*() const { return path; }
  bool IsEmpty() const { return path[0] == 0; }  // also when refused
  // Whether the object holds no path because a text was too long for it.
  bool IsRefused() const;
  void SetEmpty() { path[0] = path[1] = 0; }

  void GetCurrentDir();  // empty if the directory cannot be had
  void GetHomeDir();     // see pfuOSPath::GetHomeDir

  // Byte by byte. All four give false on an empty path, with the target left
  // alone, and true otherwise.
  bool GetHead(pfuDirEntry& head) const;  // the first component
  bool GetTail(pfuDirPath& tail) const;   // all behind the first component
  bool GetHead(pfuDirPath& head) const;   // all before the last component
  bool GetTail(pfuDirEntry& tail) const;  // the last component

 private:
  friend class pfuOSPath;
  char const* GetRelPathStart() const;
  void Join(char const* right);
  char path[pfuPathSize];
};

// A native path.
class QUILLON_API pfuOSPath {
 public:
  pfuOSPath() { path[0] = path[1] = 0; }
  // Copies text and rewrites every separator to the native one, character by
  // character in the current locale.
  pfuOSPath(char const* text);
  operator char const*() const { return path; }

  // The string into target, every separator rewritten to '|'.
  void ToNeutral(pfuDirPath& target) const;
  // Prepares the path for a directory search: "*" behind a trailing native
  // separator, else a native separator and "*" (so "" gives "/*" here).
  void AddWildcard();
  // Cuts the trailing separators; a root and the separators right behind it
  // stay.
  void TrimTrailSeps();

  // Unchanged if the directory cannot be had.
  void GetCurrentDir();
  // HOMEDRIVE followed by HOMEPATH when both are set, non-empty and shorter
  // than 4 and 256 bytes; else the platform's own home directory (HOME on
  // POSIX) if it is set, non-empty and fits; else the current directory.
  void GetHomeDir();

 private:
  char path[pfuPathSize];
};

#endif

/// \file
/// quillon paths: the neutral path that crosses the library's interface, one
/// name, and the native path that reaches the operating system.
///
/// Each class is a plain value: one array of pfuPathSize bytes holding a
/// NUL-terminated string (at most 1023 bytes), copied byte for byte, with no
/// heap storage, no virtual operations and no failure results.
///
/// Separators: '|', '\' and '/' all read as separators everywhere. The neutral
/// separator '|' is the only one the library writes into a pfuDirPath; the
/// native one (VEK_NATIVE_SEPARATOR: '/' on POSIX, '\' on Windows) is the only
/// one a pfuOSPath holds, up to the first invalid multibyte sequence. A
/// pfuDirPath made from a char const* keeps the text as given.
///
/// Absolute paths: "|..." or "/..." (Unix style), and a letter, ':' and '|' or
/// '\' (Windows style, the same on every host). The root is the first character
/// of the first form and the first three of the second.
///
/// Nothing is cut: a text too long for the array is refused. A copy then
/// leaves the object empty and refused: it holds no path, which is not the
/// empty path (the root or the current directory to the operations that take
/// one), and every file operation given it fails with name-too-long. A refused
/// object stays so through appends and joins until a text is copied into it
/// or it is set empty; a join with a refused right refuses the result. An
/// append that would not fit (the join, pfuDirEntry::operator+=, AddWildcard)
/// leaves the object as it was. A null text counts as empty.
///
/// A path object has no shared state: threads may each use their own, and
/// several may read one object at once; a change is for one thread at a time.
#ifndef PFUPATH_H
#define PFUPATH_H

#include "quillonbase.h"

/// The bytes of a path object, terminator included.
int const pfuPathSize = 1024;

///@{
/// True if the one byte *c is '|', '\' or '/'.
QUILLON_API bool issep(char const* c);
inline bool issep(char* c) { return issep(static_cast<char const*>(c)); }
///@}
/// True for "|..." and "/...". text must not be null.
QUILLON_API bool IsUnixStyleAbsPath(char const* text);
/// True for a letter, ':' and '|' or '\', on every host. text must not be
/// null.
QUILLON_API bool IsWinStyleAbsPath(char const* text);
/// Either absolute form. text must not be null.
QUILLON_API bool pfuIsStringPathAbsolute(char const* text);

class pfuDirPath;

/// One name, or the first component of a path (with its separator if the path
/// is absolute).
/// A plain value: several threads may read one, one at a time changes it.
class QUILLON_API pfuDirEntry {
 public:
  pfuDirEntry() { entry[0] = entry[1] = 0; }  ///< Empty.
  /// A copy of text; a text of pfuPathSize bytes or more leaves the entry
  /// empty and refused.
  pfuDirEntry& operator=(char const* text);
  /// Appends text, with no separator in between; unchanged when the result
  /// would not fit, or the entry is refused.
  pfuDirEntry& operator+=(char const* text);
  /// The name: a pointer into the object, never null ("" when refused).
  operator char const*() const { return entry; }

 private:
  friend class pfuDirPath;
  char entry[pfuPathSize];
};

/// A neutral path.
/// A plain value: several threads may read one, one at a time changes it.
class QUILLON_API pfuDirPath {
 public:
  pfuDirPath() { path[0] = path[1] = 0; }  ///< The empty path.
  /// A copy of text as given; a text of pfuPathSize bytes or more gives a
  /// refused object.
  pfuDirPath(char const* text);
  ///@{
  /// left, then the join of right.
  pfuDirPath(pfuDirPath const& left, pfuDirPath const& right);
  pfuDirPath(pfuDirPath const& left, pfuDirEntry const& right);
  ///@}
  /// A copy of text as given; a text of pfuPathSize bytes or more leaves the
  /// object empty and refused.
  pfuDirPath& operator=(char const* text);

  ///@{
  /// The join: right behind a '|' (none if the path already ends in '|'), right
  /// taken as it is. An empty right changes nothing, an empty path becomes
  /// right. When the two lengths add up to 1022 or more nothing changes, with
  /// or without a '|' to add. A refused path stays refused; a refused right
  /// refuses the path.
  pfuDirPath& operator+=(pfuDirPath const& right);
  pfuDirPath& operator+=(pfuDirEntry const& right);
  ///@}

  /// The path: a pointer into the object, never null ("" when refused).
  operator char const*() const { return path; }
  bool IsEmpty() const { return path[0] == 0; }  ///< No text; also when refused.
  /// Whether the object holds no path because a text was too long for it.
  bool IsRefused() const;
  void SetEmpty() { path[0] = path[1] = 0; }  ///< The empty path; no longer refused.

  void GetCurrentDir();  ///< The current directory, neutral; empty if it cannot be had.
  void GetHomeDir();     ///< The home directory, neutral; see pfuOSPath::GetHomeDir.

  /// \name Head and tail
  /// Byte by byte. All four give false on an empty path, with the target left
  /// alone, and true otherwise. The target may be this object itself.
  ///@{

  bool GetHead(pfuDirEntry& head) const;  ///< The first component.
  bool GetTail(pfuDirPath& tail) const;   ///< All behind the first component.
  bool GetHead(pfuDirPath& head) const;   ///< All before the last component.
  bool GetTail(pfuDirEntry& tail) const;  ///< The last component.
  ///@}

 private:
  friend class pfuOSPath;
  char const* GetRelPathStart() const;
  void Join(char const* right);
  char path[pfuPathSize];
};

/// A native path.
/// A plain value: several threads may read one, one at a time changes it.
class QUILLON_API pfuOSPath {
 public:
  pfuOSPath() { path[0] = path[1] = 0; }  ///< Empty.
  /// Copies text and rewrites every separator to the native one, character by
  /// character in the current locale. A text of pfuPathSize bytes or more
  /// gives a refused object.
  pfuOSPath(char const* text);
  /// The path: a pointer into the object, never null ("" when refused).
  operator char const*() const { return path; }

  /// The string into target, every separator rewritten to '|'; a refused
  /// path refuses target.
  void ToNeutral(pfuDirPath& target) const;
  /// Prepares the path for a directory search: "*" behind a trailing native
  /// separator, else a native separator and "*" (so "" gives "/*" here).
  /// Unchanged when the result would not fit.
  void AddWildcard();
  /// Cuts the trailing separators; a root and the separators right behind it
  /// stay. A leading native separator counts as a root here, so "\" (the
  /// current drive's root on Windows) stays.
  void TrimTrailSeps();

  /// The current directory; unchanged if it cannot be had.
  void GetCurrentDir();
  /// HOMEDRIVE followed by HOMEPATH when both are set, non-empty and shorter
  /// than 4 and 256 bytes; else the platform's own home directory (HOME on
  /// POSIX) if it is set, non-empty and fits; else the current directory.
  void GetHomeDir();

 private:
  char path[pfuPathSize];
};

#endif

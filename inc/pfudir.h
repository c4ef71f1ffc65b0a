/// \file
/// quillon: directory reading and wildcard patterns.
///
/// pfuDir::OpenDir gives a reader over one directory; Read yields its entries
/// other than "." and "..", in the system's order, and the pattern operations
/// keep the entries whose names match a wildcard (`*` any run, `?` one
/// character; case counts on POSIX, not on Windows). A reader moves forward
/// only. The caller deletes it, which ends the search.
///
/// A reader has no lock: one thread at a time. Readers of the same directory
/// are independent of each other.
#ifndef PFUDIR_H
#define PFUDIR_H

#include "quillonbase.h"
#include "dsdatcol.h"
#include "pfupath.h"
#include "vekfile.h"

QUILLON_ARRAY_INSTANCES(extern, QUILLON_INSTANCE_API, pfuDirPath*)

/// A reader over one directory, made by OpenDir. One thread at a time.
class QUILLON_API pfuDir {
 public:
  virtual ~pfuDir();  ///< Ends the search.
  /// The next entry; false at the end, with entry left alone.
  virtual bool Read(pfuDirEntry& entry) = 0;
  /// The next entry whose name matches pattern; false at the end (entry may
  /// then hold the last name read, which did not match), and false for a
  /// pattern that is not text in the current locale. A null or empty pattern
  /// reads nothing and answers true, so a loop on it never ends.
  virtual bool ReadNextMatching(pfuDirEntry& entry, char const* pattern) = 0;
  /// Every remaining match into paths (see pfuDirImplementation).
  virtual bool ExpandPattern(char const* pattern, dsXArray<pfuDirPath*>& paths) = 0;

  /// A reader of the directory: a heap object the caller deletes. Null when
  /// it cannot be listed (errMapError() says why: errSysNameTooLong for a
  /// refused path). An empty path lists the root.
  static pfuDir* OpenDir(pfuDirPath const& path);
};

/// The reader of OpenDir, over the lower library's find-first/find-next
/// search, which it owns. One thread at a time.
class QUILLON_API pfuDirImplementation : public pfuDir {
 public:
  /// Takes the first result of the search and the search itself, which the
  /// destructor closes.
  pfuDirImplementation(vekFindData const& data, void* handle);
  ///@{
  /// Not copyable: the search has one owner.
  pfuDirImplementation(pfuDirImplementation const&) = delete;
  pfuDirImplementation& operator=(pfuDirImplementation const&) = delete;
  ///@}
  ~pfuDirImplementation() override;

  bool Read(pfuDirEntry& entry) override;
  bool ReadNextMatching(pfuDirEntry& entry, char const* pattern) override;
  /// Appends a new pfuDirPath holding each remaining matching name (the name
  /// alone) to paths; the caller deletes them. False, with nothing added, when
  /// no name matches or the pattern is null or empty.
  bool ExpandPattern(char const* pattern, dsXArray<pfuDirPath*>& paths) override;

 private:
  vekFindData findData;
  void* search;
  bool first;
};

#endif

// quillon: directory reading and wildcard patterns.
//
// pfuDir::OpenDir gives a reader over one directory; Read yields its entries
// other than "." and "..", in the system's order, and the pattern operations
// keep the entries whose names match a wildcard (`*` any run, `?` one
// character; case counts on POSIX, not on Windows). A reader moves forward
// only. The caller deletes it, which ends the search.
#ifndef PFUDIR_H
#define PFUDIR_H

#include "quillonbase.h"
#include "dsdatcol.h"
#include "pfupath.h"
#include "vekfile.h"

QUILLON_ARRAY_INSTANCES(extern, QUILLON_INSTANCE_API, pfuDirPath*)

class QUILLON_API pfuDir {
 public:
  virtual ~pfuDir();
  // The next entry; false at the end, with entry left alone.
  virtual bool Read(pfuDirEntry& entry) = 0;
  // The next entry whose name matches pattern; false at the end. A null or
  // empty pattern reads nothing and answers true.
  virtual bool ReadNextMatching(pfuDirEntry& entry, char const* pattern) = 0;
  // Every remaining match into paths (see pfuDirImplementation).
  virtual bool ExpandPattern(char const* pattern, dsXArray<pfuDirPath*>& paths) = 0;

  // A reader of the directory, or null when it cannot be listed (errMapError
  // says why). An empty path lists the root.
  static pfuDir* OpenDir(pfuDirPath const& path);
};

class QUILLON_API pfuDirImplementation : public pfuDir {
 public:
  // Takes the first result of the search and the search itself.
  pfuDirImplementation(vekFindData const& data, void* handle);
  pfuDirImplementation(pfuDirImplementation const&) = delete;
  pfuDirImplementation& operator=(pfuDirImplementation const&) = delete;
  ~pfuDirImplementation() override;

  bool Read(pfuDirEntry& entry) override;
  bool ReadNextMatching(pfuDirEntry& entry, char const* pattern) override;
  // Appends a new pfuDirPath holding each remaining matching name (the name
  // alone) to paths; the caller deletes them. False, with nothing added, when
  // no name matches or the pattern is null or empty.
  bool ExpandPattern(char const* pattern, dsXArray<pfuDirPath*>& paths) override;

 private:
  vekFindData findData;
  void* search;
  bool first;
};

#endif

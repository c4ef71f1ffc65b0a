// Directory reading over the lower library's find-first/find-next search.
#include "pfudir.h"

#include <cstring>

#include "fsshared.h"
#include "ombhandle.h"
#include "ombmem.h"
#include "vektext.h"

QUILLON_ARRAY_INSTANCES(, , pfuDirPath*)

namespace {

// Room for the longest name a search can give, as wide text.
int const nameLimit = 1027;

bool IsDotOrDotDot(char const* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

}  // namespace

pfuDir::~pfuDir() {}

pfuDir* pfuDir::OpenDir(pfuDirPath const& path) {
  if (path.IsRefused()) {
    vekSetLastError(vekErrPathTooLong);
    return nullptr;
  }
  // The directory's path may fill a path object: the pattern gets room for
  // the wildcard beyond it.
  pfuOSPath const native(path);
  char pattern[pfuFiles::searchPatternSize];
  std::strcpy(pattern, native);
  std::strcat(pattern, pfuFiles::WildcardFor(native));
  vekFindData data;
  void* search = uFindFirstFile(pattern, &data);
  if (search == VEK_INVALID_HANDLE) return nullptr;
  return new pfuDirImplementation(data, search);
}

pfuDirImplementation::pfuDirImplementation(vekFindData const& data, void* handle)
    : findData(data), search(handle), first(true) {}

pfuDirImplementation::~pfuDirImplementation() { win32FindClose(search); }

bool pfuDirImplementation::Read(pfuDirEntry& entry) {
  do {
    if (first) {
      first = false;
    } else if (uFindNextFile(search, &findData) == 0) {
      return false;
    }
  } while (IsDotOrDotDot(findData.name));
  entry = findData.name;
  return true;
}

bool pfuDirImplementation::ReadNextMatching(pfuDirEntry& entry, char const* pattern) {
  if (pattern == nullptr || *pattern == '\0') return true;
  wchar_t* widePattern = XStrnew(pattern);
  if (widePattern == nullptr) return false;  // not text in this locale: matches nothing
  wchar_t* name = new wchar_t[nameLimit + 1];
  bool found = false;
  while (!found && Read(entry)) {
    found = Strtoxstr(name, entry, nameLimit) != nullptr && Strmatch(name, widePattern);
  }
  delete[] name;
  delete[] widePattern;
  return found;
}

bool pfuDirImplementation::ExpandPattern(char const* pattern, dsXArray<pfuDirPath*>& paths) {
  // ReadNextMatching answers true to an empty pattern without reading, so
  // such a pattern would never end the loop below.
  if (pattern == nullptr || *pattern == '\0') return false;
  pfuDirEntry entry;
  if (!ReadNextMatching(entry, pattern)) return false;
  do paths += new pfuDirPath(static_cast<char const*>(entry));
  while (ReadNextMatching(entry, pattern));
  return true;
}

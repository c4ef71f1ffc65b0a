// What the file operations of quillon share: the path forms they pass to the
// lower library.
#ifndef QUILLON_FSSHARED_H
#define QUILLON_FSSHARED_H

#include "pfupath.h"
#include "vektext.h"

namespace pfuFiles {

// A null path reads as the empty one.
inline char const* Text(char const* path) { return path != nullptr ? path : ""; }

// Whether path fits a path object (1023 bytes and the terminator). A longer
// one is refused before anything reaches the disk.
inline bool Fits(char const* path) { return Strlen(path) < pfuPathSize; }

// The native form with trailing separators removed: what every query of a
// file's information reads.
inline pfuOSPath Trimmed(char const* path) {
  pfuOSPath native(Text(path));
  native.TrimTrailSeps();
  return native;
}

// What a directory search of the native path appends: "*" behind a trailing
// native separator, else that separator and "*" (pfuOSPath::AddWildcard).
char const* WildcardFor(char const* native);
// Room for a native path of pfuPathSize - 1 bytes with its wildcard.
int const searchPatternSize = pfuPathSize + 2;

// Opens for reading with read sharing and a sequential hint, or for writing
// with no sharing, emptied; VEK_INVALID_HANDLE on failure.
void* OpenSource(pfuOSPath const& path);
void* OpenTarget(pfuOSPath const& path);

}  // namespace pfuFiles

#endif

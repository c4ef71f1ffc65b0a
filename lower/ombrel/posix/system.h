// ombrel and tarnlet, inside: what the POSIX code of both libraries shares
// about the system: how it holds its handles. POSIX code only.
#ifndef OMBREL_POSIX_SYSTEM_H
#define OMBREL_POSIX_SYSTEM_H

#include <dirent.h>

#include <cstdint>

#include "ombhandle.h"

// A file, pipe end or event handle is the descriptor in a void*, so the
// invalid handle (all ones, VEK_INVALID_HANDLE) is the descriptor -1.
inline int vekDescriptorOf(void* handle) {
  return static_cast<int>(reinterpret_cast<std::intptr_t>(handle));
}

inline void* vekHandleOf(int descriptor) {
  return reinterpret_cast<void*>(static_cast<std::intptr_t>(descriptor));
}

// The record behind a directory search handle (uFindFirstFile, released by
// win32FindClose): the open directory and the wildcard (a new[] copy) that
// the names must match.
struct vekFindRecord {
  DIR* stream;
  char* pattern;
};

#endif

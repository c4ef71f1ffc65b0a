// ombrel and tarnlet, inside: how the Windows code of both libraries holds its
// handles. Windows code only.
#ifndef OMBREL_WIN32_HANDLES_H
#define OMBREL_WIN32_HANDLES_H

#include <windows.h>

#include "ombhandle.h"

// A file, pipe end or event handle is the HANDLE itself in the void*; the
// invalid handle (all ones, VEK_INVALID_HANDLE) is INVALID_HANDLE_VALUE.
inline HANDLE vekSystemHandleOf(void* handle) { return static_cast<HANDLE>(handle); }

// The record behind a directory search handle (uFindFirstFile, released by
// win32FindClose): the system's search (FindFirstFileW) and the wildcard (a
// new[] copy) that the names must match, since the system's own matching of
// wildcards is not the library's.
struct vekFindRecord {
  HANDLE search;
  char* pattern;
};

#endif

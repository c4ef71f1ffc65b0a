// ombrel and tarnlet, inside: how the Windows code of both libraries holds
// its handles. Windows code only.
#ifndef OMBREL_WIN32_HANDLES_H
#define OMBREL_WIN32_HANDLES_H

#include <windows.h>

#include "ombhandle.h"

// A file or pipe handle is the HANDLE itself; INVALID_HANDLE_VALUE is
// VEK_INVALID_HANDLE.

// The record behind a directory search handle (uFindFirstFile, released by
// win32FindClose): the system's search, the wildcard (a new[] copy) that the
// names must match, and the entry that the search gave when it began, held
// until the first look for a match takes it.
struct vekFindRecord {
  HANDLE stream;
  wchar_t* pattern;
  WIN32_FIND_DATAW entry;
  bool entryTaken;
};

#endif

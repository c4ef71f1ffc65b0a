// ombrel and tarnlet, inside: what the Windows code of both libraries shares
// about the system: how it holds its handles, the wide text of the W calls,
// and the error codes that mingw-w64's headers do not name. Windows code only.
#ifndef OMBREL_WIN32_SYSTEM_H
#define OMBREL_WIN32_SYSTEM_H

// ombhandle.h first: vekplatform.h brings winsock2.h before windows.h.
#include "ombhandle.h"

#include <windows.h>

#include <string>

// A file, pipe end or event handle is the HANDLE itself in the void*; the
// invalid handle (all ones, VEK_INVALID_HANDLE) is INVALID_HANDLE_VALUE.
inline HANDLE vekSystemHandleOf(void* handle) { return static_cast<HANDLE>(handle); }

// The record behind a directory search handle (uFindFirstFile, released by
// win32FindClose): the system's search (FindFirstFileW) and the wildcard (a
// new[] copy) that the names must match, since the system's own matching of
// wildcards is not the library's; and the entry that the search gave when it
// began, held until the first look for a match takes it.
struct vekFindRecord {
  HANDLE search;
  wchar_t* pattern;
  WIN32_FIND_DATAW entry;
  bool entryTaken;
};

// Native text to and from the wide text of the W calls. Native text is the
// multibyte text of the current C locale (ombtext.h), so the conversions are
// vek_mbstowcs and vek_wcstombs: in the C locale, which the library takes as
// UTF-8, every name the system can hold comes through. False, with the last
// error kept, for a null text or one the locale cannot convert; the target is
// then left alone. Exported for tarnlet's Windows code, not installed.
OMBREL_API bool vekToWide(char const* native, std::wstring& wide);
OMBREL_API bool vekFromWide(wchar_t const* wide, std::string& native);

// "An operation is not supported on a directory": a file operation given a
// directory.
constexpr int vekErrorDirectoryNotSupported = 336;
// The quota of the user on the volume is used up.
constexpr int vekErrorDiskQuotaExceeded = 1295;

#endif

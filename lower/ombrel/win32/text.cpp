// The C locale and refusals of the multibyte conversions (common/text.cpp)
// on msvcrt.
//
// msvcrt's C locale takes every byte as the character of its value
// (Latin-1), so native text in it could name nothing outside Latin-1, and
// the A calls of the system read the machine's ANSI code page besides. The
// library takes the C locale as UTF-8, as on POSIX hosts: every name the
// system holds has a native spelling. A locale that a program sets is used as
// msvcrt has it.
#include "ombmem.h"

#include <windows.h>

#include <clocale>

#include "textlocale.h"

// msvcrt gives the C locale the code page 0; every other locale has its own.
bool vekInCLocale() { return ___lc_codepage_func() == 0; }

int vekRefuseText() {
  vekSetLastError(ERROR_NO_UNICODE_TRANSLATION);
  return -1;
}

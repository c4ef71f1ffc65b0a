// The C locale and refusals of the multibyte conversions (common/text.cpp)
// on msvcrt, and native text to and from the W calls' wide text.
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

#include "ombtext.h"
#include "system.h"
#include "textlocale.h"

// msvcrt gives the C locale the code page 0; every other locale has its own.
bool vekInCLocale() { return ___lc_codepage_func() == 0; }

int vekRefuseText() {
  vekSetLastError(ERROR_NO_UNICODE_TRANSLATION);
  return -1;
}

namespace {

std::size_t const invalid = static_cast<std::size_t>(-1);

}  // namespace

bool vekToWide(char const* native, std::wstring& wide) {
  if (native == nullptr) {
    vekSetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  std::size_t const count = vek_mbstowcs(nullptr, native, 0);
  if (count == invalid) return false;
  std::wstring text(count + 1, L'\0');
  vek_mbstowcs(&text[0], native, count + 1);
  text.resize(count);
  wide.swap(text);
  return true;
}

bool vekFromWide(wchar_t const* wide, std::string& native) {
  if (wide == nullptr) {
    vekSetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  std::size_t const bytes = vek_wcstombs(nullptr, wide, 0);
  if (bytes == invalid) return false;
  std::string text(bytes + 1, '\0');
  vek_wcstombs(&text[0], wide, bytes + 1);
  text.resize(bytes);
  native.swap(text);
  return true;
}

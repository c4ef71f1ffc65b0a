// Multibyte text of the current C locale, with the C and POSIX locales read
// as UTF-8 (nl_langinfo tells them). POSIX code only.
#include "ombtext.h"

#include <langinfo.h>
#include <locale.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "ombmem.h"
#include "ombutf8.h"

namespace {

std::size_t const invalid = static_cast<std::size_t>(-1);

char const cCodesetName[] = "ANSI_X3.4-1968";

// The C locale as an object of its own, and the C library's text of its
// codeset: the library hands out that one string for the C locale, so a
// comparison of addresses recognises it.
locale_t const cLocale = newlocale(LC_CTYPE_MASK, "C", locale_t{});
char const* const cCodeset = cLocale != locale_t{} ? nl_langinfo_l(CODESET, cLocale) : cCodesetName;

// True when the calling thread's LC_CTYPE is the C (or POSIX) locale, whose
// native text the library takes as UTF-8. Stepping asks for every
// character, so it is kept cheap: the characters of the C locale are one
// byte long, which few other locales share, and only then is the codeset
// looked at, by address first.
bool CLocale() {
  if (MB_CUR_MAX != 1) return false;
  char const* const codeset = nl_langinfo(CODESET);
  return codeset == cCodeset || std::strcmp(codeset, cCodesetName) == 0;
}

int Refused() {
  errno = EILSEQ;
  vekKeepSystemError();
  return -1;
}

// mbrtowc answers (size_t)-2 for a character cut short by count; the
// stateless forms report that as -1, as mbtowc does. ASCII is itself in every
// locale the library runs in, so it needs no conversion.
int CharLength(wchar_t* destination, char const* source, std::size_t count) {
  if (source == nullptr) return 0;
  unsigned char const lead = static_cast<unsigned char>(source[0]);
  if (count != 0 && lead < 0x80) {
    if (destination != nullptr) *destination = static_cast<wchar_t>(lead);
    return lead == 0 ? 0 : 1;
  }
  if (CLocale()) {
    std::uint32_t character;
    int const n = vekUtf8Read(source, count, character);
    if (n < 0) return Refused();
    if (destination != nullptr) *destination = static_cast<wchar_t>(character);
    return n;
  }
  std::mbstate_t state{};
  std::size_t n = std::mbrtowc(destination, source, count, &state);
  if (n == invalid || n == static_cast<std::size_t>(-2)) return Refused();
  return static_cast<int>(n);
}

// The bytes of one wide character in the C locale; -1 for no character.
int Utf8Bytes(char* destination, wchar_t character) {
  if (character < 0) return -1;
  return vekUtf8Write(destination, static_cast<std::uint32_t>(character));
}

}  // namespace

int vek_mb_cur_max() {
  return CLocale() ? vekUtf8Longest : static_cast<int>(MB_CUR_MAX);
}

int vek_mblen(char const* source, std::size_t count) {
  return CharLength(nullptr, source, count);
}

int vek_mbtowc(wchar_t* destination, char const* source, std::size_t count) {
  return CharLength(destination, source, count);
}

int vek_wctomb(char* destination, wchar_t character) {
  if (destination == nullptr) return 0;
  if (CLocale()) {
    int const n = Utf8Bytes(destination, character);
    return n < 0 ? Refused() : n;
  }
  std::mbstate_t state{};
  std::size_t n = std::wcrtomb(destination, character, &state);
  if (n == invalid) {
    vekKeepSystemError();
    return -1;
  }
  return static_cast<int>(n);
}

std::size_t vek_mbstowcs(wchar_t* destination, char const* source, std::size_t count) {
  if (!CLocale()) {
    std::size_t n = std::mbstowcs(destination, source, count);
    if (n == invalid) vekKeepSystemError();
    return n;
  }
  // Without a destination, count plays no part.
  std::size_t stored = 0;
  for (; destination == nullptr || stored < count; ++stored) {
    std::uint32_t character;
    int const n = vekUtf8Read(source, vekUtf8Longest, character);
    if (n < 0) return static_cast<std::size_t>(Refused());
    if (destination != nullptr) destination[stored] = static_cast<wchar_t>(character);
    if (n == 0) break;
    source += n;
  }
  return stored;
}

std::size_t vek_wcstombs(char* destination, wchar_t const* wide, std::size_t limit) {
  if (!CLocale()) {
    std::size_t n = std::wcstombs(destination, wide, limit);
    if (n == invalid) vekKeepSystemError();
    return n;
  }
  // A character is stored whole or not at all; a full destination ends the
  // conversion before the next character is looked at.
  std::size_t stored = 0;
  for (;; ++wide) {
    if (destination != nullptr && stored == limit) return stored;
    char bytes[vekUtf8Longest] = {};
    int const n = *wide == 0 ? 1 : Utf8Bytes(bytes, *wide);  // the terminator is one byte 0
    if (n < 0) return static_cast<std::size_t>(Refused());
    if (destination != nullptr) {
      if (stored + static_cast<std::size_t>(n) > limit) return stored;
      std::memcpy(destination + stored, bytes, static_cast<std::size_t>(n));
    }
    if (*wide == 0) return stored;
    stored += static_cast<std::size_t>(n);
  }
}

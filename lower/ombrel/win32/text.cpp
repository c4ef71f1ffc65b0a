// Multibyte text on Windows, where wchar_t has 16 bits.
//
// msvcrt's C locale takes every byte as the character of its value
// (Latin-1), so native text in it could name nothing outside Latin-1, and
// the A calls of the system read the machine's ANSI code page instead. The
// library takes the C locale as UTF-8, as on POSIX hosts: every name the
// system holds has a native spelling, and native text in the C locale is
// neutral text. A locale that a program sets is used as msvcrt has it.
#include "ombtext.h"

#include <windows.h>

#include <clocale>
#include <cstdint>
#include <cstring>
#include <cwchar>

#include "ombmem.h"
#include "ombutf8.h"

namespace {

std::size_t const invalid = static_cast<std::size_t>(-1);

// msvcrt gives the C locale the code page 0; every other locale has its own.
bool CLocale() { return ___lc_codepage_func() == 0; }

int Refused() {
  vekSetLastError(ERROR_NO_UNICODE_TRANSLATION);
  return -1;
}

std::size_t RefusedCount() {
  Refused();
  return invalid;
}

bool IsHighSurrogate(wchar_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool IsLowSurrogate(wchar_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

// The wide characters that a character takes: a surrogate pair above U+FFFF.
std::size_t WideUnits(std::uint32_t character) { return character > 0xFFFF ? 2 : 1; }

void StoreWide(wchar_t* destination, std::uint32_t character) {
  if (character > 0xFFFF) {
    character -= 0x10000;
    destination[0] = static_cast<wchar_t>(0xD800 + (character >> 10));
    destination[1] = static_cast<wchar_t>(0xDC00 + (character & 0x3FF));
  } else {
    destination[0] = static_cast<wchar_t>(character);
  }
}

// The character at wide, joining a surrogate pair, and how many wide
// characters it took. A lone surrogate stays what it is, which UTF-8 refuses.
std::uint32_t ReadWide(wchar_t const* wide, std::size_t& taken) {
  taken = 1;
  if (IsHighSurrogate(wide[0]) && IsLowSurrogate(wide[1])) {
    taken = 2;
    return 0x10000 + ((static_cast<std::uint32_t>(wide[0]) - 0xD800) << 10) +
           (static_cast<std::uint32_t>(wide[1]) - 0xDC00);
  }
  return static_cast<std::uint16_t>(wide[0]);
}

// One character: in the C locale a character above U+FFFF has no single wide
// character, so it is counted but not stored.
int CharLength(wchar_t* destination, char const* source, std::size_t count) {
  if (source == nullptr) return 0;
  if (CLocale()) {
    std::uint32_t character;
    int const n = vekUtf8Read(source, count, character);
    if (n < 0) return Refused();
    if (destination != nullptr) {
      if (WideUnits(character) > 1) return Refused();
      *destination = static_cast<wchar_t>(character);
    }
    return n;
  }
  std::mbstate_t state{};
  std::size_t const n = std::mbrtowc(destination, source, count, &state);
  if (n == invalid || n == static_cast<std::size_t>(-2)) return Refused();
  return static_cast<int>(n);
}

}  // namespace

int vek_mblen(char const* source, std::size_t count) {
  return CharLength(nullptr, source, count);
}

int vek_mbtowc(wchar_t* destination, char const* source, std::size_t count) {
  return CharLength(destination, source, count);
}

int vek_wctomb(char* destination, wchar_t character) {
  if (destination == nullptr) return 0;
  if (CLocale()) {
    int const n = vekUtf8Write(destination, static_cast<std::uint16_t>(character));
    return n < 0 ? Refused() : n;
  }
  std::mbstate_t state{};
  std::size_t const n = std::wcrtomb(destination, character, &state);
  return n == invalid ? Refused() : static_cast<int>(n);
}

std::size_t vek_mbstowcs(wchar_t* destination, char const* source, std::size_t count) {
  if (!CLocale()) {
    std::size_t const n = std::mbstowcs(destination, source, count);
    return n == invalid ? RefusedCount() : n;
  }
  // A full destination ends the conversion before the next character is
  // read; a pair that no longer fits is left out whole. Without a
  // destination, count plays no part.
  std::size_t stored = 0;
  for (;;) {
    if (destination != nullptr && stored == count) return stored;
    std::uint32_t character;
    int const n = vekUtf8Read(source, vekUtf8Longest, character);
    if (n < 0) return RefusedCount();
    std::size_t const units = n == 0 ? 1 : WideUnits(character);
    if (destination != nullptr) {
      if (stored + units > count) return stored;
      StoreWide(destination + stored, character);
    }
    if (n == 0) return stored;
    stored += units;
    source += n;
  }
}

std::size_t vek_wcstombs(char* destination, wchar_t const* wide, std::size_t limit) {
  if (!CLocale()) {
    std::size_t const n = std::wcstombs(destination, wide, limit);
    return n == invalid ? RefusedCount() : n;
  }
  // A character is stored whole or not at all; the terminator is one byte 0.
  std::size_t stored = 0;
  for (;;) {
    if (destination != nullptr && stored == limit) return stored;
    std::size_t taken;
    char bytes[vekUtf8Longest];
    int const n = vekUtf8Write(bytes, ReadWide(wide, taken));
    if (n < 0) return RefusedCount();
    if (destination != nullptr) {
      if (stored + static_cast<std::size_t>(n) > limit) return stored;
      std::memcpy(destination + stored, bytes, static_cast<std::size_t>(n));
    }
    if (*wide == 0) return stored;
    stored += static_cast<std::size_t>(n);
    wide += taken;
  }
}

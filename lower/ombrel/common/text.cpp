// Multibyte text of the current C locale: UTF-8 in the C locale, read and
// written by the library's own codec, and the C library's conversions in
// every other locale. Each platform says how it recognises the C locale and
// records a refusal (textlocale.h).
#include "ombtext.h"

#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "ombutf8.h"
#include "textlocale.h"

namespace {

std::size_t const invalid = static_cast<std::size_t>(-1);

std::size_t RefusedCount() {
  vekRefuseText();
  return invalid;
}

// mbrtowc answers (size_t)-2 for a character cut short by count; the
// stateless forms report that as -1, as mbtowc does. ASCII is itself in every
// locale the library runs in, so it needs no conversion. In the C locale a
// character that a 16-bit wchar_t holds only as a surrogate pair is measured
// but not stored: no single wide character holds it.
int CharLength(wchar_t* destination, char const* source, std::size_t count) {
  if (source == nullptr) return 0;
  unsigned char const lead = static_cast<unsigned char>(source[0]);
  if (count != 0 && lead < 0x80) {
    if (destination != nullptr) *destination = static_cast<wchar_t>(lead);
    return lead == 0 ? 0 : 1;
  }
  if (vekInCLocale()) {
    std::uint32_t character;
    int const n = vekUtf8Read(source, count, character);
    if (n < 0) return vekRefuseText();
    if (destination != nullptr) {
      wchar_t units[vekWideLongest];
      if (vekWideWrite(units, character) != 1) return vekRefuseText();
      *destination = units[0];
    }
    return n;
  }
  std::mbstate_t state{};
  std::size_t const n = std::mbrtowc(destination, source, count, &state);
  if (n == invalid || n == static_cast<std::size_t>(-2)) return vekRefuseText();
  return static_cast<int>(n);
}

}  // namespace

int vek_mb_cur_max() {
  return vekInCLocale() ? vekUtf8Longest : static_cast<int>(MB_CUR_MAX);
}

int vek_mblen(char const* source, std::size_t count) {
  return CharLength(nullptr, source, count);
}

int vek_mbtowc(wchar_t* destination, char const* source, std::size_t count) {
  return CharLength(destination, source, count);
}

int vek_wctomb(char* destination, wchar_t character) {
  if (destination == nullptr) return 0;
  if (vekInCLocale()) {
    // One wide character alone: half of a surrogate pair is no character.
    wchar_t const alone[] = {character, 0};
    int taken;
    int const n = vekUtf8Write(destination, vekWideRead(alone, taken));
    return n < 0 ? vekRefuseText() : n;
  }
  std::mbstate_t state{};
  std::size_t const n = std::wcrtomb(destination, character, &state);
  return n == invalid ? vekRefuseText() : static_cast<int>(n);
}

std::size_t vek_mbstowcs(wchar_t* destination, char const* source, std::size_t count) {
  if (!vekInCLocale()) {
    std::size_t const n = std::mbstowcs(destination, source, count);
    return n == invalid ? RefusedCount() : n;
  }
  // A full destination ends the conversion before the next character is
  // read, and a surrogate pair is stored whole or not at all. Without a
  // destination, count plays no part.
  std::size_t stored = 0;
  for (;;) {
    if (destination != nullptr && stored == count) return stored;
    std::uint32_t character;
    int const n = vekUtf8Read(source, vekUtf8Longest, character);
    if (n < 0) return RefusedCount();
    wchar_t units[vekWideLongest];
    std::size_t const taken = static_cast<std::size_t>(vekWideWrite(units, character));
    if (destination != nullptr) {
      if (stored + taken > count) return stored;
      std::memcpy(destination + stored, units, taken * sizeof(wchar_t));
    }
    if (n == 0) return stored;  // the terminator, stored when there was room
    stored += taken;
    source += n;
  }
}

std::size_t vek_wcstombs(char* destination, wchar_t const* wide, std::size_t limit) {
  if (!vekInCLocale()) {
    std::size_t const n = std::wcstombs(destination, wide, limit);
    return n == invalid ? RefusedCount() : n;
  }
  // A character is stored whole or not at all; a full destination ends the
  // conversion before the next character is looked at. The terminator is one
  // byte 0.
  std::size_t stored = 0;
  for (;;) {
    if (destination != nullptr && stored == limit) return stored;
    int taken;
    char bytes[vekUtf8Longest];
    int const n = vekUtf8Write(bytes, vekWideRead(wide, taken));
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

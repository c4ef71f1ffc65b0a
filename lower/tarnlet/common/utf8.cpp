// The neutral encoding: UTF-8 (ombrel's codec) on the far side of the wide
// pivot, with surrogate pairs joined and split on a 16-bit wchar_t host.
#include <cstdint>

#include "ombutf8.h"
#include "vektext.h"

namespace {

constexpr bool narrowWide = sizeof(wchar_t) == 2;
constexpr std::uint32_t replacement = 0xFFFD;

bool IsHighSurrogate(std::uint32_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool IsLowSurrogate(std::uint32_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

// The value of the wide character at wide, and how many wide characters it
// took (2 only for a joined surrogate pair on a 16-bit host). A lone
// surrogate stays as it is, and so does a 32-bit value that is no character
// (a negative one reads as a value above U+10FFFF): the UTF-8 writer refuses
// both.
std::uint32_t ReadWide(wchar_t const* wide, int& taken) {
  taken = 1;
  if (narrowWide) {
    std::uint32_t c = static_cast<std::uint16_t>(wide[0]);
    std::uint32_t next = static_cast<std::uint16_t>(wide[1]);
    if (IsHighSurrogate(c) && IsLowSurrogate(next)) {
      taken = 2;
      return 0x10000 + ((c - 0xD800) << 10) + (next - 0xDC00);
    }
    return c;
  }
  return static_cast<std::uint32_t>(wide[0]);
}

}  // namespace

int mbxWideToNeut(char const* neutral, wchar_t const* wide) {
  char* out = const_cast<char*>(neutral);
  int written = 0;
  bool whole = true;
  for (int taken; *wide != 0; wide += taken) {
    int n = vekUtf8Write(out + written, ReadWide(wide, taken));
    if (n < 0) {
      n = vekUtf8Write(out + written, replacement);
      whole = false;
    }
    written += n;
  }
  out[written] = 0;
  return whole ? written : -1;
}

int mbxNeutToWide(char const* neutral, wchar_t const* wide) {
  wchar_t* out = const_cast<wchar_t*>(wide);
  int written = 0;
  bool whole = true;
  for (int length; *neutral != 0; neutral += length) {
    std::uint32_t c;
    length = vekUtf8Read(neutral, SIZE_MAX, c);
    if (length < 0) {
      c = replacement;
      length = 1;
      whole = false;
    }
    if (narrowWide && c >= 0x10000) {
      out[written++] = static_cast<wchar_t>(0xD800 + ((c - 0x10000) >> 10));
      out[written++] = static_cast<wchar_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
    } else {
      out[written++] = static_cast<wchar_t>(c);
    }
  }
  out[written] = 0;
  return whole ? written : -1;
}

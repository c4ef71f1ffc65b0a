// The neutral encoding: UTF-8 on both sides of the wide pivot.
#include <cstdint>

#include "vektext.h"

namespace {

constexpr bool narrowWide = sizeof(wchar_t) == 2;
constexpr std::uint32_t replacement = 0xFFFD;

bool IsHighSurrogate(std::uint32_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool IsLowSurrogate(std::uint32_t c) { return c >= 0xDC00 && c <= 0xDFFF; }
bool IsTrail(unsigned char byte) { return (byte & 0xC0) == 0x80; }

// The code point of the wide character at wide, and how many wide characters
// it took (2 only for a joined surrogate pair on a 16-bit host).
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
  // A negative wchar_t becomes a value above U+10FFFF here.
  std::uint32_t c = static_cast<std::uint32_t>(wide[0]);
  return c > 0x10FFFF ? replacement : c;
}

// Writes c (at most U+10FFFF) as UTF-8; lone surrogates take the 3-byte form.
int WriteNeutral(unsigned char* out, std::uint32_t c) {
  if (c < 0x80) {
    out[0] = static_cast<unsigned char>(c);
    return 1;
  }
  if (c < 0x800) {
    out[0] = static_cast<unsigned char>(0xC0 | (c >> 6));
    out[1] = static_cast<unsigned char>(0x80 | (c & 0x3F));
    return 2;
  }
  if (c < 0x10000) {
    out[0] = static_cast<unsigned char>(0xE0 | (c >> 12));
    out[1] = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
    out[2] = static_cast<unsigned char>(0x80 | (c & 0x3F));
    return 3;
  }
  out[0] = static_cast<unsigned char>(0xF0 | (c >> 18));
  out[1] = static_cast<unsigned char>(0x80 | ((c >> 12) & 0x3F));
  out[2] = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
  out[3] = static_cast<unsigned char>(0x80 | (c & 0x3F));
  return 4;
}

// The character at in and its length in bytes; a byte that begins no
// well-formed character gives U+FFFD and a length of 1. Trail bytes are looked
// at only while the previous ones fit, so a terminator always ends the look.
std::uint32_t ReadNeutral(unsigned char const* in, int& length) {
  unsigned char lead = in[0];
  length = 1;
  if (lead < 0x80) return lead;
  int trails;
  std::uint32_t c;
  unsigned char low = 0x80, high = 0xBF;  // the range of the first trail byte
  if (lead >= 0xC2 && lead <= 0xDF) {
    trails = 1;
    c = lead & 0x1F;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    trails = 2;
    c = lead & 0x0F;
    if (lead == 0xE0) low = 0xA0;  // no overlong forms
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    trails = 3;
    c = lead & 0x07;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;  // nothing above U+10FFFF
  } else {
    return replacement;
  }
  if (in[1] < low || in[1] > high) return replacement;
  for (int i = 1; i <= trails; ++i) {
    if (!IsTrail(in[i])) return replacement;
    c = (c << 6) | (in[i] & 0x3F);
  }
  length = trails + 1;
  return c;
}

}  // namespace

int mbxWideToNeut(char const* neutral, wchar_t const* wide) {
  unsigned char* out = reinterpret_cast<unsigned char*>(const_cast<char*>(neutral));
  int written = 0;
  for (int taken; *wide != 0; wide += taken) written += WriteNeutral(out + written, ReadWide(wide, taken));
  out[written] = 0;
  return written;
}

int mbxNeutToWide(char const* neutral, wchar_t const* wide) {
  wchar_t* out = const_cast<wchar_t*>(wide);
  unsigned char const* in = reinterpret_cast<unsigned char const*>(neutral);
  int written = 0;
  for (int length; *in != 0; in += length) {
    std::uint32_t c = ReadNeutral(in, length);
    if (narrowWide && c >= 0x10000) {
      out[written++] = static_cast<wchar_t>(0xD800 + ((c - 0x10000) >> 10));
      out[written++] = static_cast<wchar_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
    } else {
      out[written++] = static_cast<wchar_t>(c);
    }
  }
  out[written] = 0;
  return written;
}

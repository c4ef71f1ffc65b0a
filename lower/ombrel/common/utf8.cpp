// UTF-8 as RFC 3629 has it: at most 4 bytes, nothing above U+10FFFF, no
// surrogates, no overlong forms.
#include "ombutf8.h"

namespace {

constexpr bool narrowWide = sizeof(wchar_t) == 2;

bool IsTrail(unsigned char byte) { return (byte & 0xC0) == 0x80; }
bool IsSurrogate(std::uint32_t c) { return c >= 0xD800 && c <= 0xDFFF; }
bool IsHighSurrogate(std::uint32_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool IsLowSurrogate(std::uint32_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

}  // namespace

int vekUtf8Read(char const* text, std::size_t count, std::uint32_t& character) {
  unsigned char const* in = reinterpret_cast<unsigned char const*>(text);
  if (count == 0) return -1;
  unsigned char const lead = in[0];
  if (lead < 0x80) {
    character = lead;
    return lead == 0 ? 0 : 1;
  }
  int trails;
  std::uint32_t c;
  // The range of the first trail byte: narrower after the leads that would
  // otherwise begin an overlong form, a surrogate or a value past U+10FFFF.
  unsigned char low = 0x80, high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    trails = 1;
    c = lead & 0x1F;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    trails = 2;
    c = lead & 0x0F;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    trails = 3;
    c = lead & 0x07;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return -1;
  }
  if (count <= static_cast<std::size_t>(trails)) return -1;
  if (in[1] < low || in[1] > high) return -1;
  for (int i = 1; i <= trails; ++i) {
    if (!IsTrail(in[i])) return -1;
    c = (c << 6) | (in[i] & 0x3F);
  }
  character = c;
  return trails + 1;
}

int vekUtf8Write(char* out, std::uint32_t c) {
  unsigned char* bytes = reinterpret_cast<unsigned char*>(out);
  if (c < 0x80) {
    bytes[0] = static_cast<unsigned char>(c);
    return 1;
  }
  if (c < 0x800) {
    bytes[0] = static_cast<unsigned char>(0xC0 | (c >> 6));
    bytes[1] = static_cast<unsigned char>(0x80 | (c & 0x3F));
    return 2;
  }
  if (IsSurrogate(c) || c > 0x10FFFF) return -1;
  if (c < 0x10000) {
    bytes[0] = static_cast<unsigned char>(0xE0 | (c >> 12));
    bytes[1] = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
    bytes[2] = static_cast<unsigned char>(0x80 | (c & 0x3F));
    return 3;
  }
  bytes[0] = static_cast<unsigned char>(0xF0 | (c >> 18));
  bytes[1] = static_cast<unsigned char>(0x80 | ((c >> 12) & 0x3F));
  bytes[2] = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
  bytes[3] = static_cast<unsigned char>(0x80 | (c & 0x3F));
  return 4;
}

std::uint32_t vekWideRead(wchar_t const* wide, int& taken) {
  taken = 1;
  if (!narrowWide) return static_cast<std::uint32_t>(wide[0]);
  std::uint32_t const c = static_cast<std::uint16_t>(wide[0]);
  if (!IsHighSurrogate(c)) return c;
  std::uint32_t const next = static_cast<std::uint16_t>(wide[1]);
  if (!IsLowSurrogate(next)) return c;
  taken = 2;
  return 0x10000 + ((c - 0xD800) << 10) + (next - 0xDC00);
}

int vekWideWrite(wchar_t* out, std::uint32_t character) {
  if (!narrowWide || character < 0x10000) {
    out[0] = static_cast<wchar_t>(character);
    return 1;
  }
  out[0] = static_cast<wchar_t>(0xD800 + ((character - 0x10000) >> 10));
  out[1] = static_cast<wchar_t>(0xDC00 + ((character - 0x10000) & 0x3FF));
  return 2;
}

// The neutral encoding: UTF-8 (ombrel's codec) on the far side of the wide
// pivot, with surrogate pairs joined and split on a 16-bit wchar_t host.
#include <cstdint>

#include "ombutf8.h"
#include "vektext.h"

namespace {

constexpr std::uint32_t replacement = 0xFFFD;

}  // namespace

int mbxWideToNeut(char const* neutral, wchar_t const* wide) {
  char* out = const_cast<char*>(neutral);
  int written = 0;
  bool whole = true;
  for (int taken; *wide != 0; wide += taken) {
    int n = vekUtf8Write(out + written, vekWideRead(wide, taken));
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
    written += vekWideWrite(out + written, c);
  }
  out[written] = 0;
  return whole ? written : -1;
}

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "mbxtext.h"
#include "ombcrt.h"
#include "ombtext.h"
#include "vektext.h"

namespace {

std::size_t const invalid = static_cast<std::size_t>(-1);

// A wide value that no neutral text spells: a surrogate or anything above
// U+10FFFF. Some C libraries read such values from native UTF-8 (five- and
// six-byte forms, or four bytes above U+10FFFF); the neutral writer would
// turn them into U+FFFD, giving two native texts one neutral spelling.
bool IsCharacter(wchar_t c) {
  std::uint32_t const value = static_cast<std::uint32_t>(c);
  return value <= 0x10FFFF && (value < 0xD800 || value > 0xDFFF || sizeof(wchar_t) == 2);
}

// The first character of text, as a string of its own, through convert; null
// when text is null or that character is invalid.
char* ConvertFirst(char const* text, char* (*convert)(char const*)) {
  if (text == nullptr) return nullptr;
  char bytes[5] = {};  // the longest neutral character and the terminator
  int length = vek_mbtowc(nullptr, text, 4);
  if (length < 0) return nullptr;
  std::memcpy(bytes, text, static_cast<std::size_t>(length));
  return convert(bytes);
}

}  // namespace

char* mbxNativeToNeut(char const* text) {
  if (text == nullptr) return nullptr;
  std::size_t length = std::strlen(text);
  std::size_t count = vek_mbstowcs(nullptr, text, length);
  if (count == invalid) return nullptr;
  wchar_t* wide = new wchar_t[count + 1];
  if (vek_mbstowcs(wide, text, length) == invalid ||
      std::find_if_not(wide, wide + count, IsCharacter) != wide + count) {
    delete[] wide;
    return nullptr;
  }
  wide[count] = 0;
  char* neutral = new char[4 * count + 1];
  mbxWideToNeut(neutral, wide);
  delete[] wide;
  return neutral;
}

char* mbxNeutToNative(char const* text) {
  if (text == nullptr) return nullptr;
  std::size_t length = std::strlen(text) + 1;
  wchar_t* wide = new wchar_t[length + 1];
  mbxNeutToWide(text, wide);
  std::size_t bytes = vek_wcstombs(nullptr, wide, length);
  if (bytes == invalid) {
    delete[] wide;
    return nullptr;
  }
  char* native = new char[bytes + 2];
  if (vek_wcstombs(native, wide, bytes + 2) == invalid) {
    delete[] wide;
    delete[] native;
    return nullptr;
  }
  native[bytes] = 0;
  delete[] wide;
  return native;
}

char* mbcNativeToNeut(char const* text) {
  return ConvertFirst(text, static_cast<char* (*)(char const*)>(&mbxNativeToNeut));
}

char* mbcNeutToNative(char const* text) { return ConvertFirst(text, &mbxNeutToNative); }

char* mbxNativeToNeut(char const* block, int length) {
  if (block == nullptr) return nullptr;
  char* result = new char[mbxBlockLimit];
  result[0] = result[1] = 0;
  if (length < 1) return result;

  // A terminated copy, so that an unterminated last piece ends at length.
  std::size_t const size = static_cast<std::size_t>(length);
  char* copy = new char[size + 1];
  std::memcpy(copy, block, size);
  copy[size] = 0;

  // used: the bytes of the list so far, every piece with its terminator. The
  // test keeps room for the piece, its terminator and the list's final NUL.
  std::size_t used = 0;
  for (std::size_t offset = 0;;) {
    char const* piece = copy + offset;
    char* converted = mbxNativeToNeut(piece);
    if (converted == nullptr) {
      delete[] result;
      result = nullptr;
      break;
    }
    std::size_t bytes = std::strlen(converted);
    if (used + bytes + 2 > static_cast<std::size_t>(mbxBlockLimit)) {
      delete[] converted;
      vek_printf("mbxNativeToNeut:Cannot handle strings longer than %d", mbxBlockLimit);
      delete[] result;
      result = nullptr;
      break;
    }
    std::memcpy(result + used, converted, bytes + 1);
    used += bytes + 1;
    result[used] = 0;
    delete[] converted;
    offset += std::strlen(piece);
    if (offset >= size) break;
    ++offset;
  }
  delete[] copy;
  return result;
}

int mbxStepLength(char const* position) {
  int length = vek_mblen(position, MB_CUR_MAX);
  return length < 1 ? 0 : length;
}

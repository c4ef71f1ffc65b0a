#include <cstring>

#include "mbxtext.h"
#include "ombcrt.h"
#include "ombtext.h"
#include "vektext.h"

namespace {

std::size_t const invalid = static_cast<std::size_t>(-1);

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
  if (vek_mbstowcs(wide, text, length) == invalid) {
    delete[] wide;
    return nullptr;
  }
  wide[count] = 0;
  // A wide value that is no character (the locale may decode one past
  // U+10FFFF) has no neutral form: it must not merge into U+FFFD with others.
  char* neutral = new char[4 * count + 1];
  bool const converted = mbxWideToNeut(neutral, wide) >= 0;
  delete[] wide;
  if (!converted) {
    delete[] neutral;
    return nullptr;
  }
  return neutral;
}

char* mbxNeutToNative(char const* text) {
  if (text == nullptr) return nullptr;
  std::size_t length = std::strlen(text) + 1;
  wchar_t* wide = new wchar_t[length + 1];
  // Malformed neutral text names no native text: refused, not guessed at.
  if (mbxNeutToWide(text, wide) < 0) {
    delete[] wide;
    return nullptr;
  }
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
  int length = vek_mblen(position, static_cast<std::size_t>(vek_mb_cur_max()));
  return length < 1 ? 0 : length;
}

#include "vektext.h"

#include <cstring>

#include "ombtext.h"

namespace {
std::size_t const invalid = static_cast<std::size_t>(-1);
}

int Strlen(char const* text) {
  return text == nullptr ? 0 : static_cast<int>(std::strlen(text));
}

char* Strnew__(char const* text) {
  if (text == nullptr) return nullptr;
  std::size_t bytes = std::strlen(text) + 1;
  char* copy = new char[bytes];
  std::memcpy(copy, text, bytes);
  return copy;
}

wchar_t* XStrnew(char const* text) {
  if (text == nullptr) return nullptr;
  std::size_t count = vek_mbstowcs(nullptr, text, 0);
  if (count == invalid) return nullptr;
  wchar_t* wide = new wchar_t[count + 1];
  vek_mbstowcs(wide, text, count + 1);
  return wide;
}

wchar_t* Strtoxstr(wchar_t* destination, char const* text, int limit) {
  if (limit < 0) return nullptr;
  std::size_t count = text == nullptr ? 0 : vek_mbstowcs(destination, text, static_cast<std::size_t>(limit));
  if (count == invalid) {
    destination[0] = 0;
    return nullptr;
  }
  // mbstowcs leaves the terminator out when the limit is reached.
  destination[count] = 0;
  return destination;
}

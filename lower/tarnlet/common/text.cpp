#include "vektext.h"

#include <cstring>

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

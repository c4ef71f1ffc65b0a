// The environment and the home directory (HOME). POSIX code only.
#include "vektext.h"

#include <cstdlib>
#include <cstring>

bool Getenv(char const* name, char const** value) {
  if (name == nullptr) return false;
  char const* text = std::getenv(name);
  if (text == nullptr) return false;
  *value = text;
  return true;
}

unsigned uGetHomeDirectory(unsigned size, char* buffer) {
  char const* home = std::getenv("HOME");
  if (home == nullptr) return 0;
  std::size_t length = std::strlen(home);
  if (length == 0 || length + 1 > size) return 0;
  std::memcpy(buffer, home, length + 1);
  return static_cast<unsigned>(length);
}

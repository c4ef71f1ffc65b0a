// The home directory that POSIX programs use (HOME). POSIX code only.
#include "vektext.h"

#include <cstdlib>
#include <cstring>

unsigned uGetHomeDirectory(unsigned size, char* buffer) {
  char const* home = std::getenv("HOME");
  if (home == nullptr) return 0;
  std::size_t length = std::strlen(home);
  if (length == 0 || length + 1 > size) return 0;
  std::memcpy(buffer, home, length + 1);
  return static_cast<unsigned>(length);
}

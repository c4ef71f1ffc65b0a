#include "vekfile.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "ombmem.h"

unsigned uGetCurrentDirectory(unsigned size, char* buffer) {
  // getcwd writes into its buffer even when it fails; the contract keeps the
  // caller's buffer intact, so the query goes through a buffer of our own.
  char* current = ::getcwd(nullptr, 0);
  if (current == nullptr) {
    vekKeepSystemError();
    return 0;
  }
  std::size_t length = std::strlen(current);
  if (length + 1 > size) {
    std::free(current);
    vekSetLastError(ENAMETOOLONG);
    return 0;
  }
  std::memcpy(buffer, current, length + 1);
  std::free(current);
  return static_cast<unsigned>(length);
}

unsigned uGetEnvironmentVariable(char const* name, char* buffer, unsigned size) {
  char const* value = name == nullptr ? nullptr : std::getenv(name);
  if (value == nullptr) return 0;
  std::size_t length = std::strlen(value);
  if (length + 1 > size) return static_cast<unsigned>(length + 1);
  std::memcpy(buffer, value, length + 1);
  return static_cast<unsigned>(length);
}

// The environment through ombrel's vek_getenv (native text on every host),
// the same on every host.
#include <cstring>

#include "ombcrt.h"
#include "vekfile.h"
#include "vektext.h"

bool Getenv(char const* name, char const** value) {
  char const* text = vek_getenv(name);
  if (text == nullptr) return false;
  *value = text;
  return true;
}

unsigned uGetEnvironmentVariable(char const* name, char* buffer, unsigned size) {
  char const* value;
  if (!Getenv(name, &value)) return 0;
  std::size_t length = std::strlen(value);
  if (length + 1 > size) return static_cast<unsigned>(length + 1);
  std::memcpy(buffer, value, length + 1);
  return static_cast<unsigned>(length);
}

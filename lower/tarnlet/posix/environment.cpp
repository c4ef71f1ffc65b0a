#include "vektext.h"

#include <cstdlib>

bool Getenv(char const* name, char const** value) {
  if (name == nullptr) return false;
  char const* text = std::getenv(name);
  if (text == nullptr) return false;
  *value = text;
  return true;
}

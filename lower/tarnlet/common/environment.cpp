#include "ombcrt.h"
#include "vektext.h"

bool Getenv(char const* name, char const** value) {
  char const* text = vek_getenv(name);
  if (text == nullptr) return false;
  *value = text;
  return true;
}

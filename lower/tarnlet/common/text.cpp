#include "vektext.h"

#include <cstring>

int Strlen(char const* text) {
  return text == nullptr ? 0 : static_cast<int>(std::strlen(text));
}

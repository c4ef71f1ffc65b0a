#include "ombtext.h"

#include <cerrno>
#include <cstdlib>

#include "ombmem.h"

std::size_t vek_wcstombs(char* destination, wchar_t const* wide, std::size_t limit) {
  std::size_t n = std::wcstombs(destination, wide, limit);
  if (n == static_cast<std::size_t>(-1)) vekKeepSystemError();
  return n;
}

#include "ombtext.h"

#include <cerrno>
#include <cstdlib>
#include <cwchar>

#include "ombmem.h"

namespace {

std::size_t const invalid = static_cast<std::size_t>(-1);

// mbrtowc answers (size_t)-2 for a character cut short by count; the
// stateless forms report that as -1, as mbtowc does.
int CharLength(wchar_t* destination, char const* source, std::size_t count) {
  if (source == nullptr) return 0;
  std::mbstate_t state{};
  std::size_t n = std::mbrtowc(destination, source, count, &state);
  if (n == invalid || n == static_cast<std::size_t>(-2)) {
    if (n != invalid) errno = EILSEQ;
    vekKeepSystemError();
    return -1;
  }
  return static_cast<int>(n);
}

}  // namespace

int vek_mblen(char const* source, std::size_t count) {
  return CharLength(nullptr, source, count);
}

int vek_mbtowc(wchar_t* destination, char const* source, std::size_t count) {
  return CharLength(destination, source, count);
}

int vek_wctomb(char* destination, wchar_t character) {
  if (destination == nullptr) return 0;
  std::mbstate_t state{};
  std::size_t n = std::wcrtomb(destination, character, &state);
  if (n == invalid) {
    vekKeepSystemError();
    return -1;
  }
  return static_cast<int>(n);
}

std::size_t vek_mbstowcs(wchar_t* destination, char const* source, std::size_t count) {
  std::size_t n = std::mbstowcs(destination, source, count);
  if (n == invalid) vekKeepSystemError();
  return n;
}

std::size_t vek_wcstombs(char* destination, wchar_t const* wide, std::size_t limit) {
  std::size_t n = std::wcstombs(destination, wide, limit);
  if (n == invalid) vekKeepSystemError();
  return n;
}

// Native text to and from the W calls' wide text. Windows code only.
#include "widetext.h"

#include <windows.h>

#include "ombmem.h"
#include "ombtext.h"

namespace {

std::size_t const invalid = static_cast<std::size_t>(-1);

}  // namespace

bool vekToWide(char const* native, std::wstring& wide) {
  if (native == nullptr) {
    vekSetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  std::size_t const count = vek_mbstowcs(nullptr, native, 0);
  if (count == invalid) return false;
  std::wstring text(count + 1, L'\0');
  vek_mbstowcs(&text[0], native, count + 1);
  text.resize(count);
  wide.swap(text);
  return true;
}

bool vekFromWide(wchar_t const* wide, std::string& native) {
  if (wide == nullptr) {
    vekSetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  std::size_t const bytes = vek_wcstombs(nullptr, wide, 0);
  if (bytes == invalid) return false;
  std::string text(bytes + 1, '\0');
  vek_wcstombs(&text[0], wide, bytes + 1);
  text.resize(bytes);
  native.swap(text);
  return true;
}

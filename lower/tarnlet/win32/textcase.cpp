// The platform's rule for the characters of a name. Windows code only.
#include "textcase.h"

#include <windows.h>

// Windows file names compare without case, by the system's own ordinal
// upper-casing (what the file systems use), and so does matching them.
bool vekSameNameChar(wchar_t a, wchar_t b) {
  if (a == b) return true;
  if (a < 0x80 && b < 0x80) {
    auto upper = [](wchar_t c) { return c >= L'a' && c <= L'z' ? c - (L'a' - L'A') : c; };
    return upper(a) == upper(b);
  }
  return CompareStringOrdinal(&a, 1, &b, 1, TRUE) == CSTR_EQUAL;
}

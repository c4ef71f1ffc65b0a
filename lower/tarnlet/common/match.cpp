#include "textcase.h"
#include "vektext.h"

// Wildcard match without recursion: on a mismatch, go back to the last '*'
// and let it take one more character. Each '*' only moves forward, so the
// work is bounded by the product of the two lengths.
bool Strmatch(wchar_t const* text, wchar_t const* pattern) {
  wchar_t const* star = nullptr;  // the last '*' seen in pattern
  wchar_t const* resume = nullptr;  // where text goes on when that '*' takes more
  while (*text != 0) {
    if (*pattern == L'*') {
      star = pattern++;
      resume = text;
    } else if (*pattern != 0 && (*pattern == L'?' || vekSameNameChar(*pattern, *text))) {
      ++pattern;
      ++text;
    } else if (star != nullptr) {
      pattern = star + 1;
      text = ++resume;
    } else {
      return false;
    }
  }
  while (*pattern == L'*') ++pattern;
  return *pattern == 0;
}

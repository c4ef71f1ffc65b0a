// tarnlet, inside: the platform's rule for comparing two characters of a
// name (each platform folder defines it: case counts on POSIX hosts), and the
// wildcard match of a name built on it.
#ifndef TARNLET_TEXTCASE_H
#define TARNLET_TEXTCASE_H

bool vekSameNameChar(wchar_t a, wchar_t b);

// Wildcard match without recursion: on a mismatch, go back to the last '*'
// and let it take one more character. Each '*' only moves forward, so the
// work is bounded by the product of the two lengths. Serves wide text and the
// bytes of a directory entry alike.
template <class Char>
bool vekWildcardMatch(Char const* text, Char const* pattern) {
  Char const* star = nullptr;    // the last '*' seen in pattern
  Char const* resume = nullptr;  // where text goes on when that '*' takes more
  while (*text != 0) {
    if (*pattern == Char('*')) {
      star = pattern++;
      resume = text;
    } else if (*pattern != 0 && (*pattern == Char('?') || vekSameNameChar(*pattern, *text))) {
      ++pattern;
      ++text;
    } else if (star != nullptr) {
      pattern = star + 1;
      text = ++resume;
    } else {
      return false;
    }
  }
  while (*pattern == Char('*')) ++pattern;
  return *pattern == 0;
}

#endif

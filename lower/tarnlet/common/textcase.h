// tarnlet, inside: the platform's rule for comparing two characters of a
// name (each platform folder defines it: case counts on POSIX hosts), and the
// wildcard match of a name built on it.
#ifndef TARNLET_TEXTCASE_H
#define TARNLET_TEXTCASE_H

#include <type_traits>

bool vekSameNameChar(wchar_t a, wchar_t b);

// The units of the character at text, which is not the terminator: a
// surrogate pair of a 16-bit wchar_t is one character, so that '?' takes it
// whole.
template <class Char>
int vekCharUnits(Char const* text) {
  if (sizeof(Char) != 2) return 1;
  auto unit = [](Char c) { return static_cast<unsigned>(static_cast<std::make_unsigned_t<Char>>(c)); };
  bool const pair = unit(text[0]) >= 0xD800 && unit(text[0]) <= 0xDBFF && unit(text[1]) >= 0xDC00 &&
                    unit(text[1]) <= 0xDFFF;
  return pair ? 2 : 1;
}

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
    } else if (*pattern == Char('?')) {
      ++pattern;
      text += vekCharUnits(text);
    } else if (*pattern != 0 && vekSameNameChar(*pattern, *text)) {
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

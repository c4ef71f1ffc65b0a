// Utilities around dsString: numbers to text, token lists, the environment,
// C-style escaped text, and the stream inserter.
#include <cstdint>
#include <iomanip>

#include "dsstring.h"
#include "vektext.h"

namespace {

template <class Number>
void NumberToString(Number number, dsString& text, ToStringOptions options) {
  std::strstream stream;
  if (options == ToStringOct) {
    stream << std::oct;
  } else if (options == ToStringHex) {
    stream << std::hex;
  }
  stream << number;
  text = stream;
}

bool IsOctalDigit(char c) {
  return c >= '0' && c <= '7';
}

// The value of a hexadecimal digit, or -1 for any other byte.
int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The byte that a one-letter escape stands for, or -1 if the letter is none.
int LetterEscape(char c) {
  switch (c) {
    case 'a': return 7;
    case 'b': return 8;
    case 'f': return 12;
    case 'n': return 10;
    case 'r': return 13;
    case 't': return 9;
    case 'v': return 11;
    default: return -1;
  }
}

}  // namespace

void ToString(int number, dsString& text, ToStringOptions options) {
  NumberToString(number, text, options);
}

void ToString(unsigned int number, dsString& text, ToStringOptions options) {
  NumberToString(number, text, options);
}

void dsMkToken(char const* field, dsString& token, char separator) {
  token = "";
  if (field == nullptr) return;
  char* buffer = new char[2 * static_cast<std::size_t>(Strlen(field)) + 1];
  char* end = buffer;
  for (char const* p = field; *p != 0; ++p) {
    if (*p == separator) *end++ = separator;
    *end++ = *p;
  }
  *end = 0;
  token = buffer;
  delete[] buffer;
}

char const* dsGetNextToken(char const* list, dsString& token, char separator) {
  token = "";
  if (list == nullptr) return nullptr;
  char* buffer = new char[static_cast<std::size_t>(Strlen(list)) + 1];
  char* end = buffer;
  char const* p = list;
  while (*p != 0) {
    if (*p == separator) {
      if (p[1] == separator) {  // a doubled separator: one literal separator
        *end++ = separator;
        p += 2;
        continue;
      }
      ++p;  // the field ends; the next one begins behind the separator
      break;
    }
    *end++ = *p++;
  }
  *end = 0;
  token = buffer;
  delete[] buffer;
  return *p != 0 ? p : nullptr;
}

bool Getenv(char const* name, dsString& value) {
  char const* text = nullptr;
  if (!Getenv(name, &text)) return false;
  value = text;  // null leaves the shared empty buffer
  return true;
}

void NativeStringToCStyle(char const* text, std::ostream& out) {
  out.put('"');
  for (char const* p = text; *p != 0; ++p) {
    char c = *p;
    unsigned char byte = static_cast<unsigned char>(c);
    if (c == '\\' || c == '"') {
      out.put('\\');
      out.put(c);
    } else if (byte >= 0x20 && byte <= 0x7E) {
      out.put(c);
    } else {
      // The value of the signed char, widened: from 0x80 up the octal digits
      // are those of a negative 32-bit number.
      out.put('\\');
      out << std::oct << std::setw(3) << std::setfill('0') << static_cast<int>(static_cast<signed char>(c))
          << std::dec;
    }
  }
  out.put('"');
}

void CStyleStringToNative(char const* text, bool unquoted, std::ostream& out) {
  int length = Strlen(text);
  char const* input = text;
  if (!unquoted) {
    ++input;  // the quotes at either end are not text
    length -= 2;
  }
  // i counts the bytes consumed. An escape may consume the byte behind the
  // last one (the terminator, or the closing quote); no scan goes past the
  // terminator, since it is neither a digit nor anything else that goes on.
  int i = 0;
  while (i < length) {
    char c = input[i++];
    if (c != '\\') {
      out.put(c);
      continue;
    }
    char next = input[i++];
    int letter = LetterEscape(next);
    if (letter >= 0) {
      out.put(static_cast<char>(letter));
    } else if (next == '"') {
      out.put('\\');
      out.put('"');
    } else if (IsOctalDigit(next)) {
      std::uint32_t value = static_cast<std::uint32_t>(next - '0');
      while (IsOctalDigit(input[i])) value = value * 8 + static_cast<std::uint32_t>(input[i++] - '0');
      out.put(static_cast<char>(value & 0xFF));
    } else if (next == 'x') {
      std::uint32_t value = 0;
      for (int digit; (digit = HexDigit(input[i])) >= 0; ++i) {
        value = value * 16 + static_cast<std::uint32_t>(digit);
      }
      out.put(static_cast<char>(value & 0xFF));
    } else {
      out.put(next);  // \\, \', \8 ... and a trailing backslash gives a 0
    }
  }
  out.put('\0');
}

std::ostream& operator<<(std::ostream& out, dsBaseString const& text) {
  char const* chars = text;
  if (chars != nullptr) out << chars;
  return out;
}

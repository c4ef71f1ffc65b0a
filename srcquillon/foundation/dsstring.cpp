// The owning string, the plain copy and the byte-level string functions.
#include "dsstring.h"

#include <cstddef>
#include <cstring>

#include "dsdatcol.h"
#include "ombtext.h"
#include "vektext.h"

namespace {

// The shared empty buffer. A constant in the library's read-only data: it is
// in place before any initialiser runs, and a write to it faults.
char const sharedEmptyByte = 0;

std::size_t Length(char const* text) {
  return static_cast<std::size_t>(Strlen(text));
}

// The number of bytes that the wide constructor asks the conversion for at
// most when it counts.
constexpr std::size_t wideCountLimit = 0x100000;

// ReplaceSubStr's ceiling when every occurrence is asked for.
constexpr int replaceAllLimit = 1000000;

}  // namespace

// const_cast is a constant expression, so this is constant initialisation:
// no code runs to set it.
char* const dsString::emptyBuffer = const_cast<char*>(&sharedEmptyByte);

// ---------------------------------------------------------------------------
// dsBaseString

dsBaseString::~dsBaseString() {}

unsigned int dsBaseString::GetLength() const {
  return static_cast<unsigned int>(Strlen(*this));
}

bool dsBaseString::IsEmpty() const {
  char const* text = *this;
  return text == nullptr || text[0] == 0;
}

// ---------------------------------------------------------------------------
// dsString: private helpers

char* dsString::StrEmpty() {
  return emptyBuffer;
}

char* dsString::StrNew(char const* text) {
  return text == nullptr ? StrEmpty() : Strnew__(text);
}

char* dsString::Concatenate(char const* first, char const* second) {
  std::size_t firstLength = Length(first);
  std::size_t secondLength = Length(second);
  char* buffer = new char[firstLength + secondLength + 1];
  if (firstLength != 0) std::memcpy(buffer, first, firstLength);
  if (secondLength != 0) std::memcpy(buffer + firstLength, second, secondLength);
  buffer[firstLength + secondLength] = 0;
  return buffer;
}

void dsString::Cleanup() {
  if (chars != StrEmpty()) {
    delete[] chars;
    chars = StrEmpty();
  }
}

void dsString::Take(char* buffer) {
  Cleanup();
  chars = buffer;
}

// ---------------------------------------------------------------------------
// dsString: construction

dsString::dsString() : chars(StrEmpty()) {}

dsString::dsString(char const* text) : chars(StrEmpty()) {
  chars = StrNew(text);
}

dsString::dsString(char const* first, char const* second) : chars(StrEmpty()) {
  if (first != nullptr || second != nullptr) chars = Concatenate(first, second);
}

dsString::dsString(char const* text, unsigned int limit) : chars(StrEmpty()) {
  if (text == nullptr) return;
  std::size_t length = Length(text);
  if (limit < length) length = limit;
  if (length == 0) return;
  char* buffer = new char[length + 1];
  std::memcpy(buffer, text, length);
  buffer[length] = 0;
  chars = buffer;
}

dsString::dsString(wchar_t const* wide) : chars(StrEmpty()) {
  if (wide == nullptr || wide[0] == 0) return;
  std::size_t count = vek_wcstombs(nullptr, wide, wideCountLimit);
  // (size_t)-1: the current locale cannot express the text. It is no size.
  if (count == static_cast<std::size_t>(-1)) return;
  char* buffer = new char[count + 2];
  if (vek_wcstombs(buffer, wide, count + 2) == static_cast<std::size_t>(-1)) {
    // The locale changed between the two calls; keep nothing half-converted.
    delete[] buffer;
    return;
  }
  chars = buffer;
}

dsString::dsString(dsString const& other) : dsBaseString(other), chars(StrEmpty()) {
  if (other.chars != StrEmpty()) chars = StrNew(other.chars);
}

dsString::~dsString() {
  Cleanup();
}

dsString::operator char const*() const {
  return chars;
}

// ---------------------------------------------------------------------------
// dsString: assignment and appending

dsString& dsString::operator=(char const* text) {
  Take(StrNew(text));
  return *this;
}

dsString& dsString::operator=(dsString const& other) {
  if (&other != this) Take(StrNew(other.chars));
  return *this;
}

dsString& dsString::operator=(std::strstream& source) {
  dsXArray<char> bytes;
  for (;;) {
    int c = source.get();
    char byte = c == std::char_traits<char>::eof() ? 0 : static_cast<char>(c);
    bytes += byte;
    if (byte == 0) break;
  }
  Take(StrNew(bytes.GetDataPtr()));
  return *this;
}

dsString& dsString::operator+=(char const* text) {
  // Joined before the old buffer goes, so text may point into it.
  if (text != nullptr && text[0] != 0) Take(Concatenate(chars, text));
  return *this;
}

dsString& dsString::operator+=(char c) {
  char const text[2] = {c, 0};
  return *this += text;
}

// ---------------------------------------------------------------------------
// dsString: replacing

bool dsString::Replace(unsigned int from, unsigned int to, char const* text) {
  bool noText = text == nullptr || text[0] == 0;
  if (from == to && noText) return false;
  if (from > to) {
    unsigned int swap = from;
    from = to;
    to = swap;
  }
  std::size_t length = Length(chars);
  std::size_t added = noText ? 0 : Length(text);
  char* buffer = new char[length - (to - from) + added + 1];
  char* end = buffer;
  std::memcpy(end, chars, from);
  end += from;
  if (added != 0) std::memcpy(end, text, added);
  end += added;
  if (length > to) {
    std::memcpy(end, chars + to, length - to);
    end += length - to;
  }
  *end = 0;
  Take(buffer);
  return true;
}

int dsString::ReplaceSubStr(char const* pattern, char const* text, int limit) {
  int const most = limit > 0 ? limit : replaceAllLimit;
  std::size_t const patternLength = Length(pattern);
  std::size_t const textLength = Length(text);

  int count = 0;
  for (char const* from = chars; count < most;) {
    char const* match = std::strstr(from, pattern);
    if (match == nullptr) break;
    ++count;
    from = match + patternLength;
  }
  if (count == 0) return 0;

  std::size_t length = Length(chars);
  std::size_t bytes = length + 1 - patternLength * static_cast<std::size_t>(count) +
                      textLength * static_cast<std::size_t>(count);
  char* buffer = new char[bytes];
  char* end = buffer;
  char const* from = chars;
  for (int i = 0; i < count; ++i) {
    char const* match = std::strstr(from, pattern);
    std::size_t before = static_cast<std::size_t>(match - from);
    std::memcpy(end, from, before);
    end += before;
    std::memcpy(end, text, textLength);
    end += textLength;
    from = match + patternLength;
  }
  std::memcpy(end, from, Length(from) + 1);
  Take(buffer);
  return count;
}

dsString operator+(dsString const& first, char const* second) {
  return dsString(first, second);
}

// ---------------------------------------------------------------------------
// dscharStr

dscharStr::dscharStr(char const* text) : chars(Strnew__(text != nullptr ? text : "")) {}

dscharStr::~dscharStr() {
  delete[] chars;
}

// ---------------------------------------------------------------------------
// Byte-level functions

char* Strcat(char* destination, char const* source) {
  return std::strcat(destination, source);
}

char* Strcpy(char* destination, char const* source) {
  return std::strcpy(destination, source);
}

int Strbytes(char const* text) {
  return Strlen(text) + 1;
}

char* Strchr(char const* text, int c) {
  return const_cast<char*>(std::strchr(text, c));
}

char* Strstr(char const* text, char const* pattern) {
  return const_cast<char*>(std::strstr(text, pattern));
}

template <>
char* MemCpy<char>(char* destination, char const* source, unsigned int count) {
  if (count != 0) std::memcpy(destination, source, count);
  return destination;
}

// String utilities: C-style text and token lists from any bytes. Decoding
// must give what a plain reading of the escapes gives, encoding must give
// printable text that decodes to the bytes it came from (save the two
// documented exceptions), and splitting a token list must agree with a plain
// splitter and give back the fields it was made of.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "fuzzsupport.h"
#include "quillon.h"

namespace {

bool IsOctal(char c) { return c >= '0' && c <= '7'; }

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The plain reading of C-style text, behind the quotes when there are any.
// An escape may read the byte behind the last one (a quote or the
// terminator); text is a C string, so that byte is there.
std::string Decoded(std::string const& text, bool unquoted) {
  std::string body = unquoted ? text : text.substr(1);
  std::size_t const length = unquoted ? text.size() : text.size() - 2;
  std::string plain;
  char const* p = body.c_str();
  for (std::size_t i = 0; i < length;) {
    char c = p[i++];
    if (c != '\\') {
      plain += c;
      continue;
    }
    char next = p[i++];
    std::string const letters = "abfnrtv", values = "\a\b\f\n\r\t\v";
    if (next != 0 && letters.find(next) != std::string::npos) {
      plain += values[letters.find(next)];
    } else if (next == '"') {
      plain += "\\\"";
    } else if (IsOctal(next)) {
      std::uint32_t value = static_cast<std::uint32_t>(next - '0');
      while (IsOctal(p[i])) value = value * 8 + static_cast<std::uint32_t>(p[i++] - '0');
      plain += static_cast<char>(value & 0xFF);
    } else if (next == 'x') {
      std::uint32_t value = 0;
      for (; HexValue(p[i]) >= 0; ++i) value = value * 16 + static_cast<std::uint32_t>(HexValue(p[i]));
      plain += static_cast<char>(value & 0xFF);
    } else {
      plain += next;
    }
  }
  return plain + '\0';
}

std::string Decode(std::string const& text, bool unquoted) {
  std::ostringstream out;
  CStyleStringToNative(text.c_str(), unquoted, out);
  return out.str();
}

// Text that comes back unchanged: no double quote, which comes back with its
// backslash, and no byte in octal form followed by an octal digit, which
// would join the number.
bool RoundTrips(std::string const& text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    unsigned char const byte = static_cast<unsigned char>(text[i]);
    if (text[i] == '"') return false;
    if ((byte < 0x20 || byte > 0x7E) && i + 1 < text.size() && IsOctal(text[i + 1])) return false;
  }
  return true;
}

void CheckCStyle(std::string const& text) {
  // Decoding, quoted and not (a quoted text has its two quotes at least).
  FUZZ_CHECK(Decode(text, true) == Decoded(text, true));
  if (text.size() >= 2) FUZZ_CHECK(Decode(text, false) == Decoded(text, false));

  std::ostringstream out;
  out << std::hex;
  NativeStringToCStyle(text.c_str(), out);
  std::string const encoded = out.str();
  FUZZ_CHECK(encoded.size() >= 2 && encoded.front() == '"' && encoded.back() == '"');
  for (char c : encoded) FUZZ_CHECK(c >= 0x20 && c <= 0x7E);
  if (RoundTrips(text)) FUZZ_CHECK(Decode(encoded, false) == text + '\0');
  // The stream's base is decimal afterwards whenever a byte took the octal form.
  bool octal = false;
  for (char c : text) octal = octal || c < 0x20 || c > 0x7E;
  out.str("");
  out << 10;
  FUZZ_CHECK(out.str() == (octal ? "10" : "a"));
}

// A plain splitter of token lists: a doubled separator is one literal
// separator, a single one ends the field.
std::vector<std::string> Split(std::string const& list, char separator) {
  std::vector<std::string> fields;
  if (list.empty()) return {""};
  std::string field;
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (list[i] != separator) {
      field += list[i];
    } else if (i + 1 < list.size() && list[i + 1] == separator) {
      field += separator;
      ++i;
    } else {
      fields.push_back(field);
      field.clear();
      if (i + 1 == list.size()) return fields;  // a separator at the very end adds no field
    }
  }
  fields.push_back(field);
  return fields;
}

std::vector<std::string> Tokens(std::string const& list, char separator) {
  std::vector<std::string> fields;
  dsString token("sentinel");
  char const* rest = list.c_str();
  do {
    char const* next = dsGetNextToken(rest, token, separator);
    FUZZ_CHECK(next == nullptr || (next > rest && next <= list.c_str() + list.size()));
    fields.emplace_back(static_cast<char const*>(token));
    rest = next;
  } while (rest != nullptr);
  return fields;
}

void CheckTokens(std::string const& list, std::vector<std::string> const& fields, char separator) {
  FUZZ_CHECK(Tokens(list, separator) == Split(list, separator));

  // Fields joined: they come back unless a field after the first is empty or
  // begins with the separator, which then reads as a doubled one.
  std::string joined;
  bool separable = true;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    dsString token("sentinel");
    dsMkToken(fields[i].c_str(), token, separator);
    std::string encoded(token);
    FUZZ_CHECK(encoded.size() == fields[i].size() + static_cast<std::size_t>(std::count(fields[i].begin(), fields[i].end(), separator)));
    joined += (i == 0 ? "" : std::string(1, separator)) + encoded;
    if (i > 0 && (fields[i].empty() || fields[i][0] == separator)) separable = false;
  }
  if (separable) FUZZ_CHECK(Tokens(joined, separator) == fields);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  char separator = input.ConsumeIntegral<char>();
  if (separator == 0) separator = ',';
  std::string const text = input.ConsumeRemainingBytesAsString();
  std::string const cText = text.substr(0, text.find('\0'));
  CheckCStyle(cText);

  // The fields: the text cut at its zero bytes.
  std::vector<std::string> fields;
  for (std::size_t begin = 0;;) {
    std::size_t const end = text.find('\0', begin);
    fields.push_back(text.substr(begin, end - begin));
    if (end == std::string::npos) break;
    begin = end + 1;
  }
  CheckTokens(cText, fields, separator);
  return 0;
}

// Neutral text: the UTF-8 codec, the native/neutral conversions in the C and
// a UTF-8 locale, the block form and the wide helpers.
#include <gtest/gtest.h>

#include <clocale>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "quillon.h"
#include "vektext.h"

namespace {

using namespace std::string_literals;

// Switches the process's C locale for one test and puts the old one back.
struct Locale {
  explicit Locale(char const* name)
      : saved(std::setlocale(LC_ALL, nullptr)), ok(std::setlocale(LC_ALL, name) != nullptr) {}
  ~Locale() { std::setlocale(LC_ALL, saved.c_str()); }
  std::string saved;
  bool ok;
};

#define UTF8_LOCALE(guard)                                  \
  Locale guard("C.UTF-8");                                  \
  ASSERT_TRUE(guard.ok) << "the C.UTF-8 locale is missing"

// A converted string, owned, or "<null>".
std::string Take(char* text) {
  std::unique_ptr<char[]> owned(text);
  return text == nullptr ? "<null>" : std::string(text);
}

std::string WideToNeut(std::wstring const& wide) {
  std::string neutral(4 * wide.size() + 1, '\x7f');
  int written = mbxWideToNeut(&neutral[0], wide.c_str());
  EXPECT_EQ(neutral[static_cast<std::size_t>(written)], '\0');
  return neutral.substr(0, static_cast<std::size_t>(written));
}

std::wstring NeutToWide(std::string const& neutral) {
  std::wstring wide(neutral.size() + 1, L'\x7f');
  int written = mbxNeutToWide(neutral.c_str(), &wide[0]);
  EXPECT_EQ(wide[static_cast<std::size_t>(written)], L'\0');
  return wide.substr(0, static_cast<std::size_t>(written));
}

// One character of each UTF-8 length: é (2), € (3), U+1F600 (4).
std::string const mixed = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
std::wstring const mixedWide = L"a\u00E9\u20AC\U0001F600";

TEST(TextCodec, EncodesEveryLengthAndReplacesWhatIsMalformed) {
  EXPECT_EQ(WideToNeut(mixedWide), mixed);
  EXPECT_EQ(NeutToWide(mixed), mixedWide);
  // The edges of each length, and the highest character.
  std::wstring const edges = L"\x7F\x80\x7FF\x800\xFFFF\x10000\x10FFFF";
  EXPECT_EQ(WideToNeut(edges), "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF");
  // A lone surrogate keeps its value; a value beyond U+10FFFF becomes U+FFFD.
  std::wstring const lone = {L'x', static_cast<wchar_t>(0xD800), L'y'};
  EXPECT_EQ(NeutToWide(WideToNeut(lone)), lone);
  EXPECT_EQ(WideToNeut(std::wstring(1, static_cast<wchar_t>(0x110000))), "\xEF\xBF\xBD");
  // Malformed neutral text gives one replacement per byte.
  std::wstring const bad(1, L'\xFFFD');
  EXPECT_EQ(NeutToWide("\x80"), bad);                 // a lone trail byte
  EXPECT_EQ(NeutToWide("\xC0\xAF"), bad + bad);       // overlong '/'
  EXPECT_EQ(NeutToWide("\xF4\x90\x80\x80"), bad + bad + bad + bad);  // above U+10FFFF
  // Cut short by the terminator, or by another lead byte.
  EXPECT_EQ(NeutToWide("a\xE2\x82"), L"a" + bad + bad);
  EXPECT_EQ(NeutToWide("\xC3\xC3\xA9"), bad + L"\u00E9");
}

TEST(TextNative, WholeTextFirstCharacterAndWideCopiesInBothLocales) {
  {
    UTF8_LOCALE(guard);
    EXPECT_EQ(Take(mbxNativeToNeut(mixed.c_str())), mixed);
    EXPECT_EQ(Take(mbxNeutToNative(mixed.c_str())), mixed);
    EXPECT_EQ(Take(mbxNativeToNeut("ok\xC3")), "<null>");
    // Values above U+10FFFF are no text, whatever the C library reads from them.
    EXPECT_EQ(Take(mbxNativeToNeut("\xF4\x90\x80\x80")), "<null>");
    EXPECT_EQ(Take(mbxNativeToNeut("\xF8\x88\x80\x80\x80")), "<null>");
    EXPECT_EQ(Take(mbcNativeToNeut("\xF0\x9F\x98\x80\xC3\xA9")), "\xF0\x9F\x98\x80");
    EXPECT_EQ(Take(mbcNeutToNative("\xE2\x82\xAC" "abc")), "\xE2\x82\xAC");
    EXPECT_EQ(Take(mbcNeutToNative("\x80z")), "<null>");
    std::unique_ptr<wchar_t[]> wide(XStrnew(mixed.c_str()));
    ASSERT_NE(wide, nullptr);
    EXPECT_EQ(std::wstring(wide.get()), mixedWide);
    EXPECT_EQ(XStrnew("bad\xC3"), nullptr);
    wchar_t buffer[5];
    EXPECT_EQ(Strtoxstr(buffer, "abcdefgh", 4), buffer);  // at most the limit, then the terminator
    EXPECT_EQ(std::wstring(buffer), L"abcd");
  }
  Locale guard("C");
  EXPECT_EQ(Take(mbxNativeToNeut("caf\xE9")), "<null>");
  EXPECT_EQ(Take(mbxNeutToNative("caf\xC3\xA9")), "<null>");  // no C-locale form
  EXPECT_EQ(Take(mbcNativeToNeut("xyz")), "x");
}

// Converts the first length bytes of block: the pieces of the result up to
// the empty one that ends it, as "a;b;" (or "<null>"), then "#" and what was
// printed. The list must stay inside the buffer.
std::string Block(std::string const& block, int length) {
  testing::internal::CaptureStdout();
  std::unique_ptr<char[]> result(mbxNativeToNeut(block.data(), length));
  std::string list = result ? "" : "<null>";
  for (std::size_t at = 0; result && result[at] != 0; at += std::strlen(&result[at]) + 1) {
    list += &result[at] + ";"s;
    EXPECT_LT(at + std::strlen(&result[at]) + 1, static_cast<std::size_t>(mbxBlockLimit));
  }
  return list + "#" + testing::internal::GetCapturedStdout();
}

TEST(TextBlock, ListsThePiecesAndRefusesWhatPassesTheBuffer) {
  UTF8_LOCALE(guard);
  EXPECT_EQ(Block("ab\0\xC3\xA9\0z"s, 7), "ab;\xC3\xA9;z;#");
  EXPECT_EQ(Block("abcdef", 3), "abc;#");  // the block ends at length, terminated or not
  EXPECT_EQ(Block("abc", 0) + Block("abc", -5), "##");
  EXPECT_EQ(Block("ok\0\xC3("s, 5), "<null>#");  // one bad piece fails the block, silently

  // Two pieces that take the buffer exactly: 2000 + 1 + 2093 + 1 + the final NUL.
  std::string exact = std::string(2000, 'a') + '\0' + std::string(2093, 'b');
  EXPECT_EQ(Block(exact, static_cast<int>(exact.size())),
            std::string(2000, 'a') + ";" + std::string(2093, 'b') + ";#");
  // One byte more, counted in neutral bytes: 'é' is 2 bytes either way.
  for (std::string const& more : {exact + "b", exact.substr(0, exact.size() - 1) + "\xC3\xA9"})
    EXPECT_EQ(Block(more, static_cast<int>(more.size())),
              "<null>#mbxNativeToNeut:Cannot handle strings longer than 4096");
}

TEST(TextMatch, WildcardsAndCase) {
  struct Case { wchar_t const* text; wchar_t const* pattern; bool match; };
  for (Case c : std::vector<Case>{
           {L"", L"*", true}, {L"a", L"", false}, {L"", L"?", false}, {L"file.txt", L"f?le", false},
           {L"file.txt", L"*.TXT", false}, {L"aXbYbZc", L"a*b*c", true}, {L"aXbYbZ", L"a*b*c", false},
           {L"abcbc", L"*bc", true}, {L"\u00E9t\U0001F600", L"?t?", true}}) {
    EXPECT_EQ(Strmatch(c.text, c.pattern), c.match) << c.text << " ~ " << c.pattern;
  }
  // Many stars against a long near-miss: the answer, without a blow-up.
  std::wstring const many(200, L'a');
  EXPECT_FALSE(Strmatch(many.c_str(), L"*a*a*a*a*a*a*a*a*b"));
}

}  // namespace

// Neutral text: the UTF-8 codec, the native/neutral conversions in the C and
// a UTF-8 locale, the block form, multibyte stepping and the wide helpers.
#include <gtest/gtest.h>

#include <clocale>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "ombtext.h"
#include "quillon.h"
#include "vektext.h"

namespace {

using namespace std::string_literals;

// Switches the process's C locale for one test and puts the old one back.
class Locale {
 public:
  explicit Locale(char const* name) : saved(std::setlocale(LC_ALL, nullptr)) {
    if (std::setlocale(LC_ALL, name) == nullptr) ok = false;
  }
  ~Locale() { std::setlocale(LC_ALL, saved.c_str()); }
  bool ok = true;

 private:
  std::string saved;
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

TEST(TextCodec, EncodesEveryLengthAndComesBack) {
  EXPECT_EQ(WideToNeut(mixedWide), mixed);
  EXPECT_EQ(NeutToWide(mixed), mixedWide);
  // The edges of each length, and the highest character.
  std::wstring const edges = L"\x7F\x80\x7FF\x800\xFFFF\x10000\x10FFFF";
  EXPECT_EQ(WideToNeut(edges), "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF");
  EXPECT_EQ(NeutToWide(WideToNeut(edges)), edges);
  // A lone surrogate keeps its value; a value beyond U+10FFFF becomes U+FFFD.
  std::wstring const lone = {L'x', static_cast<wchar_t>(0xD800), L'y'};
  EXPECT_EQ(NeutToWide(WideToNeut(lone)), lone);
  EXPECT_EQ(WideToNeut(std::wstring(1, static_cast<wchar_t>(0x110000))), "\xEF\xBF\xBD");
  EXPECT_EQ(WideToNeut(L""), "");
}

TEST(TextCodec, MalformedNeutralGivesOneReplacementPerByte) {
  std::wstring const bad(1, L'\xFFFD');
  EXPECT_EQ(NeutToWide("\x80"), bad);                 // a lone trail byte
  EXPECT_EQ(NeutToWide("\xC0\xAF"), bad + bad);       // overlong '/'
  EXPECT_EQ(NeutToWide("\xE0\x80\xAF"), bad + bad + bad);
  EXPECT_EQ(NeutToWide("\xF4\x90\x80\x80"), bad + bad + bad + bad);  // above U+10FFFF
  // Cut short by the terminator, or by another lead byte.
  EXPECT_EQ(NeutToWide("a\xE2\x82"), L"a" + bad + bad);
  EXPECT_EQ(NeutToWide("\xC3\xC3\xA9"), bad + L"\u00E9");
}

TEST(TextWhole, BothLocales) {
  {
    UTF8_LOCALE(guard);
    EXPECT_EQ(Take(mbxNativeToNeut(mixed.c_str())), mixed);
    EXPECT_EQ(Take(mbxNeutToNative(mixed.c_str())), mixed);
    EXPECT_EQ(Take(mbxNativeToNeut("ok\xC3")), "<null>");
    EXPECT_EQ(Take(mbxNativeToNeut("\xED\xA0\x80")), "<null>");  // a surrogate is no native character
    EXPECT_EQ(Take(mbxNeutToNative("x\x80")), "x\xEF\xBF\xBD");    // U+FFFD exists in UTF-8
  }
  Locale guard("C");
  EXPECT_EQ(Take(mbxNativeToNeut("plain|text")), "plain|text");
  EXPECT_EQ(Take(mbxNeutToNative("plain|text")), "plain|text");
  EXPECT_EQ(Take(mbxNativeToNeut("")), "");
  EXPECT_EQ(Take(mbxNeutToNative("")), "");
  EXPECT_EQ(Take(mbxNativeToNeut("caf\xE9")), "<null>");
  EXPECT_EQ(Take(mbxNeutToNative("caf\xC3\xA9")), "<null>");  // no C-locale form
  EXPECT_EQ(Take(mbxNeutToNative(nullptr)), "<null>");
}

TEST(TextFirstChar, TakesOnlyTheFirstCharacter) {
  {
    UTF8_LOCALE(guard);
    EXPECT_EQ(Take(mbcNativeToNeut("\xC3\xA9z")), "\xC3\xA9");
    EXPECT_EQ(Take(mbcNativeToNeut("\xF0\x9F\x98\x80\xC3\xA9")), "\xF0\x9F\x98\x80");
    EXPECT_EQ(Take(mbcNeutToNative("\xE2\x82\xAC" "abc")), "\xE2\x82\xAC");
    EXPECT_EQ(Take(mbcNativeToNeut("")), "");
    EXPECT_EQ(Take(mbcNativeToNeut("\xC3(")), "<null>");
    EXPECT_EQ(Take(mbcNeutToNative("\x80z")), "<null>");
  }
  Locale guard("C");
  EXPECT_EQ(Take(mbcNativeToNeut("xyz")), "x");
  EXPECT_EQ(Take(mbcNeutToNative("\xC3\xA9")), "<null>");
}

// The block form's result as a list: the pieces up to the empty one that
// ends it. Also checks that the list stays inside the buffer.
std::string BlockList(char* result) {
  std::unique_ptr<char[]> owned(result);
  if (result == nullptr) return "<null>";
  std::string list;
  std::size_t at = 0;
  while (result[at] != 0) {
    std::size_t length = std::strlen(result + at);
    list += std::string(result + at, length) + ";";
    at += length + 1;
    EXPECT_LT(at, static_cast<std::size_t>(mbxBlockLimit));
  }
  return list;
}

TEST(TextBlock, ListsThePiecesAsInTheInput) {
  UTF8_LOCALE(guard);
  std::string const block = "ab\0\xC3\xA9\0z"s;
  EXPECT_EQ(BlockList(mbxNativeToNeut(block.data(), static_cast<int>(block.size()))), "ab;\xC3\xA9;z;");
  // The block ends at length, terminated or not.
  EXPECT_EQ(BlockList(mbxNativeToNeut("abcdef", 3)), "abc;");
  EXPECT_EQ(BlockList(mbxNativeToNeut("abc\0def", 4)), "abc;");
  EXPECT_EQ(BlockList(mbxNativeToNeut("abc", 0)), "");
  EXPECT_EQ(BlockList(mbxNativeToNeut("abc", -5)), "");
  // A piece that does not convert fails the whole block, without a message.
  testing::internal::CaptureStdout();
  std::string const bad = "ok\0\xC3("s;
  EXPECT_EQ(BlockList(mbxNativeToNeut(bad.data(), static_cast<int>(bad.size()))), "<null>");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(TextBlock, RefusesWhatPassesTheBuffer) {
  UTF8_LOCALE(guard);
  // Two pieces that take the buffer exactly: 2000 + 1 + 2093 + 1 + the final NUL.
  std::string exact = std::string(2000, 'a') + '\0' + std::string(2093, 'b');
  std::unique_ptr<char[]> fits(mbxNativeToNeut(exact.data(), static_cast<int>(exact.size())));
  ASSERT_NE(fits, nullptr);
  EXPECT_EQ(std::string(fits.get(), exact.size() + 2), exact + "\0\0"s);

  // One byte more, counted in neutral bytes: 'é' is 2 bytes either way.
  for (std::string const& more : {exact + "b", std::string(2000, 'a') + '\0' + std::string(2092, 'b') + "\xC3\xA9"}) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(BlockList(mbxNativeToNeut(more.data(), static_cast<int>(more.size()))), "<null>");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "mbxNativeToNeut:Cannot handle strings longer than 4096");
  }
}

std::string Steps(char const* text) {
  std::string lengths;
  for (char const* p = text; int n = mbxStepLength(p); p += n) lengths += std::to_string(n);
  return lengths;
}

TEST(TextStepping, WalksByCharactersAndStopsAtInvalid) {
  {
    UTF8_LOCALE(guard);
    EXPECT_EQ(Steps(mixed.c_str()), "1234");
    EXPECT_EQ(Steps("a/\xC3\xA9|b"), "11211");
    EXPECT_EQ(Steps("ab\x80/c"), "11");  // nothing behind an invalid sequence
  }
  Locale guard("C");
  EXPECT_EQ(Steps("a\xC3\xA9"), "1");
}

TEST(TextLower, WrappersAndWideCopies) {
  UTF8_LOCALE(guard);
  wchar_t c = 0;
  char bytes[8] = {};
  EXPECT_EQ(vek_mbtowc(&c, "\xE2\x82\xAC", 4), 3);
  EXPECT_EQ(c, L'\u20AC');
  EXPECT_EQ(vek_mbtowc(nullptr, "\xE2\x82\xAC", 2), -1);  // cut short by the count
  EXPECT_EQ(vek_wctomb(bytes, L'\u00E9'), 2);
  EXPECT_EQ(vek_wctomb(bytes, static_cast<wchar_t>(0xD800)), -1);

  std::unique_ptr<wchar_t[]> wide(XStrnew(mixed.c_str()));
  ASSERT_NE(wide, nullptr);
  EXPECT_EQ(std::wstring(wide.get()), mixedWide);
  EXPECT_EQ(XStrnew("bad\xC3"), nullptr);
  wchar_t buffer[5];
  EXPECT_EQ(Strtoxstr(buffer, "abcdefgh", 4), buffer);  // at most the limit, then the terminator
  EXPECT_EQ(std::wstring(buffer), L"abcd");
  EXPECT_EQ(Strtoxstr(buffer, "x\xC3", 4), nullptr);
  EXPECT_EQ(std::wstring(buffer), L"");
}

TEST(TextMatch, WildcardsAndCase) {
  struct Case { wchar_t const* text; wchar_t const* pattern; bool match; };
  for (Case c : std::vector<Case>{
           {L"file.txt", L"file.txt", true}, {L"file.txt", L"*.txt", true}, {L"file.txt", L"*", true},
           {L"", L"*", true}, {L"", L"", true}, {L"a", L"", false}, {L"", L"?", false},
           {L"file.txt", L"f??e.t?t", true}, {L"file.txt", L"f?le", false}, {L"file.txt", L"*.TXT", false},
           {L"File", L"file", false}, {L"abc", L"a**c", true}, {L"abc", L"abc*", true}, {L"abc", L"ab", false},
           {L"aXbYbZc", L"a*b*c", true}, {L"aXbYbZ", L"a*b*c", false}, {L"abcbc", L"*bc", true},
           {L"\u00E9t\U0001F600", L"?t?", true}, {L"\u00E9t\U0001F600", L"\u00C9*", false},
           {L"*?", L"*?", true}, {L"ab", L"a?b", false}}) {
    EXPECT_EQ(Strmatch(c.text, c.pattern), c.match) << c.text << " ~ " << c.pattern;
  }
  // Many stars against a long near-miss: the answer, without a blow-up.
  std::wstring const many(200, L'a');
  EXPECT_FALSE(Strmatch(many.c_str(), L"*a*a*a*a*a*a*a*a*b"));
  EXPECT_TRUE(Strmatch((many + L"b").c_str(), L"*a*a*a*a*a*a*a*a*b"));
}

}  // namespace

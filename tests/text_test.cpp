// Neutral text: the native/neutral conversions in the C and a UTF-8 locale,
// the block form and the wide helpers; non-ASCII names in a program that never
// set its locale. fuzz/neutral_fuzz.cpp checks the codec against a plain one.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "quillon.h"
#include "ombtext.h"
#include "testsupport.h"
#include "vektext.h"

namespace {

using namespace std::string_literals;

// A converted string, owned, or "<null>".
std::string Take(char* text) {
  std::unique_ptr<char[]> owned(text);
  return text == nullptr ? "<null>" : std::string(text);
}

// One character of each UTF-8 length: é (2), € (3), U+1F600 (4, a surrogate
// pair where wchar_t has 16 bits).
std::string const mixed = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
std::wstring const mixedWide = L"a\u00E9\u20AC\U0001F600";

using Convert = char* (*)(char const*);
Convert const toNeutral = mbxNativeToNeut, toNative = mbxNeutToNative;
Convert const firstToNeutral = mbcNativeToNeut, firstToNative = mbcNeutToNative;

// The whole text, the first character and the wide copies answer alike in
// the C locale, which reads and writes UTF-8 too, and in a UTF-8 locale.
void ExpectNativeText(char const* locale) {
  struct Case { Convert convert; char const* text; char const* result; };
  Case const cases[] = {
      {toNeutral, mixed.c_str(), mixed.c_str()}, {toNative, mixed.c_str(), mixed.c_str()},
      {toNeutral, "ok\xC3", nullptr}, {toNeutral, "caf\xE9", nullptr},
      // Past U+10FFFF (a UTF-8 C library decodes it) and malformed: no text becomes U+FFFD.
      {toNeutral, "\xF4\x90\x80\x80", nullptr}, {toNeutral, "a\xF7\xBF\xBF\xBF", nullptr},
      {toNeutral, "\xF8\x88\x80\x80\x80", nullptr}, {toNative, "a\x80", nullptr}, {toNative, "\xED\xA0\x80", nullptr},
      {firstToNeutral, "\xF0\x9F\x98\x80\xC3\xA9", "\xF0\x9F\x98\x80"}, {firstToNeutral, "xyz", "x"},
      {firstToNative, "\xE2\x82\xAC" "abc", "\xE2\x82\xAC"}, {firstToNative, "\x80z", nullptr}};
  for (Case const& c : cases)
    EXPECT_EQ(Take(c.convert(c.text)), c.result != nullptr ? c.result : "<null>") << locale << ": " << c.text;
  std::unique_ptr<wchar_t[]> wide(XStrnew(mixed.c_str()));
  ASSERT_NE(wide, nullptr) << locale;
  EXPECT_EQ(std::wstring(wide.get()), mixedWide) << locale;
  EXPECT_EQ(XStrnew("bad\xC3"), nullptr) << locale;
  wchar_t buffer[5];
  EXPECT_EQ(Strtoxstr(buffer, "abcdefgh", 4), buffer);  // at most the limit, then the terminator
  EXPECT_EQ(std::wstring(buffer), L"abcd") << locale;
}

// What the multibyte wrappers answer, call for call: counts, limits, stored
// characters, refusals (values past U+10FFFF, no UTF-8, are left out).
std::string WrapperAnswers() {
  std::string answers;
  auto note = [&answers](long long value) { answers += std::to_string(value) + " "; };
  for (std::string const& text : std::vector<std::string>{"", "abc", "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z", "a\xC3", "\xC3(", "\xED\xA0\x80",
                                 "\xC0\xAF", "\xE0\x80\x80", "\xF0\x80\x80\x80", "\x80", "\xFF"}) {
    for (std::size_t count = 0; count <= 5; ++count) {
      wchar_t character = L'?';
      note(vek_mblen(text.c_str(), count));
      note(vek_mbtowc(&character, text.c_str(), count));
      note(character);
    }
    note(static_cast<long long>(vek_mbstowcs(nullptr, text.c_str(), 0)));
    for (std::size_t limit = 0; limit <= text.size() + 1; ++limit) {
      std::wstring wide(limit + 1, L'?');
      std::size_t const n = vek_mbstowcs(&wide[0], text.c_str(), limit);
      note(static_cast<long long>(n));
      if (n != static_cast<std::size_t>(-1)) for (wchar_t c : wide) note(c);
    }
  }
  std::wstring const surrogate(1, static_cast<wchar_t>(0xD800));
  for (std::wstring const& wide : {std::wstring(), std::wstring(L"abc"), mixedWide, L"a" + surrogate + L"b"}) {
    for (wchar_t c : wide) {
      char bytes[MB_LEN_MAX] = {};
      note(vek_wctomb(bytes, c));
      note(std::string(bytes).size());
    }
    note(vek_wctomb(nullptr, L'a'));
    note(static_cast<long long>(vek_wcstombs(nullptr, wide.c_str(), 0)));
    for (std::size_t limit = 0; limit <= 4 * wide.size() + 1; ++limit) {
      std::string bytes(limit + 1, '?');
      std::size_t const n = vek_wcstombs(&bytes[0], wide.c_str(), limit);
      note(static_cast<long long>(n));
      if (n != static_cast<std::size_t>(-1)) answers += bytes + " ";
    }
  }
  return answers;
}

TEST(TextNative, ConversionsAnswerAlikeInBothLocales) {
  {
    qtest::Locale guard("C");
    ExpectNativeText("C");
  }
  std::string utf8;
  {
    QTEST_UTF8_LOCALE(guard);
    ExpectNativeText(qtest::host::kUtf8Locale);
    utf8 = WrapperAnswers();
  }
  qtest::Locale guard("C");  // where the wrappers answer as the C library's UTF-8 does
  EXPECT_EQ(WrapperAnswers(), utf8);
  EXPECT_EQ(vek_mb_cur_max(), 4);
}

// A program that never sets its locale handles non-ASCII names whole: paths
// are rewritten past them and patterns match them.
TEST(TextCLocale, NamesStayWhole) {
  qtest::Locale guard("C");
  qtest::TempDir dir;
  std::string const cafe = "caf\xC3\xA9", below = qtest::Neutral(dir.Path()) + "|d|" + cafe + "|sub|";
  EXPECT_EQ(pfuFS::pfuMakeDirRec(below.c_str()), errOK);
  // Files written by their UTF-8 names land in the directories made.
  qtest::WriteFile(dir / "d/" + cafe + "/sub/" + cafe + ".txt", "data");
  qtest::WriteFile(dir / "d/" + cafe + "/sub/other.log", "");
  std::unique_ptr<pfuDir> reader(pfuDir::OpenDir(pfuDirPath(below.c_str())));
  ASSERT_NE(reader, nullptr);
  pfuDirEntry entry;
  ASSERT_TRUE(reader->ReadNextMatching(entry, "*.txt"));
  EXPECT_EQ(std::string(entry), cafe + ".txt");
  EXPECT_FALSE(reader->ReadNextMatching(entry, "*.txt"));
}

// The pieces of the first length bytes of block as "a;b;" (or "<null>"), then
// "#" and what was printed. The list must stay inside the buffer.
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
  QTEST_UTF8_LOCALE(guard);
  EXPECT_EQ(Block("ab\0\xC3\xA9\0z"s, 7), "ab;\xC3\xA9;z;#");
  EXPECT_EQ(Block("abcdef", 3), "abc;#");  // the block ends at length, terminated or not
  EXPECT_EQ(Block("abc", 0) + Block("abc", -5), "##");
  EXPECT_EQ(Block("ok\0\xC3("s, 5), "<null>#");  // one bad piece fails the block, silently
  // Two pieces that take the buffer exactly (2000 + 1 + 2093 + 1 + the final NUL), then one byte more.
  std::string exact = std::string(2000, 'a') + '\0' + std::string(2093, 'b');
  EXPECT_EQ(Block(exact, static_cast<int>(exact.size())),
            std::string(2000, 'a') + ";" + std::string(2093, 'b') + ";#");
  exact += 'b';
  EXPECT_EQ(Block(exact, static_cast<int>(exact.size())), "<null>#mbxNativeToNeut:Cannot handle strings longer than 4096");
}

// What fuzz/wildcard_fuzz.cpp cannot see: case on Windows, a character of a
// surrogate pair, and many stars against a long near-miss, without a blow-up.
TEST(TextMatch, CaseCharactersAndStars) {
  struct Case { wchar_t const* text; wchar_t const* pattern; bool match; };
  for (Case c : std::vector<Case>{{L"file.txt", L"*.TXT", !qtest::host::kIsPosix},
                                  {L"\u00E9T\u00C9", L"\u00C9t\u00E9", !qtest::host::kIsPosix},
                                  {L"\u00E9t\U0001F600", L"?t?", true}, {L"\U0001F600", L"??", false}})
    EXPECT_EQ(Strmatch(c.text, c.pattern), c.match) << c.text << " ~ " << c.pattern;
  std::wstring const many(200, L'a');
  EXPECT_FALSE(Strmatch(many.c_str(), L"*a*a*a*a*a*a*a*a*b"));
}

}  // namespace

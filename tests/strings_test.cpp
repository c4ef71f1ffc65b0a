// The owning string, its byte-level functions and the string utilities.
#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>
#include <string>

#include "quillon.h"
#include "testsupport.h"

namespace {

char const* const noText = nullptr;

char const* Chars(dsString const& s) { return s; }

// '1' when s is on the shared empty buffer, the one every default string has.
char OnShared(dsString const& s) {
  static dsString const empty;
  return Chars(s) == Chars(empty) ? '1' : '0';
}

// Only "no text" sits on the shared buffer; any empty text owns one byte.
TEST(StringsOwning, SharedBufferOnlyForNoText) {
  dsString def, fromEmpty(""), assigned;
  wchar_t const lone[] = {L'a', static_cast<wchar_t>(0xD800), 0};
  assigned = def;
  EXPECT_EQ((std::string{OnShared(def), OnShared(dsString(noText)), OnShared(dsString(noText, noText)),
                         OnShared(dsString("abc", 0u)), OnShared(dsString("", 5u)), OnShared(dsString(def)),
                         OnShared(dsString(static_cast<wchar_t const*>(nullptr))), OnShared(dsString(L"")),
                         OnShared(dsString(lone)),  // no locale has a lone surrogate
                         OnShared(fromEmpty), OnShared(dsString("", noText)), OnShared(dsString(fromEmpty)),
                         OnShared(assigned)}),
            "1111111110000");
  assigned = noText;
  EXPECT_EQ(OnShared(assigned), '1');

  EXPECT_STREQ(dsString(noText, "cd"), "cd");
  EXPECT_STREQ(dsString("abcdef", 2u), "ab");
  EXPECT_STREQ(dsString(L"abc"), "abc");
  QTEST_UTF8_LOCALE(guard);
  EXPECT_STREQ(dsString(L"caf\u00e9"), "caf\xC3\xA9");
}

TEST(StringsOwning, CopiesAreDeepAndAppendingMayUseItsOwnText) {
  dsString original("abc"), copy(original), assigned;
  assigned = original;
  original += "def";
  EXPECT_STREQ(copy, "abc");
  EXPECT_STREQ(assigned, "abc");
  EXPECT_STREQ(original + "!", "abcdef!");
  char const* before = original;
  ((original = original) += "") += '\0';
  EXPECT_EQ(Chars(original), before);  // none of these makes a new buffer

  dsString s;
  ((s += noText) += 'x') += "yz";
  s += s;
  EXPECT_STREQ(s, "xyzxyz");
}

TEST(StringsOwning, ReplaceAndReplaceSubStr) {
  dsString s("abcdefg");
  char const* before = s;
  EXPECT_FALSE(s.Replace(2, 2, nullptr) || s.Replace(2, 2, ""));
  EXPECT_EQ(Chars(s), before);
  struct Case { char const* start; unsigned from, to; char const* text, *result; };
  for (Case c : {Case{"abcdefg", 2, 5, nullptr, "abfg"}, Case{"abcdefg", 5, 2, "X", "abXfg"},
                 Case{"abc", 3, 3, "<", "abc<"}, Case{"abc", 0, 3, "", ""}}) {
    s = c.start;
    EXPECT_TRUE(s.Replace(c.from, c.to, c.text));
    EXPECT_STREQ(s, c.result) << c.start << " " << c.from << ".." << c.to;
  }

  struct SubCase { char const* start, *pattern, *text; int limit, count; char const* result; };
  for (SubCase c : {SubCase{"aaaaa", "aa", "b", 0, 2, "bba"}, SubCase{"aaaaa", "aa", "b", 1, 1, "baaa"},
                    SubCase{"aXa", "a", "aa", -1, 2, "aaXaa"},  // the text put in is not searched
                    SubCase{"ab", "", "x", 3, 3, "xxxab"}, SubCase{"ab", "absent", "x", 0, 0, "ab"}}) {
    s = c.start;
    EXPECT_EQ(s.ReplaceSubStr(c.pattern, c.text, c.limit), c.count);
    EXPECT_STREQ(s, c.result) << c.start << " " << c.pattern;
  }
  // An empty pattern without a limit stops at a million.
  EXPECT_EQ(s.ReplaceSubStr("", "x", 0), 1000000);
}

TEST(StringsUtilities, PlainCopiesNumbersAndEnvironment) {
  char const* text = "abc";
  dscharStr copy(text), none(nullptr);
  copy.GetChars()[0] = 'X';
  EXPECT_EQ(std::string(copy.GetChars()) + text + none.GetChars(), "Xbcabc");

  dsString s;
  struct Case { int number; ToStringOptions base; char const* text; };
  for (Case c : {Case{255, ToStringHex, "ff"}, Case{255, static_cast<ToStringOptions>(7), "255"},
                 Case{-1, ToStringOct, "37777777777"}, Case{-2147483647 - 1, ToStringDec, "-2147483648"}}) {
    ToString(c.number, s, c.base);
    EXPECT_STREQ(s, c.text);
  }

  std::string name = "QUILLON_STRINGS_TEST_" + std::to_string(qtest::host::ProcessId());
  dsString value("kept");
  EXPECT_FALSE(Getenv(name.c_str(), value) || Getenv(nullptr, value));
  EXPECT_STREQ(value, "kept");
  qtest::EnvVar empty(name.c_str(), "");
  EXPECT_TRUE(Getenv(name.c_str(), value) && value.IsEmpty());
}

// What fuzz/strutil_fuzz.cpp does not reach: no list, no field, and the exact
// spelling of what C-style text escapes.
TEST(StringsTokensAndCStyle, NoTextAndTheEscapedForm) {
  dsString token("old");
  EXPECT_EQ(dsGetNextToken(nullptr, token, ','), nullptr);
  EXPECT_TRUE(token.IsEmpty());
  token = "old";
  dsMkToken(nullptr, token, ',');
  EXPECT_TRUE(token.IsEmpty());
  std::ostringstream encoded;
  NativeStringToCStyle("a \"q\" \\ ~\n\x01\x7F\xE9", encoded);
  EXPECT_EQ(encoded.str(), "\"a \\\"q\\\" \\\\ ~\\012\\001\\177\\37777777751\"");
}

struct NoTextString : dsBaseString {
  operator char const*() const override { return nullptr; }
};

TEST(StringsStreams, TakeOverAndInsert) {
  std::strstream stream;
  stream << "ab" << '\0' << "cd\xE9";
  dsString s;
  s = stream;
  EXPECT_STREQ(s, "ab");
  s = stream;
  EXPECT_STREQ(s, "cd\xE9");
  s = stream;  // nothing left: still an owned empty text
  EXPECT_TRUE(s.IsEmpty());
  EXPECT_EQ(OnShared(s), '0');

  std::ostringstream out;
  NoTextString none;
  s = "abc";
  out << std::setw(6) << std::setfill('*') << s << '|' << std::left << std::setw(5) << s << '|' << none
      << dsString() << s;
  EXPECT_EQ(out.str(), "***abc|abc**|abc");
  EXPECT_TRUE(none.IsEmpty());
  EXPECT_EQ(none.GetLength(), 0u);
}

}  // namespace

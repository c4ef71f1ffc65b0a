// The owning string, its byte-level functions and the string utilities.
#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>
#include <string>

#include "quillon.h"
#include "testsupport.h"

namespace {

using namespace std::string_literals;
char const* const noText = nullptr;

char const* Chars(dsString const& s) { return s; }

std::string Encoded(std::string const& text) {
  std::ostringstream out;
  NativeStringToCStyle(text.c_str(), out);
  return out.str();
}

std::string Decoded(std::string const& text, bool unquoted) {
  std::ostringstream out;
  CStyleStringToNative(text.c_str(), unquoted, out);
  return out.str();
}

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

// Reads every field of list as "[field]...".
std::string Split(char const* list) {
  dsString token("old");
  std::string read;
  do {
    list = dsGetNextToken(list, token, ',');
    read += "["s + Chars(token) + "]";
  } while (list != nullptr && read.size() < 100);  // a walk that never ends fails, not hangs
  return read;
}

// Encodes fields into one list.
std::string Join(std::initializer_list<char const*> fields) {
  dsString list, token;
  for (char const* const& field : fields) {
    if (&field != fields.begin()) list += ',';
    dsMkToken(field, token, ',');
    list += token;
  }
  return Chars(list);
}

TEST(StringsTokens, EncodeAndDecode) {
  EXPECT_EQ(Join({"a,b", "c"}), "a,,b,c");
  EXPECT_EQ(Join({nullptr}), "");
  EXPECT_EQ(Split("a,") + Split(",a") + Split(nullptr), "[a]" "[][a]" "[]");  // no empty last field
  EXPECT_EQ(Split(Join({"a,b", "x,,", "c d"}).c_str()), "[a,b][x,,][c d]");
  // A separator after a separator is always a literal one, so a field that
  // begins with the separator gives it to the field before ("a,,,b").
  EXPECT_EQ(Split(Join({"a", ",b"}).c_str()), "[a,][b]");
}

TEST(StringsCStyle, EncodeAndDecode) {
  EXPECT_EQ(Encoded("a \"q\" \\ ~\n\x01\x7F\xE9"), "\"a \\\"q\\\" \\\\ ~\\012\\001\\177\\37777777751\"");
  std::ostringstream out;
  NativeStringToCStyle("\x01", out << std::hex);
  out << 10;
  EXPECT_EQ(out.str(), "\"\\001\"10");  // back in decimal afterwards

  struct Case { char const* text; std::string native; };
  for (Case c : {Case{"\\a\\b\\f\\n\\r\\t\\v", "\a\b\f\n\r\t\v\0"s}, Case{"\\101B\\0", "AB\0\0"s},
                 Case{"\\x41Z\\xzZ\\xFf", "AZ\0zZ\xFF\0"s},
                 Case{"\\1012", "\n\0"s},  // no limit of three digits
                 Case{"\\37777777751", "\xE9\0"s},  // the low 8 bits of the value count
                 Case{"\\\\\\'\\8\\q\\\"", "\\'8q\\\"\0"s}, Case{"a\\", "a\0\0"s}})
    EXPECT_EQ(Decoded(c.text, true), c.native) << c.text;

  // The quoted form of a text without quotes comes back whole.
  std::string const mixed = "a\\\x01z\xE9";
  EXPECT_EQ(Decoded(Encoded(mixed), false), mixed + '\0');
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

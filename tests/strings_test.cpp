// The owning string, its byte-level functions and the string utilities.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <clocale>
#include <cstdlib>
#include <iomanip>
#include <new>
#include <sstream>
#include <string>

#include "quillon.h"

// Array allocations of the whole program, counted, so that a test can show
// that an operation never reached the allocator. dsString buffers are new[];
// the replacements must be visible to the library, which calls them.
#define QTEST_REPLACES __attribute__((visibility("default")))
static std::atomic<long> arrayNews{0}, arrayDeletes{0};
QTEST_REPLACES void* operator new[](std::size_t bytes) {
  ++arrayNews;
  if (void* block = std::malloc(bytes != 0 ? bytes : 1)) return block;
  throw std::bad_alloc();
}
QTEST_REPLACES void operator delete[](void* block) noexcept {
  arrayDeletes += block != nullptr;
  std::free(block);
}
QTEST_REPLACES void operator delete[](void* block, std::size_t) noexcept { operator delete[](block); }

namespace {

using namespace std::string_literals;
char const* const noText = nullptr;

char const* Chars(dsString const& s) { return s; }

char const* Shared() {  // the shared empty buffer, as every default string sees it
  static dsString const empty;
  return empty;
}

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

TEST(StringsOwning, SharedBufferOnlyForNoText) {
  dsString def, fromNull(noText), fromEmpty(""), other;
  for (dsString const* s : {&def, &fromNull, &fromEmpty}) EXPECT_TRUE(s->IsEmpty() && s->GetLength() == 0);
  EXPECT_EQ(Chars(def), Shared());
  EXPECT_EQ(Chars(fromNull), Shared());
  EXPECT_NE(Chars(fromEmpty), Shared());
  other = def;  // assigning an empty string gives an owned byte
  EXPECT_NE(Chars(other), Shared());
  other = noText;
  EXPECT_EQ(Chars(other), Shared());

  EXPECT_EQ(Chars(dsString(noText, noText)), Shared());
  EXPECT_NE(Chars(dsString("", noText)), Shared());
  EXPECT_STREQ(dsString(noText, "cd"), "cd");
  EXPECT_EQ(Chars(dsString("abc", 0u)), Shared());
  EXPECT_EQ(Chars(dsString("", 5u)), Shared());
  EXPECT_STREQ(dsString("abc", 9u), "abc");
  EXPECT_STREQ(dsString("abcdef", 2u), "ab");
}

TEST(StringsOwning, EmptyStringsNeverReachTheAllocator) {
  dsString owned("x");
  long news = arrayNews, deletes = arrayDeletes;
  {
    dsString a, b(noText), c(a);
    a = noText;
    c = noText;
    a += "";
    a += '\0';
  }
  EXPECT_EQ(arrayNews - news, 0);
  EXPECT_EQ(arrayDeletes - deletes, 0);
  owned = noText;  // releases its buffer, allocates nothing
  EXPECT_EQ(arrayNews - news, 0);
  EXPECT_EQ(arrayDeletes - deletes, 1);
}

TEST(StringsOwning, CopiesAreDeep) {
  dsString original("abc"), copy(original), assigned, onShared, ownedEmpty("");
  assigned = original;
  original += "def";
  EXPECT_STREQ(copy, "abc");
  EXPECT_STREQ(assigned, "abc");
  EXPECT_STREQ(original + "!", "abcdef!");
  EXPECT_STREQ(original, "abcdef");
  EXPECT_EQ(Chars(dsString(onShared)), Shared());
  EXPECT_NE(Chars(dsString(ownedEmpty)), Shared());
  char const* before = original;
  original = original;
  EXPECT_EQ(Chars(original), before);
  EXPECT_STREQ(original, "abcdef");
}

TEST(StringsOwning, Appending) {
  dsString s;
  s += noText;
  s += 'x';
  EXPECT_STREQ(s, "x");
  s += "yz";
  s += s;  // the text may be the string's own
  EXPECT_STREQ(s, "xyzxyz");
  char const* before = s;
  s += "";
  s += '\0';
  EXPECT_EQ(Chars(s), before);
}

TEST(StringsOwning, Replace) {
  dsString s("abcdefg");
  char const* before = s;
  EXPECT_FALSE(s.Replace(2, 2, nullptr));
  EXPECT_FALSE(s.Replace(2, 2, ""));
  EXPECT_EQ(Chars(s), before);

  struct Case { char const* start; unsigned from, to; char const* text, *result; };
  for (Case c : {Case{"abcdefg", 2, 5, nullptr, "abfg"}, Case{"abcdefg", 5, 2, "X", "abXfg"},
                 Case{"abc", 0, 0, ">>", ">>abc"}, Case{"abc", 3, 3, "<", "abc<"},
                 Case{"abcd", 1, 3, "-", "a-d"}, Case{"abc", 0, 3, "", ""}, Case{"", 0, 0, "in", "in"}}) {
    s = c.start;
    EXPECT_TRUE(s.Replace(c.from, c.to, c.text));
    EXPECT_STREQ(s, c.result) << c.start << " " << c.from << ".." << c.to;
  }
}

TEST(StringsOwning, ReplaceSubStr) {
  struct Case { char const* start, *pattern, *text; int limit, count; char const* result; };
  for (Case c : {Case{"aaaaa", "aa", "b", 0, 2, "bba"}, Case{"aaaaa", "aa", "b", 1, 1, "baaa"},
                 Case{"aXa", "a", "aa", -1, 2, "aaXaa"},  // the text put in is not searched
                 Case{"one two two", "two", "", 0, 2, "one  "},
                 Case{"ab", "", "x", 3, 3, "xxxab"}}) {  // an empty pattern matches at the front
    dsString s(c.start);
    EXPECT_EQ(s.ReplaceSubStr(c.pattern, c.text, c.limit), c.count);
    EXPECT_STREQ(s, c.result) << c.start << " " << c.pattern;
  }
  dsString s("ab");
  EXPECT_EQ(s.ReplaceSubStr("", "x", 0), 1000000);
  EXPECT_EQ(s.GetLength(), 1000002u);
  EXPECT_STREQ(Chars(s) + 999999, "xab");
  char const* before = s;
  EXPECT_EQ(s.ReplaceSubStr("absent", "x", 0), 0);
  EXPECT_EQ(Chars(s), before);
}

TEST(StringsOwning, TakesOverWhatTheStreamHasLeft) {
  std::strstream stream;
  stream << "ab" << '\0' << "cd\xE9";
  dsString s;
  s = stream;
  EXPECT_STREQ(s, "ab");
  s = stream;
  EXPECT_STREQ(s, "cd\xE9");
  s = stream;  // nothing left: still an owned empty text
  EXPECT_TRUE(s.IsEmpty());
  EXPECT_NE(Chars(s), Shared());
}

TEST(StringsOwning, WideTextInTheCurrentLocale) {
  EXPECT_EQ(Chars(dsString(static_cast<wchar_t const*>(nullptr))), Shared());
  EXPECT_EQ(Chars(dsString(L"")), Shared());
  EXPECT_STREQ(dsString(L"abc"), "abc");
  // The C locale cannot express U+00E9: no text, and the error is no size.
  EXPECT_EQ(Chars(dsString(L"caf\u00e9")), Shared());
  if (std::setlocale(LC_ALL, "C.UTF-8") != nullptr) {
    dsString s(L"caf\u00e9");
    std::setlocale(LC_ALL, "C");
    EXPECT_STREQ(s, "caf\xC3\xA9");
  }
}

TEST(StringsBytes, PlainCopiesAndByteFunctions) {
  char const* text = "abc";
  dscharStr copy(text), none(nullptr);
  copy.GetChars()[0] = 'X';
  EXPECT_STREQ(copy.GetChars(), "Xbc");
  EXPECT_STREQ(text, "abc");
  EXPECT_STREQ(none.GetChars(), "");

  EXPECT_EQ(Strbytes("abc"), 4);  // the terminator counts
  EXPECT_EQ(Strbytes(""), 1);
}

TEST(StringsToString, ThreeBases) {
  dsString s;
  struct Case { int number; ToStringOptions base; char const* text; };
  for (Case c : {Case{255, ToStringHex, "ff"}, Case{255, ToStringOct, "377"}, Case{255, ToStringDec, "255"},
                 Case{255, static_cast<ToStringOptions>(7), "255"}, Case{-1, ToStringHex, "ffffffff"},
                 Case{-1, ToStringOct, "37777777777"}, Case{-2147483647 - 1, ToStringDec, "-2147483648"},
                 Case{0, ToStringDec, "0"}, Case{0, ToStringOct, "0"}, Case{0, ToStringHex, "0"}}) {
    ToString(c.number, s, c.base);
    EXPECT_STREQ(s, c.text);
  }
  ToString(4294967295u, s);
  EXPECT_STREQ(s, "4294967295");
  ToString(0xABCDu, s, ToStringHex);
  EXPECT_STREQ(s, "abcd");
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
  char const* list = "a,,b,c";
  dsString token;
  EXPECT_EQ(dsGetNextToken(list, token, ','), list + 5);
  EXPECT_EQ(Split(list), "[a,b][c]");
  EXPECT_EQ(Split("a,"), "[a]");  // no empty last field
  EXPECT_EQ(Split(",a"), "[][a]");
  EXPECT_EQ(Split(""), "[]");
  EXPECT_EQ(Split(nullptr), "[]");
  EXPECT_EQ(Split(Join({"a,b", "x,,", "c d"}).c_str()), "[a,b][x,,][c d]");
  // A separator after a separator is always a literal one: an empty field
  // survives only at the very start, and a field that begins with the
  // separator gives it to the field before.
  EXPECT_EQ(Split(Join({"", "x"}).c_str()), "[][x]");
  EXPECT_EQ(Split(Join({"a", "", "b"}).c_str()), "[a,b]");
  EXPECT_EQ(Split(Join({"a", ",b"}).c_str()), "[a,][b]");
}

TEST(StringsEnvironment, Getenv) {
  std::string name = "QUILLON_STRINGS_TEST_" + std::to_string(::getpid());
  dsString value("kept");
  EXPECT_FALSE(Getenv(name.c_str(), value));
  EXPECT_FALSE(Getenv(nullptr, value));
  EXPECT_STREQ(value, "kept");
  ASSERT_EQ(::setenv(name.c_str(), "some value", 1), 0);
  EXPECT_TRUE(Getenv(name.c_str(), value));
  EXPECT_STREQ(value, "some value");
  ASSERT_EQ(::setenv(name.c_str(), "", 1), 0);
  EXPECT_TRUE(Getenv(name.c_str(), value));
  EXPECT_TRUE(value.IsEmpty());
  ::unsetenv(name.c_str());
}

TEST(StringsCStyle, EncodeAndDecode) {
  EXPECT_EQ(Encoded(""), "\"\"");
  EXPECT_EQ(Encoded("a \"q\" \\ ~"), "\"a \\\"q\\\" \\\\ ~\"");
  EXPECT_EQ(Encoded("\n\t\x01\x1F\x7F\xE9"), "\"\\012\\011\\001\\037\\177\\37777777751\"");
  std::ostringstream out;
  out << std::hex;
  NativeStringToCStyle("\x01", out);
  out << 10;
  EXPECT_EQ(out.str(), "\"\\001\"10");  // back in decimal afterwards
  EXPECT_EQ(out.fill(), '0');

  EXPECT_EQ(Decoded("", true), "\0"s);
  EXPECT_EQ(Decoded("\"\"", false), "\0"s);
  EXPECT_EQ(Decoded("\"ab\"", false), "ab\0"s);
  EXPECT_EQ(Decoded("\\a\\b\\f\\n\\r\\t\\v", true), "\a\b\f\n\r\t\v\0"s);
  EXPECT_EQ(Decoded("\\101B\\0", true), "AB\0\0"s);
  EXPECT_EQ(Decoded("\\x41Z\\xzZ\\xFf", true), "AZ\0zZ\xFF\0"s);
  EXPECT_EQ(Decoded("\\1012", true), "\n\0"s);  // no limit of three digits
  EXPECT_EQ(Decoded("\\\\\\'\\8\\q\\\"", true), "\\'8q\\\"\0"s);
  EXPECT_EQ(Decoded("a\\", true), "a\0\0"s);  // a backslash at the end
}

TEST(StringsCStyle, RoundTripThroughAStream) {
  std::string all;
  for (int byte = 1; byte < 256; ++byte) {
    if (byte != '"') all += static_cast<char>(byte);
  }
  std::strstream stream;
  CStyleStringToNative(Encoded(all).c_str(), false, stream);
  dsString back;
  back = stream;
  EXPECT_EQ(std::string(back), all);
  // What does not come back: a quote keeps its backslash, and a digit behind
  // a control byte joins its number.
  EXPECT_EQ(Decoded(Encoded("\"\\"), false), "\\\"\\\0"s);
  EXPECT_EQ(Decoded(Encoded("\x01" "5"), false), "\x0D\0"s);
}

struct NoTextString : dsBaseString {
  operator char const*() const override { return nullptr; }
};

TEST(StringsInserter, WidthFillAndNoText) {
  std::ostringstream out;
  dsString s("abc");
  out << std::setw(6) << std::setfill('*') << s << '|' << std::left << std::setw(5) << s << '|' << s;
  EXPECT_EQ(out.str(), "***abc|abc**|abc");

  NoTextString none;
  std::ostringstream nothing;
  nothing << none << dsString();
  EXPECT_EQ(nothing.str(), "");
  EXPECT_TRUE(none.IsEmpty());
  EXPECT_EQ(none.GetLength(), 0u);
}

}  // namespace

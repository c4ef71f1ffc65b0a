// Neutral text: the UTF-8 codec, the native/neutral conversions in the C and
// a UTF-8 locale, the block form and the wide helpers; non-ASCII names and
// strings in a program that never set its locale.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "quillon.h"
#include "ombtext.h"
#include "testsupport.h"
#include "vektext.h"

namespace {

using namespace std::string_literals;

using qtest::Locale;

// A converted string, owned, or "<null>".
std::string Take(char* text) {
  std::unique_ptr<char[]> owned(text);
  return text == nullptr ? "<null>" : std::string(text);
}

// What the codec writes; "!" in front when it answers -1, having replaced
// something that has no form on the other side.
std::string WideToNeut(std::wstring const& wide) {
  std::string neutral(4 * wide.size() + 1, '\x7f');
  int const result = mbxWideToNeut(&neutral[0], wide.c_str());
  std::string const written = neutral.c_str();
  EXPECT_EQ(result < 0 ? written.size() : static_cast<std::size_t>(result), written.size());
  return result < 0 ? "!" + written : written;
}

std::wstring NeutToWide(std::string const& neutral) {
  std::wstring wide(neutral.size() + 1, L'\x7f');
  int const result = mbxNeutToWide(neutral.c_str(), &wide[0]);
  std::wstring const written = wide.c_str();
  EXPECT_EQ(result < 0 ? written.size() : static_cast<std::size_t>(result), written.size());
  return result < 0 ? L"!" + written : written;
}

// One character of each UTF-8 length: é (2), € (3), U+1F600 (4).
std::string const mixed = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
std::wstring const mixedWide = L"a\u00E9\u20AC\U0001F600";

TEST(TextCodec, EncodesEveryLengthAndReplacesWhatIsMalformed) {
  EXPECT_EQ(WideToNeut(mixedWide), mixed);
  EXPECT_EQ(NeutToWide(mixed), mixedWide);
  // The edges of each length, and the highest character.
  std::wstring const edges = L"\x7F\x80\x7FF\x800\xFFFF\U00010000\U0010FFFF";
  EXPECT_EQ(WideToNeut(edges), "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF");
  EXPECT_EQ(NeutToWide("\xEF\xBF\xBD"), L"\xFFFD");  // U+FFFD itself is a character
  // A wide value that is no character has no neutral form: a lone surrogate,
  // and where wchar_t has 32 bits a value beyond U+10FFFF or a negative one.
  std::vector<std::uint32_t> noCharacter{0xD800u, 0xDFFFu};
  if (sizeof(wchar_t) == 4) noCharacter.insert(noCharacter.end(), {0x110000u, 0xFFFFFFFFu});
  for (std::uint32_t value : noCharacter)
    EXPECT_EQ(WideToNeut({L'x', static_cast<wchar_t>(value)}), "!x\xEF\xBF\xBD") << std::hex << value;
  // Malformed neutral text gives one replacement per byte, and -1: a lone
  // trail byte, an overlong '/', above U+10FFFF, an encoded surrogate and a
  // pair, cut short by the terminator or by another lead byte.
  std::wstring const bad(1, L'\xFFFD');
  for (std::string const& malformed : {"\x80"s, "\xC0\xAF"s, "\xF4\x90\x80\x80"s, "\xED\xA0\x80"s, "\xED\xA0\xBD\xED\xB8\x80"s})
    EXPECT_EQ(NeutToWide(malformed), L"!" + std::wstring(malformed.size(), L'\xFFFD')) << malformed.size();
  EXPECT_EQ(NeutToWide("a\xE2\x82"), L"!a" + bad + bad);
  EXPECT_EQ(NeutToWide("\xC3\xC3\xA9"), L"!" + bad + L"\u00E9");
}

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
      // A UTF-8 C library decodes past U+10FFFF; such names must not all
      // become one neutral U+FFFD. Nor may malformed neutral text become one.
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

TEST(TextNative, WholeTextFirstCharacterAndWideCopiesAnswerAlikeInBothLocales) {
  {
    Locale guard("C");
    ExpectNativeText("C");
  }
  QTEST_UTF8_LOCALE(guard);
  ExpectNativeText(qtest::host::kUtf8Locale);
}

// In the C locale the multibyte wrappers answer as the C library does in its
// own UTF-8 locale, call for call: counts, limits, stored characters and
// refusals. (The C library's UTF-8 also takes values past U+10FFFF, which
// are no UTF-8; they are left out here.)
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

TEST(TextCLocale, WrappersAnswerAsTheUtf8Locale) {
  std::string utf8;
  {
    QTEST_UTF8_LOCALE(guard);
    utf8 = WrapperAnswers();
  }
  Locale guard("C");
  EXPECT_EQ(WrapperAnswers(), utf8);
  EXPECT_EQ(vek_mb_cur_max(), 4);
}

// A program that never sets its locale handles non-ASCII names and strings
// whole: paths are rewritten past them, patterns match them, streams carry
// them.
TEST(TextCLocale, NamesAndStringsStayWhole) {
  Locale guard("C");
  qtest::TempDir dir;
  std::string const cafe = "caf\xC3\xA9", top = qtest::Neutral(dir.Path());
  EXPECT_EQ(pfuFS::pfuMakeDirRec((top + "|d|" + cafe + "|sub").c_str()), errOK);
  // Files written by their UTF-8 names land in the directories made.
  qtest::WriteFile(dir / "d/" + cafe + "/sub/" + cafe + ".txt", "data");
  qtest::WriteFile(dir / "d/" + cafe + "/sub/other.log", "");
  std::string const below = top + "|d|" + cafe + "|sub|";
  EXPECT_EQ(pfuFS::pfuCopyFile((below + cafe + ".txt").c_str(), (below + "copy").c_str()), errOK);
  EXPECT_EQ(qtest::ReadFile(dir / "d/" + cafe + "/sub/copy"), "data");
  std::unique_ptr<pfuDir> reader(pfuDir::OpenDir(pfuDirPath(below.c_str())));
  ASSERT_NE(reader, nullptr);
  pfuDirEntry entry;
  ASSERT_TRUE(reader->ReadNextMatching(entry, "*.txt"));
  EXPECT_EQ(std::string(entry), cafe + ".txt");
  EXPECT_FALSE(reader->ReadNextMatching(entry, "*.txt"));

  // Both string forms in a portable stream: neutral on the wire, the same
  // text back.
  std::string const text = cafe + " \xE2\x82\xAC";
  std::stringbuf buf;
  bdtIOStream io(&buf, true);
  io << text.c_str() << L"caf\u00E9 \u20AC";
  EXPECT_EQ(buf.str(), std::string("\0\0\0\x09", 4) + text + std::string("\0\0\0\x0A", 4) + text + '\0');
  for (int i = 0; i < 2; ++i) {
    dsString back;
    io >> back;
    EXPECT_EQ(std::string(back), text);
  }
  EXPECT_EQ(io.rdstate(), 0);
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
  QTEST_UTF8_LOCALE(guard);
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
           {L"file.txt", L"*.TXT", !qtest::host::kIsPosix}, {L"aXbYbZc", L"a*b*c", true}, {L"aXbYbZ", L"a*b*c", false},
           {L"abcbc", L"*bc", true}, {L"\u00E9t\U0001F600", L"?t?", true},
           {L"\U0001F600", L"??", false}, {L"\u00E9T\u00C9", L"\u00C9t\u00E9", !qtest::host::kIsPosix}}) {
    EXPECT_EQ(Strmatch(c.text, c.pattern), c.match) << c.text << " ~ " << c.pattern;
  }
  // Many stars against a long near-miss: the answer, without a blow-up.
  std::wstring const many(200, L'a');
  EXPECT_FALSE(Strmatch(many.c_str(), L"*a*a*a*a*a*a*a*a*b"));
}

}  // namespace

// The binary streams: the byte-order swaps, long values that do not fit, the
// state bits, wire sizes, long strings and text that does not convert. The
// bytes of every value are the wire image's test (wire_test.cpp); hostile
// counts and 16-bit ranges are fuzz/bdtstream_fuzz.cpp's.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <sstream>
#include <string>

#include "quillon.h"
#include "testsupport.h"

// A guard behind every array that delete[] checks, so that a write past an
// array's end is seen in any build. Visible, so the library calls them.
static std::atomic<int> overruns{0};
namespace {
constexpr std::size_t arrayHeader = 16;  // the size, keeping the alignment of new
constexpr char guardBytes[8] = {'g', 'u', 'a', 'r', 'd', '!', '!', '!'};
}  // namespace
#if QTEST_ALLOCATOR_REPLACEABLE
QTEST_REPLACES void* operator new[](std::size_t bytes) {
  char* block = static_cast<char*>(std::malloc(arrayHeader + bytes + sizeof guardBytes));
  if (block == nullptr) throw std::bad_alloc();
  std::memcpy(block, &bytes, sizeof bytes);
  std::memcpy(block + arrayHeader + bytes, guardBytes, sizeof guardBytes);
  return block + arrayHeader;
}
QTEST_REPLACES void operator delete[](void* array) noexcept {
  if (array == nullptr) return;
  char* block = static_cast<char*>(array) - arrayHeader;
  std::size_t bytes;
  std::memcpy(&bytes, block, sizeof bytes);
  if (std::memcmp(block + arrayHeader + bytes, guardBytes, sizeof guardBytes) != 0) ++overruns;
  std::free(block);
}
QTEST_REPLACES void operator delete[](void* array, std::size_t) noexcept { operator delete[](array); }
#endif

namespace {

// The wire image of an int32 prefix in either form.
std::string Prefix(std::int32_t n, int portable) {
  if (portable == 0) return std::string(reinterpret_cast<char const*>(&n), sizeof n);
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(static_cast<std::uint32_t>(n) >> shift);
  return bytes;
}

// A buffer that takes at most `room` bytes and counts its synchronisations.
struct SmallBuf : std::streambuf {
  explicit SmallBuf(std::size_t room) : bytes(room, '\0') { setp(&bytes[0], &bytes[0] + room); }
  int sync() override { return ++syncs, 0; }
  std::string bytes;
  int syncs = 0;
};

TEST(BdtNumbers, SwapsTurnHostOrderIntoNetworkOrder) {
  bdtIOStream first;  // the first stream made latches the host's order
  bool const bigEndian = Prefix(1, 0) == Prefix(1, 1);
  EXPECT_EQ(bdtBase::IsByteOrderOK(), bigEndian ? 1 : 0);
  char four[] = "abcd", eight[] = "abcdefgh";
  bdtBase::Swap4(four);
  bdtBase::Swap8(eight);
  EXPECT_STREQ(four, bigEndian ? "abcd" : "dcba");
  EXPECT_STREQ(eight, bigEndian ? "abcdefgh" : "hgfedcba");
}

// long and unsigned long go out in 4 bytes: a value that needs more breaks
// the stream and puts nothing on the buffer, rather than going out cut.
TEST(BdtNumbers, LongsThatNeedMoreThan32BitsAreRefused) {
  if (sizeof(long) == 4) GTEST_SKIP() << "every long fits 32 bits here";
  std::int64_t const wide[] = {std::int64_t{1} << 32 | 1, std::int64_t{INT32_MAX} + 1, std::int64_t{INT32_MIN} - 1};
  std::uint64_t const unsignedWide[] = {std::uint64_t{1} << 32 | 1, std::uint64_t{UINT32_MAX} + 1};
  std::stringbuf buf;
  bdtOStream out(&buf, 1);
  out << static_cast<long>(INT32_MIN) << static_cast<long>(INT32_MAX) << -1L << static_cast<unsigned long>(UINT32_MAX);
  EXPECT_EQ(out.rdstate(), 0);
  std::string const fitting = buf.str();
  for (std::int64_t value : wide) {
    out << static_cast<long>(value);
    EXPECT_EQ(out.rdstate(), 4) << value;
  }
  for (std::uint64_t value : unsignedWide) out << static_cast<unsigned long>(value);
  EXPECT_EQ(buf.str(), fitting);
}

TEST(BdtState, ShortReadsAndWritesSetBitsThatStay) {
  std::stringbuf buf;
  buf.sputn("\x01\x02\x03", 3);
  bdtIOStream io(&buf, true);
  int target = 42;
  io >> target;
  EXPECT_EQ(target, 42);
  EXPECT_EQ(io.rdstate(), 3);
  // The write side shares the one state word, and later operations still act.
  io << 7;
  io >> target;
  EXPECT_EQ(target, 7);
  EXPECT_EQ(io.rdstate(), 3) << "nothing but construction clears the state";

  SmallBuf small(6);
  bdtOStream out(&small, 1);
  out << 0x01020304 << static_cast<short>(5);  // the short needs 4 bytes, 2 are left
  EXPECT_EQ(out.rdstate(), 4);
  EXPECT_EQ(small.bytes, std::string("\x01\x02\x03\x04\0\0", 6));
  out << flush;
  EXPECT_EQ(small.syncs, 0) << "flush does not synchronise the buffer";

  bdtIOStream unbound;  // no buffer: every value fails, nothing crashes
  int i = 3;
  unbound << 1;
  unbound >> i;
  EXPECT_EQ(i, 3);
  EXPECT_EQ(unbound.rdstate(), 7);
}

TEST(BdtText, LengthCountsWhatTheWriterPuts) {
  QTEST_UTF8_LOCALE(guard);
  char const* const texts[] = {"abc", "", nullptr, "\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80"};
  // A surrogate pair where wchar_t has 16 bits.
  wchar_t const* const wides[] = {L"abc", L"", nullptr, L"\u00E9 \u20AC \U0001F600"};
  for (int portable : {0, 1}) {
    for (int i = 0; i < 4; ++i) {
      std::stringbuf narrow, wide;
      bdtOStream narrowOut(&narrow, portable), wideOut(&wide, portable);
      narrowOut << texts[i];
      wideOut << wides[i];
      EXPECT_EQ(bdtBase::Length(texts[i], portable), narrow.str().size()) << "text " << i << " portable " << portable;
      EXPECT_EQ(bdtBase::Length(wides[i], portable), wide.str().size()) << "wide " << i << " portable " << portable;
    }
  }
  // An unsigned short as a multibyte character: a count and its bytes.
  EXPECT_EQ(bdtBase::Length(static_cast<wchar_t>(0x20AC), 1, 1), 7u);
  EXPECT_EQ(bdtBase::Length(static_cast<wchar_t>(0x20AC), 0, 1), 2u);
}

// Strings around the first 64 KiB step of a payload and up to its third read
// back whole in both forms: each later step lands behind the ones before, and
// the grown array keeps its room for the terminator. The last character is é,
// taking the way through wide text, or an ASCII letter, taking the short way.
TEST(BdtText, StringsAroundAndAboveTheFirstPayloadStep) {
  overruns = 0;
  for (int portable : {0, 1}) {
    for (int length : {65535, 65536, 65537, 131072, 200003}) {
      for (char const* last : {"\xC3\xA9", "z"}) {
        std::string const text = qtest::TextPattern(static_cast<std::size_t>(length) - std::strlen(last)) + last;
        std::stringbuf buf;
        bdtIOStream io(&buf, portable != 0);
        io << text.c_str();
        dsString back("previous");
        io >> back;
        EXPECT_EQ(io.rdstate(), 0);
        EXPECT_EQ(back.GetLength(), text.size()) << length << " portable " << portable;
        EXPECT_TRUE(std::string(back) == text) << length << " portable " << portable;
      }
    }
  }
  EXPECT_EQ(overruns, 0) << "an array was written past its end";
}

// Reads a string that cannot convert: 2, the target keeps its text, and the
// stream goes on with the next value.
void ExpectRejectedText(std::string const& bytes, int portable) {
  std::stringbuf buf(Prefix(static_cast<std::int32_t>(bytes.size()), portable) + bytes + Prefix(1, portable) + "z");
  bdtIStream in(&buf, portable);
  dsString text("keep");
  in >> text;
  EXPECT_STREQ(text, "keep");
  EXPECT_EQ(in.rdstate(), 2) << testing::PrintToString(bytes) << " portable " << portable;
  in >> text;
  EXPECT_STREQ(text, "z");
}

TEST(BdtText, TextThatDoesNotConvertOrDoesNotFit) {
  // A lone surrogate has no multibyte form: a wide writer sends nothing;
  // malformed neutral text cannot be read into native text.
  std::stringbuf buf;
  bdtOStream out(&buf, 1);
  wchar_t const lone[] = {L'a', static_cast<wchar_t>(0xD800), 0};
  out << lone;
  EXPECT_EQ(out.rdstate(), 2);
  EXPECT_EQ(buf.str(), "");
  ExpectRejectedText("\xC3(", 1);
  ExpectRejectedText("a\xED\xA0\x80", 1);  // an encoded surrogate

  QTEST_UTF8_LOCALE(guard);
  // Native bytes with no neutral form travel as a null string, silently.
  std::stringbuf invalid;
  bdtOStream invalidOut(&invalid, 1);
  invalidOut << "ok\xFF" << "\xF4\x90\x80\x80";  // the second decodes past U+10FFFF
  EXPECT_EQ(invalidOut.rdstate(), 0);
  EXPECT_EQ(invalid.str(), std::string(8, '\xFF'));
  // A native reader checks its bytes against the locale.
  ExpectRejectedText("a\xC3(", 0);

  // A character beyond 16 bits read as an unsigned short fails as a short out
  // of range does: where wchar_t holds it, the target keeps its low bits;
  // where wchar_t has 16 bits (Windows), it is refused whole.
  std::stringbuf character(std::string("\0\0\0\x04\xF0\x9F\x98\x80", 8));
  bdtIStream in(&character, true);
  in.setMultibyte(1);
  unsigned short a = 0xE9;
  in >> a;
  EXPECT_EQ(a, sizeof(wchar_t) == 4 ? 0xF600 : 0xE9);
  EXPECT_EQ(in.rdstate(), 2);
}

}  // namespace

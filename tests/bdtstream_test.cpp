// The binary streams: wire bytes of each type, the wire sizes, long values
// that do not fit, the state bits, large payloads and hostile counts.
#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <sstream>
#include <string>

#include "quillon.h"
#include "testsupport.h"

// The largest array allocation since the last reset, to show that a count from
// the wire never became one big allocation, and a guard behind every array
// that delete[] checks, so a write past an array's end is seen in any build.
// Visible, so the library calls them.
static std::atomic<std::size_t> largestArray{0};
static std::atomic<int> overruns{0};
namespace {
constexpr std::size_t arrayHeader = 16;  // the size, keeping the alignment of new
constexpr char guardBytes[8] = {'g', 'u', 'a', 'r', 'd', '!', '!', '!'};
}  // namespace
#if QTEST_ALLOCATOR_REPLACEABLE
QTEST_REPLACES void* operator new[](std::size_t bytes) {
  if (bytes > largestArray) largestArray = bytes;
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

std::string Hex(std::string const& bytes) {
  std::string out;
  char piece[4];
  for (unsigned char c : bytes) {
    std::snprintf(piece, sizeof piece, out.empty() ? "%02X" : " %02X", c);
    out += piece;
  }
  return out;
}

template <class T>
std::string Image(T value) {
  return std::string(reinterpret_cast<char const*>(&value), sizeof value);
}

// The wire image of an int32 prefix in either form.
std::string Prefix(std::int32_t n, int portable) {
  if (portable == 0) return Image(n);
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

// The round trip of every value in both forms is the wire image's test
// (wire_test.cpp); this one names the bytes of each type.
TEST(BdtNumbers, WireBytesInBothForms) {
  struct {
    char c; unsigned char uc; short s; unsigned short us; int i; unsigned int ui;
    long l; unsigned long ul; float f; double d;
  } const v{'A', 0xFE, -2, 65534, 1, 0xDEADBEEFu, -3L, 0xFFFFFFFFul, 1.0f, -2.0};
  std::stringbuf portable, native;
  bdtOStream portableOut(&portable, 1), nativeOut(&native, 0);
  for (bdtOStream* out : {&portableOut, &nativeOut}) {
    *out << v.c << v.uc << v.s << v.us << v.i << v.ui << v.l << v.ul << v.f << v.d;
    EXPECT_EQ(out->rdstate(), 0);
  }
  EXPECT_EQ(Hex(portable.str()),
            "41 FE FF FF FF FE 00 00 FF FE 00 00 00 01 DE AD BE EF FF FF FF FD FF FF FF FF "
            "3F 80 00 00 C0 00 00 00 00 00 00 00");
  // Native: the host's own images, with long and unsigned long in 4 bytes.
  EXPECT_EQ(Hex(native.str()),
            Hex(Image(v.c) + Image(v.uc) + Image(v.s) + Image(v.us) + Image(v.i) + Image(v.ui) +
                Image(static_cast<std::int32_t>(v.l)) + Image(static_cast<std::uint32_t>(v.ul)) + Image(v.f) +
                Image(v.d)));

  // The swaps turn host order into network order, once a stream has been made.
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
  if constexpr (sizeof(long) > 4) {
    std::int64_t const wide[] = {std::int64_t{1} << 32 | 1, std::int64_t{INT32_MAX} + 1, std::int64_t{INT32_MIN} - 1};
    std::uint64_t const unsignedWide[] = {std::uint64_t{1} << 32 | 1, std::uint64_t{UINT32_MAX} + 1};
    for (int portable : {0, 1}) {
      std::stringbuf buf;
      bdtIOStream io(&buf, portable != 0);
      io << static_cast<long>(INT32_MIN) << static_cast<long>(INT32_MAX) << -1L << static_cast<unsigned long>(UINT32_MAX);
      EXPECT_EQ(io.rdstate(), 0);
      std::string const fitting = buf.str();
      for (std::int64_t value : wide) {
        io << static_cast<long>(value);
        EXPECT_EQ(io.rdstate(), 4) << value;
      }
      for (std::uint64_t value : unsignedWide) io << static_cast<unsigned long>(value);
      EXPECT_EQ(Hex(buf.str()), Hex(fitting)) << "portable " << portable;
    }
  }
}

TEST(BdtNumbers, PortableShortIsRangeCheckedUnsignedShortIsNot) {
  // 65534 fits only the unsigned target; both keep the low 16 bits.
  std::string const wide("\x00\x00\xFF\xFE", 4);
  std::stringbuf buf(wide + wide);
  bdtIStream in(&buf, 1);
  unsigned short u = 0;
  short s = 0;
  in >> u;
  EXPECT_EQ(in.rdstate(), 0);
  in >> s;
  EXPECT_EQ(u, 65534);
  EXPECT_EQ(s, -2);
  EXPECT_EQ(in.rdstate(), 2);
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
  EXPECT_EQ(Hex(small.bytes), "01 02 03 04 00 00");
  out << flush;
  EXPECT_EQ(small.syncs, 0) << "flush does not synchronise the buffer";

  bdtIOStream unbound;  // no buffer: every value fails, nothing crashes
  int i = 3;
  unbound << 1;
  unbound >> i;
  EXPECT_EQ(i, 3);
  EXPECT_EQ(unbound.rdstate(), 7);
}

// The small blocks and their prefixes are in the wire image (wire_test.cpp).
TEST(BdtBlocks, ABlockLargerThanOneStepRoundTripsAfterAnEmptyOne) {
  std::string big(200 * 1024 + 3, '\0');
  for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>(i * 7);
  for (int portable : {0, 1}) {
    std::stringbuf buf;
    bdtIOStream io(&buf, portable != 0);
    io.Write(nullptr, 0).Write(big.data(), static_cast<int>(big.size()));
    for (std::string const& want : {std::string(), big}) {
      char* block = nullptr;
      int count = -1;
      io.Read(block, count);
      ASSERT_NE(block, nullptr) << "even an empty block is an array";
      EXPECT_TRUE(std::string(block, static_cast<std::size_t>(count)) == want)
          << count << " bytes of " << want.size() << ", portable " << portable;
      delete[] block;
    }
    EXPECT_EQ(io.rdstate(), 0);
  }
}

TEST(BdtBlocks, HostileAndShortPrefixes) {
  struct Case {
    std::string bytes;
    bool blockKept;  // else it comes back null
    int count, state;
  } const cases[] = {
      {std::string("\x00\x00", 2), true, 77, 3},                  // the prefix is cut short
      {std::string("\xFF\xFF\xFF\xFB" "abcdef", 10), false, -5, 2},  // negative
      {std::string("\x7F\xFF\xFF\xFF" "abcdef", 10), false, INT_MAX, 3},  // 2 GiB announced, 6 there
      {std::string("\x00\x00\x00\x0A" "abc", 7), false, 10, 3},   // the payload is cut short
  };
  largestArray = 0;
  for (Case const& c : cases) {
    std::stringbuf buf(c.bytes);
    bdtIStream in(&buf, 1);
    char sentinel = 0;
    char* block = &sentinel;
    int count = 77;
    in.Read(block, count);
    EXPECT_EQ(block, c.blockKept ? &sentinel : nullptr) << Hex(c.bytes);
    EXPECT_EQ(count, c.count) << Hex(c.bytes);
    EXPECT_EQ(in.rdstate(), c.state) << Hex(c.bytes);
  }
  // The same for text: a huge count leaves the target alone.
  std::stringbuf hugeText(std::string("\x7F\xFF\xFF\xFF" "abcdef", 10));
  bdtIStream textIn(&hugeText, 1);
  dsString text("keep");
  textIn >> text;
  EXPECT_EQ(textIn.rdstate(), 3);
  EXPECT_STREQ(text, "keep");
  EXPECT_LE(largestArray, 64u * 1024u + 1u);
}

// The bytes of each string form are in the wire image (wire_test.cpp).
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
}

// Strings longer than the first step of a payload read back whole in both
// forms: the grown array keeps its room for the terminator. The lengths are
// those of the wire; the last character is é, taking the way through wide
// text, or an ASCII letter, taking the short way.
TEST(BdtText, StringsAroundAndAboveTheFirstPayloadStep) {
  overruns = 0;
  for (int portable : {0, 1}) {
    for (int length : {65535, 65536, 65537, 100000, 131072}) {
      for (char const* last : {"\xC3\xA9", "z"}) {
        std::string const text = std::string(static_cast<std::size_t>(length) - std::strlen(last), 'a') + last;
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
  EXPECT_EQ(in.rdstate(), 2) << Hex(bytes) << " portable " << portable;
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
  EXPECT_EQ(Hex(invalid.str()), "FF FF FF FF FF FF FF FF");
  // A native reader checks its bytes against the locale.
  ExpectRejectedText("a\xC3(", 0);
}

// Written and read back in the wire image (wire_test.cpp); here the count
// and a character beyond 16 bits.
TEST(BdtText, UnsignedShortAsMultibyteCharacter) {
  QTEST_UTF8_LOCALE(guard);
  EXPECT_EQ(bdtBase::Length(static_cast<wchar_t>(0x20AC), 1, 1), 7u);
  EXPECT_EQ(bdtBase::Length(static_cast<wchar_t>(0x20AC), 0, 1), 2u);
  // It fails, as a short out of range does. Where wchar_t holds it, the
  // target keeps its low bits; where wchar_t has 16 bits (Windows), the
  // character is refused whole and the target keeps its value.
  std::stringbuf wide(std::string("\0\0\0\x04\xF0\x9F\x98\x80", 8));
  bdtIStream in(&wide, true);
  in.setMultibyte(1);
  unsigned short a = 0xE9;
  in >> a;
  EXPECT_EQ(a, sizeof(wchar_t) == 4 ? 0xF600 : 0xE9);
  EXPECT_EQ(in.rdstate(), 2);
}

}  // namespace

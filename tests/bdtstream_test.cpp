// The binary streams: wire bytes of every value in both forms, round trips,
// the state bits, raw blocks and hostile counts.
#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <sstream>
#include <string>

#include "quillon.h"

// The largest array allocation of the program since the last reset, so a test
// can show that a count from the wire never became one big allocation. The
// replacement must be visible to the library, which calls it.
#define QTEST_REPLACES __attribute__((visibility("default")))
static std::atomic<std::size_t> largestArray{0};
QTEST_REPLACES void* operator new[](std::size_t bytes) {
  if (bytes > largestArray) largestArray = bytes;
  if (void* block = std::malloc(bytes != 0 ? bytes : 1)) return block;
  throw std::bad_alloc();
}
QTEST_REPLACES void operator delete[](void* block) noexcept { std::free(block); }
QTEST_REPLACES void operator delete[](void* block, std::size_t) noexcept { std::free(block); }

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

bool BigEndianHost() {
  std::uint32_t const probe = 1;
  return reinterpret_cast<unsigned char const*>(&probe)[0] == 0;
}

// Switches the process to a locale for one test and back.
class Locale {
 public:
  explicit Locale(char const* name) : saved(std::setlocale(LC_ALL, nullptr)) {
    ok = std::setlocale(LC_ALL, name) != nullptr;
  }
  ~Locale() { std::setlocale(LC_ALL, saved.c_str()); }
  bool ok;

 private:
  std::string saved;
};

#define UTF8_LOCALE(guard)   \
  Locale guard("C.UTF-8");   \
  ASSERT_TRUE(guard.ok) << "the C.UTF-8 locale is missing"

// The wire image of an int32 prefix in either form.
std::string Prefix(std::int32_t n, int portable) {
  if (portable == 0) return Image(n);
  std::uint32_t const u = static_cast<std::uint32_t>(n);
  char const bytes[4] = {static_cast<char>(u >> 24), static_cast<char>(u >> 16),
                         static_cast<char>(u >> 8), static_cast<char>(u)};
  return std::string(bytes, 4);
}

// A buffer that takes at most `room` bytes and counts its synchronisations.
class SmallBuf : public std::streambuf {
 public:
  explicit SmallBuf(std::size_t room) : bytes(room, '\0') { setp(bytes.data(), bytes.data() + room); }
  std::string Written() const { return std::string(pbase(), pptr()); }
  int syncs = 0;

 protected:
  int sync() override {
    ++syncs;
    return 0;
  }

 private:
  std::string bytes;
};

// One of every numeric type, written in this order by WriteAll.
struct AllNumbers {
  char c;
  unsigned char uc;
  short s;
  unsigned short us;
  int i;
  unsigned int ui;
  long l;
  unsigned long ul;
  float f;
  double d;
};

void WriteAll(bdtOStream& out, AllNumbers const& v) {
  out << v.c << v.uc << v.s << v.us << v.i << v.ui << v.l << v.ul << v.f << v.d;
}

void ReadAll(bdtIStream& in, AllNumbers& v) {
  in >> v.c >> v.uc >> v.s >> v.us >> v.i >> v.ui >> v.l >> v.ul >> v.f >> v.d;
}

AllNumbers const sample{'A', 0xFE, -2, 65534, 1, 0xDEADBEEFu, -3L, 0xFFFFFFFFul, 1.0f, -2.0};

TEST(BdtNumbers, WireBytesInBothForms) {
  std::stringbuf portable, native;
  bdtOStream portableOut(&portable, 1), nativeOut(&native, 0);
  WriteAll(portableOut, sample);
  WriteAll(nativeOut, sample);
  EXPECT_EQ(portableOut.rdstate() | nativeOut.rdstate(), 0);
  EXPECT_EQ(Hex(portable.str()),
            "41 FE FF FF FF FE 00 00 FF FE 00 00 00 01 DE AD BE EF FF FF FF FD FF FF FF FF "
            "3F 80 00 00 C0 00 00 00 00 00 00 00");
  // Native: the host's own images, with long and unsigned long in 4 bytes.
  EXPECT_EQ(Hex(native.str()),
            Hex(Image(sample.c) + Image(sample.uc) + Image(sample.s) + Image(sample.us) +
                Image(sample.i) + Image(sample.ui) + Image(static_cast<std::int32_t>(sample.l)) +
                Image(static_cast<std::uint32_t>(sample.ul)) + Image(sample.f) + Image(sample.d)));
  EXPECT_EQ(bdtBase::Length(sample.s, 1), 4u);
  EXPECT_EQ(bdtBase::Length(sample.us, 0), 2u);

  EXPECT_EQ(bdtBase::IsByteOrderOK(), BigEndianHost() ? 1 : 0);
  char four[] = "abcd", eight[] = "abcdefgh";
  bdtBase::Swap4(four);
  bdtBase::Swap8(eight);
  EXPECT_STREQ(four, BigEndianHost() ? "abcd" : "dcba");
  EXPECT_STREQ(eight, BigEndianHost() ? "abcdefgh" : "hgfedcba");
  if (!BigEndianHost()) {
    std::stringbuf one;
    bdtOStream(&one, 0) << 1;
    EXPECT_EQ(Hex(one.str()), "01 00 00 00");
  }
}

TEST(BdtNumbers, EveryTypeRoundTripsInBothForms) {
  AllNumbers const extremes[] = {
      {CHAR_MIN, 0, SHRT_MIN, 0, INT_MIN, 0, INT32_MIN, 0, -0.0f, 5e-324},
      {CHAR_MAX, UCHAR_MAX, SHRT_MAX, USHRT_MAX, INT_MAX, UINT_MAX, INT32_MAX, UINT32_MAX,
       3.4028235e38f, 1.7976931348623157e308},
      sample};
  for (int portable : {0, 1}) {
    std::stringbuf buf;
    bdtIOStream io(&buf, portable != 0);
    for (AllNumbers const& v : extremes) WriteAll(io, v);
    for (AllNumbers const& v : extremes) {
      AllNumbers back{};
      ReadAll(io, back);
      EXPECT_EQ(back.c, v.c);
      EXPECT_EQ(back.uc, v.uc);
      EXPECT_EQ(back.s, v.s);
      EXPECT_EQ(back.us, v.us);
      EXPECT_EQ(back.i, v.i);
      EXPECT_EQ(back.ui, v.ui);
      EXPECT_EQ(back.l, v.l);
      EXPECT_EQ(back.ul, v.ul);
      EXPECT_EQ(Image(back.f), Image(v.f));  // bit patterns, so -0.0 counts
      EXPECT_EQ(Image(back.d), Image(v.d));
    }
    EXPECT_EQ(io.rdstate(), 0) << "portable " << portable;
    EXPECT_EQ(buf.in_avail(), 0) << "the reader takes exactly what the writer gave";
  }
}

TEST(BdtNumbers, LongTravelsAsThirtyTwoBits) {
  std::stringbuf buf;
  bdtIOStream io(&buf, false);
  io << static_cast<long>(0x100000005LL) << static_cast<unsigned long>(0x1FFFFFFFEULL) << -7L;
  EXPECT_EQ(buf.str().size(), 12u);
  long l = 0, negative = 0;
  unsigned long ul = 0;
  io >> l >> ul >> negative;
  EXPECT_EQ(l, 5);
  EXPECT_EQ(ul, 0xFFFFFFFEul);  // zero-extended
  EXPECT_EQ(negative, -7);      // sign-extended
}

TEST(BdtNumbers, PortableShortIsRangeCheckedUnsignedShortIsNot) {
  struct Case {
    std::string bytes;
    short value;
    int state;
  } const cases[] = {
      {std::string("\x00\x00\xFF\xFE", 4), -2, 2},      // 65534 does not fit
      {std::string("\x00\x01\x00\x00", 4), 0, 2},       // low 16 bits kept
      {std::string("\xFF\xFF\x80\x00", 4), SHRT_MIN, 0},
      {std::string("\x00\x00\x7F\xFF", 4), SHRT_MAX, 0},
  };
  for (Case const& c : cases) {
    std::stringbuf buf(c.bytes);
    bdtIStream in(&buf, 1);
    short s = 99;
    in >> s;
    EXPECT_EQ(s, c.value) << Hex(c.bytes);
    EXPECT_EQ(in.rdstate(), c.state) << Hex(c.bytes);
  }
  std::stringbuf wide(std::string("\x00\x00\xFF\xFE\x00\x01\x00\x05", 8));
  bdtIStream in(&wide, 1);
  unsigned short a = 0, b = 0;
  in >> a >> b;
  EXPECT_EQ(a, 65534);
  EXPECT_EQ(b, 5);  // high bits dropped without complaint
  EXPECT_EQ(in.rdstate(), 0);

  std::stringbuf native(Image(static_cast<short>(-2)));
  bdtIStream nativeIn(&native, 0);
  short s = 0;
  nativeIn >> s;
  EXPECT_EQ(s, -2);
  EXPECT_EQ(nativeIn.rdstate(), 0);
}

TEST(BdtState, ShortReadDrainsBufferKeepsTargetAndStaysSet) {
  std::stringbuf buf;
  buf.sputn("\x01\x02\x03", 3);
  bdtIOStream io(&buf, true);
  int target = 42;
  io >> target;
  EXPECT_EQ(target, 42);
  EXPECT_EQ(io.rdstate(), 3);
  EXPECT_EQ(buf.in_avail(), 0) << "the three bytes are consumed";
  // The write side shares the one state word, and later operations still act.
  bdtOStream& out = io;
  EXPECT_EQ(out.rdstate(), 3);
  out << 7;
  io >> target;
  EXPECT_EQ(target, 7);
  EXPECT_EQ(io.rdstate(), 3) << "nothing but construction clears the state";

  double d = 1.5;
  char c = 'x';
  std::stringbuf empty;
  bdtIStream in(&empty, 0);
  in >> d >> c;
  EXPECT_EQ(d, 1.5);
  EXPECT_EQ(c, 'x');
  EXPECT_EQ(in.rdstate(), 3);
}

TEST(BdtState, ShortWriteBreaksTheStreamAndFlushDoesNothing) {
  SmallBuf buf(6);
  bdtOStream out(&buf, 1);
  out << 0x01020304;
  EXPECT_EQ(out.rdstate(), 0);
  out << static_cast<short>(5);  // needs 4 bytes, 2 are left
  EXPECT_EQ(out.rdstate(), 4);
  EXPECT_EQ(Hex(buf.Written()), "01 02 03 04 00 00");
  EXPECT_EQ(&(out << flush), &out);
  EXPECT_EQ(buf.syncs, 0) << "flush does not synchronise the buffer";

  SmallBuf none(0);
  bdtOStream raw(&none, 0);
  raw.Write("abc", 3);
  EXPECT_EQ(raw.rdstate(), 4);

  bdtIOStream unbound;  // no buffer: every value fails, nothing crashes
  int i = 3;
  unbound << 1;
  unbound >> i;
  EXPECT_EQ(i, 3);
  EXPECT_EQ(unbound.rdstate(), 7);
}

TEST(BdtBlocks, RawBlocksRoundTripIncludingEmptyAndLargerThanOneStep) {
  std::string big(200 * 1024 + 3, '\0');
  for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>(i * 7);
  for (int portable : {0, 1}) {
    std::stringbuf buf;
    bdtIOStream io(&buf, portable != 0);
    io.Write("hello", 5).Write(nullptr, 0).Write(big.data(), static_cast<int>(big.size()));
    std::string const wire = buf.str();
    EXPECT_EQ(Hex(wire.substr(0, 13)),
              portable ? "00 00 00 05 68 65 6C 6C 6F 00 00 00 00" : "05 00 00 00 68 65 6C 6C 6F 00 00 00 00");

    char* block = nullptr;
    int count = -1;
    io.Read(block, count);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(std::string(block, 5), "hello");
    EXPECT_EQ(count, 5);
    delete[] block;
    io.Read(block, count);
    EXPECT_NE(block, nullptr) << "an empty block is an array of no bytes";
    EXPECT_EQ(count, 0);
    delete[] block;
    io.Read(block, count);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(count, static_cast<int>(big.size()));
    EXPECT_EQ(std::memcmp(block, big.data(), big.size()), 0);
    delete[] block;
    EXPECT_EQ(io.rdstate(), 0);
  }
}

TEST(BdtBlocks, HostileAndShortPrefixes) {
  char sentinel = 0;
  char* block = &sentinel;
  int count = 77;

  // A prefix cut short leaves both targets alone.
  std::stringbuf cut(std::string("\x00\x00", 2));
  bdtIStream cutIn(&cut, 1);
  cutIn.Read(block, count);
  EXPECT_EQ(block, &sentinel);
  EXPECT_EQ(count, 77);
  EXPECT_EQ(cutIn.rdstate(), 3);

  // A negative prefix allocates nothing.
  largestArray = 0;
  std::stringbuf negative(std::string("\xFF\xFF\xFF\xFB" "abcdef", 10));
  bdtIStream negIn(&negative, 1);
  negIn.Read(block, count);
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(count, -5);
  EXPECT_EQ(negIn.rdstate(), 2);
  EXPECT_EQ(largestArray, 0u);

  // 2 GiB announced, 6 bytes there: a short read, not a 2 GiB allocation.
  std::stringbuf huge(std::string("\x7F\xFF\xFF\xFF" "abcdef", 10));
  bdtIStream hugeIn(&huge, 1);
  block = &sentinel;
  hugeIn.Read(block, count);
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(count, INT_MAX);
  EXPECT_EQ(hugeIn.rdstate(), 3);
  // The same for text: the target keeps its value.
  std::stringbuf hugeText(std::string("\x7F\xFF\xFF\xFF" "abcdef", 10));
  bdtIStream textIn(&hugeText, 1);
  dsString text("keep");
  textIn >> text;
  EXPECT_EQ(textIn.rdstate(), 3);
  EXPECT_STREQ(text, "keep");
  EXPECT_LE(largestArray, 64u * 1024u + 1u);

  // A payload cut short: the prefix is kept, the array is gone.
  std::stringbuf shortPayload(std::string("\x00\x00\x00\x0A" "abc", 7));
  bdtIStream shortIn(&shortPayload, 1);
  shortIn.Read(block, count);
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(count, 10);
  EXPECT_EQ(shortIn.rdstate(), 3);

  // Any negative count reads as a null string.
  std::stringbuf negativeText(Prefix(-7, 1));
  bdtIStream negTextIn(&negativeText, 1);
  negTextIn >> text;
  EXPECT_EQ(negTextIn.rdstate(), 0);
  EXPECT_STREQ(text, "");
}

TEST(BdtText, BothStringFormsOnTheWireAndBack) {
  char const* const noText = nullptr;
  wchar_t const* const noWide = nullptr;
  for (int portable : {0, 1}) {
    std::stringbuf buf;
    bdtIOStream io(&buf, portable != 0);
    io << "abc" << L"abc" << noText << noWide << "" << L"";
    EXPECT_EQ(io.rdstate(), 0);
    std::string const expected = Prefix(3, portable) + "abc" + Prefix(4, portable) +
                                 std::string("abc\0", 4) + Prefix(-1, portable) +
                                 Prefix(-1, portable) + Prefix(0, portable) +
                                 Prefix(1, portable) + std::string(1, '\0');
    EXPECT_EQ(Hex(buf.str()), Hex(expected)) << "portable " << portable;

    EXPECT_EQ(bdtBase::Length("abc", portable), 7u);
    EXPECT_EQ(bdtBase::Length(L"abc", portable), 8u);
    EXPECT_EQ(bdtBase::Length(noText, portable), 4u);
    EXPECT_EQ(bdtBase::Length(noWide, portable), 4u);
    EXPECT_EQ(bdtBase::Length(L"", portable), 5u);

    char const* const read[] = {"abc", "abc", "", "", "", ""};
    for (char const* want : read) {
      dsString text("previous");
      io >> text;
      EXPECT_STREQ(text, want);
    }
    EXPECT_EQ(io.rdstate(), 0);
    EXPECT_EQ(buf.in_avail(), 0);
  }
}

TEST(BdtText, NonAsciiTextRoundTrips) {
  UTF8_LOCALE(guard);
  char const* const text = "\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80";  // é € and a 4-byte character
  wchar_t const wide[] = {0xE9, L' ', 0x20AC, L' ', static_cast<wchar_t>(0x1F600), 0};
  for (int portable : {0, 1}) {
    std::stringbuf buf;
    bdtIOStream io(&buf, portable != 0);
    io << text << wide;
    EXPECT_EQ(Hex(buf.str()), Hex(Prefix(11, portable) + text + Prefix(12, portable) + text +
                                  std::string(1, '\0')));
    EXPECT_EQ(bdtBase::Length(wide, portable), 16u);
    dsString narrowBack, wideBack;
    io >> narrowBack >> wideBack;
    EXPECT_STREQ(narrowBack, text);
    EXPECT_STREQ(wideBack, text);
    EXPECT_EQ(io.rdstate(), 0);
  }
}

// Reads a string that cannot convert: 2, the target keeps its text, and the
// stream goes on with the next value.
void ExpectRejectedText(std::string const& bytes, int portable) {
  std::stringbuf buf(Prefix(static_cast<std::int32_t>(bytes.size()), portable) + bytes +
                     Prefix(1, portable) + "z");
  bdtIStream in(&buf, portable);
  dsString text("keep");
  in >> text;
  EXPECT_STREQ(text, "keep");
  EXPECT_EQ(in.rdstate(), 2) << Hex(bytes) << " portable " << portable;
  in >> text;
  EXPECT_STREQ(text, "z");
}

TEST(BdtText, TextThatDoesNotConvertOrDoesNotFit) {
  // The C locale has no multibyte form for é: a wide writer sends nothing,
  // and neutral é cannot be read into native text.
  std::stringbuf buf;
  bdtOStream out(&buf, 1);
  wchar_t const accented[] = {0xE9, 0};
  out << accented;
  EXPECT_EQ(out.rdstate(), 2);
  EXPECT_EQ(buf.str(), "");
  ExpectRejectedText("\xC3\xA9", 1);

  UTF8_LOCALE(guard);
  // Native bytes with no neutral form travel as a null string, silently.
  std::stringbuf invalid;
  bdtOStream invalidOut(&invalid, 1);
  invalidOut << "ok\xFF";
  EXPECT_EQ(invalidOut.rdstate(), 0);
  EXPECT_EQ(Hex(invalid.str()), "FF FF FF FF");
  SmallBuf full(6);
  bdtOStream shortOut(&full, 0);
  shortOut << L"abc";
  EXPECT_EQ(shortOut.rdstate(), 4);
  // A native reader checks its bytes against the locale.
  ExpectRejectedText("a\xC3(", 0);
}

TEST(BdtText, UnsignedShortAsMultibyteCharacter) {
  UTF8_LOCALE(guard);
  std::stringbuf buf;
  bdtIOStream io(&buf, true);
  io.setMultibyte(1);
  io << static_cast<unsigned short>(0xE9) << static_cast<unsigned short>(0x20AC)
     << static_cast<unsigned short>('A');
  EXPECT_EQ(Hex(buf.str()), "00 00 00 02 C3 A9 00 00 00 03 E2 82 AC 00 00 00 01 41");
  EXPECT_EQ(bdtBase::Length(static_cast<wchar_t>(0x20AC), 1, 1), 7u);
  EXPECT_EQ(bdtBase::Length(static_cast<wchar_t>(0x20AC), 1, 0), 2u);
  EXPECT_EQ(bdtBase::Length(static_cast<wchar_t>(0x20AC), 0, 1), 2u);
  unsigned short a = 0, b = 0, c = 0;
  io >> a >> b >> c;
  EXPECT_EQ(a, 0xE9);
  EXPECT_EQ(b, 0x20AC);
  EXPECT_EQ(c, 'A');
  EXPECT_EQ(io.rdstate(), 0);

  // A count that is not the character's length fails the value.
  std::stringbuf wrong(std::string("\x00\x00\x00\x03\xC3\xA9\x41", 7));
  bdtIStream in(&wrong, 1);
  in.setMultibyte(1);
  unsigned short value = 0;
  in >> value;
  EXPECT_EQ(in.rdstate(), 2);

  // The native form ignores the mode.
  std::stringbuf native;
  bdtOStream nativeOut(&native, 0);
  nativeOut.setMultibyte(1);
  nativeOut << static_cast<unsigned short>(0x20AC);
  EXPECT_EQ(Hex(native.str()), Hex(Image(static_cast<unsigned short>(0x20AC))));
}

}  // namespace

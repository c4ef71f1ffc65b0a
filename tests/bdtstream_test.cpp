// The binary streams: wire bytes of every value in both forms, round trips,
// the state bits, raw blocks and hostile counts.
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

unsigned int LengthOfAll(AllNumbers const& v, int portable) {
  return bdtBase::Length(v.c, portable) + bdtBase::Length(v.uc, portable) +
         bdtBase::Length(v.s, portable) + bdtBase::Length(v.us, portable) +
         bdtBase::Length(v.i, portable) + bdtBase::Length(v.ui, portable) +
         bdtBase::Length(static_cast<int>(v.l), portable) +
         bdtBase::Length(static_cast<unsigned int>(v.ul), portable) +
         bdtBase::Length(v.f, portable) + bdtBase::Length(v.d, portable);
}

AllNumbers const sample{'A', 0xFE, -2, 65534, 1, 0xDEADBEEFu, -3L, 0xFFFFFFFFul, 1.0f, -2.0};

TEST(BdtNumbers, PortableFormIsBigEndianWithWideShorts) {
  std::stringbuf buf;
  bdtOStream out(&buf, 1);
  WriteAll(out, sample);
  EXPECT_EQ(out.rdstate(), 0);
  EXPECT_EQ(Hex(buf.str()),
            "41 FE FF FF FF FE 00 00 FF FE 00 00 00 01 DE AD BE EF FF FF FF FD FF FF FF FF "
            "3F 80 00 00 C0 00 00 00 00 00 00 00");
  EXPECT_EQ(LengthOfAll(sample, 1), buf.str().size());
}

TEST(BdtNumbers, NativeFormIsTheHostImageWithFourByteLongs) {
  std::stringbuf buf;
  bdtOStream out(&buf, 0);
  WriteAll(out, sample);
  EXPECT_EQ(out.rdstate(), 0);
  std::string const expected = Image(sample.c) + Image(sample.uc) + Image(sample.s) +
                               Image(sample.us) + Image(sample.i) + Image(sample.ui) +
                               Image(static_cast<std::int32_t>(sample.l)) +
                               Image(static_cast<std::uint32_t>(sample.ul)) + Image(sample.f) +
                               Image(sample.d);
  EXPECT_EQ(Hex(buf.str()), Hex(expected));
  EXPECT_EQ(LengthOfAll(sample, 0), buf.str().size());
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
  for (int portable : {0, 1}) {
    std::stringbuf buf;
    bdtIOStream io(&buf, portable != 0);
    io << static_cast<long>(0x100000005LL) << static_cast<unsigned long>(0x1FFFFFFFEULL) << -7L;
    EXPECT_EQ(buf.str().size(), 12u);
    long l = 0, negative = 0;
    unsigned long ul = 0;
    io >> l >> ul >> negative;
    EXPECT_EQ(l, 5);
    EXPECT_EQ(ul, 0xFFFFFFFEul);  // zero-extended
    EXPECT_EQ(negative, -7);      // sign-extended
  }
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

TEST(BdtState, ShortWriteOnAFullBufferBreaksTheStream) {
  SmallBuf buf(6);
  bdtOStream out(&buf, 1);
  out << 0x01020304;
  EXPECT_EQ(out.rdstate(), 0);
  out << static_cast<short>(5);  // needs 4 bytes, 2 are left
  EXPECT_EQ(out.rdstate(), 4);
  EXPECT_EQ(Hex(buf.Written()), "01 02 03 04 00 00");

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

TEST(BdtState, FlushReturnsTheStreamAndDoesNotSynchronise) {
  SmallBuf buf(16);
  bdtOStream out(&buf, 1);
  bdtOStream& same = out << 1 << flush << 2;
  EXPECT_EQ(&same, &out);
  EXPECT_EQ(buf.syncs, 0);
  EXPECT_EQ(buf.Written().size(), 8u);
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
  EXPECT_LE(largestArray, 64u * 1024u);

  // A payload cut short: the prefix is kept, the array is gone.
  std::stringbuf shortPayload(std::string("\x00\x00\x00\x0A" "abc", 7));
  bdtIStream shortIn(&shortPayload, 1);
  shortIn.Read(block, count);
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(count, 10);
  EXPECT_EQ(shortIn.rdstate(), 3);
}

TEST(BdtBase, ByteOrderAndSwaps) {
  bdtIOStream latch;  // the first construction has set the latch, if nothing did before
  EXPECT_EQ(bdtBase::IsByteOrderOK(), BigEndianHost() ? 1 : 0);
  char four[] = "abcd";
  char eight[] = "abcdefgh";
  bdtBase::Swap4(four);
  bdtBase::Swap8(eight);
  EXPECT_STREQ(four, BigEndianHost() ? "abcd" : "dcba");
  EXPECT_STREQ(eight, BigEndianHost() ? "abcdefgh" : "hgfedcba");
  EXPECT_EQ(bdtBase::Length(static_cast<short>(1), 1), 4u);
  EXPECT_EQ(bdtBase::Length(static_cast<unsigned short>(1), 0), 2u);
}

}  // namespace

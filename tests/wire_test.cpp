// The wire format across hosts: one file holds every portable value of the
// binary streams in both forms, a bit set's packed and text forms, a run of
// framed messages and neutral paths. Each build writes its own image and must
// match the golden copy (tests/data/wire.bin, copied beside the program)
// byte for byte, then reads the golden copy back value by value. So a file
// written on Linux reads the same on Windows and back.
//
// After a deliberate change of the format, the golden copy is written anew by
//   wire_test --helper write_wire tests/data/wire.bin
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "quillon.h"
#include "testsupport.h"

namespace {

// Text beyond ASCII, one character of each UTF-8 length: ü (2), 日 (3),
// U+1F600 (4, a surrogate pair where wchar_t has 16 bits).
char const kText[] = "Gr\xC3\xBC\xC3\x9F" "e \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80";
wchar_t const kWideText[] = L"Gr\u00FC\u00DFe \u65E5\u672C \U0001F600";

template <class T, class Bits>
T FromBits(Bits bits) {
  static_assert(sizeof(T) == sizeof(Bits), "a bit pattern of the value's size");
  T value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

template <class T>
std::string BitsOf(T value) {
  return std::string(reinterpret_cast<char const*>(&value), sizeof value);
}

// Floating values at their limits and the specials, NaNs with a payload of
// their own, so that the bits travel and not just the kind of value.
std::vector<float> const kFloats{FLT_MAX, -FLT_MIN, FLT_TRUE_MIN, -0.0f, INFINITY, FromBits<float>(0x7FC00001u)};
std::vector<double> const kDoubles{DBL_MAX,   -DBL_MIN,  DBL_TRUE_MIN,
                                   -0.0,      -INFINITY, FromBits<double>(0x7FF8000000000001ull),
                                   1.0 / 3.0};

// The bit set: a size of whole bytes, which its storage passes by one byte.
unsigned long const kBitCount = 2200;
std::vector<unsigned long> const kBits{0, 9, 10, 700, 2199};
char const kBitText[] = "[0, 9, 10, 700, 2199]";

std::vector<std::string> Messages() {
  std::string large(5000, '\0');  // more than one receive of the framed read
  for (std::size_t i = 0; i < large.size(); ++i) large[i] = static_cast<char>(i * 7);
  return {"", "x", large, kText};
}

// Neutral paths as the path operations give them (paths_test.cpp): roots,
// heads, tails and text beyond ASCII.
std::vector<std::string> Paths() {
  std::string const text = kText;
  return {"C:|a", "top|" + text, "C:|", "a|b", "C:|a", "b", "dir|sub|x|" + text};
}

// A connection held in memory: the framed transfers write to `sent` and
// read from `incoming`, which then ends as a closed peer does.
class MemoryStream : public psockStream {
 public:
  explicit MemoryStream(std::string incoming = "") : incoming(std::move(incoming)) {}
  int Read(void* p, int n, bool) override {
    if (taken == incoming.size()) {
      err = errSysPeerClosed;
      return -1;
    }
    std::size_t const count = std::min(incoming.size() - taken, static_cast<std::size_t>(n));
    std::memcpy(p, incoming.data() + taken, count);
    taken += count;
    return static_cast<int>(count);
  }
  int Write(void const* p, int n, bool) override {
    sent.append(static_cast<char const*>(p), static_cast<std::size_t>(n));
    return n;
  }
  bool Exception() override { return false; }
  int Select(fd_set*, fd_set*, fd_set*, timeval*) override { return 1; }
  int SelectWait(fd_set*, fd_set*, fd_set*, timeval*) override { return 1; }
  errstatus getErr() override { return err; }
  unsigned long long getSock() override { return vekInvalidSocket; }
  void CloseSocket() override {}

  std::string sent;
  std::string incoming;
  std::size_t taken = 0;
  errstatus err = errOK;
};

// Calls f on every number of the image, in its order.
template <class F>
void EachNumber(F const& f) {
  for (char value : {'A', '\0', static_cast<char>(0x80)}) f(value);
  for (unsigned char value : {0, 255}) f(value);
  for (short value : {SHRT_MIN, -1, SHRT_MAX}) f(value);
  for (unsigned short value : {0, USHRT_MAX}) f(value);
  for (int value : {INT_MIN, -1, 0, INT_MAX}) f(value);
  for (unsigned value : {0u, UINT_MAX}) f(value);
  // long and unsigned long are 32-bit values on the wire on every host.
  for (long value : {static_cast<long>(INT32_MIN), static_cast<long>(INT32_MAX)}) f(value);
  f(static_cast<unsigned long>(UINT32_MAX));
  for (float value : kFloats) f(value);
  for (double value : kDoubles) f(value);
}

void WriteTexts(bdtOStream& out) {
  out << "" << "plain" << kText << static_cast<char const*>(nullptr);
  out << L"" << kWideText << static_cast<wchar_t const*>(nullptr);
  std::string block;
  for (int i = 0; i < 256; ++i) block += static_cast<char>(i);
  out.Write(&block[0], static_cast<int>(block.size()));
  out.Write(&block[0], 0);
}

std::string Framed() {
  MemoryStream stream;
  for (std::string const& message : Messages()) {
    dsXArray<char> payload;
    payload.Append(static_cast<unsigned int>(message.size()), message.data());
    EXPECT_EQ(Write(stream, payload), errOK);
  }
  return stream.sent;
}

// The whole image, in the order the reader below takes it back.
std::string WireImage() {
  qtest::Locale locale("C");  // native text is UTF-8 in the C locale on every host
  std::stringbuf buffer;
  bdtOStream portable(&buffer, 1), native(&buffer, 0);
  EachNumber([&](auto value) { portable << value; });
  WriteTexts(portable);
  portable.setMultibyte(1);
  portable << static_cast<unsigned short>(0xFC) << static_cast<unsigned short>(0x65E5);
  EachNumber([&](auto value) { native << value; });
  WriteTexts(native);

  dsBitSet set(kBitCount);
  for (unsigned long bit : kBits) set.SetOn(bit);
  std::ostringstream packed(std::ios::binary), text;
  EXPECT_EQ(set.Save(packed), 1);
  text << set;
  std::string const packedForm = packed.str(), textForm = text.str();
  portable.Write(const_cast<char*>(packedForm.data()), static_cast<int>(packedForm.size()));
  portable.Write(const_cast<char*>(textForm.data()), static_cast<int>(textForm.size()));

  std::string const frames = Framed();
  portable.Write(const_cast<char*>(frames.data()), static_cast<int>(frames.size()));

  std::vector<std::string> const paths = Paths();
  portable << static_cast<int>(paths.size());
  for (std::string const& path : paths) portable << path.c_str();
  EXPECT_EQ(portable.rdstate() | native.rdstate(), 0);
  return buffer.str();
}

// Reads one value of type T and compares its bits with what was written.
template <class T>
void ExpectValue(bdtIStream& in, T expected) {
  T value{};
  in >> value;
  EXPECT_EQ(BitsOf(value), BitsOf(expected)) << "a value of " << sizeof(T) << " bytes, state " << in.rdstate();
}

std::string ReadString(bdtIStream& in) {
  dsString value("(untouched)");
  in >> value;
  return std::string(value);
}

std::string ReadBlock(bdtIStream& in) {
  char* block = nullptr;
  int count = -1;
  in.Read(block, count);
  std::string bytes = block == nullptr ? "(none)" : std::string(block, static_cast<std::size_t>(count));
  delete[] block;
  return bytes;
}

void ReadTexts(bdtIStream& in) {
  // A null string reads back as an empty one; the wide strings as the same
  // text as the narrow ones.
  std::vector<std::string> texts;
  for (int i = 0; i < 7; ++i) texts.push_back(ReadString(in));
  EXPECT_EQ(texts, (std::vector<std::string>{"", "plain", kText, "", "", kText, ""}));
  std::string block = ReadBlock(in);
  ASSERT_EQ(block.size(), 256u);
  for (int i = 0; i < 256; ++i) ASSERT_EQ(static_cast<unsigned char>(block[static_cast<std::size_t>(i)]), i);
  EXPECT_EQ(ReadBlock(in), "");
}

void ReadBitSet(bdtIStream& in) {
  std::istringstream packed(ReadBlock(in), std::ios::binary);
  dsBitSet set(kBitCount);
  ASSERT_EQ(set.Restore(packed), 1);
  std::vector<unsigned long> bits;
  for (unsigned long bit = set.First(); bit != 0xFFFFFFFFul; bit = set.Next(bit)) bits.push_back(bit);
  EXPECT_EQ(bits, kBits);
  EXPECT_EQ(ReadBlock(in), kBitText);
}

void ReadFrames(bdtIStream& in) {
  MemoryStream stream(ReadBlock(in));
  for (std::string const& message : Messages()) {
    dsXArray<char> payload;
    ASSERT_EQ(Read(stream, payload), errOK);
    EXPECT_EQ(std::string(payload.GetDataPtr(), payload.GetSize()), message);
  }
  EXPECT_EQ(stream.taken, stream.incoming.size());  // every frame ends where the next begins
}

void ReadPaths(bdtIStream& in) {
  int count = 0;
  in >> count;
  std::vector<std::string> const paths = Paths();
  ASSERT_EQ(count, static_cast<int>(paths.size()));
  for (std::string const& path : paths) EXPECT_EQ(ReadString(in), path);
}

std::string GoldenPath() {
  std::string self = qtest::SelfPath();
  return self.substr(0, self.find_last_of("/\\") + 1) + "wire.bin";
}

QTEST_HELPER(write_wire) {
  std::ofstream out(args.at(0), std::ios::binary);
  out << WireImage();
  return out.good() ? 0 : 1;
}

TEST(WireFormat, ThisHostWritesTheGoldenImage) {
  std::string const golden = qtest::ReadFile(GoldenPath());
  ASSERT_FALSE(golden.empty()) << "no golden image at " << GoldenPath();
  std::string const image = WireImage();
  ASSERT_EQ(image.size(), golden.size());
  auto const first = std::mismatch(image.begin(), image.end(), golden.begin());
  EXPECT_TRUE(first.first == image.end()) << "the images differ from byte " << (first.first - image.begin());
}

TEST(WireFormat, TheGoldenImageReadsBackValueByValue) {
  qtest::Locale locale("C");
  std::stringbuf buffer(qtest::ReadFile(GoldenPath()));
  bdtIStream portable(&buffer, 1), native(&buffer, 0);
  EachNumber([&](auto value) { ExpectValue(portable, value); });
  ReadTexts(portable);
  portable.setMultibyte(1);
  ExpectValue(portable, static_cast<unsigned short>(0xFC));
  ExpectValue(portable, static_cast<unsigned short>(0x65E5));
  EachNumber([&](auto value) { ExpectValue(native, value); });
  ReadTexts(native);
  ReadBitSet(portable);
  ReadFrames(portable);
  ReadPaths(portable);
  EXPECT_EQ(portable.rdstate() | native.rdstate(), 0);
  EXPECT_EQ(buffer.in_avail(), 0);  // nothing left over
}

}  // namespace

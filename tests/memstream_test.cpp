// The stream in memory: block rules, running out of memory, positions, lines.
#include <gtest/gtest.h>

#include <climits>
#include <new>
#include <string>

#include "quillon.h"
#include "testsupport.h"

// The library asks for blocks with the non-throwing form, which a test can
// make fail; otherwise the ordinary allocation, so that release meets its kind.
static bool refuseMemory = false;
#if QTEST_ALLOCATOR_REPLACEABLE
QTEST_REPLACES void* operator new[](std::size_t bytes, std::nothrow_t const&) noexcept {
  try {
    return refuseMemory ? nullptr : ::operator new[](bytes);
  } catch (std::bad_alloc const&) {
    return nullptr;
  }
}
#endif

namespace {

// A memStream whose block table and marks a test can see.
class Probe : public memStream {
 public:
  unsigned int Blocks() const { return blocks.GetSize(); }
  std::uint32_t Pos() const { return pos; }
  std::uint32_t Limit() const { return limit; }
  std::string Fill(std::string bytes) {
    EXPECT_EQ(Write(&bytes[0], static_cast<int>(bytes.size())), errOK);
    return bytes;
  }
  std::string ReadAll(int n) {
    std::string out(static_cast<std::size_t>(n), '\0');
    int got = -1;
    EXPECT_EQ(Read(&out[0], n, got), errOK);
    out.resize(static_cast<std::size_t>(got));
    return out;
  }
};

std::string Line(dsXArray<char> const& a) { return std::string(a.GetDataPtr(), a.GetSize()); }

// N bytes written read back as N + 1, the last one a filler, in
// (N + 1) / 4096 + 1 blocks.
TEST(MemStream, BlockRulesAroundTheBlockSizeAndNoMemoryForABlock) {
  for (auto [bytes, blocks] : {std::pair<std::size_t, unsigned>{4095, 1}, {4096, 2}, {4097, 2}, {8192, 3}}) {
    Probe s;
    std::string const data = s.Fill(qtest::TextPattern(bytes));
    EXPECT_EQ(s.Blocks(), blocks) << bytes;
    EXPECT_EQ(s.Limit(), bytes + 1);
    ASSERT_EQ(s.Seek(0, 0), errOK);
    EXPECT_EQ(s.ReadAll(static_cast<int>(bytes) + 10), data + " ") << bytes;
    EXPECT_EQ(s.ReadAll(10), "") << "at the end a read delivers nothing and still succeeds";
  }

  QTEST_NEEDS_REPLACED_ALLOCATOR();
  // The write fills its block, then cannot make the next one: what was
  // stored stays, and the position stays where the failed move began.
  Probe s;
  std::string const data = s.Fill(qtest::TextPattern(4094));
  std::string more = "0123456789";
  refuseMemory = true;
  errstatus const cut = s.Write(&more[0], static_cast<int>(more.size()));
  refuseMemory = false;
  EXPECT_EQ(cut, errNoMemoryOrIO);
  EXPECT_EQ(s.Blocks(), 1u);
  EXPECT_EQ(s.Pos(), 4094u);
  EXPECT_EQ(s.Limit(), 4097u);
  ASSERT_EQ(s.Seek(0, 0), errOK);
  EXPECT_EQ(s.ReadAll(5000), data + "01");
}

TEST(MemStream, SeekOverwriteAndArrays) {
  Probe s;
  s.Fill("0123456789");
  EXPECT_EQ(s.Seek(3, 2), errOK);
  EXPECT_EQ(s.ReadAll(2), "78");
  EXPECT_EQ(s.Seek(-4, 1), errOK);
  std::streampos where;
  EXPECT_EQ(s.GetPos(where), errOK);
  EXPECT_EQ(where, std::streampos(5));
  for (auto [offset, whence] : {std::pair<long long, int>{-1, 2}, {11, 0}, {-1, 0}, {6, 1}, {-6, 1}, {LLONG_MIN, 1},
                                {LLONG_MAX, 1}, {LLONG_MIN, 2}, {LLONG_MAX, 2}}) {
    EXPECT_EQ(s.Seek(offset, whence), errOutOfRange) << offset << " from " << whence;
    EXPECT_EQ(s.Pos(), 5u);
  }
  EXPECT_EQ(s.Seek(123, 7), errOK);
  EXPECT_EQ(s.Pos(), 0u) << "an unknown origin rewinds";

  // Writing inside overwrites and keeps the end.
  ASSERT_EQ(s.Seek(2, 0), errOK);
  s.Fill("abc");
  EXPECT_EQ(s.Limit(), 11u);

  // From the middle, Read(dsXArray) fills the front of an array `limit` long.
  dsXArray<char> all;
  EXPECT_EQ(s.Read(all), errOK);
  ASSERT_EQ(all.GetSize(), 11u);
  EXPECT_EQ(std::string(all.GetDataPtr(), 6), "56789 ");
  EXPECT_EQ(s.Seek(0, 0), errOK);
  EXPECT_EQ(s.Read(all), errOK);
  EXPECT_EQ(Line(all), "01abc56789 ");
}

TEST(MemStream, ReadLnThroughTheCFunctions) {
  rwStream* s = nullptr;
  EXPECT_EQ(CreateStreamInMemory(&s), 0);
  ASSERT_NE(s, nullptr);
  char text[] = "ab\nc";
  EXPECT_EQ(s->Write(text, 4), errOK);
  ASSERT_EQ(s->Seek(0, 0), errOK);
  dsXArray<char> line;
  for (std::string const& want : {std::string("ab\0", 3), std::string("c \0", 3), std::string("\0", 1)}) {
    EXPECT_EQ(s->ReadLn(line, '\n'), errOK);
    EXPECT_EQ(Line(line), want) << "the filler byte ends the data, a zero each line";
  }
  EXPECT_EQ(DeleteStreamInMemory(s), 0);
  EXPECT_EQ(DeleteStreamInMemory(nullptr), 0);
}

}  // namespace

// Bit sets: storage and tail bits, navigation against a plain reference,
// segments, the set operators, and the packed form. Packing and restoring
// any bytes against a plain reading is fuzz/bitset_fuzz.cpp's; the packed
// and text forms of a set on the wire are wire_test.cpp's.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "quillon.h"
#include "testsupport.h"

// Array allocations that fail on request, so that the reaction of the set to
// a lack of memory can be seen. The replacements must be visible to the
// library, which calls them.
static bool failArrays = false;
#if QTEST_ALLOCATOR_REPLACEABLE
QTEST_REPLACES void* operator new[](std::size_t bytes) {
  if (!failArrays) {
    if (void* block = std::malloc(bytes != 0 ? bytes : 1)) return block;
  }
  throw std::bad_alloc();
}
QTEST_REPLACES void* operator new[](std::size_t bytes, std::nothrow_t const&) noexcept {
  return failArrays ? nullptr : std::malloc(bytes != 0 ? bytes : 1);
}
QTEST_REPLACES void operator delete[](void* block) noexcept { std::free(block); }
QTEST_REPLACES void operator delete[](void* block, std::size_t) noexcept { std::free(block); }
#endif

namespace {

constexpr std::uint32_t none = dsBitSet::none;

std::string Text(dsBitSet const& set) {
  std::ostringstream out;
  out << set;
  return out.str();
}

std::string Bytes(dsBitSet const& set) {
  return std::string(reinterpret_cast<char const*>(set.GetBytes()), (set.GetBitCount() >> 3) + 1);
}

dsBitSet Of(std::uint32_t size, std::vector<std::uint32_t> const& on) {
  dsBitSet set(size);
  for (std::uint32_t p : on) set.SetOn(p);
  return set;
}

int Restored(dsBitSet& set, std::string const& bytes) {
  std::istringstream in(bytes, std::ios::binary);
  return set.Restore(in);
}

// The positions of a set as the plain definition sees them: bits below the size.
std::vector<bool> Reference(dsBitSet const& set) {
  std::vector<bool> bits(set.GetBitCount());
  for (std::uint32_t i = 0; i < set.GetBitCount(); ++i) {
    bits[i] = (set.GetBytes()[i >> 3] & (0x80 >> (i & 7))) != 0;
  }
  return bits;
}

TEST(BitSetStorage, HighBitFirstAndGrowthPastTheEnd) {
  dsBitSet empty(0);
  EXPECT_TRUE(empty.First() == none && empty.Last() == none && !empty.IsOn(0));
  EXPECT_EQ(Text(empty), "[]");

  dsBitSet set = Of(20, {0, 9, 10});
  EXPECT_EQ(Bytes(set), std::string("\x80\x60\x00", 3));
  EXPECT_EQ(Text(set), "[0, 9, 10]");

  EXPECT_TRUE(set.SetOn(100));  // past the end: grows the set
  EXPECT_EQ(set.GetBitCount(), 101u);
  EXPECT_TRUE(set.SetOff(200));
  EXPECT_EQ(set.GetBitCount(), 201u);
  EXPECT_EQ(Text(set), "[0, 9, 10, 100]");
  EXPECT_FALSE(set.SetOn(none));
}

// Every navigation answer against the positions of any bytes, any tail, is
// fuzz/bitset_fuzz.cpp's; here the tail and the end of a set of 10.
TEST(BitSetStorage, TailBitsThroughReverseFillAndResize) {
  dsBitSet set = Of(10, {1});
  set.Reverse();
  EXPECT_EQ(Bytes(set), "\xBF\xFF");  // the tail is on, but not part of the set
  EXPECT_EQ(set.GetSize(), 9u);
  EXPECT_EQ(set.Last(), 9u);
  EXPECT_EQ(set.Next(9), none);
  EXPECT_EQ(set.ByIndex(9), none);
  EXPECT_EQ(set.Previous(10), none);
  EXPECT_EQ(set.GetIndex(10), none);

  // Fill(0, 0) clears the tail, to 0 means up to the end, to <= from is nothing.
  struct Filled { std::uint32_t size, from, to; std::string bytes; };
  for (Filled const& f : {Filled{10, 0, 0, "\xFF\xC0"}, Filled{10, 3, 0, "\x1F\xC0"}, Filled{10, 5, 5, std::string(2, '\0')},
                          Filled{10, 5, 3, std::string(2, '\0')}, Filled{40, 5, 35, std::string("\x07\xFF\xFF\xFF\xE0\x00", 6)}}) {
    dsBitSet filled(f.size);
    filled.Fill(f.from, f.to);
    EXPECT_EQ(Bytes(filled), f.bytes) << f.size << ": " << f.from << ".." << f.to;
  }

  // Resizes of a reversed set of 10 (tail on): growth inside the last byte
  // takes the tail in; after a shrink, growth past the capacity brings the old
  // last byte back whole, and growth within it clears the positions past the
  // old end.
  using Resizes = std::pair<std::vector<std::uint32_t>, unsigned int>;
  for (auto const& [sizes, on] : {Resizes{{12}, 12u}, Resizes{{4, 20}, 8u}, Resizes{{4, 10}, 4u}}) {
    dsBitSet resized(10);
    resized.Reverse();
    for (std::uint32_t n : sizes) ASSERT_TRUE(resized.Resize(n));
    EXPECT_EQ(resized.GetSize(), on) << sizes.back();
  }
}

TEST(BitSetOperators, ByteWiseWithSizeCheck) {
  dsBitSet a = Of(10, {1, 2}), b = Of(10, {2, 3});
  dsBitSet rev(a), diff(a), odd(a);
  EXPECT_EQ((rev %= b) + (diff -= b) + (odd ^= b), 3);
  EXPECT_EQ(Text(rev) + Text(diff) + Text(odd), "[3][1][1, 3]");

  dsBitSet self(10);  // a set with itself, its tail on too
  self.Reverse();
  EXPECT_EQ(self ^= self, 1);
  EXPECT_EQ(Bytes(self), std::string(2, '\0'));

  // Sets of other sizes are refused by every operator and left alone.
  dsBitSet eleven = Of(11, {0, 5}), left = Of(10, {4});
  EXPECT_EQ((left = eleven) + (left &= eleven) + (left |= eleven), 0);
  EXPECT_EQ((left ^= eleven) + (left -= eleven) + (left %= eleven), 0);
  EXPECT_EQ(Text(left), "[4]");
  EXPECT_EQ(left = a, 1);
  EXPECT_EQ(Text(left), "[1, 2]");
}

// Random sets against a plain vector; the count of ones must follow too.
TEST(BitSetSegments, InsertAndRemoveMoveTheBitsBehind) {
  std::mt19937 random(7);
  for (int round = 0; round < 200; ++round) {
    std::uint32_t size = 1 + random() % 300;
    dsBitSet s(size);
    for (std::uint32_t i = 0; i < size; ++i) {
      if (random() % 2) s.SetOn(i);
    }
    std::vector<bool> expected = Reference(s);
    std::uint32_t pos = random() % (size + 1), count = random() % 70;
    if (round % 2 == 0) {
      s.InsertSegment(pos, count);
      expected.insert(expected.begin() + pos, count, false);
    } else {  // a segment reaching past the end only shortens the set
      count = count % (size + 1);
      s.RemoveSegment(pos, count);
      expected.erase(expected.begin() + pos, expected.begin() + std::min<std::size_t>(pos + count, size));
      expected.resize(size - count);
    }
    ASSERT_EQ(Reference(s), expected) << "round " << round;
    ASSERT_EQ(s.GetSize(), static_cast<std::uint32_t>(std::count(expected.begin(), expected.end(), true)));
  }
}

TEST(BitSetIterator, WalksThePositionsThatAreOn) {
  dsBitSet set = Of(30, {4, 17, 29});
  std::unique_ptr<dsBaseIter<int>> it(set.GetIter());
  it->SetAtFirst();
  std::unique_ptr<dsBaseIter<int>> copy(it->Reproduce());  // walks on its own
  std::vector<int> seen;
  for (it->MoveToNext(); !it->Finished(); it->MoveToNext()) seen.push_back(it->Current());
  EXPECT_EQ(seen, (std::vector<int>{17, 29}));
  EXPECT_EQ(copy->Current(), 4);
}

TEST(BitSetPacked, RoundTripAndWhatIsRefused) {
  // Zero runs longer than 255 bytes on the way.
  dsBitSet set = Of(5000, {1, 2, 2500, 4999});
  std::ostringstream saved(std::ios::binary);
  ASSERT_EQ(set.Save(saved), 1);
  dsBitSet back = Of(5000, {7});
  EXPECT_EQ(back.GetSize(), 1u);
  ASSERT_EQ(Restored(back, saved.str()), 1);
  EXPECT_EQ(Text(back), Text(set));
  EXPECT_EQ(back.GetSize(), 4u);  // the count was taken again

  std::ostringstream nothing;  // no block, or an empty one, is refused
  EXPECT_EQ(Pack(nullptr, 4, nothing) + Pack("x", 0, nothing), 2);
  EXPECT_EQ(nothing.str(), "");

  // A run longer than the room left is refused before anything is written.
  std::string guarded(300, '\x09');
  std::istringstream longRun(std::string("2\x41\x00\xFF", 4));
  ASSERT_EQ(Unpack(longRun, &guarded[0], 2), 0u);
  ASSERT_EQ(guarded, "A" + std::string(299, '\x09')) << "a run was written past the limit";

  // Literals that decode to far more than the 2 bytes of the set;
  // AddressSanitizer sees any write past them.
  dsBitSet small(10);
  EXPECT_EQ(Restored(small, "2abcdefgh"), 0);
  EXPECT_EQ(Bytes(small), "ab");
}

TEST(BitSetMemory, FailedGrowthLeavesTheSetAsItWas) {
  QTEST_NEEDS_REPLACED_ALLOCATOR();
  dsBitSet set = Of(10, {3});
  failArrays = true;
  bool const grew = set.SetOn(5000) || set.SetOff(5000) || set.Resize(5000);
  failArrays = false;
  EXPECT_FALSE(grew);
  EXPECT_EQ(set.GetBitCount(), 10u);
  EXPECT_EQ(Text(set), "[3]");
  EXPECT_TRUE(set.SetOn(9));  // inside the storage: no allocation needed
}

}  // namespace

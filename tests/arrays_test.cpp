// The growing array and its iterator.
#include <gtest/gtest.h>

#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "quillon.h"

namespace {

std::string Text(dsXArray<char> const& array) {
  return std::string(array.GetDataPtr(), array.GetSize());
}

void AppendText(dsXArray<char>& array, std::string const& text) {
  array.Append(static_cast<unsigned int>(text.size()), text.data());
}

TEST(ArraysGrowth, EmptyArrayHoldsNoBlock) {
  long long before = vekLiveBlocks();
  dsXArray<char> array;
  EXPECT_EQ(array.GetSize(), 0u);
  EXPECT_TRUE(array.IsEmpty());
  EXPECT_EQ(array.GetDataPtr(), nullptr);
  array.Resize(0);
  array.Clear();
  EXPECT_EQ(array.GetDataPtr(), nullptr);
  EXPECT_EQ(vekLiveBlocks(), before);
}

TEST(ArraysGrowth, DefaultGrainIsTheElementsIn256Bytes) {
  dsXArray<char> bytes;
  for (int i = 0; i < 256; ++i) {
    bytes += 'x';
    EXPECT_EQ(bytes.GetCapacity(), 256u);
  }
  char* block = bytes.GetDataPtr();
  EXPECT_EQ(bytes.GetDataPtr(), block);
  bytes += 'y';
  EXPECT_EQ(bytes.GetCapacity(), 512u);
  EXPECT_EQ(bytes.GetSize(), 257u);

  dsXArray<char*> pointers;
  char* p = nullptr;
  pointers += p;
  EXPECT_EQ(pointers.GetCapacity(), 32u);
  struct Entry {
    void* value;
    char const* key;
  };
  dsXArray<Entry> entries;
  entries.Resize(17);
  EXPECT_EQ(entries.GetCapacity(), 32u);
  EXPECT_EQ(dsXArray<Entry>::DefaultGrain(), 16u);
}

TEST(ArraysGrowth, CapacityNeverFallsWithoutShrink) {
  dsXACtrl control(10, false);
  dsXArray<char> array(&control);
  array.Resize(25);
  EXPECT_EQ(array.GetCapacity(), 30u);
  array.Resize(5);
  EXPECT_EQ(array.GetCapacity(), 30u);
  array.Clear();
  EXPECT_EQ(array.GetCapacity(), 30u);
  EXPECT_EQ(array.GetSize(), 0u);
}

TEST(ArraysGrowth, ShrinkingFollowsTheSizeInWholeGrains) {
  long long before = vekLiveBlocks();
  {
    dsXACtrl control(10, true);
    dsXArray<char> array(&control);
    array.Resize(25);
    EXPECT_EQ(array.GetCapacity(), 30u);
    array.Resize(5);
    EXPECT_EQ(array.GetCapacity(), 10u);
    array.Resize(10);
    EXPECT_EQ(array.GetCapacity(), 10u);
    array.Resize(0);
    EXPECT_EQ(array.GetCapacity(), 0u);
    EXPECT_EQ(array.GetDataPtr(), nullptr);
    EXPECT_EQ(vekLiveBlocks(), before);
    // The next growth allocates afresh.
    AppendText(array, "abc");
    EXPECT_EQ(Text(array), "abc");
    EXPECT_EQ(array.GetCapacity(), 10u);
  }
  EXPECT_EQ(vekLiveBlocks(), before);
}

TEST(ArraysGrowth, ZeroGrainTakesTheDefaultAndKeepsShrink) {
  dsXACtrl control(0, true);
  dsXArray<char> array(&control);
  EXPECT_TRUE(array.GetControl().shrink);
  EXPECT_EQ(array.GetControl().grain, 256u);
}

TEST(ArraysEditing, InsertAtFrontMiddleAndEnd) {
  dsXArray<char> array;
  AppendText(array, "cd");
  array.Insert(0, 2, "ab");
  array.Insert(array.GetSize(), 2, "gh");
  array.Insert(4, 2, "ef");
  EXPECT_EQ(Text(array), "abcdefgh");
  array.Insert(3, 0, "zzz");
  EXPECT_EQ(Text(array), "abcdefgh");
  array.Insert(1, 'X');
  EXPECT_EQ(Text(array), "aXbcdefgh");
}

TEST(ArraysEditing, RemoveAtHandsBackTheElementsInOrder) {
  dsXArray<char> array;
  AppendText(array, "abcdefgh");
  char removed[4] = {};
  array.RemoveAt(2, 3, removed);
  EXPECT_EQ(std::string(removed, 3), "cde");
  EXPECT_EQ(Text(array), "abfgh");
  array.RemoveAt(0, 1, nullptr);
  EXPECT_EQ(Text(array), "bfgh");
  array.RemoveAt(3, 1, nullptr);
  EXPECT_EQ(Text(array), "bfg");
  EXPECT_TRUE(array.Contains(2));
  EXPECT_FALSE(array.Contains(3));
}

TEST(ArraysEditing, LargeShiftsKeepEveryElement) {
  dsXArray<char const*> array;
  std::vector<std::string> words;
  for (int i = 0; i < 1000; ++i) words.push_back("w" + std::to_string(i));
  for (int i = 999; i >= 0; --i) {
    char const* word = words[static_cast<std::size_t>(i)].c_str();
    array.Insert(0, 1, &word);
  }
  ASSERT_EQ(array.GetSize(), 1000u);
  EXPECT_EQ(array.GetCapacity(), 1024u);
  for (unsigned int i = 0; i < 1000; ++i) EXPECT_EQ(array[i], words[i].c_str());
}

TEST(ArraysIteration, IteratorAsksTheArrayAfresh) {
  dsXArray<char> array;
  {
    std::unique_ptr<dsBaseIter<char>> empty(array.GetIter());
    ASSERT_NE(empty, nullptr);
    EXPECT_TRUE(empty->Finished());
  }
  AppendText(array, "0123");
  std::unique_ptr<dsBaseIter<char>> it(array.GetIter());
  for (int i = 0; i < 3; ++i) it->MoveToNext();
  EXPECT_EQ(it->Current(), '3');
  char* oldBlock = array.GetDataPtr();
  AppendText(array, std::string(1000, '.'));
  EXPECT_NE(array.GetDataPtr(), oldBlock);
  EXPECT_EQ(it->Current(), '3');

  std::unique_ptr<dsBaseIter<char>> copy(it->Reproduce());
  std::string rest;
  for (; !copy->Finished(); copy->MoveToNext()) rest += copy->Current();
  EXPECT_EQ(rest, "3" + std::string(1000, '.'));
  EXPECT_EQ(it->Current(), '3');
  it->SetAtFirst();
  EXPECT_EQ(it->Current(), '0');
}

TEST(ArraysIteration, WalkThroughTheCollectionInterface) {
  dsXArray<char> array;
  AppendText(array, "walk");
  dsDataCollection<char> const& collection = array;
  std::unique_ptr<dsBaseIter<char>> it(collection.GetIter());
  std::string seen;
  for (it->SetAtFirst(); !it->Finished(); it->MoveToNext()) seen += it->Current();
  EXPECT_EQ(seen, "walk");
  EXPECT_EQ(collection.GetSize(), 4u);
}

TEST(ArraysStopDeathTest, OptionalMapOperationsStop) {
  dsXArray<char> array;
  dsDataMap<char, unsigned int>& map = array;
  char element = 0;
  EXPECT_DEATH(map.Add(0, 'a'), "dsDataMap::Add \\(\\).*inc/dsdatcol");
  EXPECT_DEATH(map.Remove(0), "dsDataMap::Remove \\(\\).*inc/dsdatcol");
  EXPECT_DEATH(map.Find(0, element), "dsDataMap::Find \\(\\).*inc/dsdatcol");
}

}  // namespace

// The growing array and its iterator.
#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <memory>
#include <string>

#include "quillon.h"

namespace {

std::string Text(dsXArray<char> const& array) {
  return std::string(array.GetDataPtr(), array.GetSize());
}

void AppendText(dsXArray<char>& array, std::string const& text) {
  array.Append(static_cast<unsigned int>(text.size()), text.data());
}

TEST(ArraysGrowth, WholeGrainsAndShrinkToNoBlock) {
  dsXArray<char> bytes;
  bytes.Resize(0);
  EXPECT_EQ(bytes.GetDataPtr(), nullptr);  // an empty array holds no block
  for (int i = 0; i < 256; ++i) bytes += 'x';
  EXPECT_EQ(bytes.GetCapacity(), 256u);  // the default grain: the elements in 256 bytes
  bytes += 'y';
  EXPECT_EQ(bytes.GetCapacity(), 512u);
  dsXACtrl zero(0, true);  // a zero grain takes the default and keeps shrink
  dsXArray<char> defaulted(&zero);
  EXPECT_TRUE(defaulted.GetControl().shrink);
  EXPECT_EQ(defaulted.GetControl().grain, 256u);

  dsXArray<char*> pointers;
  for (int i = 0; i < 64; ++i) pointers += nullptr;
  EXPECT_EQ(pointers.GetCapacity(), 64u);

  // Growth to an exact number of grains takes that many and no more.
  for (unsigned int grain : {1u, 3u, 10u}) {
    for (bool shrink : {false, true}) {
      dsXACtrl control(grain, shrink);
      dsXArray<char> array(&control);
      for (unsigned int k = 1; k <= 3; ++k) {
        AppendText(array, std::string(grain, 'a'));
        EXPECT_EQ(array.GetCapacity(), k * grain) << "grain " << grain << ", " << k << " grains, shrink " << shrink;
      }
    }
  }

  for (bool shrink : {false, true}) {
    dsXACtrl control(10, shrink);
    dsXArray<char> array(&control);
    array.Resize(25);
    EXPECT_EQ(array.GetCapacity(), 30u);
    array.Resize(5);
    EXPECT_EQ(array.GetCapacity(), shrink ? 10u : 30u);
    array.Clear();
    EXPECT_EQ(array.GetDataPtr() == nullptr, shrink);
    AppendText(array, "abc");  // after a shrink to nothing, growth allocates afresh
    EXPECT_EQ(Text(array), "abc");
  }
}

// Replaces CopyElems: whatever it moves arrives in upper case, so any move
// that went around it would show.
class ShoutingArray : public dsXArray<char> {
 public:
  void CopyElems(char const* source, char* destination, unsigned int count) const override {
    std::memmove(destination, source, count);
    for (unsigned int i = 0; i < count; ++i) destination[i] = static_cast<char>(std::toupper(destination[i]));
  }
};

TEST(ArraysEditing, ASubclassThatReplacesCopyElemsSeesEveryMove) {
  ShoutingArray shouting;
  for (int i = 0; i < 1000; ++i) shouting += 'a';  // across several grains
  EXPECT_EQ(Text(shouting), std::string(1000, 'A'));
}

TEST(ArraysEditing, InsertAndRemoveAtEveryPlace) {
  dsXArray<char> array;
  AppendText(array, "cd");
  array.Insert(0, 2, "ab");
  array.Insert(array.GetSize(), 2, "gh");
  array.Insert(4, 2, "ef");
  array.Insert(3, 0, "zzz");
  array.Insert(1, 'X');
  EXPECT_EQ(Text(array), "aXbcdefgh");
  char removed[4] = {};
  array.RemoveAt(3, 3, removed);  // hands back the elements in order
  EXPECT_EQ(std::string(removed, 3), "cde");
  array.RemoveAt(0, 1, nullptr);
  array.RemoveAt(4, 1, nullptr);
  EXPECT_EQ(Text(array), "Xbfg");
  EXPECT_TRUE(array.Contains(3) && !array.Contains(4));

  dsXArray<unsigned int> numbers;  // many shifts across grains lose no element
  for (unsigned int i = 1000; i-- > 0;) numbers.Insert(0, 1, &i);
  ASSERT_EQ(numbers.GetSize(), 1000u);
  for (unsigned int i = 0; i < 1000; ++i) ASSERT_EQ(numbers[i], i);
}

TEST(ArraysIteration, IteratorAsksTheArrayAfresh) {
  dsXArray<char> array;
  dsDataCollection<char> const& collection = array;
  EXPECT_TRUE(std::unique_ptr<dsBaseIter<char>>(collection.GetIter())->Finished());
  AppendText(array, "0123");
  std::unique_ptr<dsBaseIter<char>> it(collection.GetIter());
  for (int i = 0; i < 3; ++i) it->MoveToNext();
  AppendText(array, std::string(1000, '.'));  // moves the block
  EXPECT_EQ(it->Current(), '3');

  std::unique_ptr<dsBaseIter<char>> copy(it->Reproduce());
  std::string rest;
  for (; !copy->Finished(); copy->MoveToNext()) rest += copy->Current();
  EXPECT_EQ(rest, "3" + std::string(1000, '.'));
  EXPECT_EQ(it->Current(), '3');
  it->SetAtFirst();
  EXPECT_EQ(it->Current(), '0');
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

// Sorted maps: order, lookups, insertion and removal, iteration, key hooks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include "quillon.h"

namespace {

template <class V>
std::vector<V> Values(dsDataCollection<V> const& map) {
  std::vector<V> values;
  std::unique_ptr<dsBaseIter<V>> iter(map.GetIter());
  for (iter->SetAtFirst(); !iter->Finished(); iter->MoveToNext()) values.push_back(iter->Current());
  return values;
}

// Lets a test see the entries array of a map.
template <class Map>
class Inspected : public Map {
 public:
  unsigned int Capacity() const { return this->entries.GetCapacity(); }
};

TEST(MapsScalar, UnsignedKeyOrderLookupsAndIterators) {
  dsScalarMap<int, int> map;
  for (int key : {5, -1, 1, 3}) EXPECT_TRUE(map.Add(key, key * 10));
  EXPECT_EQ(Values(map), (std::vector<int>{10, 30, 50, -10}));  // -1 is the largest
  int value = -7;
  EXPECT_FALSE(map.Find(4, value));
  EXPECT_EQ(value, -7);
  map[5] += 4;  // a writable reference into the entry
  EXPECT_TRUE(map.Find(5, value));
  EXPECT_EQ(value, 54);

  // A reproduced iterator walks on its own, over values given by reference.
  std::unique_ptr<dsBaseIter<int>> first(map.GetIter());
  first->SetAtFirst();
  first->MoveToNext();
  std::unique_ptr<dsBaseIter<int>> second(first->Reproduce());
  ASSERT_NE(second, nullptr);
  second->MoveToNext();
  second->Current() = 33;
  EXPECT_EQ(map[5], 33);
  EXPECT_EQ(first->Current(), 30);

  // The task registry's own instance orders pointers by address.
  dsScalarMap<pmManageTask*, void*> registry;
  auto task = [](void* key) { return static_cast<pmManageTask*>(key); };
  void* const high = reinterpret_cast<void*>(~std::uintptr_t{0} - 15);
  for (void* key : {high, static_cast<void*>(&value), static_cast<void*>(nullptr)}) registry.Add(key, task(key));
  EXPECT_EQ(Values(registry), (std::vector<pmManageTask*>{nullptr, task(&value), task(high)}));
}

TEST(MapsStorage, GrowsBySixteenEntriesAndKeepsItsBlockUntilDestroyed) {
  long long const before = vekLiveBlocks();
  {
    Inspected<dsScalarMap<int, int>> map;
    EXPECT_EQ(vekLiveBlocks(), before);  // an empty map holds no block
    for (int key = 0; key < 16; ++key) map.Add(key, key);
    EXPECT_EQ(map.Capacity(), 16u);
    map.Add(16, 16);
    EXPECT_EQ(map.Capacity(), 32u);
    map.Clear();
    map.Add(1, 1);
    EXPECT_TRUE(map.Remove(1));
    EXPECT_EQ(map.Capacity(), 32u);  // neither Clear nor Remove shrinks
    EXPECT_EQ(vekLiveBlocks(), before + 1);
  }
  EXPECT_EQ(vekLiveBlocks(), before);
}

TEST(MapsStrings, ByteOrderWithNullFirstAndEqualTextsAsOneKey) {
  dsNonOwnerStringMap<int> map;
  char const high[] = {'\xe9', 0};  // above 127: sorts after every ASCII letter
  char copyOfAb[] = "ab";
  int value = 0;
  for (char const* key : {"b", high, "ab", "", "z", static_cast<char const*>(nullptr), "a", "B"}) {
    EXPECT_TRUE(map.Add(key, ++value));
  }
  EXPECT_EQ(Values(map), (std::vector<int>{6, 4, 8, 7, 3, 1, 5, 2}));
  EXPECT_FALSE(map.Add(copyOfAb, 9));
  EXPECT_EQ(map[copyOfAb], 3);
  EXPECT_TRUE(map.Remove(nullptr) && !map.Contains(nullptr) && map.Contains(""));
}

// Counts the key hooks; orders keys as the scalar map does.
class CountingMap : public dsSortedMap<int, int> {
 public:
  mutable std::vector<int> copied, freed;

 protected:
  int Compare(int first, int second) const override { return first - second; }
  int CopyKey(int key) const override {
    copied.push_back(key);
    return key;
  }
  void FreeKey(int key) const override { freed.push_back(key); }
};

TEST(MapsKeys, CopiedOncePerEntryAndFreedOnlyOnRemoval) {
  CountingMap map;
  for (int key : {1, 2, 3, 4, 2}) map.Add(key, key);
  EXPECT_EQ(map.copied, (std::vector<int>{1, 2, 3, 4}));
  map.Remove(3);
  map.Remove(9);
  unsigned int index = 0;
  ASSERT_TRUE(map.FindIndex(1, index));
  map.RemoveByIndex(index);
  map.Clear();
  EXPECT_EQ(map.freed, (std::vector<int>{3, 1}));
}

// Add never overwrites; FindIndex gives the place where an absent key belongs.
TEST(MapsRandom, AgreesWithAStandardMapUnderMixedChanges) {
  dsScalarMap<unsigned int, unsigned int> map;
  std::map<unsigned int, unsigned int> model;
  std::mt19937 random(12345);
  for (int step = 0; step < 4000; ++step) {
    unsigned int const key = random() % 500;
    if (random() % 3 == 0) {
      EXPECT_EQ(map.Remove(key), model.erase(key) == 1) << key;
    } else {
      EXPECT_EQ(map.Add(key, key * 3), model.emplace(key, key * 3).second) << key;
    }
    unsigned int const probe = random() % 520;
    unsigned int index = 0;
    auto const place = model.lower_bound(probe);
    EXPECT_EQ(map.FindIndex(probe, index), place != model.end() && place->first == probe);
    EXPECT_EQ(index, static_cast<unsigned int>(std::distance(model.begin(), place)));
  }
  std::vector<unsigned int> expected;
  for (auto const& entry : model) expected.push_back(entry.second);
  EXPECT_EQ(Values(map), expected);
}

TEST(MapsStopDeathTest, IndexingAnAbsentKeyStops) {
  dsNonOwnerStringMap<int> map;
  map.Add("present", 1);
  EXPECT_DEATH(map["absent"], "dsSortedMap::operator \\[\\] failed.*inc/dsortmap:");
}

}  // namespace

// Sorted maps: order, lookups, insertion and removal, iteration, key hooks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <string>
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
class InspectedMap : public dsScalarMap<int, int> {
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

  // Pointer keys, such as the task registry's, and texts among them, are
  // ordered and found by address alone.
  char const texts[] = "b\0a";
  char const* const high = reinterpret_cast<char const*>(~std::uintptr_t{0} - 15);
  dsScalarMap<int, char const*> byAddress;
  for (char const* key : {high, texts + 2, texts, texts + 1, static_cast<char const*>(nullptr)})
    byAddress.Add(key, key == high ? 'h' : key == nullptr ? 'n' : key[0]);
  EXPECT_EQ(Values(byAddress), (std::vector<int>{'n', 'b', 0, 'a', 'h'}));
  EXPECT_FALSE(byAddress.Contains(std::string("a").c_str()));  // an equal text elsewhere
  EXPECT_TRUE(byAddress.Find(texts + 2, value) && value == 'a');
}

TEST(MapsStorage, GrowsBySixteenEntriesAndKeepsItsBlockUntilDestroyed) {
  long long const before = vekLiveBlocks();
  {
    InspectedMap map;
    EXPECT_EQ(vekLiveBlocks(), before);  // an empty map holds no block
    for (int key = 0; key < 16; ++key) map.Add(key, key);
    EXPECT_EQ(map.Capacity(), 16u);
    map.Add(16, 16);
    EXPECT_EQ(map.Capacity(), 32u);
    EXPECT_TRUE(map.Remove(16));
    EXPECT_EQ(map.Capacity(), 32u);  // a removal does not shrink
  }
  EXPECT_EQ(vekLiveBlocks(), before);
}

// Lets a test call the protected Compare.
class ComparingMap : public dsNonOwnerStringMap<int> {
 public:
  using dsNonOwnerStringMap<int>::Compare;
};

TEST(MapsStrings, ByteOrderWithNullFirstAndEqualTextsAsOneKey) {
  // Compare gives -1, 0 or 1, not a difference of bytes. The texts are made
  // at run time, so that no compiler answers for strcmp.
  ComparingMap compare;
  std::vector<std::string> const texts{"a", "c", "\xe9", "ab", "ab", "abc", ""};
  auto text = [&texts](int i) { return i < 0 ? nullptr : texts[static_cast<std::size_t>(i)].c_str(); };
  struct Case { int first, second, order; };
  for (Case c : std::vector<Case>{{0, 1, -1}, {1, 0, 1}, {2, 0, 1}, {0, 2, -1}, {3, 4, 0}, {3, 3, 0}, {5, 3, 1},
                                  {-1, 6, -1}, {6, -1, 1}, {-1, -1, 0}})
    EXPECT_EQ(compare.Compare(text(c.first), text(c.second)), c.order) << c.first << " " << c.second;
}

// A subclass's own Compare (here the reverse order) decides every lookup and
// insertion, its own CopyElems copies every value that Find gives, and its key
// hooks run once per added entry and once per removed one.
class HookedMap : public dsScalarMap<int, int> {
 public:
  mutable std::vector<int> copied, freed;
  mutable int valueCopies = 0;
  void CopyElems(int const* source, int* destination, unsigned int count) const override {
    ++valueCopies;
    dsScalarMap<int, int>::CopyElems(source, destination, count);
  }

 protected:
  int Compare(int first, int second) const override { return dsScalarMap<int, int>::Compare(second, first); }
  int CopyKey(int key) const override {
    copied.push_back(key);
    return key;
  }
  void FreeKey(int key) const override { freed.push_back(key); }
};

class CaselessMap : public dsNonOwnerStringMap<int> {
 protected:
  int Compare(char const* first, char const* second) const override {
    std::string a(first), b(second);
    for (std::string* text : {&a, &b})
      std::transform(text->begin(), text->end(), text->begin(), [](unsigned char c) { return std::tolower(c); });
    return a.compare(b);
  }
};

TEST(MapsKeys, ASubclassesCompareCopyElemsAndKeyHooksAreCalled) {
  HookedMap map;
  for (int key : {2, 9, 4, 7, 4}) map.Add(key, key * 10);
  EXPECT_EQ(map.copied, (std::vector<int>{2, 9, 4, 7}));
  EXPECT_EQ(Values(map), (std::vector<int>{90, 70, 40, 20}));
  unsigned int index = 0;
  EXPECT_TRUE(map.FindIndex(7, index) && index == 1);
  EXPECT_TRUE(!map.FindIndex(5, index) && index == 2);
  int value = 0;
  int const before = map.valueCopies;
  EXPECT_TRUE(map.Find(4, value) && value == 40 && map.valueCopies == before + 1);
  EXPECT_FALSE(map.Find(5, value));
  EXPECT_EQ(map.valueCopies, before + 1);
  map.Remove(4);
  map.Remove(5);
  ASSERT_TRUE(map.FindIndex(9, index));
  map.RemoveByIndex(index);
  map.Clear();
  EXPECT_EQ(map.freed, (std::vector<int>{4, 9}));

  CaselessMap caseless;
  for (char const* key : {"beta", "Alpha", "GAMMA"}) EXPECT_TRUE(caseless.Add(key, static_cast<int>(caseless.GetSize())));
  EXPECT_FALSE(caseless.Add("ALPHA", 9));
  EXPECT_EQ(Values(caseless), (std::vector<int>{1, 0, 2}));
  EXPECT_TRUE(caseless.Find("gamma", value) && value == 2);
  EXPECT_TRUE(caseless.Contains("Beta") && caseless["BETA"] == 0);
  EXPECT_TRUE(caseless.Remove("alpha") && caseless.GetSize() == 2);
}

// Mixed Adds and Removes on map and on a standard model of it; after each,
// FindIndex gives the place of a probe, which may keep a copy in its second argument.
template <class Map, class Model, class Key, class Probe>
void AgreeWithModel(Map& map, Model& model, std::vector<Key> const& keys, int steps, Probe probe) {
  std::mt19937 random(12345);
  for (int step = 0; step < steps; ++step) {
    Key const key = keys[random() % keys.size()];
    if (random() % 3 == 0) {
      ASSERT_EQ(map.Remove(key), model.erase(key) == 1) << "step " << step;
    } else {
      ASSERT_EQ(map.Add(key, step), model.emplace(key, step).second) << "step " << step;
    }
    std::string copy;
    Key const probed = probe(keys[random() % keys.size()], copy);
    unsigned int index = 0;
    auto const place = model.lower_bound(probed);
    ASSERT_EQ(map.FindIndex(probed, index), place != model.end() && !model.key_comp()(probed, place->first)) << "step " << step;
    ASSERT_EQ(index, static_cast<unsigned int>(std::distance(model.begin(), place))) << "step " << step;
  }
  std::vector<int> expected;
  for (auto const& entry : model) expected.push_back(entry.second);
  EXPECT_EQ(Values(map), expected);
}

TEST(MapsRandom, AgreesWithAStandardMapUnderMixedChanges) {
  std::vector<unsigned int> numbers(520);
  std::iota(numbers.begin(), numbers.end(), 0u);
  dsScalarMap<int, unsigned int> map;
  std::map<unsigned int, int> model;
  AgreeWithModel(map, model, numbers, 4000, [](unsigned int key, std::string&) { return key; });

  // Text keys, the null key and the empty text among them, in byte order;
  // each probe is an equal text at another address.
  std::vector<std::string> texts{""};
  for (int i = 0; i < 60; ++i) texts.push_back(std::string(1 + i % 3, static_cast<char>('a' + i % 20)) + (i % 2 != 0 ? "\xe9" : ""));
  std::vector<char const*> keys{nullptr};
  for (std::string const& text : texts) keys.push_back(text.c_str());
  auto below = [](char const* a, char const* b) { return a == nullptr ? b != nullptr : b != nullptr && std::strcmp(a, b) < 0; };
  std::map<char const*, int, decltype(below)> textModel(below);
  dsNonOwnerStringMap<int> textMap;
  AgreeWithModel(textMap, textModel, keys, 2000,
                 [](char const* key, std::string& copy) { return key != nullptr ? (copy = key).c_str() : nullptr; });
}

TEST(MapsStopDeathTest, IndexingAnAbsentKeyStops) {
  dsNonOwnerStringMap<int> map;
  map.Add("present", 1);
  EXPECT_DEATH(map["absent"], "dsSortedMap::operator \\[\\] failed.*inc/dsortmap:");
}

}  // namespace

/// \file
/// quillon collections: sorted maps.
///
/// A sorted map keeps its entries (key and value) in one growing array, in
/// strictly ascending key order, and finds them by bisection: no tree nodes,
/// no hashing. A lookup costs O(log n) calls of Compare; an insertion or a
/// removal shifts the tail of the array with one memmove. The entries array
/// grows in steps of 16 entries and never shrinks.
///
/// Keys are small values that belong to somebody else: a pointer, or a string
/// that the caller keeps alive and unchanged while it is in the map (the order
/// is fixed at insertion and never restored). Values are plain data too; the
/// map deletes nothing, neither keys nor values.
///
/// Nothing tests an index. operator[] with a key that is not in the map stops
/// the process (vekAbort with "dsSortedMap::operator [] failed", file
/// "inc/dsortmap"); Contains and Find are the tests a caller has. A map has
/// no lock: one thread at a time, or the caller's own lock.
#ifndef DSORTMAP_H
#define DSORTMAP_H

#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>
#include <typeinfo>

#include "dsdatcol.h"

/// One entry of a sorted map: plain data, moved as bytes like any element.
/// A plain value.
template <class V, class K>
struct VEK_TEMPLATE_VISIBLE dsSortedMapEntry {
  K key;    ///< The key, as the map's CopyKey gave it.
  V value;  ///< The value.

  /// Stores key and has collection copy the one value.
  dsSortedMapEntry(K key, V const& value, dsDataCollection<V>& collection);
};

/// Walks the values of a map in ascending key order, through an iterator of
/// its entries array. Like that iterator it asks the array afresh at every
/// step; the map must outlive it. One thread at a time.
template <class V, class K>
class VEK_TEMPLATE_VISIBLE dsSortedMapIter : public dsBaseIter<V> {
 public:
  /// Takes iter over; it is deleted with this object.
  explicit dsSortedMapIter(dsBaseIter<dsSortedMapEntry<V, K>>* iter);
  ///@{
  /// Not copyable: the copy is Reproduce.
  dsSortedMapIter(dsSortedMapIter const&) = delete;
  dsSortedMapIter& operator=(dsSortedMapIter const&) = delete;
  ///@}
  ~dsSortedMapIter() override;  ///< Deletes the inner iterator.

  /// A new iterator at the same place, independent of this one: a heap
  /// object the caller deletes, or null if an allocation fails.
  dsBaseIter<V>* Reproduce() override;
  void SetAtFirst() override;
  bool Finished() const override;
  void MoveToNext() override;
  V& Current() const override;

  /// A new iterator that takes inner over: a heap object the caller deletes;
  /// null, with inner deleted, if inner is null or an allocation fails.
  static dsBaseIter<V>* Wrap(dsBaseIter<dsSortedMapEntry<V, K>>* inner);

 private:
  dsBaseIter<dsSortedMapEntry<V, K>>* iter;
};

/// The map itself, for any key order: subclasses give Compare. A is the
/// entries array, a dsXArray of dsSortedMapEntry<V, K>.
/// One thread at a time, or the caller's own lock.
template <class A, class V, class K>
class VEK_TEMPLATE_VISIBLE dsBaseSortedMap : public dsDataMap<V, K> {
 public:
  dsBaseSortedMap();  ///< Empty; allocates nothing.
  ///@{
  /// Not copyable: copying would share or duplicate keys that the map does
  /// not own.
  dsBaseSortedMap(dsBaseSortedMap const&) = delete;
  dsBaseSortedMap& operator=(dsBaseSortedMap const&) = delete;
  ///@}
  /// Releases the entries block only.
  ~dsBaseSortedMap() override {}

  /// The value of key, writable, good until the map next changes. Stops the
  /// process if key is not in the map; never inserts.
  V& operator[](K key) const override;
  bool Contains(K key) const override;  ///< True if key is in the map.
  /// Adds an entry in its place, through CopyKey and CopyElems.
  /// \return false, changing nothing, if key is present: Add never
  ///         overwrites; true when added.
  bool Add(K key, V const& value) override;
  /// Takes the entry of key out (FreeKey first); the block stays.
  /// \return false, changing nothing, if key is absent.
  bool Remove(K key) override;
  /// Copies the value of key into value.
  /// \return false, leaving value alone, if key is absent.
  bool Find(K key, V& value) const override;
  /// Empties the map; the block stays. Keys are not released.
  virtual void Clear();

  /// A new iterator over the values in key order: a heap object the caller
  /// deletes, or null if an allocation fails.
  dsBaseIter<V>* GetIter() const override;
  unsigned int GetSize() const override;  ///< The number of entries.

  /// Finds the place of key. On a map of the library's own orders (exactly a
  /// dsScalarMap or a dsNonOwnerStringMap) the search runs without a virtual
  /// call per step; a map whose class may have replaced Compare searches
  /// through Compare.
  /// \return true, with the entry's position in index, if key is present;
  ///         otherwise false, with the position at which it belongs (every
  ///         entry before it is below key). The lookups are inline, so a
  ///         caller's search of such a map runs in its own code.
  bool FindIndex(K key, unsigned int& index) const;
  /// The value at index, in key order; no test. A reference into the map,
  /// good until it next changes.
  V& GetByIndex(unsigned int index) const;
  /// Takes the entry at index out (FreeKey first); no test.
  void RemoveByIndex(unsigned int index);

 protected:
  /// Negative, 0 or positive as first is below, equal to or above second.
  virtual int Compare(K first, K second) const = 0;
  /// Where a map that owned its keys would copy them: runs once per added
  /// entry, and what it returns is stored. Here it returns key.
  virtual K CopyKey(K key) const;
  /// Where a map that owned its keys would release them: runs once per entry
  /// that Remove or RemoveByIndex takes out; Clear and the destructor release
  /// no key. Here it does nothing.
  virtual void FreeKey(K key) const;

  /// The map's storage: shrink false, grain 16.
  A entries;

 private:
  explicit dsBaseSortedMap(dsXACtrl const& control);

  // The library's own classes, whose Compare and CopyElems no subclass has
  // replaced: the lookups of such an object search and copy in line.
  enum class OwnClass : unsigned char { none, scalarMap, nonOwnerStringMap };
  // Which one the object is exactly, if any: the library's own class when
  // Add last ran, which a subclass never is, even in its constructor.
  OwnClass ownClass;

  // The entry of key, or null if key is absent; index as FindIndex gives it.
  // Inline for the map's own lookups.
  dsSortedMapEntry<V, K>* Locate(K key, unsigned int& index) const;
  // Which of the library's own classes the object is now, if any.
  OwnClass ClassNow() const;
  // True when the object is exactly of class Map.
  template <class Map>
  bool IsExactly() const;
  // Bisection with the three-way order compare(key, entry key), from the
  // entry first on; it stops at the first equal key. It branches on the
  // order, so the processor runs ahead to the next entry while a comparison
  // that calls a function is still under way.
  template <class Order>
  bool Bisect(K key, unsigned int first, unsigned int& index, Order compare) const;
  // The search through the virtual Compare, for any order.
  bool SearchByCompare(K key, unsigned int& index) const;
  // The first entry that does not sort before key by below(a, b), "a sorts
  // before b", in a map that has entries; the range halves without a branch
  // on the order.
  template <class Below>
  dsSortedMapEntry<V, K>* LowerBound(K key, Below below) const;
};

/// Keys that are scalars (integers, pointers), ordered as unsigned numbers;
/// pointers by address, so -1 sorts above every positive number.
/// One thread at a time.
template <class A, class V, class K>
class VEK_TEMPLATE_VISIBLE dsBaseScalarMap : public dsBaseSortedMap<A, V, K> {
 public:
  /// The number by which a key is ordered: a pointer's address, an integer
  /// converted to its unsigned type.
  static auto Unsigned(K key);

 protected:
  /// -1, 0 or 1 by Unsigned.
  int Compare(K first, K second) const override;
};

/// A sorted map with scalar keys (integers, pointers), in unsigned order.
/// One thread at a time.
template <class V, class K>
class VEK_TEMPLATE_VISIBLE dsScalarMap
    : public dsBaseScalarMap<dsXArray<dsSortedMapEntry<V, K>>, V, K> {};

/// A map whose order the subclass gives. One thread at a time.
template <class V, class K>
class VEK_TEMPLATE_VISIBLE dsSortedMap
    : public dsBaseSortedMap<dsXArray<dsSortedMapEntry<V, K>>, V, K> {};

/// Keys are texts that the map does not own: it stores the pointer only, and
/// the text must outlive the entry unchanged. Order is plain byte order
/// (bytes as unsigned values, not the locale's order); a null key sorts before
/// every text, the empty one included. Two pointers to equal texts are the
/// same key. One thread at a time.
template <class V>
class VEK_TEMPLATE_VISIBLE dsNonOwnerStringMap : public dsSortedMap<V, char const*> {
 protected:
  /// -1, 0 or 1.
  int Compare(char const* first, char const* second) const override;
};

// ---------------------------------------------------------------------------

template <class V, class K>
dsSortedMapEntry<V, K>::dsSortedMapEntry(K entryKey, V const& entryValue,
                                         dsDataCollection<V>& collection)
    : key(entryKey) {
  collection.CopyElems(&entryValue, &value, 1);
}

template <class V, class K>
dsSortedMapIter<V, K>::dsSortedMapIter(dsBaseIter<dsSortedMapEntry<V, K>>* inner) : iter(inner) {}

template <class V, class K>
dsSortedMapIter<V, K>::~dsSortedMapIter() {
  delete iter;
}

template <class V, class K>
dsBaseIter<V>* dsSortedMapIter<V, K>::Wrap(dsBaseIter<dsSortedMapEntry<V, K>>* inner) {
  if (inner == nullptr) return nullptr;
  dsBaseIter<V>* result = new (std::nothrow) dsSortedMapIter<V, K>(inner);
  if (result == nullptr) delete inner;
  return result;
}

template <class V, class K>
dsBaseIter<V>* dsSortedMapIter<V, K>::Reproduce() {
  return Wrap(iter->Reproduce());
}

template <class V, class K>
void dsSortedMapIter<V, K>::SetAtFirst() {
  iter->SetAtFirst();
}

template <class V, class K>
bool dsSortedMapIter<V, K>::Finished() const {
  return iter->Finished();
}

template <class V, class K>
void dsSortedMapIter<V, K>::MoveToNext() {
  iter->MoveToNext();
}

template <class V, class K>
V& dsSortedMapIter<V, K>::Current() const {
  return iter->Current().value;
}

template <class A, class V, class K>
dsBaseSortedMap<A, V, K>::dsBaseSortedMap() : dsBaseSortedMap(dsXACtrl(16, false)) {}

template <class A, class V, class K>
dsBaseSortedMap<A, V, K>::dsBaseSortedMap(dsXACtrl const& control)
    : entries(&control), ownClass(OwnClass::none) {}

template <class A, class V, class K>
inline bool dsBaseSortedMap<A, V, K>::FindIndex(K key, unsigned int& index) const {
  return Locate(key, index) != nullptr;
}

template <class A, class V, class K>
inline dsSortedMapEntry<V, K>* dsBaseSortedMap<A, V, K>::Locate(K key, unsigned int& index) const {
  dsSortedMapEntry<V, K>* const data = entries.GetDataPtr();
  // One look at a flag, instead of a virtual call per step.
  if constexpr (std::is_same<K, char const*>::value) {
    if (ownClass == OwnClass::nonOwnerStringMap) {
      // A null key can only be the first entry; behind it strcmp's byte
      // order holds.
      unsigned int const first = entries.GetSize() != 0 && data[0].key == nullptr ? 1 : 0;
      if (key == nullptr) {
        index = 0;
        return first == 1 ? data : nullptr;
      }
      auto const order = [](char const* a, char const* b) { return std::strcmp(a, b); };
      return Bisect(key, first, index, order) ? data + index : nullptr;
    }
  }
  if constexpr (std::is_scalar<K>::value) {
    if (ownClass == OwnClass::scalarMap) {
      auto const below = [](K a, K b) { return dsScalarMap<V, K>::Unsigned(a) < dsScalarMap<V, K>::Unsigned(b); };
      unsigned int const size = entries.GetSize();
      dsSortedMapEntry<V, K>* const lower = size != 0 ? LowerBound(key, below) : data;
      index = static_cast<unsigned int>(lower - data);
      return index < size && !below(key, lower->key) ? lower : nullptr;
    }
  }
  return SearchByCompare(key, index) ? data + index : nullptr;
}

template <class A, class V, class K>
typename dsBaseSortedMap<A, V, K>::OwnClass dsBaseSortedMap<A, V, K>::ClassNow() const {
  if constexpr (std::is_same<K, char const*>::value) {
    if (IsExactly<dsNonOwnerStringMap<V>>()) return OwnClass::nonOwnerStringMap;
  }
  if constexpr (std::is_scalar<K>::value) {
    if (IsExactly<dsScalarMap<V, K>>()) return OwnClass::scalarMap;
  }
  return OwnClass::none;
}

template <class A, class V, class K>
template <class Map>
bool dsBaseSortedMap<A, V, K>::IsExactly() const {
  return typeid(*this) == typeid(Map);
}

template <class A, class V, class K>
bool dsBaseSortedMap<A, V, K>::SearchByCompare(K key, unsigned int& index) const {
  return Bisect(key, 0, index, [this](K a, K b) { return Compare(a, b); });
}

template <class A, class V, class K>
template <class Order>
bool dsBaseSortedMap<A, V, K>::Bisect(K key, unsigned int first, unsigned int& index, Order compare) const {
  dsSortedMapEntry<V, K> const* const data = entries.GetDataPtr();
  unsigned int const size = entries.GetSize();
  std::int32_t low = static_cast<std::int32_t>(first);
  std::int32_t high = static_cast<std::int32_t>(size) - 1;
  if (size == 0 || data == nullptr) high = -1;
  // Every entry below low is smaller than key, every one above high larger;
  // so when the range is empty, low is where key belongs.
  while (low <= high) {
    std::int32_t const middle = (high + low) / 2;
    int const c = compare(key, data[middle].key);
    if (c == 0) {
      index = static_cast<unsigned int>(middle);
      return true;
    }
    if (c > 0) {
      low = middle + 1;
    } else {
      high = middle - 1;
    }
  }
  index = static_cast<unsigned int>(low);
  return false;
}

template <class A, class V, class K>
template <class Below>
inline dsSortedMapEntry<V, K>* dsBaseSortedMap<A, V, K>::LowerBound(K key, Below below) const {
  unsigned int const size = entries.GetSize();
  // The lower bound lies in [base, base + count]. A step that compares
  // base[half], half at most count / 2, moves base by half or not at all and
  // leaves count - half. The first step leaves a power of two, so that every
  // later one halves count exactly.
  dsSortedMapEntry<V, K>* base = entries.GetDataPtr();
  int const highestBit = std::numeric_limits<unsigned int>::digits - 1 - __builtin_clz(size);
  std::size_t const count = std::size_t{1} << highestBit;  // the highest power of two in size
  std::size_t const rest = size - count;
  base = below(base[rest].key, key) ? base + rest : base;
  for (std::size_t half = count / 2; half != 0; half /= 2) {
    base = below(base[half].key, key) ? base + half : base;
  }
  return base + static_cast<std::size_t>(below(base->key, key));
}

template <class A, class V, class K>
QUILLON_INLINE_VIRTUAL V& dsBaseSortedMap<A, V, K>::operator[](K key) const {
  unsigned int index;
  dsSortedMapEntry<V, K>* const entry = Locate(key, index);
  if (entry == nullptr) vekAbort("dsSortedMap::operator [] failed", "inc/dsortmap", __LINE__);
  return entry->value;
}

template <class A, class V, class K>
QUILLON_INLINE_VIRTUAL bool dsBaseSortedMap<A, V, K>::Contains(K key) const {
  unsigned int index;
  return Locate(key, index) != nullptr;
}

template <class A, class V, class K>
bool dsBaseSortedMap<A, V, K>::Add(K key, V const& value) {
  unsigned int index;
  if (Locate(key, index) != nullptr) return false;
  dsSortedMapEntry<V, K> const entry(CopyKey(key), value, *this);
  entries.Insert(index, 1, &entry);  // grows, shifts the tail up, copies the entry in
  ownClass = ClassNow();
  return true;
}

template <class A, class V, class K>
bool dsBaseSortedMap<A, V, K>::Remove(K key) {
  unsigned int index;
  if (Locate(key, index) == nullptr) return false;
  RemoveByIndex(index);
  return true;
}

template <class A, class V, class K>
QUILLON_INLINE_VIRTUAL bool dsBaseSortedMap<A, V, K>::Find(K key, V& value) const {
  unsigned int index;
  dsSortedMapEntry<V, K> const* const entry = Locate(key, index);
  if (entry == nullptr) return false;
  if (ownClass != OwnClass::none) {
    // The library's own classes keep the base CopyElems, a memmove of one value.
    std::memcpy(static_cast<void*>(&value), static_cast<void const*>(&entry->value), sizeof(V));
  } else {
    this->CopyElems(&entry->value, &value, 1);
  }
  return true;
}

template <class A, class V, class K>
void dsBaseSortedMap<A, V, K>::Clear() {
  entries.Clear();
}

template <class A, class V, class K>
dsBaseIter<V>* dsBaseSortedMap<A, V, K>::GetIter() const {
  return dsSortedMapIter<V, K>::Wrap(entries.GetIter());
}

template <class A, class V, class K>
unsigned int dsBaseSortedMap<A, V, K>::GetSize() const {
  return entries.GetSize();
}

template <class A, class V, class K>
inline V& dsBaseSortedMap<A, V, K>::GetByIndex(unsigned int index) const {
  return entries.GetDataPtr()[index].value;
}

template <class A, class V, class K>
void dsBaseSortedMap<A, V, K>::RemoveByIndex(unsigned int index) {
  FreeKey(entries.GetDataPtr()[index].key);
  entries.RemoveAt(index, 1, nullptr);  // shifts the tail down; the block stays
}

template <class A, class V, class K>
K dsBaseSortedMap<A, V, K>::CopyKey(K key) const {
  return key;
}

template <class A, class V, class K>
void dsBaseSortedMap<A, V, K>::FreeKey(K) const {}

template <class A, class V, class K>
auto dsBaseScalarMap<A, V, K>::Unsigned(K key) {
  static_assert(std::is_scalar<K>::value, "a scalar map needs a scalar key");
  if constexpr (std::is_pointer<K>::value) {
    return reinterpret_cast<std::uintptr_t>(key);
  } else {
    return static_cast<std::make_unsigned_t<K>>(key);
  }
}

template <class A, class V, class K>
int dsBaseScalarMap<A, V, K>::Compare(K first, K second) const {
  auto const a = Unsigned(first);
  auto const b = Unsigned(second);
  return static_cast<int>(a > b) - static_cast<int>(a < b);  // 1, 0 or -1, without a branch
}

template <class V>
int dsNonOwnerStringMap<V>::Compare(char const* first, char const* second) const {
  if (first == second) return 0;
  if (first == nullptr) return -1;
  if (second == nullptr) return 1;
  int const order = std::strcmp(first, second);  // compares the bytes as unsigned char
  return static_cast<int>(order > 0) - static_cast<int>(order < 0);
}

// The instantiations that the library exports: the task registry and the
// interned-string database. Both pairs are two pointer-wide types, so only
// Compare differs between them. The two value classes are exported, and so
// must be declared here: a hidden template argument would hide the instance.
class QUILLON_API pmManageTask;
class QUILLON_API dsStringCell;

/// A comma that a macro argument can carry.
#define QUILLON_COMMA ,
/// Declares or defines the instantiations of the sorted-map classes for V
/// and K that the library exports, as QUILLON_ARRAY_INSTANCES does for
/// arrays (the export attribute on the declarations only).
#define QUILLON_SORTED_MAP_INSTANCES(EXTERN, API, V, K)                         \
  EXTERN template class API dsDataCollection<V>;                                \
  EXTERN template class API dsBaseIter<V>;                                      \
  EXTERN template class API dsDataMap<V, K>;                                    \
  QUILLON_ARRAY_INSTANCES(EXTERN, API, dsSortedMapEntry<V QUILLON_COMMA K>)     \
  EXTERN template struct API dsSortedMapEntry<V, K>;                            \
  EXTERN template class API dsSortedMapIter<V, K>;                              \
  EXTERN template class API dsBaseSortedMap<dsXArray<dsSortedMapEntry<V, K>>, V, K>;

QUILLON_SORTED_MAP_INSTANCES(extern, QUILLON_INSTANCE_API, pmManageTask*, void*)
extern template class QUILLON_INSTANCE_API
    dsBaseScalarMap<dsXArray<dsSortedMapEntry<pmManageTask*, void*>>, pmManageTask*, void*>;
extern template class QUILLON_INSTANCE_API dsScalarMap<pmManageTask*, void*>;

QUILLON_SORTED_MAP_INSTANCES(extern, QUILLON_INSTANCE_API, dsStringCell*, char const*)
extern template class QUILLON_INSTANCE_API dsSortedMap<dsStringCell*, char const*>;
extern template class QUILLON_INSTANCE_API dsNonOwnerStringMap<dsStringCell*>;

#endif

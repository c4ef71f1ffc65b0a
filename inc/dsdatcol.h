// quillon collections: the collection interfaces, the growing array and its
// iterator.
//
// The containers hold plain data. Elements are bytes to them: they move with
// memmove, no constructor or destructor of T ever runs, and the storage comes
// from the allocator hooks vekAlloc, vekReAlloc and vekFree. Arrays grow in
// fixed steps (the grain), not geometrically. Nothing tests an index: bounds
// are the caller's business, and Contains is the test the caller has.
#ifndef DSDATCOL_H
#define DSDATCOL_H

#include <cstring>
#include <new>
#include <typeinfo>

#include "quillonbase.h"

template <class T>
class VEK_TEMPLATE_VISIBLE dsBaseIter {
 public:
  virtual dsBaseIter<T>* Reproduce() = 0;  // a new iterator at the same place; the caller deletes it
  virtual ~dsBaseIter() {}
  virtual void SetAtFirst() = 0;
  virtual bool Finished() const = 0;
  virtual void MoveToNext() = 0;
  virtual T& Current() const = 0;
};

// How elements of T are allocated, copied and counted.
template <class T>
class VEK_TEMPLATE_VISIBLE dsDataCollection {
 public:
  virtual T* AllocElems(unsigned int count) const;
  virtual T* ReallocElems(T* elems, unsigned int oldCount, unsigned int newCount) const;
  virtual void CleanupElems(T* elems, unsigned int count) const;
  virtual void FreeElems(T*& elems) const;
  // The only way elements move; safe on overlapping ranges.
  virtual void CopyElems(T const* source, T* destination, unsigned int count) const;
  virtual ~dsDataCollection() {}
  virtual dsBaseIter<T>* GetIter() const = 0;  // the caller deletes it
  virtual unsigned int GetSize() const = 0;
  virtual bool IsEmpty() const;
};

// Access by key. Add, Remove and Find are optional: a map that lacks them
// stops the process when they are called.
template <class T, class K>
class VEK_TEMPLATE_VISIBLE dsDataMap : public virtual dsDataCollection<T> {
 public:
  virtual T& operator[](K key) const = 0;
  virtual bool Contains(K key) const = 0;
  virtual bool Add(K key, T const& element);
  virtual bool Remove(K key);
  virtual bool Find(K key, T& element) const;
};

template <class T>
class VEK_TEMPLATE_VISIBLE dsArray : public dsDataMap<T, unsigned int> {
 public:
  bool Contains(unsigned int index) const override;
  dsBaseIter<T>* GetIter() const override;
};

// An array whose elements lie side by side in one block.
template <class T>
class VEK_TEMPLATE_VISIBLE dsStraightArray : public dsArray<T> {
 public:
  T& operator[](unsigned int index) const override;
  virtual T* GetDataPtr() const = 0;
};

// Growth settings of a dsXArray.
struct dsXACtrl {
  bool shrink;         // true: capacity follows the size down as well
  unsigned int grain;  // capacity is a multiple of this; 0: the element type's default

  dsXACtrl(unsigned int grain, bool shrink) : shrink(shrink), grain(grain) {}
};

// The growing array: capacity in whole grains, by default the number of
// elements in 256 bytes. An empty array holds no block.
template <class T>
class VEK_TEMPLATE_VISIBLE dsXArray : public dsStraightArray<T> {
 public:
  explicit dsXArray(dsXACtrl const* control = nullptr);
  dsXArray(dsXArray const&) = delete;
  dsXArray& operator=(dsXArray const&) = delete;
  ~dsXArray() override;

  unsigned int GetSize() const override;
  T* GetDataPtr() const override;

  // Makes count the size. New elements are not initialised.
  void Resize(unsigned int count);
  // Opens a gap of count elements at index and fills it from source, which
  // must not point into this array.
  void Insert(unsigned int index, unsigned int count, T const* source);
  void Insert(unsigned int index, T const& element);
  void Append(unsigned int count, T const* source);
  // An element that fits in the block of an array whose CopyElems is the base
  // memmove is stored in line; every other append goes through Insert.
  void operator+=(T const& element) {
    if (size < capacity && baseCopies) {
      std::memcpy(static_cast<void*>(elems + size), static_cast<void const*>(&element), sizeof(T));
      ++size;
      return;
    }
    Insert(size, 1, &element);
  }
  // Takes count elements out at index, copying them to removed if it is not null.
  void RemoveAt(unsigned int index, unsigned int count, T* removed);
  void Clear();

  unsigned int GetCapacity() const { return capacity; }
  dsXACtrl const& GetControl() const { return control; }

  static constexpr unsigned int DefaultGrain() {
    return sizeof(T) >= 256 ? 1u : static_cast<unsigned int>(256 / sizeof(T));
  }

 protected:
  void Init(dsXACtrl const* control);

 private:
  unsigned int OptimizeSize(unsigned int count) const;

  T* elems;
  unsigned int size;
  unsigned int capacity;
  dsXACtrl control;
  // True when CopyElems is the base memmove: the object is exactly a
  // dsXArray. Found out at each allocation of the block, which the in-line
  // path of += needs first; a subclass, even under construction, never is one.
  bool baseCopies;
};

// Walks an array by index, asking the array afresh each time, so it stays
// valid when the array grows or moves its block.
template <class T>
class VEK_TEMPLATE_VISIBLE dsArrayIter : public dsBaseIter<T> {
 public:
  explicit dsArrayIter(dsArray<T> const& array);
  dsArrayIter(dsArrayIter<T> const& other);
  dsArrayIter& operator=(dsArrayIter const&) = delete;

  dsBaseIter<T>* Reproduce() override;
  void SetAtFirst() override;
  bool Finished() const override;
  void MoveToNext() override;
  T& Current() const override;

 private:
  unsigned int index;
  dsArray<T> const* array;
};

// ---------------------------------------------------------------------------

template <class T>
T* dsDataCollection<T>::AllocElems(unsigned int count) const {
  return static_cast<T*>(vekAlloc(sizeof(T) * count));
}

template <class T>
T* dsDataCollection<T>::ReallocElems(T* elems, unsigned int, unsigned int newCount) const {
  return static_cast<T*>(vekReAlloc(elems, sizeof(T) * newCount));
}

template <class T>
void dsDataCollection<T>::CleanupElems(T*, unsigned int) const {}

template <class T>
void dsDataCollection<T>::FreeElems(T*& elems) const {
  vekFree(elems);
  elems = nullptr;
}

template <class T>
void dsDataCollection<T>::CopyElems(T const* source, T* destination, unsigned int count) const {
  if (count != 0) {
    std::memmove(static_cast<void*>(destination), static_cast<void const*>(source),
                 sizeof(T) * count);
  }
}

template <class T>
bool dsDataCollection<T>::IsEmpty() const {
  return GetSize() == 0;
}

template <class T, class K>
bool dsDataMap<T, K>::Add(K, T const&) {
  vekAbort("dsDataMap::Add ()", "inc/dsdatcol", __LINE__);
}

template <class T, class K>
bool dsDataMap<T, K>::Remove(K) {
  vekAbort("dsDataMap::Remove ()", "inc/dsdatcol", __LINE__);
}

template <class T, class K>
bool dsDataMap<T, K>::Find(K, T&) const {
  vekAbort("dsDataMap::Find ()", "inc/dsdatcol", __LINE__);
}

template <class T>
bool dsArray<T>::Contains(unsigned int index) const {
  return index < this->GetSize();
}

template <class T>
dsBaseIter<T>* dsArray<T>::GetIter() const {
  return new (std::nothrow) dsArrayIter<T>(*this);
}

template <class T>
T& dsStraightArray<T>::operator[](unsigned int index) const {
  return GetDataPtr()[index];
}

template <class T>
dsXArray<T>::dsXArray(dsXACtrl const* control) : control(0, false) {
  Init(control);
}

template <class T>
dsXArray<T>::~dsXArray() {
  vekFree(elems);
  elems = nullptr;
}

template <class T>
void dsXArray<T>::Init(dsXACtrl const* newControl) {
  size = 0;
  if (newControl != nullptr) control = *newControl;
  capacity = 0;
  elems = nullptr;
  baseCopies = false;
  if (control.grain == 0) control.grain = DefaultGrain();
}

// The accessors are inline, so that a caller's loop over the block (or a
// map's search) reads the two fields instead of calling into the library.
template <class T>
inline unsigned int dsXArray<T>::GetSize() const {
  return size;
}

template <class T>
inline T* dsXArray<T>::GetDataPtr() const {
  return elems;
}

template <class T>
unsigned int dsXArray<T>::OptimizeSize(unsigned int count) const {
  return count == 0 ? 0 : ((count - 1) / control.grain + 1) * control.grain;
}

template <class T>
void dsXArray<T>::Resize(unsigned int count) {
  if (!control.shrink && count <= capacity) {
    size = count;
    return;
  }
  unsigned int wanted = OptimizeSize(count);
  if (wanted != capacity) {
    elems = elems != nullptr ? this->ReallocElems(elems, size, wanted) : this->AllocElems(wanted);
    capacity = wanted;
    baseCopies = typeid(*this) == typeid(dsXArray);
  }
  size = count;
}

template <class T>
void dsXArray<T>::Insert(unsigned int index, unsigned int count, T const* source) {
  unsigned int old = size;
  Resize(old + count);
  this->CopyElems(elems + index, elems + index + count, old - index);
  this->CopyElems(source, elems + index, count);
}

template <class T>
void dsXArray<T>::Insert(unsigned int index, T const& element) {
  Insert(index, 1, &element);
}

template <class T>
void dsXArray<T>::Append(unsigned int count, T const* source) {
  Insert(size, count, source);
}

template <class T>
void dsXArray<T>::RemoveAt(unsigned int index, unsigned int count, T* removed) {
  if (removed != nullptr) this->CopyElems(elems + index, removed, count);
  this->CopyElems(elems + index + count, elems + index, size - (index + count));
  Resize(size - count);
}

template <class T>
void dsXArray<T>::Clear() {
  RemoveAt(0, size, nullptr);
}

template <class T>
dsArrayIter<T>::dsArrayIter(dsArray<T> const& array) : index(0), array(&array) {}

template <class T>
dsArrayIter<T>::dsArrayIter(dsArrayIter<T> const& other)
    : dsBaseIter<T>(), index(other.index), array(other.array) {}

template <class T>
dsBaseIter<T>* dsArrayIter<T>::Reproduce() {
  return new (std::nothrow) dsArrayIter<T>(*this);
}

template <class T>
void dsArrayIter<T>::SetAtFirst() {
  index = 0;
}

template <class T>
bool dsArrayIter<T>::Finished() const {
  return index >= array->GetSize();
}

template <class T>
void dsArrayIter<T>::MoveToNext() {
  ++index;
}

template <class T>
T& dsArrayIter<T>::Current() const {
  return (*array)[index];
}

// The instantiations that the library exports.
#define QUILLON_ARRAY_INSTANCES(EXTERN, T)                          \
  EXTERN template class QUILLON_INSTANCE_API dsDataCollection<T>;   \
  EXTERN template class QUILLON_INSTANCE_API dsBaseIter<T>;         \
  EXTERN template class QUILLON_INSTANCE_API dsDataMap<T, unsigned int>; \
  EXTERN template class QUILLON_INSTANCE_API dsArray<T>;            \
  EXTERN template class QUILLON_INSTANCE_API dsStraightArray<T>;    \
  EXTERN template class QUILLON_INSTANCE_API dsXArray<T>;           \
  EXTERN template class QUILLON_INSTANCE_API dsArrayIter<T>;

QUILLON_ARRAY_INSTANCES(extern, char)
QUILLON_ARRAY_INSTANCES(extern, char*)
QUILLON_ARRAY_INSTANCES(extern, char const*)
extern template class QUILLON_INSTANCE_API dsDataCollection<int>;
extern template class QUILLON_INSTANCE_API dsBaseIter<int>;

#endif

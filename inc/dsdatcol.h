/// \file
/// quillon collections: the collection interfaces, the growing array and its
/// iterator.
///
/// The containers hold plain data. Elements are bytes to them: they move with
/// memmove, no constructor or destructor of T ever runs, and the storage comes
/// from the allocator hooks vekAlloc, vekReAlloc and vekFree. Arrays grow in
/// fixed steps (the grain), not geometrically. Nothing tests an index: bounds
/// are the caller's business, and Contains is the test the caller has.
///
/// Nothing here reports a failure. The hooks end the process through vekAbort
/// when memory runs out; the optional map operations that a class lacks end
/// it too. A collection or an iterator has no lock: one thread at a time, or
/// the caller's own lock (proMutex).
#ifndef DSDATCOL_H
#define DSDATCOL_H

#include <cstring>
#include <new>
#include <typeinfo>

#include "quillonbase.h"

/// The iteration protocol: SetAtFirst, then, until Finished, Current and
/// MoveToNext. A new iterator is already on the first element.
/// One thread at a time.
template <class T>
class VEK_TEMPLATE_VISIBLE dsBaseIter {
 public:
  /// A new iterator at the same place: a heap object the caller deletes, or
  /// null when it cannot be allocated.
  virtual dsBaseIter<T>* Reproduce() = 0;
  virtual ~dsBaseIter() {}
  virtual void SetAtFirst() = 0;       ///< Goes to the first element.
  virtual bool Finished() const = 0;   ///< True if there is no current element.
  virtual void MoveToNext() = 0;       ///< Goes to the next element.
  /// The current element, a reference into the collection; only while not
  /// Finished.
  virtual T& Current() const = 0;
};

/// How elements of T are allocated, copied and counted: the root of the
/// collection tree. A subclass may replace the storage through the first five
/// operations. One thread at a time, as every collection.
template <class T>
class VEK_TEMPLATE_VISIBLE dsDataCollection {
 public:
  /// A block for count elements from vekAlloc, uninitialised; never null
  /// (vekAlloc ends the process when memory runs out).
  virtual T* AllocElems(unsigned int count) const;
  /// elems resized by vekReAlloc to newCount elements, the contents kept up
  /// to the smaller size; oldCount plays no part here. A newCount of 0
  /// releases the block and gives null.
  virtual T* ReallocElems(T* elems, unsigned int oldCount, unsigned int newCount) const;
  /// Does nothing here: a hook for subclasses; the arrays never call it.
  virtual void CleanupElems(T* elems, unsigned int count) const;
  /// vekFree(elems), then elems = null.
  virtual void FreeElems(T*& elems) const;
  /// The only way elements move; safe on overlapping ranges. Source first,
  /// destination second.
  virtual void CopyElems(T const* source, T* destination, unsigned int count) const;
  virtual ~dsDataCollection() {}
  /// A new iterator on the first element: a heap object the caller deletes,
  /// or null when it cannot be allocated.
  virtual dsBaseIter<T>* GetIter() const = 0;
  virtual unsigned int GetSize() const = 0;  ///< The number of elements.
  virtual bool IsEmpty() const;              ///< GetSize() is 0.
};

/// Access by key. Add, Remove and Find are optional: a map that lacks them
/// stops the process when they are called (vekAbort with
/// "dsDataMap::Add ()" and so on, file "inc/dsdatcol"). One thread at a time.
template <class T, class K>
class VEK_TEMPLATE_VISIBLE dsDataMap : public virtual dsDataCollection<T> {
 public:
  /// The element of key, a reference into the collection. What happens for a
  /// key that is not there is the class's own rule.
  virtual T& operator[](K key) const = 0;
  virtual bool Contains(K key) const = 0;  ///< True if key is there.
  /// Adds key with element. \return true when added.
  virtual bool Add(K key, T const& element);
  /// Takes key out. \return true when it was there.
  virtual bool Remove(K key);
  /// Copies the element of key into element. \return true when found;
  /// element is unchanged otherwise.
  virtual bool Find(K key, T& element) const;
};

/// A map from an unsigned int index to the elements. Add, Remove and Find
/// are not there: calling them stops the process. One thread at a time.
template <class T>
class VEK_TEMPLATE_VISIBLE dsArray : public dsDataMap<T, unsigned int> {
 public:
  /// True if index is below GetSize().
  bool Contains(unsigned int index) const override;
  /// A new dsArrayIter on this array: a heap object the caller deletes, or
  /// null when it cannot be allocated.
  dsBaseIter<T>* GetIter() const override;
};

/// An array whose elements lie side by side in one block. One thread at a time.
template <class T>
class VEK_TEMPLATE_VISIBLE dsStraightArray : public dsArray<T> {
 public:
  /// GetDataPtr()[index]. Nothing tests the index: it must be below
  /// GetSize().
  T& operator[](unsigned int index) const override;
  /// The block, owned by the array; null while it has none.
  virtual T* GetDataPtr() const = 0;
};

/// Growth settings of a dsXArray. A plain value.
struct dsXACtrl {
  bool shrink;         ///< True: capacity follows the size down as well; false: it never falls.
  unsigned int grain;  ///< Capacity is a multiple of this; 0: the element type's default.

  /// The settings; note the order, grain first.
  dsXACtrl(unsigned int grainSize, bool shrinks) : shrink(shrinks), grain(grainSize) {}
};

/// The growing array: capacity in whole grains, by default the number of
/// elements in 256 bytes. An empty array holds no block.
///
/// The block belongs to the array. Every pointer into it (GetDataPtr, the
/// references of operator[]) is valid until the next operation that changes
/// the size, which may move the block. Not copyable.
/// One thread at a time, or the caller's own lock.
template <class T>
class VEK_TEMPLATE_VISIBLE dsXArray : public dsStraightArray<T> {
 public:
  /// An empty array with no block. control null: shrink false and the
  /// default grain; its grain of 0 also takes the default.
  explicit dsXArray(dsXACtrl const* control = nullptr);
  ///@{
  /// Not copyable: a copy would share the block or need a deep copy of plain
  /// bytes that the array cannot promise is right for T.
  dsXArray(dsXArray const&) = delete;
  dsXArray& operator=(dsXArray const&) = delete;
  ///@}
  /// Releases the block; the elements are dropped as they are.
  ~dsXArray() override;

  unsigned int GetSize() const override;
  T* GetDataPtr() const override;

  /// Makes count the size. New elements are not initialised. Without shrink,
  /// a size within the capacity keeps the block; otherwise the capacity
  /// becomes count rounded up to whole grains (0 for 0).
  void Resize(unsigned int count);
  /// Opens a gap of count elements at index (at most the size) and fills it
  /// from source, which must not point into this array.
  void Insert(unsigned int index, unsigned int count, T const* source);
  /// Inserts one element at index (at most the size).
  void Insert(unsigned int index, T const& element);
  /// Insert(GetSize(), count, source).
  void Append(unsigned int count, T const* source);
  /// Appends one element. An element that fits in the block of an array
  /// whose CopyElems is the base memmove is stored in line; every other
  /// append goes through Insert.
  void operator+=(T const& element) {
    if (size < capacity && baseCopies) {
      std::memcpy(static_cast<void*>(elems + size), static_cast<void const*>(&element), sizeof(T));
      ++size;
      return;
    }
    Insert(size, 1, &element);
  }
  /// Takes count elements out at index, copying them to removed if it is not
  /// null. index + count must not pass the size.
  void RemoveAt(unsigned int index, unsigned int count, T* removed);
  /// Removes every element; without shrink the block stays.
  void Clear();

  unsigned int GetCapacity() const { return capacity; }  ///< Elements the block has room for.
  dsXACtrl const& GetControl() const { return control; }  ///< The growth settings in force.

  /// The default grain of T: the elements in 256 bytes, at least 1.
  static constexpr unsigned int DefaultGrain() {
    return sizeof(T) >= 256 ? 1u : static_cast<unsigned int>(256 / sizeof(T));
  }

 protected:
  /// Resets to an empty array: size and capacity 0, no block (an existing
  /// block is not released), control copied unless null, a grain of 0
  /// replaced by the default.
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

/// Walks an array by index, asking the array afresh each time, so it stays
/// valid when the array grows or moves its block. It does not own the array,
/// which must outlive it. One thread at a time.
template <class T>
class VEK_TEMPLATE_VISIBLE dsArrayIter : public dsBaseIter<T> {
 public:
  explicit dsArrayIter(dsArray<T> const& array);  ///< On the first element of array.
  dsArrayIter(dsArrayIter<T> const& other);       ///< Same array, same position.
  dsArrayIter& operator=(dsArrayIter const&) = delete;  ///< Not assignable.

  dsBaseIter<T>* Reproduce() override;
  void SetAtFirst() override;
  /// True once the index has reached the array's current size.
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
dsXArray<T>::dsXArray(dsXACtrl const* settings) : control(0, false) {
  Init(settings);
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

// The accessors are inline where the platform allows it (see
// QUILLON_INLINE_VIRTUAL), so that a caller's loop over the block (or a map's
// search) reads the two fields instead of calling into the library.
template <class T>
QUILLON_INLINE_VIRTUAL unsigned int dsXArray<T>::GetSize() const {
  return size;
}

template <class T>
QUILLON_INLINE_VIRTUAL T* dsXArray<T>::GetDataPtr() const {
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
dsArrayIter<T>::dsArrayIter(dsArray<T> const& over) : index(0), array(&over) {}

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

/// Declares or defines the instantiations of the array classes for T that
/// the library exports. The headers declare them `extern` with the export
/// attribute (QUILLON_ARRAY_INSTANCES(extern, QUILLON_INSTANCE_API, T));
/// srcquillon/collections defines each once without it
/// (QUILLON_ARRAY_INSTANCES(, , T)): Windows takes the attribute from the
/// first declaration and warns where a later one repeats it.
#define QUILLON_ARRAY_INSTANCES(EXTERN, API, T)          \
  EXTERN template class API dsDataCollection<T>;         \
  EXTERN template class API dsBaseIter<T>;               \
  EXTERN template class API dsDataMap<T, unsigned int>;  \
  EXTERN template class API dsArray<T>;                  \
  EXTERN template class API dsStraightArray<T>;          \
  EXTERN template class API dsXArray<T>;                 \
  EXTERN template class API dsArrayIter<T>;

QUILLON_ARRAY_INSTANCES(extern, QUILLON_INSTANCE_API, char)
QUILLON_ARRAY_INSTANCES(extern, QUILLON_INSTANCE_API, char*)
QUILLON_ARRAY_INSTANCES(extern, QUILLON_INSTANCE_API, char const*)
extern template class QUILLON_INSTANCE_API dsDataCollection<int>;
extern template class QUILLON_INSTANCE_API dsBaseIter<int>;

#endif

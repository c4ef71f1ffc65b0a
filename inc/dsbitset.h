/// \file
/// quillon bit sets: a growable set of small non-negative integers, stored as
/// packed bits, with its iterator and its stream forms.
///
/// Position i lives in byte i >> 3 under the mask 0x80 >> (i & 7): position 0
/// is the high bit of byte 0. A set of n positions holds (n >> 3) + 1 bytes,
/// so the last byte always exists and its bits from n & 7 up (the tail) are
/// not part of the set. The tail can hold ones all the same: the whole-byte
/// operations (Reverse, &=, |=, -=, %=, operator=) carry it along, ^= and
/// Fill(0, 0) clear it, and Save writes it as it is.
///
/// Positions and the results of navigation are 32-bit; dsBitSet::none (all
/// ones) is the answer when there is no such position. The elements of the
/// collection are the positions that are on: GetSize counts them and the
/// iterator walks them. Bounds are the caller's business where stated.
///
/// A set has no lock: one thread at a time, or the caller's own lock, also
/// for reading (GetSize keeps its count in the object).
#ifndef DSBITSET_H
#define DSBITSET_H

#include <cstdint>
#include <istream>
#include <ostream>

#include "dsdatcol.h"

/// A growable set of small non-negative integers in packed bits. Its
/// storage is a new[] block of its own, not a collection block.
/// One thread at a time, also for reading.
class QUILLON_API dsBitSet : public dsDataCollection<int> {
 public:
  /// No such position: the answer of navigation that finds nothing.
  static constexpr std::uint32_t none = 0xFFFFFFFFu;

  /// n positions, all off. A failed allocation throws std::bad_alloc.
  explicit dsBitSet(std::uint32_t n);
  /// The same positions and bytes (tail included); the copy's capacity is the
  /// source's number of positions. A failed allocation throws std::bad_alloc.
  dsBitSet(dsBitSet const& other);
  ~dsBitSet() override;  ///< Releases the storage.

  bool IsOn(std::uint32_t i) const;  ///< False for a position past the end.
  ///@{
  /// Turns position i on (off). Both grow the set to i + 1 positions when i
  /// is past the end. \return false if the storage cannot be had (or i is
  /// none); the set is then unchanged.
  bool SetOn(std::uint32_t i);
  bool SetOff(std::uint32_t i);
  ///@}
  void Clear();  ///< Every byte to 0, tail included.
  /// Sets [from, to). Fill(0, 0) sets every position and clears the tail;
  /// to 0 with from not 0 means up to the end; to <= from does nothing. to is
  /// not checked against the size: the caller keeps it inside.
  void Fill(std::uint32_t from, std::uint32_t to);
  void Reverse();  ///< Complements every byte, tail included.

  /// \name Set operators
  /// The set operators work byte by byte over the whole storage of the set
  /// and return 1; with a different number of positions on the other side
  /// they return 0 and leave the bits alone. None of them resizes.
  ///@{

  int operator=(dsBitSet const& other);   ///< Takes other's bytes.
  int operator&=(dsBitSet const& other);  ///< This AND other.
  int operator|=(dsBitSet const& other);  ///< This OR other.
  int operator^=(dsBitSet const& other);  ///< This XOR other, then clears the tail.
  int operator-=(dsBitSet const& other);  ///< This AND NOT other.
  int operator%=(dsBitSet const& other);  ///< Other AND NOT this.
  ///@}

  std::uint32_t First() const;  ///< The lowest position that is on; none if there is none.
  std::uint32_t Last() const;   ///< The highest position that is on; none if there is none.
  /// The nearest position that is on above i; none if there is none or i is
  /// past the end.
  std::uint32_t Next(std::uint32_t i) const {
    // Most steps end within the next 64 positions; when those lie wholly
    // before the last byte, any bit found there is a position.
    std::uint32_t j = i + 1, b = j >> 3;
    if (i < bitCount && b + 8 <= static_cast<std::uint32_t>(lastByte)) {
      if (std::uint64_t word = LoadWord(bytes + b) << (j & 7)) {
        return j + static_cast<std::uint32_t>(__builtin_clzll(word));
      }
    }
    return NextScan(i);
  }
  /// The nearest position that is on below i; none if there is none or i is
  /// past the end.
  std::uint32_t Previous(std::uint32_t i) const;
  /// How many positions below i are on (the rank of i if it is on); none for
  /// a position past the end.
  std::uint32_t GetIndex(std::uint32_t i) const;
  /// The position of rank k, from 0; none if k or fewer positions are on.
  std::uint32_t ByIndex(std::uint32_t k) const;

  /// Makes n the number of positions. Within the capacity the storage stays
  /// and the positions from the old end up to the capacity are cleared. Past
  /// it, a last byte that already covers n is kept; otherwise the storage is
  /// replaced by one of exactly (n >> 3) + 1 bytes, keeping the old bytes up
  /// to the old last byte. \return false if the storage cannot be had; the
  /// set is then unchanged.
  bool Resize(std::uint32_t n);
  /// Opens a gap of count cleared positions at pos (pos at most the size).
  /// If the storage cannot be had, or the size would pass none, the set stays
  /// as it was.
  void InsertSegment(std::uint32_t pos, std::uint32_t count);
  /// Takes the positions [pos, pos + count) out (count at most the size); the
  /// capacity and the storage stay.
  void RemoveSegment(std::uint32_t pos, std::uint32_t count);

  unsigned int GetSize() const override;  ///< The number of positions that are on.
  /// A new dsBitSetIter, standing before the first position: a heap object
  /// the caller deletes, or null if no memory.
  dsBaseIter<int>* GetIter() const override;

  /// Writes the packed form of the whole storage (see Pack).
  /// \return 1 if it was written, 0 if the stream had failed before or
  ///         failed on the way (the stream's state says how).
  int Save(std::ostream& out) const;
  /// Reads a packed form back into the storage. The size stays; a failed
  /// Restore may have overwritten bytes.
  /// \return 1 if it gave exactly as many bytes as the set holds, else 0: a
  ///         stream that has failed, a form of another length, or one that
  ///         decodes to more bytes than the set holds (nothing is written
  ///         past the storage then).
  int Restore(std::istream& in);

  std::uint32_t GetBitCount() const { return bitCount; }  ///< The number of positions.
  /// The most positions the present storage was made for; a Resize up to it
  /// keeps the storage.
  std::uint32_t GetCapacity() const { return capacity; }
  /// The storage, lastByte + 1 bytes, tail included: a pointer into the set,
  /// valid until it next resizes.
  unsigned char const* GetBytes() const { return bytes; }

 private:
  // Eight bytes as one word, the first byte in the high bits, so the word's
  // bits run in position order from the top.
  static std::uint64_t LoadWord(unsigned char const* p) {
    return static_cast<std::uint64_t>(p[0]) << 56 | static_cast<std::uint64_t>(p[1]) << 48 |
           static_cast<std::uint64_t>(p[2]) << 40 | static_cast<std::uint64_t>(p[3]) << 32 |
           static_cast<std::uint64_t>(p[4]) << 24 | static_cast<std::uint64_t>(p[5]) << 16 |
           static_cast<std::uint64_t>(p[6]) << 8 | static_cast<std::uint64_t>(p[7]);
  }

  bool Exist(std::uint32_t i) const { return i < bitCount; }
  bool Valid(std::uint32_t i) { return i < bitCount || Resize(i + 1); }
  bool inf(std::uint32_t byte, int bit) const { return (bytes[byte] & (0x80u >> bit)) != 0; }
  void set(bool value, std::uint32_t byte, int bit);
  bool Store(std::uint32_t i, bool value);  // SetOn and SetOff
  void SetUp() const;
  std::uint32_t CountBelow(std::uint32_t i) const;  // positions below i that are on; i <= bitCount
  void ClearTail();
  std::uint32_t NextScan(std::uint32_t i) const;  // Next, the whole way
  void Follow(std::uint32_t n);  // bitCount n, with lastBits and lastByte
  void SetRange(std::uint32_t from, std::uint32_t to, bool value);  // [from, to)
  template <class Operation>
  int Combine(dsBitSet const& other, Operation operation);

  std::uint32_t bitCount;
  std::uint32_t capacity;
  int lastBits;
  int lastByte;
  mutable unsigned int onCount;
  mutable bool onCountValid;
  unsigned char* bytes;
};

/// Walks the positions that are on, in rising order. It does not own the
/// set, which must outlive it.
/// One thread at a time, and not while the set changes.
class QUILLON_API dsBitSetIter : public dsBaseIter<int> {
 public:
  /// Stands at 0, not yet on the first position that is on: call SetAtFirst.
  explicit dsBitSetIter(dsBitSet const& owner);
  dsBitSetIter(dsBitSetIter const& other);  ///< Same set, same position.
  dsBitSetIter& operator=(dsBitSetIter const&) = delete;  ///< Not assignable.

  dsBaseIter<int>* Reproduce() override;
  void SetAtFirst() override;
  bool Finished() const override;
  void MoveToNext() override;
  /// The current position, held in the iterator: writing to it changes
  /// where the walk goes on from, not the set.
  int& Current() const override;

 private:
  mutable int current;  // all ones past the end
  dsBitSet const* owner;
};

/// The text form: "[", the positions that are on in rising order separated
/// by ", ", and "]". Nothing is written to a stream that has failed.
QUILLON_API std::ostream& operator<<(std::ostream& out, dsBitSet const& set);

/// The packed form of a block: its length in decimal digits, with nothing
/// after them, then the bytes, each zero run coded as a byte 0 and a count
/// from 1 to 255. Every byte goes through the formatted inserter for char, so
/// the stream must have no field width pending.
/// \return 0 if everything was written, 1 otherwise (also for a null or
///         empty block, for which nothing is written).
QUILLON_API int Pack(char const* data, unsigned int length, std::ostream& out);
/// Reads a packed form to the end of the stream into data. The length at the
/// head is read and dropped; a first byte that is a decimal digit merges
/// with it and is lost. A 0 behind a zero byte adds nothing, and a zero byte
/// at the very end of the stream adds nothing. data must have room for all
/// the stream holds.
/// \return the number of bytes produced.
QUILLON_API unsigned int Unpack(std::istream& in, char* data);
/// The same, writing at most limit bytes: a form that decodes to more gives 0,
/// and reading stops there.
QUILLON_API unsigned int Unpack(std::istream& in, char* data, unsigned int limit);

#endif

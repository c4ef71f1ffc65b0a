// Bit sets: navigation works on whole bytes and 64-bit words, and counting
// goes through the processor's population count (vekCountBits), so sparse
// and dense sets cost little per position passed.
#include "dsbitset.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "vekbits.h"

namespace {

// The bits of a byte for the first `bits` positions (the high bits).
inline unsigned int HeadMask(int bits) {
  return (0xFF00u >> bits) & 0xFFu;
}

inline unsigned int CountByte(unsigned int byte) {
  return static_cast<unsigned int>(__builtin_popcount(byte));
}

// Sets or clears the bits of byte under mask.
inline void Put(unsigned char& byte, unsigned int mask, bool value) {
  byte = static_cast<unsigned char>(value ? byte | mask : byte & ~mask);
}

// The place (0 = high bit) of the highest and of the lowest bit of a byte
// that is not 0.
inline std::uint32_t HighestBit(unsigned int byte) {
  return static_cast<std::uint32_t>(__builtin_clz(byte) - 24);
}
inline std::uint32_t LowestBit(unsigned int byte) {
  return static_cast<std::uint32_t>(7 - __builtin_ctz(byte));
}

// The place of the bit of the given rank in a byte, counted from the high bit.
std::uint32_t SelectInByte(unsigned int byte, unsigned int rank) {
  for (std::uint32_t bit = 0;; ++bit) {
    if ((byte & (0x80u >> bit)) != 0 && rank-- == 0) return bit;
  }
}

// Copies n positions from `from` to `to` within the block, like memmove but
// by bits: overlapping ranges are safe. The destination is written a byte at
// a time, from the end that the source cannot reach any more.
void MoveBits(unsigned char* bytes, std::uint64_t to, std::uint64_t from, std::uint64_t n) {
  if (n == 0 || to == from) return;
  auto piece = [&](std::uint64_t d, unsigned int length) {  // length bits at d, in one byte
    std::uint64_t source = d - to + from;
    unsigned int offset = static_cast<unsigned int>(source & 7);
    unsigned int window = static_cast<unsigned int>(bytes[source >> 3]) << 8;
    if (offset + length > 8) window |= bytes[(source >> 3) + 1];
    unsigned int value = (window >> (16 - offset - length)) & ((1u << length) - 1);
    unsigned int shift = 8 - static_cast<unsigned int>(d & 7) - length;
    unsigned int mask = ((1u << length) - 1) << shift;
    unsigned char& target = bytes[d >> 3];
    target = static_cast<unsigned char>((target & ~mask) | (value << shift));
  };
  std::uint64_t end = to + n;
  if (to > from) {  // upward: from the top down
    while (end > to) {
      std::uint64_t start = std::max(to, (end - 1) & ~std::uint64_t{7});
      piece(start, static_cast<unsigned int>(end - start));
      end = start;
    }
  } else {
    for (std::uint64_t d = to; d < end;) {
      std::uint64_t stop = std::min(end, (d | 7) + 1);
      piece(d, static_cast<unsigned int>(stop - d));
      d = stop;
    }
  }
}

}  // namespace

dsBitSet::dsBitSet(std::uint32_t n)
    : bitCount(n),
      capacity(n),
      lastBits(static_cast<int>(n & 7)),
      lastByte(static_cast<int>(n >> 3)),
      onCount(0),
      onCountValid(true),
      bytes(new unsigned char[(n >> 3) + 1]()) {}

dsBitSet::dsBitSet(dsBitSet const& other)
    : dsDataCollection<int>(other),
      bitCount(other.bitCount),
      capacity(other.bitCount),
      lastBits(other.lastBits),
      lastByte(other.lastByte),
      onCount(0),
      onCountValid(false),
      bytes(new unsigned char[static_cast<std::size_t>(other.lastByte) + 1]) {
  std::memcpy(bytes, other.bytes, static_cast<std::size_t>(lastByte) + 1);
}

dsBitSet::~dsBitSet() {
  delete[] bytes;
}

void dsBitSet::set(bool value, std::uint32_t byte, int bit) {
  Put(bytes[byte], 0x80u >> bit, value);
}

void dsBitSet::ClearTail() {
  bytes[lastByte] = static_cast<unsigned char>(bytes[lastByte] & HeadMask(lastBits));
}

void dsBitSet::Follow(std::uint32_t n) {
  bitCount = n;
  lastBits = static_cast<int>(n & 7);
  lastByte = static_cast<int>(n >> 3);
}

void dsBitSet::SetRange(std::uint32_t from, std::uint32_t to, bool value) {
  if (to <= from) return;
  std::uint32_t firstByte = from >> 3, endByte = to >> 3;
  unsigned int head = 0xFFu >> (from & 7);        // the bits of the first byte from `from` on
  unsigned int below = HeadMask(static_cast<int>(to & 7));  // the bits of the last byte below `to`
  if (firstByte == endByte) {
    Put(bytes[firstByte], head & below, value);
    return;
  }
  Put(bytes[firstByte], head, value);
  std::memset(bytes + firstByte + 1, value ? 0xFF : 0, endByte - firstByte - 1);
  if (below != 0) Put(bytes[endByte], below, value);
}

bool dsBitSet::IsOn(std::uint32_t i) const {
  return Exist(i) && inf(i >> 3, static_cast<int>(i & 7));
}

bool dsBitSet::Store(std::uint32_t i, bool value) {
  // No set has a position past none - 1: its size would not fit 32 bits.
  if (i == none || !Valid(i)) return false;
  set(value, i >> 3, static_cast<int>(i & 7));
  onCountValid = false;
  return true;
}

bool dsBitSet::SetOn(std::uint32_t i) {
  return Store(i, true);
}

bool dsBitSet::SetOff(std::uint32_t i) {
  return Store(i, false);
}

void dsBitSet::Clear() {
  std::memset(bytes, 0, static_cast<std::size_t>(lastByte) + 1);
  onCountValid = false;
}

void dsBitSet::Fill(std::uint32_t from, std::uint32_t to) {
  onCountValid = false;
  if (from == 0 && to == 0) {
    std::memset(bytes, 0xFF, static_cast<std::size_t>(lastByte) + 1);
    ClearTail();
    return;
  }
  if (to == 0) to = bitCount;
  SetRange(from, to, true);
}

void dsBitSet::Reverse() {
  for (int b = 0; b <= lastByte; ++b) bytes[b] = static_cast<unsigned char>(~bytes[b]);
  onCountValid = false;
}

template <class Operation>
int dsBitSet::Combine(dsBitSet const& other, Operation operation) {
  onCountValid = false;
  if (bitCount != other.bitCount) return 0;
  for (int b = 0; b <= lastByte; ++b) {
    bytes[b] = static_cast<unsigned char>(operation(bytes[b], other.bytes[b]));
  }
  return 1;
}

int dsBitSet::operator=(dsBitSet const& other) {
  return Combine(other, [](unsigned int, unsigned int theirs) { return theirs; });
}

int dsBitSet::operator&=(dsBitSet const& other) {
  return Combine(other, [](unsigned int mine, unsigned int theirs) { return mine & theirs; });
}

int dsBitSet::operator|=(dsBitSet const& other) {
  return Combine(other, [](unsigned int mine, unsigned int theirs) { return mine | theirs; });
}

int dsBitSet::operator^=(dsBitSet const& other) {
  if (Combine(other, [](unsigned int mine, unsigned int theirs) { return mine ^ theirs; }) == 0) return 0;
  ClearTail();
  return 1;
}

int dsBitSet::operator-=(dsBitSet const& other) {
  return Combine(other, [](unsigned int mine, unsigned int theirs) { return mine & ~theirs; });
}

int dsBitSet::operator%=(dsBitSet const& other) {
  return Combine(other, [](unsigned int mine, unsigned int theirs) { return theirs & ~mine; });
}

std::uint32_t dsBitSet::First() const {
  return IsOn(0) ? 0 : Next(0);
}

std::uint32_t dsBitSet::Last() const {
  if (bitCount == 0) return none;
  return IsOn(bitCount - 1) ? bitCount - 1 : Previous(bitCount - 1);
}

std::uint32_t dsBitSet::NextScan(std::uint32_t i) const {
  if (i >= bitCount) return none;
  std::uint32_t j = i + 1;  // at most bitCount, so its byte exists
  std::uint32_t b = j >> 3;
  std::uint32_t end = static_cast<std::uint32_t>(lastByte) + 1;
  std::uint32_t found = none;
  if (unsigned int rest = bytes[b] & (0xFFu >> (j & 7))) {
    found = (b << 3) + HighestBit(rest);
  } else {
    for (++b; b + 8 <= end; b += 8) {
      if (std::uint64_t word = LoadWord(bytes + b)) {
        found = (b << 3) + static_cast<std::uint32_t>(__builtin_clzll(word));
        break;
      }
    }
    if (found == none) {
      for (; b < end; ++b) {
        if (bytes[b] != 0) {
          found = (b << 3) + HighestBit(bytes[b]);
          break;
        }
      }
    }
  }
  return found < bitCount ? found : none;  // a tail bit is no position
}

std::uint32_t dsBitSet::Previous(std::uint32_t i) const {
  if (i >= bitCount || i == 0) return none;
  std::uint32_t j = i - 1;
  std::uint32_t b = j >> 3;
  if (unsigned int upTo = bytes[b] & HeadMask(static_cast<int>(j & 7) + 1)) {
    return (b << 3) + LowestBit(upTo);
  }
  while (b >= 8) {
    b -= 8;
    if (std::uint64_t word = LoadWord(bytes + b)) {
      return (b << 3) + 63 - static_cast<std::uint32_t>(__builtin_ctzll(word));
    }
  }
  while (b > 0) {
    --b;
    if (bytes[b] != 0) return (b << 3) + LowestBit(bytes[b]);
  }
  return none;
}

std::uint32_t dsBitSet::CountBelow(std::uint32_t i) const {
  std::uint32_t b = i >> 3;
  return static_cast<std::uint32_t>(vekCountBits(bytes, b)) +
         CountByte(bytes[b] & HeadMask(static_cast<int>(i & 7)));
}

std::uint32_t dsBitSet::GetIndex(std::uint32_t i) const {
  return i < bitCount ? CountBelow(i) : none;
}

std::uint32_t dsBitSet::ByIndex(std::uint32_t k) const {
  std::uint32_t const whole = static_cast<std::uint32_t>(lastByte);  // bytes wholly inside the set
  std::uint32_t rank = k;
  std::uint32_t b = 0;
  // Whole blocks are passed by their count, first large ones, then small
  // ones inside the large block that holds the position; then bytes.
  for (std::uint32_t block : {4096u, 64u}) {
    while (b + block <= whole) {
      auto inBlock = static_cast<std::uint32_t>(vekCountBits(bytes + b, block));
      if (inBlock > rank) break;
      rank -= inBlock;
      b += block;
    }
  }
  for (; b < whole; ++b) {
    unsigned int inByte = CountByte(bytes[b]);
    if (inByte > rank) return (b << 3) + SelectInByte(bytes[b], rank);
    rank -= inByte;
  }
  unsigned int last = bytes[whole] & HeadMask(lastBits);
  if (CountByte(last) > rank) return (whole << 3) + SelectInByte(last, rank);
  return none;
}

bool dsBitSet::Resize(std::uint32_t n) {
  onCountValid = false;
  if (n <= capacity) {
    // Bits left behind by an earlier shrink or by whole-byte operations
    // beyond the end must not come back as positions.
    SetRange(bitCount, capacity, false);
    Follow(n);
    return true;
  }
  if (static_cast<int>(n >> 3) <= lastByte) {  // the last byte already covers n
    capacity = n;
    Follow(n);
    return true;
  }
  std::size_t size = static_cast<std::size_t>(n >> 3) + 1;
  unsigned char* block = new (std::nothrow) unsigned char[size];
  if (block == nullptr) return false;
  std::memset(block, 0, size);
  std::memcpy(block, bytes, static_cast<std::size_t>(lastByte) + 1);
  delete[] bytes;
  bytes = block;
  capacity = n;
  Follow(n);
  return true;
}

void dsBitSet::InsertSegment(std::uint32_t pos, std::uint32_t count) {
  std::uint32_t old = bitCount;
  if (count == 0 || count > none - old || !Resize(old + count)) return;
  MoveBits(bytes, std::uint64_t{pos} + count, pos, old - pos);
  SetRange(pos, pos + count, false);
  onCountValid = false;
}

void dsBitSet::RemoveSegment(std::uint32_t pos, std::uint32_t count) {
  if (std::uint64_t{pos} + count < bitCount) {
    MoveBits(bytes, pos, std::uint64_t{pos} + count, bitCount - pos - count);
  }
  Follow(bitCount - count);
  onCountValid = false;
}

void dsBitSet::SetUp() const {
  onCount = CountBelow(bitCount);
  onCountValid = true;
}

unsigned int dsBitSet::GetSize() const {
  if (!onCountValid) SetUp();
  return onCount;
}

dsBaseIter<int>* dsBitSet::GetIter() const {
  return new (std::nothrow) dsBitSetIter(*this);
}

int dsBitSet::Save(std::ostream& out) const {
  if (out.fail()) return 0;
  return Pack(reinterpret_cast<char const*>(bytes), static_cast<unsigned int>(lastByte) + 1, out) == 0
             ? 1
             : 0;
}

int dsBitSet::Restore(std::istream& in) {
  if (in.fail()) return 0;
  unsigned int const size = static_cast<unsigned int>(lastByte) + 1;
  unsigned int produced = Unpack(in, reinterpret_cast<char*>(bytes), size);
  onCountValid = false;
  return produced == size ? 1 : 0;
}

dsBitSetIter::dsBitSetIter(dsBitSet const& owner) : current(0), owner(&owner) {}

dsBitSetIter::dsBitSetIter(dsBitSetIter const& other)
    : dsBaseIter<int>(), current(other.current), owner(other.owner) {}

dsBaseIter<int>* dsBitSetIter::Reproduce() {
  return new (std::nothrow) dsBitSetIter(*this);
}

void dsBitSetIter::SetAtFirst() {
  current = static_cast<int>(owner->First());
}

bool dsBitSetIter::Finished() const {
  return static_cast<std::uint32_t>(current) == dsBitSet::none;
}

void dsBitSetIter::MoveToNext() {
  current = static_cast<int>(owner->Next(static_cast<std::uint32_t>(current)));
}

int& dsBitSetIter::Current() const {
  return current;
}

std::ostream& operator<<(std::ostream& out, dsBitSet const& set) {
  if (out.fail()) return out;
  out << "[";
  char const* separator = "";
  for (std::uint32_t p = set.First(); p != dsBitSet::none; p = set.Next(p)) {
    out << separator << p;
    separator = ", ";
  }
  return out << "]";
}

int Pack(char const* data, unsigned int length, std::ostream& out) {
  if (data == nullptr || length == 0) return 1;
  out << length;
  unsigned int run = 0;  // the open run of zero bytes
  for (unsigned int i = 0; i < length && out; ++i) {
    char byte = data[i];
    if (byte != 0) {
      if (run != 0) out << static_cast<char>(run);
      run = 0;
      out << byte;
    } else if (run == 0) {
      out << '\0';
      run = 1;
    } else if (run < 255) {
      ++run;
    } else {
      out << static_cast<char>(255) << '\0';
      run = 1;
    }
  }
  if (run != 0) out << static_cast<char>(run);
  return out ? 0 : 1;
}

unsigned int Unpack(std::istream& in, char* data) {
  return Unpack(in, data, ~0u);
}

unsigned int Unpack(std::istream& in, char* data, unsigned int limit) {
  unsigned int count = 0;
  in >> count;  // only skipped: the reader takes what the stream holds
  unsigned int produced = 0;
  for (int c; (c = in.get()) != std::istream::traits_type::eof();) {
    if (c != 0) {
      if (produced == limit) return 0;
      data[produced++] = static_cast<char>(c);
      continue;
    }
    int run = in.get();
    if (run == std::istream::traits_type::eof()) break;  // no count byte: nothing for it
    if (static_cast<unsigned int>(run) > limit - produced) return 0;
    std::memset(data + produced, 0, static_cast<std::size_t>(run));
    produced += static_cast<unsigned int>(run);
  }
  return produced;
}

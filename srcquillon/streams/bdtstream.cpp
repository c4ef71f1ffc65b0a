// The binary stream tree: the byte-order latch, numbers in both wire forms,
// and raw blocks. Text, and 16-bit values as characters, live in bdttext.cpp.
#include "bdtstream.h"

#include <cstdint>
#include <cstring>

#include "vektext.h"

namespace {

// The first allocation step of a payload whose count came off the wire; each
// further step doubles what has arrived, up to the count.
constexpr int firstPayloadStep = 64 * 1024;

std::uint32_t Reversed(std::uint32_t v) {
  return (v >> 24) | ((v >> 8) & 0xff00u) | ((v << 8) & 0xff0000u) | (v << 24);
}

// Reverses the 4 or 8 bytes of a number in place. Kept here, inline, so that
// a number costs no call beyond the buffer's own.
template <std::size_t N>
void Reverse(char* bytes) {
  static_assert(N == 4 || N == 8, "only 32- and 64-bit values are swapped");
  std::uint32_t halves[N / 4];
  std::memcpy(halves, bytes, N);
  if constexpr (N == 4) {
    halves[0] = Reversed(halves[0]);
  } else {
    std::uint32_t const low = halves[0];
    halves[0] = Reversed(halves[1]);
    halves[1] = Reversed(low);
  }
  std::memcpy(bytes, halves, N);
}

// Turns a number's bytes between host and wire order, both ways: only the
// portable form of a value wider than 16 bits on a little-endian host moves.
template <std::size_t N>
void WireOrder(char* bytes, int portable, int byteOrderOK) {
  if constexpr (N > 2) {
    if (portable != 0 && byteOrderOK == 0) Reverse<N>(bytes);
  }
}

}  // namespace

// Constant-initialised: no code runs for them at load.
std::atomic<int> bdtBase::byteOrderOK{0};
std::atomic<int> bdtBase::firstUse{1};

// ---------------------------------------------------------------------------
// bdtBase

bdtBase::bdtBase() {
  if (firstUse.load(std::memory_order_relaxed) != 0) {
    byteOrderOK.store(IsByteOrderOK(), std::memory_order_relaxed);
    firstUse.store(0, std::memory_order_relaxed);
  }
}

bdtBase::~bdtBase() {}

int bdtBase::IsByteOrderOK() {
  // Big-endian: the most significant byte comes first in memory.
  std::uint32_t const one = 1;
  unsigned char first;
  std::memcpy(&first, &one, 1);
  return first == 0 ? 1 : 0;
}

void bdtBase::Swap4(char* bytes) {
  if (byteOrderOK.load(std::memory_order_relaxed) == 0) Reverse<4>(bytes);
}

void bdtBase::Swap8(char* bytes) {
  if (byteOrderOK.load(std::memory_order_relaxed) == 0) Reverse<8>(bytes);
}

unsigned int bdtBase::Length(char, int) { return 1; }
unsigned int bdtBase::Length(unsigned char, int) { return 1; }
unsigned int bdtBase::Length(short, int portable) { return portable != 0 ? 4 : 2; }
unsigned int bdtBase::Length(unsigned short, int portable) { return portable != 0 ? 4 : 2; }
unsigned int bdtBase::Length(int, int) { return 4; }
unsigned int bdtBase::Length(unsigned int, int) { return 4; }
unsigned int bdtBase::Length(float, int) { return 4; }
unsigned int bdtBase::Length(double, int) { return 8; }

unsigned int bdtBase::Length(char const* text, int) {
  return text == nullptr ? 4u : static_cast<unsigned int>(Strlen(text)) + 4u;
}

// ---------------------------------------------------------------------------
// bdtStream

bdtStream::bdtStream(std::basic_streambuf<char>* buffer, int portable)
    : state(0), portable(portable), multibyte(0), buffer(buffer) {}

bdtStream::bdtStream() : state(0), portable(1), multibyte(0), buffer(nullptr) {}

bdtStream::~bdtStream() {}

// ---------------------------------------------------------------------------
// bdtIStream

bdtIStream::bdtIStream(std::basic_streambuf<char>* buffer, int portable)
    : bdtStream(buffer, portable) {}

bdtIStream::bdtIStream() {}

bdtIStream::~bdtIStream() {}

template <class T>
bool bdtIStream::ReadNumber(T& value) {
  char bytes[sizeof(T)];
  if (sgetn(bytes, sizeof(T)) != static_cast<int>(sizeof(T))) return false;
  WireOrder<sizeof(T)>(bytes, portable, byteOrderOK.load(std::memory_order_relaxed));
  std::memcpy(&value, bytes, sizeof(T));
  return true;
}

bdtIStream& bdtIStream::operator>>(char& value) {
  sgetn(&value, 1);
  return *this;
}

bdtIStream& bdtIStream::operator>>(unsigned char& value) {
  char c;
  if (sgetn(&c, 1) == 1) value = static_cast<unsigned char>(c);
  return *this;
}

bdtIStream& bdtIStream::operator>>(short& value) {
  if (portable == 0) {
    ReadNumber(value);
    return *this;
  }
  std::int32_t wide;
  if (ReadNumber(wide)) {
    value = static_cast<short>(wide);
    if (value != wide) setstate(2);
  }
  return *this;
}

bdtIStream& bdtIStream::operator>>(unsigned short& value) {
  if (portable == 0) {
    ReadNumber(value);
    return *this;
  }
  if (multibyte != 0) {
    ReadCharacter(value);
    return *this;
  }
  std::uint32_t wide;
  if (ReadNumber(wide)) value = static_cast<unsigned short>(wide);
  return *this;
}

bdtIStream& bdtIStream::operator>>(int& value) {
  ReadNumber(value);
  return *this;
}

bdtIStream& bdtIStream::operator>>(unsigned int& value) {
  ReadNumber(value);
  return *this;
}

bdtIStream& bdtIStream::operator>>(long& value) {
  std::int32_t wire;
  if (ReadNumber(wire)) value = wire;
  return *this;
}

bdtIStream& bdtIStream::operator>>(unsigned long& value) {
  std::uint32_t wire;
  if (ReadNumber(wire)) value = wire;
  return *this;
}

bdtIStream& bdtIStream::operator>>(float& value) {
  ReadNumber(value);
  return *this;
}

bdtIStream& bdtIStream::operator>>(double& value) {
  ReadNumber(value);
  return *this;
}

bool bdtIStream::ReadPrefix(int& count) {
  return ReadNumber(count);
}

char* bdtIStream::ReadPayload(int count, int extra) {
  if (count < 0) {
    setstate(2);
    return nullptr;
  }
  // The count is what the writer claims: take it in steps, so that a hostile
  // prefix costs no more memory than the bytes that really arrive.
  int step = count < firstPayloadStep ? count : firstPayloadStep;
  char* block = new char[static_cast<std::size_t>(step) + static_cast<std::size_t>(extra)];
  int got = 0;
  for (;;) {
    if (sgetn(block + got, step - got) != step - got) {
      delete[] block;
      return nullptr;
    }
    got = step;
    if (got == count) return block;
    step = count - got > got ? 2 * got : count;
    char* larger = new char[static_cast<std::size_t>(step) + static_cast<std::size_t>(extra)];
    std::memcpy(larger, block, static_cast<std::size_t>(got));
    delete[] block;
    block = larger;
  }
}

bdtIStream& bdtIStream::Read(char*& block, int& count) {
  int n;
  if (!ReadPrefix(n)) return *this;
  count = n;
  block = ReadPayload(n, 0);
  return *this;
}

// ---------------------------------------------------------------------------
// bdtOStream

bdtOStream::bdtOStream(std::basic_streambuf<char>* buffer, int portable)
    : bdtStream(buffer, portable) {}

bdtOStream::bdtOStream() {}

bdtOStream::~bdtOStream() {}

template <class T>
void bdtOStream::WriteNumber(T value) {
  char bytes[sizeof(T)];
  std::memcpy(bytes, &value, sizeof(T));
  WireOrder<sizeof(T)>(bytes, portable, byteOrderOK.load(std::memory_order_relaxed));
  sputn(bytes, sizeof(T));
}

// long and unsigned long have 4 bytes on the wire. A value that needs more
// breaks the stream and leaves the buffer alone: it is never sent cut.
template <class Wire, class T>
bdtOStream& bdtOStream::WriteAs32Bits(T value) {
  Wire const wire = static_cast<Wire>(value);
  if (wire != value) {
    setstate(4);
  } else {
    WriteNumber(wire);
  }
  return *this;
}

bdtOStream& bdtOStream::operator<<(char value) {
  sputn(&value, 1);
  return *this;
}

bdtOStream& bdtOStream::operator<<(unsigned char value) {
  char c = static_cast<char>(value);
  sputn(&c, 1);
  return *this;
}

bdtOStream& bdtOStream::operator<<(short value) {
  if (portable != 0) {
    WriteNumber(static_cast<std::int32_t>(value));
  } else {
    WriteNumber(value);
  }
  return *this;
}

bdtOStream& bdtOStream::operator<<(unsigned short value) {
  if (portable != 0 && multibyte != 0) {
    WriteCharacter(value);
  } else if (portable != 0) {
    WriteNumber(static_cast<std::uint32_t>(value));
  } else {
    WriteNumber(value);
  }
  return *this;
}

bdtOStream& bdtOStream::operator<<(int value) {
  WriteNumber(value);
  return *this;
}

bdtOStream& bdtOStream::operator<<(unsigned int value) {
  WriteNumber(value);
  return *this;
}

bdtOStream& bdtOStream::operator<<(long value) {
  return WriteAs32Bits<std::int32_t>(value);
}

bdtOStream& bdtOStream::operator<<(unsigned long value) {
  return WriteAs32Bits<std::uint32_t>(value);
}

bdtOStream& bdtOStream::operator<<(float value) {
  WriteNumber(value);
  return *this;
}

bdtOStream& bdtOStream::operator<<(double value) {
  WriteNumber(value);
  return *this;
}

bdtOStream& bdtOStream::Write(char const* block, int count) {
  *this << count;
  sputn(block, count);
  return *this;
}

bdtOStream& flush(bdtOStream& stream) {
  return stream;
}

// ---------------------------------------------------------------------------
// bdtIOStream

bdtIOStream::bdtIOStream() {}

bdtIOStream::bdtIOStream(std::basic_streambuf<char>* buffer, bool portable)
    : bdtStream(buffer, portable ? 1 : 0) {}

bdtIOStream::~bdtIOStream() {}

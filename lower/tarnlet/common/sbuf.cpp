// The buffered stream buffers: the put area of every buffered output, and
// the buffers over a subclass's Read and Write.
#include "veksbuf.h"

#include <cstring>

using traits = std::char_traits<char>;

vekStreamBufferBase::~vekStreamBufferBase() {
  if (ownsBase) delete[] bufferBase;
}

char* vekStreamBufferBase::Storage(int size) {
  if (bufferBase == nullptr) {
    bufferBase = new char[size > 0 ? static_cast<unsigned>(size) : 1u];
    ownsBase = true;
  }
  return bufferBase;
}

bool vekStreamBufferBase::DropStorage() {
  if (!ownsBase) return bufferBase == nullptr;
  delete[] bufferBase;
  bufferBase = nullptr;
  ownsBase = false;
  return true;
}

// The put area.

bool vekBufferedOutput::DrainPutArea() {
  char* const start = pbase();
  char const* next = start;
  int left = static_cast<int>(pptr() - start);
  while (left > 0) {
    int const took = Write(next, left);
    if (took <= 0) break;
    next += took;
    left -= took;
  }
  if (left > 0 && next != start) std::memmove(start, next, static_cast<std::size_t>(left));
  setp(start, epptr());
  pbump(left);
  return left == 0;
}

// Input.

vekIStreamBuf::vekIStreamBuf(int size, char* storage)
    : vekStreamBufferSize(size), vekStreamBufferBase(storage) {}

vekIStreamBuf::~vekIStreamBuf() = default;

int vekIStreamBuf::doallocate() {
  char* base = Storage(bufferSize);
  getRoom = bufferSize > 0 ? bufferSize : 0;
  setg(base, base + getRoom, base + getRoom);
  return 1;
}

vekIStreamBuf::int_type vekIStreamBuf::underflow() {
  if (gptr() < egptr()) return traits::to_int_type(*gptr());
  if (eback() == nullptr) doallocate();
  int got = getRoom > 0 ? Read(eback(), getRoom) : -1;
  if (got <= 0) {
    setg(eback(), eback(), eback());
    return traits::eof();
  }
  setg(eback(), eback(), eback() + got);
  return traits::to_int_type(*gptr());
}

bool vekIStreamBuf::SetBufferSize(int size) {
  if (size < 1 || gptr() < egptr() || !DropStorage()) return false;
  setg(nullptr, nullptr, nullptr);
  getRoom = 0;
  return vekStreamBufferSize::SetBufferSize(size);
}

// Output.

vekOStreamBuf::vekOStreamBuf(int size, char* storage)
    : vekStreamBufferSize(size), vekStreamBufferBase(storage) {}

vekOStreamBuf::~vekOStreamBuf() = default;

int vekOStreamBuf::doallocate() {
  char* base = Storage(bufferSize);
  setp(base, base + (bufferSize > 0 ? bufferSize : 0));
  return 1;
}

int vekOStreamBuf::flush() {
  if (DrainPutArea()) return 0;
  setp(pbase(), epptr());  // what a failed Write left is dropped
  return -1;
}

vekOStreamBuf::int_type vekOStreamBuf::overflow(int_type c) {
  if (pbase() == nullptr) doallocate();
  if (pptr() == epptr() && flush() != 0) return traits::eof();
  if (traits::eq_int_type(c, traits::eof())) return flush() == 0 ? traits::not_eof(c) : traits::eof();
  char byte = traits::to_char_type(c);
  if (pptr() == epptr()) return Write(&byte, 1) == 1 ? c : traits::eof();  // no put area at all
  *pptr() = byte;
  pbump(1);
  return c;
}

int vekOStreamBuf::sync() { return flush() == 0 ? 0 : -1; }

bool vekOStreamBuf::SetBufferSize(int size) {
  if (size < 1 || pptr() > pbase() || !DropStorage()) return false;
  setp(nullptr, nullptr);
  return vekStreamBufferSize::SetBufferSize(size);
}

// Both directions on one storage.

vekIOStreamBuf::vekIOStreamBuf(int size, char* storage)
    : vekStreamBufferSize(size),
      vekStreamBufferBase(storage),
      vekIStreamBuf(size, storage),
      vekOStreamBuf(size, storage) {}

vekIOStreamBuf::~vekIOStreamBuf() = default;

int vekIOStreamBuf::doallocate() {
  int size = bufferSize > 0 ? bufferSize : 0;
  char* base = Storage(size);
  getRoom = size - size / 2;
  setg(base, base + getRoom, base + getRoom);
  setp(base + getRoom, base + size);
  return 1;
}

vekIOStreamBuf::int_type vekIOStreamBuf::underflow() {
  if (gptr() < egptr()) return traits::to_int_type(*gptr());
  // A failed send does not keep back what the peer may still have sent.
  (void)flush();
  return vekIStreamBuf::underflow();
}

bool vekIOStreamBuf::SetBufferSize(int size) {
  // The input side's checks and reset, with the put area that shares the storage.
  if (size < 2 || pptr() > pbase() || !vekIStreamBuf::SetBufferSize(size)) return false;
  setp(nullptr, nullptr);
  return true;
}

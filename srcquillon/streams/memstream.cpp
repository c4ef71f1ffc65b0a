// The abstract read-write stream and the block-based stream in memory.
#include "memstream.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace {

constexpr std::uint32_t offsetMask = memStream::blockSize - 1;
constexpr int blockShift = 12;
static_assert(memStream::blockSize == 1u << blockShift, "the block size is a power of two");

// Any target further than this from 0 is out of range for a 32-bit stream;
// cutting offsets off here keeps the arithmetic of Seek from overflowing.
constexpr long long farOffset = 1LL << 40;

}  // namespace

// ---------------------------------------------------------------------------
// rwStream

rwStream::~rwStream() {}

errstatus rwStream::ReadLn(dsXArray<char>& line, char delimiter) {
  line.Clear();
  errstatus result;
  for (;;) {
    char byte;
    int got = 0;
    result = Read(&byte, 1, got);
    if (result != errOK || got == 0 || byte == delimiter) break;
    line += byte;
  }
  line += '\0';
  return result;
}

// ---------------------------------------------------------------------------
// memStream

memStream::memStream() : pos(0), limit(0) {}

memStream::~memStream() {
  for (unsigned int i = 0; i < blocks.GetSize(); ++i) delete[] blocks[i];
}

errstatus memStream::OpenRead(char const*) {
  return errOK;
}

errstatus memStream::OpenWrite(char const*) {
  return errOK;
}

errstatus memStream::JumpTo(std::streampos p) {
  std::streamoff const target = p;
  unsigned int const wanted = static_cast<unsigned int>(target / blockSize) + 1;
  while (blocks.GetSize() < wanted) {
    char* block = new (std::nothrow) char[blockSize];
    if (block == nullptr) return errNoMemoryOrIO;
    std::memset(block, 0x20, blockSize);
    blocks += block;
  }
  pos = static_cast<std::uint32_t>(target);
  return errOK;
}

errstatus memStream::Retrieve(char* p, int n, int* got) {
  // A write that could not make its next block leaves the end mark on a
  // position without a block: the data ends there for reading.
  bool const haveBlock = (pos >> blockShift) < blocks.GetSize();
  std::uint32_t const left = haveBlock && limit > pos ? limit - pos : 0;
  std::uint32_t const len =
      std::min({static_cast<std::uint32_t>(n), blockSize - (pos & offsetMask), left});
  if (len != 0) std::memcpy(p, blocks[pos >> blockShift] + (pos & offsetMask), len);
  pos += len;
  *got = static_cast<int>(len);
  return errOK;
}

errstatus memStream::Read(char* p, int n, int& got) {
  got = 0;
  while (n > 0) {
    int step;
    Retrieve(p, n, &step);
    if (step == 0) break;
    got += step;
    p += step;
    n -= step;
  }
  return errOK;
}

errstatus memStream::Read(dsXArray<char>& bytes) {
  bytes.Resize(limit);
  int got;
  Read(bytes.GetDataPtr(), static_cast<int>(limit), got);
  return errOK;
}

errstatus memStream::Store(char* p, int n, int* put) {
  std::uint32_t const len = std::min(static_cast<std::uint32_t>(n), blockSize - (pos & offsetMask));
  std::memcpy(blocks[pos >> blockShift] + (pos & offsetMask), p, len);
  std::uint32_t const next = pos + len;
  if (next + 1 > limit) limit = next + 1;
  *put = static_cast<int>(len);
  return JumpTo(std::streampos(next));
}

errstatus memStream::Write(char* p, int n) {
  errstatus result = JumpTo(std::streampos(pos));
  if (result != errOK || n < 1) return result;
  while (n > 0) {
    int put;
    result = Store(p, n, &put);
    if (result != errOK) return result;
    p += put;
    n -= put;
  }
  return result;
}

errstatus memStream::Write(dsXArray<char>& bytes) {
  return Write(bytes.GetDataPtr(), static_cast<int>(bytes.GetSize()));
}

errstatus memStream::Seek(long long offset, int whence) {
  long long target;
  switch (whence) {
    case 0:
      if (offset == pos) return errOK;
      target = offset;
      break;
    case 1:
      if (offset == 0) return errOK;
      if (offset < -farOffset || offset > farOffset) return errOutOfRange;
      target = static_cast<long long>(pos) + offset;
      break;
    case 2:
      if (offset < -farOffset || offset > farOffset) return errOutOfRange;
      target = static_cast<long long>(limit) - offset - 1;
      break;
    default:
      target = 0;
      break;
  }
  if (target < 0 || target > static_cast<long long>(limit) - 1) return errOutOfRange;
  return JumpTo(std::streampos(target));
}

errstatus memStream::GetPos(std::streampos& position) {
  position = std::streampos(static_cast<std::streamoff>(pos));
  return errOK;
}

// ---------------------------------------------------------------------------
// The plain C face

extern "C" int CreateStreamInMemory(rwStream** stream) {
  *stream = new (std::nothrow) memStream();
  return 0;
}

extern "C" int DeleteStreamInMemory(rwStream* stream) {
  delete stream;
  return 0;
}

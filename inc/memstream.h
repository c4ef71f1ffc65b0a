// quillon memory streams: the abstract read-write stream and its
// implementation in memory.
//
// rwStream reports through errstatus: 1 is success. memStream keeps its
// bytes in blocks of 4096 bytes that never move once made; only the table of
// block pointers grows. A new block is filled with spaces (0x20), not zeros.
// After every write the block of the current position exists. The end mark
// `limit` is one more than the position behind the furthest byte written, so
// a stream of N bytes written from position 0 has a limit of N + 1 and reads
// back N + 1 bytes, the last one the filler. Seek never extends a stream;
// only Write does.
#ifndef MEMSTREAM_H
#define MEMSTREAM_H

#include <cstdint>
#include <ios>

#include "quillonbase.h"
#include "dsdatcol.h"

class QUILLON_API rwStream {
 public:
  rwStream() {}
  rwStream(rwStream const&) = delete;
  rwStream& operator=(rwStream const&) = delete;

  virtual errstatus OpenRead(char const* name) = 0;
  virtual errstatus OpenWrite(char const* name) = 0;
  virtual errstatus Read(dsXArray<char>& bytes) = 0;
  // Reads up to n bytes into p; got receives how many came. The end of the
  // data is no failure: got is then below n.
  virtual errstatus Read(char* p, int n, int& got) = 0;
  // Reads bytes one at a time up to the delimiter (consumed, not stored) or
  // the end of the data, then adds a byte 0, which counts in the size. At the
  // end of the data the line is the 0 alone. Returns the last Read's result.
  virtual errstatus ReadLn(dsXArray<char>& line, char delimiter);
  virtual errstatus Write(dsXArray<char>& bytes) = 0;
  virtual errstatus Write(char* p, int n) = 0;
  // whence 0: from the start; 1: from the current position; 2: backwards
  // from the position behind the last byte.
  virtual errstatus Seek(long long offset, int whence) = 0;
  virtual errstatus GetPos(std::streampos& position) = 0;
  virtual ~rwStream();
};

class QUILLON_API memStream : public rwStream {
 public:
  memStream();
  ~memStream() override;

  // Nothing to open: both return 1 whatever the name.
  errstatus OpenRead(char const* name) override;
  errstatus OpenWrite(char const* name) override;
  // Resizes bytes to `limit` elements and reads into them from the current
  // position; what the read does not reach stays as the resize left it.
  errstatus Read(dsXArray<char>& bytes) override;
  errstatus Read(char* p, int n, int& got) override;  // always 1
  errstatus Write(dsXArray<char>& bytes) override;
  // Writes at the current position, overwriting what is there. 6 when a
  // block cannot be had; the bytes stored before stay.
  errstatus Write(char* p, int n) override;
  // 3 for a target before 0 or past `limit` - 1 (the position is kept); 6
  // when a block cannot be had. Any whence other than 0, 1, 2 rewinds to 0.
  errstatus Seek(long long offset, int whence) override;
  errstatus GetPos(std::streampos& position) override;  // always 1

  static constexpr std::uint32_t blockSize = 0x1000;

 protected:
  dsXArray<char*> blocks;  // each entry owns a new[] array of blockSize bytes
  std::uint32_t pos;       // the next byte read or written
  std::uint32_t limit;     // 0 until the first stored byte; then 1 + the end of the data

 private:
  // One step of the read or write loop, within the block of pos.
  errstatus Retrieve(char* p, int n, int* got);
  errstatus Store(char* p, int n, int* put);
  // Makes the blocks up to the one of position p, then moves there. The only
  // place where blocks are made.
  errstatus JumpTo(std::streampos p);
};

// A memStream on the heap, stored in *stream (null without memory). Returns
// 0, always: this is no errstatus.
extern "C" QUILLON_API int CreateStreamInMemory(rwStream** stream);
// Destroys a stream through its virtual destructor; null does nothing.
// Returns 0.
extern "C" QUILLON_API int DeleteStreamInMemory(rwStream* stream);

#endif

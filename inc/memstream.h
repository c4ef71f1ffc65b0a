/// \file
/// quillon memory streams: the abstract read-write stream and its
/// implementation in memory.
///
/// rwStream reports through errstatus: errOK (1) is success. memStream keeps
/// its bytes in blocks of 4096 bytes that never move once made; only the
/// table of block pointers grows. A new block is filled with spaces (0x20),
/// not zeros. After every write the block of the current position exists.
/// The end mark `limit` is one more than the position behind the furthest
/// byte written, so a stream of N bytes written from position 0 has a limit
/// of N + 1 and reads back N + 1 bytes, the last one the filler. Seek never
/// extends a stream; only Write does.
///
/// A stream has no lock: one thread at a time. A stream holds less than
/// 4 GiB (its positions are 32 bits).
#ifndef MEMSTREAM_H
#define MEMSTREAM_H

#include <cstdint>
#include <ios>

#include "quillonbase.h"
#include "dsdatcol.h"

/// The abstract read-write stream: a byte store with a position, reached by
/// name. Every operation returns errOK or a failing status.
/// One thread at a time.
class QUILLON_API rwStream {
 public:
  rwStream() {}
  ///@{
  /// Not copyable.
  rwStream(rwStream const&) = delete;
  rwStream& operator=(rwStream const&) = delete;
  ///@}

  virtual errstatus OpenRead(char const* name) = 0;   ///< Opens name for reading.
  virtual errstatus OpenWrite(char const* name) = 0;  ///< Opens name for writing.
  /// Reads the data into bytes, which the stream resizes.
  virtual errstatus Read(dsXArray<char>& bytes) = 0;
  /// Reads up to n bytes into p; got receives how many came. The end of the
  /// data is no failure: got is then below n.
  virtual errstatus Read(char* p, int n, int& got) = 0;
  /// Reads bytes one at a time up to the delimiter (consumed, not stored) or
  /// the end of the data, then adds a byte 0, which counts in the size. At the
  /// end of the data the line is the 0 alone. line is emptied first.
  /// \return the last Read's result.
  virtual errstatus ReadLn(dsXArray<char>& line, char delimiter);
  /// Writes all the elements of bytes at the current position.
  virtual errstatus Write(dsXArray<char>& bytes) = 0;
  /// Writes n bytes from p at the current position.
  virtual errstatus Write(char* p, int n) = 0;
  /// Moves the position. whence 0: from the start; 1: from the current
  /// position; 2: backwards from the position behind the last byte.
  virtual errstatus Seek(long long offset, int whence) = 0;
  /// The current position into position.
  virtual errstatus GetPos(std::streampos& position) = 0;
  virtual ~rwStream();
};

/// The read-write stream in memory, in blocks of blockSize bytes that it
/// owns. One thread at a time.
class QUILLON_API memStream : public rwStream {
 public:
  memStream();            ///< Empty: no block, position 0, limit 0.
  ~memStream() override;  ///< Releases every block.

  ///@{
  /// Nothing to open: both return errOK whatever the name.
  errstatus OpenRead(char const* name) override;
  errstatus OpenWrite(char const* name) override;
  ///@}
  /// Resizes bytes to `limit` elements and reads into them from the current
  /// position; what the read does not reach stays as the resize left it.
  /// Always errOK.
  errstatus Read(dsXArray<char>& bytes) override;
  errstatus Read(char* p, int n, int& got) override;  ///< Always errOK.
  /// Write(bytes.GetDataPtr(), bytes.GetSize()).
  errstatus Write(dsXArray<char>& bytes) override;
  /// Writes at the current position, overwriting what is there.
  /// \return errOK; errNoMemoryOrIO when a block cannot be had; the bytes
  ///         stored before stay, and the end mark may then lie on a position
  ///         without a block, where reading stops.
  errstatus Write(char* p, int n) override;
  /// Moves to a position that holds data. Any whence other than 0, 1, 2
  /// rewinds to 0.
  /// \return errOK; errOutOfRange for a target before 0 or past `limit` - 1,
  ///         or an offset beyond 2^40 either way (the position is kept);
  ///         errNoMemoryOrIO when a block cannot be had.
  errstatus Seek(long long offset, int whence) override;
  errstatus GetPos(std::streampos& position) override;  ///< Always errOK.

  static constexpr std::uint32_t blockSize = 0x1000;  ///< The bytes of one block.

 protected:
  dsXArray<char*> blocks;  ///< Each entry owns a new[] array of blockSize bytes.
  std::uint32_t pos;       ///< The next byte read or written.
  std::uint32_t limit;     ///< 0 until the first stored byte; then 1 + the end of the data.

 private:
  // One step of the read or write loop, within the block of pos.
  errstatus Retrieve(char* p, int n, int* got);
  errstatus Store(char* p, int n, int* put);
  // Makes the blocks up to the one of position p, then moves there. The only
  // place where blocks are made.
  errstatus JumpTo(std::streampos p);
};

/// A memStream on the heap, stored in *stream (null without memory); the
/// caller gives it back through DeleteStreamInMemory (or deletes it).
/// \return 0, always: this is no errstatus.
extern "C" QUILLON_API int CreateStreamInMemory(rwStream** stream);
/// Destroys a stream through its virtual destructor; null does nothing.
/// \return 0.
extern "C" QUILLON_API int DeleteStreamInMemory(rwStream* stream);

#endif

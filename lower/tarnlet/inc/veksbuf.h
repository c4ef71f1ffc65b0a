/// \file
/// tarnlet: buffered stream buffers over a transfer of the subclass's choice.
///
/// A subclass gives one private operation per direction, Read(p, n) and
/// Write(p, n); these classes do all the buffering for std::basic_streambuf.
///
/// Contract:
/// - vekStreamBufferSize holds the size of the buffer; its SetBufferSize stores
///   any int and returns true. vekStreamBufferBase holds the storage: null
///   until the buffer first needs it, then either the caller's (given to the
///   constructor, never released here) or a new[] block of bufferSize bytes of
///   the buffer's own, released by ~vekStreamBufferBase.
/// - doallocate() gets the storage when there is none and sets up the get and
///   put areas; it returns 1. It runs at the first transfer, not before.
/// - Read(p, n) returns the count it put at p (1 to n), or -1 for the end of
///   input or a failure. underflow() refills an empty get area with one Read
///   of the whole area; -1 (or 0) is the end of input.
/// - vekBufferedOutput is the put area of every buffered output of the
///   libraries (these classes and the pipe buffers). Write(p, n) returns the
///   count it took (1 to n; less is not a failure) or -1. DrainPutArea()
///   hands the pending bytes to Write until none is left or a Write takes
///   none; the bytes taken leave the area and the rest moves to its start, so
///   a later drain sends no byte twice. True when all went.
/// - overflow(c), sync() and flush() of vekOStreamBuf drain the put area. On a
///   failed Write the bytes not yet taken are dropped and the call fails
///   (overflow: eof, sync and flush: -1); flush gives 0 otherwise.
/// - A direction that a class lacks fails: overflow of vekIStreamBuf and
///   underflow of vekOStreamBuf give eof. showmanyc() is always 0. Both are
///   std::basic_streambuf's own, which these classes leave in place.
/// - vekIOStreamBuf splits its one storage: the first half (rounded up) is the
///   get area, the rest the put area (a buffer of one byte has no put area
///   and writes each character straight through). Before it reads it sends what is pending
///   in the put area, so that a request written and then a reply read need no
///   flush in between.
/// - SetBufferSize(size) of the three classes refuses a size below 1 (below 2
///   for vekIOStreamBuf), a buffer that runs on the caller's storage, and a
///   buffer that holds unread input or unsent output. Otherwise it releases
///   its own storage, stores the size, and the next transfer allocates anew.
#ifndef VEKSBUF_H
#define VEKSBUF_H

#include <streambuf>

#include "vekplatform.h"

/// The size of a stream buffer's storage. One thread at a time.
class TARNLET_API vekStreamBufferSize {
 public:
  explicit vekStreamBufferSize(int size) : bufferSize(size) {}  ///< Holds size.
  virtual ~vekStreamBufferSize() = default;  ///< Nothing to release.
  /// Stores any size. \return true (the buffers refuse some sizes).
  virtual bool SetBufferSize(int size) {
    bufferSize = size;
    return true;
  }

 protected:
  int bufferSize;  ///< The size of the storage in bytes.
};

/// The storage of a stream buffer: the caller's, or a new[] block of its own
/// made at the first transfer. Not copyable; one thread at a time.
class TARNLET_API vekStreamBufferBase {
 public:
  /// Runs on the caller's storage base, never released here; null: the
  /// buffer allocates its own when it first needs it.
  explicit vekStreamBufferBase(char* base) : bufferBase(base) {}
  ///@{
  /// Not copyable.
  vekStreamBufferBase(vekStreamBufferBase const&) = delete;
  vekStreamBufferBase& operator=(vekStreamBufferBase const&) = delete;
  ///@}
  virtual ~vekStreamBufferBase();  ///< Releases the storage of its own.

 protected:
  /// Storage of bufferSize bytes, the caller's or a new block of our own.
  char* Storage(int size);
  /// Drops our own storage so that the next transfer allocates anew; false
  /// for the caller's storage, which this buffer must keep using.
  bool DropStorage();

  char* bufferBase;  ///< The storage, or null until it is first needed.

 private:
  bool ownsBase = false;
};

/// The put area of every buffered output of the libraries, drained through
/// the subclass's Write. One thread at a time.
class TARNLET_API vekBufferedOutput : public virtual std::basic_streambuf<char> {
 protected:
  /// Hands the pending bytes to Write until none is left or a Write takes
  /// none; the rest moves to the start of the area. \return true when all
  /// went.
  bool DrainPutArea();
  /// The subclass's transfer: takes up to n bytes at p. \return the count
  /// taken (1 to n), or -1 on failure.
  virtual int Write(void const* p, int n) = 0;
};

/// A buffered input stream buffer over the subclass's Read. One thread at a
/// time.
class TARNLET_API vekIStreamBuf : public virtual std::basic_streambuf<char>,
                                  public virtual vekStreamBufferSize,
                                  public virtual vekStreamBufferBase {
 public:
  /// A buffer of size bytes, on storage when it is not null (the caller's,
  /// never released here).
  vekIStreamBuf(int size, char* storage);
  ~vekIStreamBuf() override;  ///< Releases the storage of its own.
  /// \return false, changing nothing, for a size below 1, the caller's
  /// storage or unread input; otherwise the next transfer allocates anew.
  bool SetBufferSize(int size) override;

 protected:
  /// Refills an empty get area with one Read of the whole area. \return the
  /// next character; eof at the end of input or on a failure.
  int_type underflow() override;
  /// Gets the storage when there is none and sets up the get area.
  /// \return 1.
  virtual int doallocate();

  /// The size of the get area when it is full.
  int getRoom = 0;

 private:
  virtual int Read(void* p, int n) = 0;
};

/// A buffered output stream buffer over the subclass's Write. One thread at
/// a time.
class TARNLET_API vekOStreamBuf : public virtual std::basic_streambuf<char>,
                                  public vekBufferedOutput,
                                  public virtual vekStreamBufferSize,
                                  public virtual vekStreamBufferBase {
 public:
  /// A buffer of size bytes, on storage when it is not null (the caller's,
  /// never released here).
  vekOStreamBuf(int size, char* storage);
  /// Releases the storage of its own. It sends nothing: output not flushed
  /// before is lost.
  ~vekOStreamBuf() override;
  /// \return false, changing nothing, for a size below 1, the caller's
  /// storage or unsent output; otherwise the next transfer allocates anew.
  bool SetBufferSize(int size) override;

 protected:
  /// Drains the put area and stores c. \return c; eof on a failed Write,
  /// the bytes not yet taken dropped.
  int_type overflow(int_type c) override;
  /// Drains the put area. \return 0; -1 on a failed Write, the bytes not
  /// yet taken dropped.
  int sync() override;
  /// Gets the storage when there is none and sets up the put area.
  /// \return 1.
  virtual int doallocate();
  /// Drains the put area as sync does. \return 0, or -1.
  int flush();
};

/// A buffered stream buffer both ways: the first half of its storage
/// (rounded up) is the get area, the rest the put area. One thread at a
/// time.
class TARNLET_API vekIOStreamBuf : public vekIStreamBuf, public vekOStreamBuf {
 public:
  /// A buffer of size bytes, on storage when it is not null (the caller's,
  /// never released here).
  vekIOStreamBuf(int size, char* storage);
  /// Releases the storage of its own, sending nothing, as ~vekOStreamBuf.
  ~vekIOStreamBuf() override;
  /// \return false, changing nothing, for a size below 2, the caller's
  /// storage, unread input or unsent output.
  bool SetBufferSize(int size) override;

 protected:
  /// Sends what is pending in the put area, then reads as
  /// vekIStreamBuf::underflow does.
  int_type underflow() override;
  /// Gets the storage when there is none and splits it into the two areas.
  /// \return 1.
  int doallocate() override;
};

#endif

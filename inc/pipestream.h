/// \file
/// quillon: anonymous pipes as standard streams, the event that tells a read
/// end has data, and a stream buffer that works directly on a pipe handle.
///
/// Each pipe end, event and buffer is for one thread at a time; the two ends
/// of one pipe may be used on two threads, or in two processes.
#ifndef PIPESTREAM_H
#define PIPESTREAM_H

#include <istream>
#include <ostream>
#include <streambuf>

#include "quillonbase.h"
#include "vekpipe.h"

class iPipeStream;
class oPipeStream;
/// Makes the streams for CreatePipeSt, the only way to them. A class is their
/// friend rather than the function: Windows keeps the import attribute of a
/// function only through the first friend declaration of it.
class PipeStreamMaker;

/// The read end. Reads block until data comes; end-of-file once every writer
/// has gone. rdbuf()->in_avail() tells without blocking what can be read.
/// Made by CreatePipeSt and released by DeletePipe. One thread at a time.
class QUILLON_API iPipeStream : public std::basic_istream<char> {
 public:
  ~iPipeStream() override;  ///< Leaves the buffer alone: DeletePipe releases it.
  ///@{
  /// Not copyable: one object per pipe end.
  iPipeStream(iPipeStream const&) = delete;
  iPipeStream& operator=(iPipeStream const&) = delete;
  ///@}

  /// The stream's buffer, owned by the pipe end until DeletePipe.
  vekIPipeSBuf* rdbuf() const { return sbuf; }
  /// A new vekIPipeEvent on this stream: a heap object the caller deletes,
  /// before the stream; null when no memory could be had.
  vekEvent* GetReadEvent();

 private:
  friend class PipeStreamMaker;
  explicit iPipeStream(vekIPipeSBuf* buffer);

  vekIPipeSBuf* sbuf;
};

/// The write end. Its destructor flushes. A write whose reader has gone fails
/// (badbit) and never raises SIGPIPE. Made by CreatePipeSt and released by
/// DeletePipe. One thread at a time.
class QUILLON_API oPipeStream : public std::basic_ostream<char> {
 public:
  ~oPipeStream() override;  ///< Flushes; leaves the buffer alone: DeletePipe releases it.
  ///@{
  /// Not copyable: one object per pipe end.
  oPipeStream(oPipeStream const&) = delete;
  oPipeStream& operator=(oPipeStream const&) = delete;
  ///@}

  /// The stream's buffer, owned by the pipe end until DeletePipe.
  vekOPipeSBuf* rdbuf() const { return sbuf; }

 private:
  friend class PipeStreamMaker;
  explicit oPipeStream(vekOPipeSBuf* buffer);

  vekOPipeSBuf* sbuf;
};

/// Makes a pipe: *out is its write end, *in its read end. The caller owns
/// both ends and releases each with DeletePipe. Both ends are close-on-exec:
/// a child gets one only when it is assigned to it.
/// \return errOK; errPipeCreate when no pipe could be made, with both
///         out-parameters left as they were.
/// Declared after the classes, whose friend it is: on Windows a friend that
/// followed this declaration would drop its import attribute.
QUILLON_API errstatus CreatePipeSt(oPipeStream** out, iPipeStream** in);

///@{
/// Releases a pipe end made by CreatePipeSt: the stream, then its buffer, which
/// closes the end (a write end flushes first). The argument must not be null.
QUILLON_API void DeletePipe(iPipeStream* stream);
QUILLON_API void DeletePipe(oPipeStream* stream);
///@}

/// Signalled while the read end of its stream has data, or its writers have
/// gone. The object behind cast() is the event itself. One thread at a time.
class QUILLON_API vekIPipeEvent : public vekPipeEvent {
 public:
  /// An event on stream's read end; the stream is not owned and must
  /// outlive the event.
  explicit vekIPipeEvent(iPipeStream* stream);
  /// event as a vekIPipeEvent, or null if it is of another class.
  static vekIPipeEvent* cast(vekEvent* event);

 private:
  int GetKind() override;
  void* GetInfo() override;

  static int kind;  // taken at load
  iPipeStream* stream;
};

/// A stream buffer on a pipe handle that it owns once attached. One block of
/// 8192 bytes, taken on demand by reading or writing: the first half is the get
/// area, the second the put area.
///
/// Reading never blocks. underflow() gives end-of-file when nothing is waiting;
/// in_avail() then tells the two cases apart: 0 while the writer is there and
/// nothing has come yet, -1 once the pipe has ended (or failed).
/// overflow() and sync() give -1 when the pending output could not all be
/// written; the bytes not written stay in the put area. sync() also drops the
/// input read from the pipe and not taken yet, and gives 1 on success. The
/// destructor doesn't flush: sync first. The put area drains as every
/// buffered output of the libraries does (vekBufferedOutput). One thread at a
/// time.
class QUILLON_API vekPipeBuf : public vekBufferedOutput {
 public:
  explicit vekPipeBuf(bool ignored);  ///< No handle, no block.
  /// Releases the block and closes an attached handle, without flushing.
  ~vekPipeBuf() override;
  ///@{
  /// Not copyable: the buffer owns its handle.
  vekPipeBuf(vekPipeBuf const&) = delete;
  vekPipeBuf& operator=(vekPipeBuf const&) = delete;
  ///@}

  /// Attaches handle, which the buffer then owns and closes.
  /// \return false, changing nothing, if a handle is attached already;
  ///         there is no way to detach.
  bool setIOCtrlHandle(void* handle);
  int is_attached() { return attached ? 1 : 0; }  ///< 1 once a handle is attached.
  /// Makes the block. \return 1 when it made the block, 0 when it exists
  /// already (or no memory).
  int doallocate();

 protected:
  /// Writes the put area to the pipe, then stores c (unless it is
  /// end-of-file). \return -1 when the pending output could not all be
  /// written; the bytes not written stay.
  int_type overflow(int_type c) override;
  /// The next byte waiting in the pipe, without blocking; end-of-file when
  /// nothing is waiting.
  int_type underflow() override;
  /// Drops the unread input and writes the put area. \return 1, or -1 when
  /// not all could be written.
  int sync() override;
  /// The bytes waiting in the pipe: 0 while nothing has come, -1 once the
  /// pipe has ended or failed.
  std::streamsize showmanyc() override;

 private:
  int Write(void const* p, int n) override;

  void* ioCtrlHandle;
  char* buffer;
  int areaSize;
  bool attached;
};

#endif

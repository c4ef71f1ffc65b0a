/// \file
/// tarnlet: anonymous pipes, their stream buffers and their read event.
///
/// Contract ("fails with errSysX": errMapError() then gives that status):
/// - A pipe end's handle is a native handle in a void*: the fd on POSIX, the
///   HANDLE on Windows; all ones (VEK_INVALID_HANDLE) stands for no end.
/// - vekAnonymousPipe::Create(out, in) makes one pipe: what is written to out
///   can be read from in. Both ends are closed on exec (not inherited); a child
///   gets an end only when Process_Launch is told to give it one. False with
///   the system error kept when no pipe could be made; the ends are then left
///   alone.
/// - vekPipePeek(handle, &available): true with the number of bytes that can be
///   read at once (0: nothing yet, the writer is still there). False when the
///   writer has gone and nothing is left (errSysBrokenPipe), or the handle is
///   bad (errSysBadHandle).
/// - vekPipeRead(handle, buffer, size, &got): reads at most size bytes, blocking
///   until at least one byte is there. True with got > 0 for data and with
///   got == 0 at the end of the pipe; false on failure.
/// - vekPipeWrite(handle, data, size, &written): writes all size bytes, blocking
///   while the pipe is full. False when not all were written; written says how
///   many were. Writing to a pipe whose reader has gone fails with
///   errSysBrokenPipe and never raises SIGPIPE, on any thread, whatever the
///   process's signal handling.
/// - vekPipeWriteSome(handle, data, size): writes as vekPipeWrite does and
///   returns the count written when any bytes went (all size of them unless
///   the write failed part way), -1 when none did: the Write of a
///   vekBufferedOutput (veksbuf.h).
/// - vekPipeClose(handle): closes the end; true on success.
/// - vekIPipeSBuf and vekOPipeSBuf are buffered, blocking stream buffers that
///   own their pipe end and close it when deleted (through their virtual
///   std::basic_streambuf<char> base). The output buffer flushes before it
///   closes. The input buffer gives end-of-file at the end of the pipe or on a
///   failure; in_avail() answers without blocking, -1 once the pipe has ended.
///   The output buffer's sync() gives -1 when the bytes could not all go; the
///   bytes that did not go stay in its area (vekBufferedOutput).
/// - vekPipeEvent(handle) is signalled while the pipe end has something to
///   read, or its writer has gone.
#ifndef VEKPIPE_H
#define VEKPIPE_H

#include "ombhandle.h"
#include "vekevent.h"
#include "vekplatform.h"
#include "veksbuf.h"

#include <streambuf>

class vekInputPipe;
class vekOutputPipe;

/// One end of an anonymous pipe: a native handle that the value does not own
/// (copies name the same end; vekPipeClose or a pipe buffer closes it). A
/// value to copy between threads; the end itself takes one reader or one
/// writer at a time.
class TARNLET_API vekAnonymousPipe {
 public:
  vekAnonymousPipe() : handle(VEK_INVALID_HANDLE) {}  ///< No end: VEK_INVALID_HANDLE.
  void* fd() const { return handle; }  ///< The native handle, or VEK_INVALID_HANDLE.
  /// Makes one pipe: what is written to out can be read from in; both ends
  /// are closed on exec. \return false with the system error kept, the ends
  /// left alone.
  static bool Create(vekOutputPipe& out, vekInputPipe& in);

 protected:
  void* handle;  ///< The native handle of the end, or VEK_INVALID_HANDLE.
};

/// The end that is read from.
class TARNLET_API vekInputPipe : public vekAnonymousPipe {
 public:
  vekInputPipe() : vekAnonymousPipe() {}  ///< No end.
};

/// The end that is written to.
class TARNLET_API vekOutputPipe : public vekAnonymousPipe {
 public:
  vekOutputPipe() : vekAnonymousPipe() {}  ///< No end.
};

/// Sets *available to the bytes that can be read at once (0: nothing yet,
/// the writer is still there). \return false when the writer has gone and
/// nothing is left (errSysBrokenPipe) or the handle is bad (errSysBadHandle).
TARNLET_API bool vekPipePeek(void* handle, int* available);
/// Reads at most size bytes, blocking until at least one is there.
/// \return true with *got > 0 for data, with *got 0 at the end of the pipe;
/// false on failure, with the system error kept.
TARNLET_API bool vekPipeRead(void* handle, void* buffer, unsigned size, unsigned* got);
/// Writes all size bytes, blocking while the pipe is full; *written says how
/// many went. \return false when not all were written (errSysBrokenPipe
/// when the reader has gone; never SIGPIPE).
TARNLET_API bool vekPipeWrite(void* handle, void const* data, unsigned size, unsigned* written);
/// Writes as vekPipeWrite does. \return the count written when any bytes
/// went, -1 when none did.
TARNLET_API int vekPipeWriteSome(void* handle, void const* data, int size);
/// Closes the end. \return true on success; false with the system error
/// kept.
TARNLET_API bool vekPipeClose(void* handle);

/// A buffered, blocking input stream buffer over the read end of a pipe,
/// which it owns and closes when deleted. One thread at a time.
class TARNLET_API vekIPipeSBuf : public virtual std::basic_streambuf<char> {
 public:
  explicit vekIPipeSBuf(vekInputPipe end);  ///< Takes end.
  ~vekIPipeSBuf() override;  ///< Releases the buffer and closes the end.
  ///@{
  /// Not copyable.
  vekIPipeSBuf(vekIPipeSBuf const&) = delete;
  vekIPipeSBuf& operator=(vekIPipeSBuf const&) = delete;
  ///@}

  vekInputPipe pipe() const { return end; }  ///< The end, still owned by the buffer.

 protected:
  /// Refills the get area with one read of the pipe. \return the next
  /// character; eof at the end of the pipe or on a failure.
  int_type underflow() override;
  /// Takes up to count characters, reading large requests straight from the
  /// pipe. \return the count taken, short at the end of the pipe.
  std::streamsize xsgetn(char_type* data, std::streamsize count) override;
  /// The characters that can be had without blocking; -1 once the pipe has
  /// ended.
  std::streamsize showmanyc() override;

 private:
  vekInputPipe end;
  char* area;
};

/// A buffered, blocking output stream buffer over the write end of a pipe,
/// which it owns; it flushes and closes it when deleted. One thread at a
/// time.
class TARNLET_API vekOPipeSBuf : public vekBufferedOutput {
 public:
  explicit vekOPipeSBuf(vekOutputPipe end);  ///< Takes end.
  ~vekOPipeSBuf() override;  ///< Flushes, releases the buffer and closes the end.
  ///@{
  /// Not copyable.
  vekOPipeSBuf(vekOPipeSBuf const&) = delete;
  vekOPipeSBuf& operator=(vekOPipeSBuf const&) = delete;
  ///@}

  vekOutputPipe pipe() const { return end; }  ///< The end, still owned by the buffer.

 protected:
  /// Drains the put area into the pipe and stores c. \return c; eof when the
  /// bytes could not all go.
  int_type overflow(int_type c) override;
  /// Drains the put area. \return 0; -1 when the bytes could not all go,
  /// those that did not staying in the area.
  int sync() override;
  /// Puts count characters, writing large requests straight to the pipe.
  /// \return the count put; short on a failed write.
  std::streamsize xsputn(char_type const* data, std::streamsize count) override;

 private:
  int Write(void const* p, int n) override;

  vekOutputPipe end;
  char* area;
};

/// An event signalled while a pipe's read end has something to read, or its
/// writer has gone. It does not own the end. Wait as vekEvent says.
class TARNLET_API vekPipeEvent : public vekEvent {
 public:
  explicit vekPipeEvent(void* handle);  ///< An event on the read end handle.
};

#endif

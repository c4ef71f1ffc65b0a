// tarnlet: anonymous pipes, their stream buffers and their read event.
//
// Contract ("fails with errSysX": errMapError() then gives that status):
// - A pipe end's handle is a native handle in a void*: the fd on POSIX, the
//   HANDLE on Windows; all ones (VEK_INVALID_HANDLE) stands for no end.
// - vekAnonymousPipe::Create(out, in) makes one pipe: what is written to out
//   can be read from in. Both ends are closed on exec (not inherited); a child
//   gets an end only when Process_Launch is told to give it one. False with
//   the system error kept when no pipe could be made; the ends are then left
//   alone.
// - vekPipePeek(handle, &available): true with the number of bytes that can be
//   read at once (0: nothing yet, the writer is still there). False when the
//   writer has gone and nothing is left (errSysBrokenPipe), or the handle is
//   bad (errSysBadHandle).
// - vekPipeRead(handle, buffer, size, &got): reads at most size bytes, blocking
//   until at least one byte is there. True with got > 0 for data and with
//   got == 0 at the end of the pipe; false on failure.
// - vekPipeWrite(handle, data, size, &written): writes all size bytes, blocking
//   while the pipe is full. False when not all were written; written says how
//   many were. Writing to a pipe whose reader has gone fails with
//   errSysBrokenPipe and never raises SIGPIPE, on any thread, whatever the
//   process's signal handling.
// - vekPipeWriteSome(handle, data, size): writes as vekPipeWrite does and
//   returns the count written when any bytes went (all size of them unless
//   the write failed part way), -1 when none did: the Write of a
//   vekBufferedOutput (veksbuf.h).
// - vekPipeClose(handle): closes the end; true on success.
// - vekIPipeSBuf and vekOPipeSBuf are buffered, blocking stream buffers that
//   own their pipe end and close it when deleted (through their virtual
//   std::basic_streambuf<char> base). The output buffer flushes before it
//   closes. The input buffer gives end-of-file at the end of the pipe or on a
//   failure; in_avail() answers without blocking, -1 once the pipe has ended.
//   The output buffer's sync() gives -1 when the bytes could not all go; the
//   bytes that did not go stay in its area (vekBufferedOutput).
// - vekPipeEvent(handle) is signalled while the pipe end has something to
//   read, or its writer has gone.
#ifndef VEKPIPE_H
#define VEKPIPE_H

#include "ombhandle.h"
#include "vekevent.h"
#include "vekplatform.h"
#include "veksbuf.h"

#include <streambuf>

class vekInputPipe;
class vekOutputPipe;

class TARNLET_API vekAnonymousPipe {
 public:
  vekAnonymousPipe() : handle(VEK_INVALID_HANDLE) {}
  void* fd() const { return handle; }
  static bool Create(vekOutputPipe& out, vekInputPipe& in);

 protected:
  void* handle;
};

// The end that is read from.
class TARNLET_API vekInputPipe : public vekAnonymousPipe {
 public:
  vekInputPipe() : vekAnonymousPipe() {}
};

// The end that is written to.
class TARNLET_API vekOutputPipe : public vekAnonymousPipe {
 public:
  vekOutputPipe() : vekAnonymousPipe() {}
};

TARNLET_API bool vekPipePeek(void* handle, int* available);
TARNLET_API bool vekPipeRead(void* handle, void* buffer, unsigned size, unsigned* got);
TARNLET_API bool vekPipeWrite(void* handle, void const* data, unsigned size, unsigned* written);
TARNLET_API int vekPipeWriteSome(void* handle, void const* data, int size);
TARNLET_API bool vekPipeClose(void* handle);

class TARNLET_API vekIPipeSBuf : public virtual std::basic_streambuf<char> {
 public:
  explicit vekIPipeSBuf(vekInputPipe end);
  ~vekIPipeSBuf() override;
  vekIPipeSBuf(vekIPipeSBuf const&) = delete;
  vekIPipeSBuf& operator=(vekIPipeSBuf const&) = delete;

  vekInputPipe pipe() const { return end; }

 protected:
  int_type underflow() override;
  std::streamsize xsgetn(char_type* data, std::streamsize count) override;
  std::streamsize showmanyc() override;

 private:
  vekInputPipe end;
  char* area;
};

class TARNLET_API vekOPipeSBuf : public vekBufferedOutput {
 public:
  explicit vekOPipeSBuf(vekOutputPipe end);
  ~vekOPipeSBuf() override;
  vekOPipeSBuf(vekOPipeSBuf const&) = delete;
  vekOPipeSBuf& operator=(vekOPipeSBuf const&) = delete;

  vekOutputPipe pipe() const { return end; }

 protected:
  int_type overflow(int_type c) override;
  int sync() override;
  std::streamsize xsputn(char_type const* data, std::streamsize count) override;

 private:
  int Write(void const* p, int n) override;

  vekOutputPipe end;
  char* area;
};

class TARNLET_API vekPipeEvent : public vekEvent {
 public:
  explicit vekPipeEvent(void* handle);
};

#endif

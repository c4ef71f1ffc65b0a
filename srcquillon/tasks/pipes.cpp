#include <new>

#include "foundation/shared.h"
#include "pipestream.h"

class PipeStreamMaker {
 public:
  static errstatus Make(oPipeStream** out, iPipeStream** in) {
    vekOutputPipe writeEnd;
    vekInputPipe readEnd;
    if (!vekAnonymousPipe::Create(writeEnd, readEnd)) return errPipeCreate;
    *out = new oPipeStream(new vekOPipeSBuf(writeEnd));
    *in = new iPipeStream(new vekIPipeSBuf(readEnd));
    return errOK;
  }
};

errstatus CreatePipeSt(oPipeStream** out, iPipeStream** in) { return PipeStreamMaker::Make(out, in); }

namespace {

// The stream first, then its buffer, which closes the end.
template <class Stream>
void DeleteEnd(Stream* stream) {
  std::basic_streambuf<char>* buffer = stream->rdbuf();
  delete stream;
  delete buffer;
}

}  // namespace

void DeletePipe(iPipeStream* stream) { DeleteEnd(stream); }

void DeletePipe(oPipeStream* stream) { DeleteEnd(stream); }

iPipeStream::iPipeStream(vekIPipeSBuf* buffer) : std::basic_istream<char>(buffer), sbuf(buffer) {}

iPipeStream::~iPipeStream() = default;

vekEvent* iPipeStream::GetReadEvent() { return new (std::nothrow) vekIPipeEvent(this); }

oPipeStream::oPipeStream(vekOPipeSBuf* buffer) : std::basic_ostream<char>(buffer), sbuf(buffer) {}

oPipeStream::~oPipeStream() { flush(); }

vekIPipeEvent::vekIPipeEvent(iPipeStream* stream)
    : vekPipeEvent(stream->rdbuf()->pipe().fd()), stream(stream) {}

QUILLON_EVENT_KIND_MEMBERS(vekIPipeEvent)

namespace {

constexpr int kAreaSize = 4096;

}  // namespace

vekPipeBuf::vekPipeBuf(bool)
    : ioCtrlHandle(badIOCtrlHandle), buffer(nullptr), areaSize(kAreaSize), attached(false) {}

vekPipeBuf::~vekPipeBuf() {
  delete[] buffer;
  if (attached) vekPipeClose(ioCtrlHandle);
}

bool vekPipeBuf::setIOCtrlHandle(void* handle) {
  if (attached) return false;
  ioCtrlHandle = handle;
  attached = true;
  return true;
}

int vekPipeBuf::doallocate() {
  if (buffer != nullptr) return 0;
  buffer = new (std::nothrow) char[2 * kAreaSize];
  if (buffer == nullptr) return 0;
  setg(buffer, buffer, buffer);
  setp(buffer + areaSize, buffer + 2 * areaSize);
  return 1;
}

int vekPipeBuf::Write(void const* p, int n) { return vekPipeWriteSome(ioCtrlHandle, p, n); }

vekPipeBuf::int_type vekPipeBuf::overflow(int_type c) {
  // Writing takes the block on demand, as reading does.
  if (buffer == nullptr && doallocate() == 0) return traits_type::eof();
  if (!DrainPutArea()) return traits_type::eof();
  if (traits_type::eq_int_type(c, traits_type::eof())) return 1;
  return sputc(traits_type::to_char_type(c));
}

vekPipeBuf::int_type vekPipeBuf::underflow() {
  if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
  if (buffer == nullptr && doallocate() == 0) return traits_type::eof();
  int available = 0;
  if (!vekPipePeek(ioCtrlHandle, &available) || available == 0) return traits_type::eof();
  unsigned got = 0;
  if (!vekPipeRead(ioCtrlHandle, buffer, static_cast<unsigned>(areaSize), &got) || got == 0) {
    return traits_type::eof();
  }
  setg(buffer, buffer, buffer + got);
  return traits_type::to_int_type(*gptr());
}

int vekPipeBuf::sync() {
  if (buffer == nullptr) return 1;
  setg(buffer, buffer + areaSize, buffer + areaSize);
  return DrainPutArea() ? 1 : -1;
}

std::streamsize vekPipeBuf::showmanyc() {
  int available = 0;
  if (!vekPipePeek(ioCtrlHandle, &available)) return -1;
  return available;
}

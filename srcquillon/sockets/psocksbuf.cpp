// Standard stream buffers over a connected stream.
#include "psock.h"

namespace {

int const kSocketBufferSize = 4096;

}  // namespace

ISockSBuf::ISockSBuf(psockStream& s)
    : std::basic_streambuf<char>(),
      vekStreamBufferSize(kSocketBufferSize),
      vekStreamBufferBase(nullptr),
      vekIStreamBuf(kSocketBufferSize, nullptr),
      stream(s) {}

// Input received and not consumed goes with the buffer.
ISockSBuf::~ISockSBuf() = default;

int ISockSBuf::Read(void* p, int n) { return ReadFromSocket(stream, p, n); }

OSockSBuf::OSockSBuf(psockStream& s)
    : std::basic_streambuf<char>(),
      vekStreamBufferSize(kSocketBufferSize),
      vekStreamBufferBase(nullptr),
      vekOStreamBuf(kSocketBufferSize, nullptr),
      stream(s) {}

OSockSBuf::~OSockSBuf() { (void)flush(); }

int OSockSBuf::Write(void const* p, int n) { return WriteToSocket(stream, p, n); }

IOSockSBuf::IOSockSBuf(psockStream& s)
    : std::basic_streambuf<char>(),
      vekStreamBufferSize(kSocketBufferSize),
      vekStreamBufferBase(nullptr),
      vekIOStreamBuf(kSocketBufferSize, nullptr),
      stream(s) {}

IOSockSBuf::~IOSockSBuf() { (void)flush(); }

int IOSockSBuf::Read(void* p, int n) { return ReadFromSocket(stream, p, n); }

int IOSockSBuf::Write(void const* p, int n) { return WriteToSocket(stream, p, n); }

ioSockStream::ioSockStream(psockStream& s) : std::basic_iostream<char>(new IOSockSBuf(s)) {}

ioSockStream::~ioSockStream() { delete rdbuf(); }

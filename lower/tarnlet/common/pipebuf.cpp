// The pipe stream buffers, over the pipe operations of the platform.
#include <cstring>

#include "vekpipe.h"

namespace {

// Large enough for a whole pipe's worth (64 KiB on Linux) in one system call.
constexpr unsigned kAreaSize = 1u << 16;

// One system call's share of a large request.
unsigned chunkOf(std::streamsize left) {
  return left > 0x40000000 ? 0x40000000u : static_cast<unsigned>(left);
}

}  // namespace

int vekPipeWriteSome(void* handle, void const* data, int size) {
  unsigned written = 0;
  bool const ok = vekPipeWrite(handle, data, static_cast<unsigned>(size), &written);
  return ok || written > 0 ? static_cast<int>(written) : -1;
}

vekIPipeSBuf::vekIPipeSBuf(vekInputPipe end) : end(end), area(new char[kAreaSize]) {
  setg(area, area, area);
}

vekIPipeSBuf::~vekIPipeSBuf() {
  if (end.fd() != VEK_INVALID_HANDLE) vekPipeClose(end.fd());
  delete[] area;
}

vekIPipeSBuf::int_type vekIPipeSBuf::underflow() {
  if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
  unsigned got = 0;
  if (!vekPipeRead(end.fd(), area, kAreaSize, &got) || got == 0) return traits_type::eof();
  setg(area, area, area + got);
  return traits_type::to_int_type(*gptr());
}

std::streamsize vekIPipeSBuf::xsgetn(char_type* data, std::streamsize count) {
  std::streamsize done = 0;
  while (done < count) {
    std::streamsize buffered = egptr() - gptr();
    if (buffered > 0) {
      std::streamsize take = count - done < buffered ? count - done : buffered;
      std::memcpy(data + done, gptr(), static_cast<std::size_t>(take));
      gbump(static_cast<int>(take));
      done += take;
      continue;
    }
    // Large requests go straight into the caller's memory, without a copy.
    std::streamsize left = count - done;
    if (left >= static_cast<std::streamsize>(kAreaSize)) {
      unsigned got = 0;
      if (!vekPipeRead(end.fd(), data + done, chunkOf(left), &got) || got == 0) break;
      done += got;
    } else if (traits_type::eq_int_type(underflow(), traits_type::eof())) {
      break;
    }
  }
  return done;
}

std::streamsize vekIPipeSBuf::showmanyc() {
  int available = 0;
  if (!vekPipePeek(end.fd(), &available)) return -1;
  return available;
}

vekOPipeSBuf::vekOPipeSBuf(vekOutputPipe end) : end(end), area(new char[kAreaSize]) {
  setp(area, area + kAreaSize);
}

vekOPipeSBuf::~vekOPipeSBuf() {
  if (end.fd() != VEK_INVALID_HANDLE) {
    DrainPutArea();
    vekPipeClose(end.fd());
  }
  delete[] area;
}

int vekOPipeSBuf::Write(void const* p, int n) { return vekPipeWriteSome(end.fd(), p, n); }

vekOPipeSBuf::int_type vekOPipeSBuf::overflow(int_type c) {
  if (!DrainPutArea()) return traits_type::eof();
  if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
  *pptr() = traits_type::to_char_type(c);
  pbump(1);
  return c;
}

int vekOPipeSBuf::sync() { return DrainPutArea() ? 0 : -1; }

std::streamsize vekOPipeSBuf::xsputn(char_type const* data, std::streamsize count) {
  std::streamsize room = epptr() - pptr();
  if (count <= room) {
    std::memcpy(pptr(), data, static_cast<std::size_t>(count));
    pbump(static_cast<int>(count));
    return count;
  }
  // Too big for the area: send what is pending, then the data itself.
  if (!DrainPutArea()) return 0;
  std::streamsize done = 0;
  while (done < count) {
    unsigned written = 0;
    bool ok = vekPipeWrite(end.fd(), data + done, chunkOf(count - done), &written);
    done += written;
    if (!ok) break;
  }
  return done;
}

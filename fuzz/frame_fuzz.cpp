// Framed messages: any byte stream read frame by frame, served in pieces of
// any size by a stream of the test's own and, for some inputs, through a real
// socket pair. Each frame must be what a plain reading of the format gives,
// taken to its last byte and never beyond, appended behind what the array
// held; a frame cut short gives 41 with what came; a count on the wire never
// turns into memory that did not arrive; and a frame written back is the
// bytes it came from.
#include <fuzzer/FuzzedDataProvider.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "fuzzsupport.h"
#include "quillon.h"

namespace {

std::string Bytes(dsXArray<char> const& a) { return std::string(a.GetDataPtr(), a.GetSize()); }

std::int32_t BigEndian(char const* p) {
  std::uint32_t raw;
  std::memcpy(&raw, p, 4);
  return static_cast<std::int32_t>(__builtin_bswap32(raw));
}

// Serves the wire in pieces of the given sizes, in turn; at the end of the
// wire it reports the peer's close as a socket stream does. Writes are kept.
class ServedStream : public psockStream {
 public:
  ServedStream(std::string const& wire, std::vector<int> const& pieces) : wire(wire), pieces(pieces) {}

  int Read(void* p, int n, bool oob) override {
    FUZZ_CHECK(!oob && n > 0);
    if (offset == wire.size()) {
      err = errSysPeerClosed;
      return -1;
    }
    std::size_t give = std::min({static_cast<std::size_t>(n), wire.size() - offset,
                                 static_cast<std::size_t>(pieces[turn++ % pieces.size()])});
    std::memcpy(p, wire.data() + offset, give);
    offset += give;
    return static_cast<int>(give);
  }
  int Write(void const* p, int n, bool) override {
    written.append(static_cast<char const*>(p), static_cast<std::size_t>(n));
    return n;
  }
  bool Exception() override { return false; }
  int Select(fd_set*, fd_set*, fd_set*, timeval*) override { return 0; }
  int SelectWait(fd_set*, fd_set*, fd_set*, timeval*) override { return 0; }
  errstatus getErr() override { return err; }
  unsigned long long getSock() override { return ~0ULL; }
  void CloseSocket() override {}

  std::size_t Offset() const { return offset; }
  std::string written;

 private:
  std::string const& wire;
  std::vector<int> const& pieces;
  std::size_t offset = 0;
  std::size_t turn = 0;
  errstatus err = errOK;
};

// What one framed read must give at offset: the status, the payload and
// where the next read begins.
struct Expected {
  errstatus status;
  std::string payload;
  std::size_t next;
};

Expected Reference(std::string const& wire, std::size_t offset) {
  std::size_t const left = wire.size() - offset;
  if (left < 4) return {errFramedReceive, "", wire.size()};
  std::int32_t const length = BigEndian(wire.data() + offset);
  if (length <= 0) return {errOK, "", offset + 4};
  std::size_t const wanted = static_cast<std::size_t>(length);
  if (left - 4 < wanted) return {errFramedReceive, wire.substr(offset + 4), wire.size()};
  return {errOK, wire.substr(offset + 4, wanted), offset + 4 + wanted};
}

// Reads frames until one fails, checking each against the reference; the
// array starts with prefix each time, which must stay in front. served gives
// the wire offset a transport has consumed, or -1 where it cannot tell.
template <class Offset>
void ReadAll(psockStream& stream, std::string const& wire, std::string const& prefix, Offset served) {
  std::size_t offset = 0;
  for (;;) {
    Expected const expected = Reference(wire, offset);
    dsXArray<char> a;
    a.Append(static_cast<unsigned int>(prefix.size()), prefix.data());
    errstatus const status = Read(stream, a);
    FUZZ_CHECK(status == expected.status);
    FUZZ_CHECK(Bytes(a) == prefix + expected.payload);
    long const consumed = served();
    FUZZ_CHECK(consumed < 0 || static_cast<std::size_t>(consumed) == expected.next);  // never past the frame
    if (status != errOK) break;

    // Written back, the frame is its own bytes (a count of 0 or below has no payload).
    ServedStream recorder(wire, {1});
    dsXArray<char> payload;
    payload.Append(static_cast<unsigned int>(expected.payload.size()), expected.payload.data());
    FUZZ_CHECK(Write(recorder, payload) == errOK);
    bool const empty = BigEndian(wire.data() + offset) <= 0;
    FUZZ_CHECK(recorder.written == (empty ? std::string(4, '\0') : wire.substr(offset, expected.next - offset)));
    offset = expected.next;
  }
  // A failed stream keeps its failure and reads nothing more.
  long const before = served();
  dsXArray<char> after;
  FUZZ_CHECK(Read(stream, after) == stream.getErr() && stream.getErr() != errOK);
  FUZZ_CHECK(after.GetSize() == 0 && served() == before);
}

// The wire through a real connected socket pair, written by a thread of its own.
void ThroughSockets(std::string const& wire, std::string const& prefix) {
  int ends[2];
  FUZZ_CHECK(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0);
  std::thread writer([&] {
    for (std::size_t sent = 0; sent < wire.size();) {
      ssize_t n = ::send(ends[1], wire.data() + sent, wire.size() - sent, MSG_NOSIGNAL);
      FUZZ_CHECK(n > 0);
      sent += static_cast<std::size_t>(n);
    }
    ::shutdown(ends[1], SHUT_WR);
  });
  {
    psockStreamImpl stream(static_cast<unsigned long long>(ends[0]));
    ReadAll(stream, wire, prefix, [] { return -1L; });
    FUZZ_CHECK(stream.getErr() == errSysPeerClosed);
  }
  writer.join();
  ::close(ends[1]);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  // A long run of bytes somewhere in the wire, so that large frames, and the
  // receive straight into the array past 64 KiB, are reached from small inputs.
  // Kept to one input in sixteen, and served in pieces of 16 KiB at least:
  // past 64 KiB every receive resizes the array twice, which a sanitizer's
  // allocator pays for with a copy of the whole array.
  bool const longRun = input.ConsumeIntegralInRange(0, 15) == 15;
  std::size_t const runLength = longRun ? input.ConsumeIntegralInRange<std::size_t>(0, 200000) : 0;
  std::vector<int> pieces(input.ConsumeIntegralInRange<std::size_t>(1, 8));
  for (int& piece : pieces) piece = longRun ? input.ConsumeIntegralInRange<int>(16384, 70000)
                                : input.ConsumeIntegralInRange<int>(1, 9000);
  std::string const prefix(input.ConsumeIntegralInRange<std::size_t>(0, 5), '#');
  std::size_t const runAt = input.ConsumeIntegral<std::uint16_t>();
  bool const sockets = input.ConsumeBool();
  std::string wire = input.ConsumeRemainingBytesAsString();
  wire.insert(std::min(runAt, wire.size()), std::string(runLength, '\x5A'));

  {
    fuzz::AllocationWatch watch;
    ServedStream stream(wire, pieces);
    ReadAll(stream, wire, prefix, [&] { return static_cast<long>(stream.Offset()); });
    // The array grows with what arrives, never ahead of it by more than a factor of two.
    FUZZ_CHECK(watch.Largest() <= 2 * wire.size() + 64 * 1024);
  }
  if (sockets) ThroughSockets(wire, prefix);
  return 0;
}

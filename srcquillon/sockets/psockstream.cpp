// Connected stream sockets, their exact and framed transfers, and the socket event.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <typeinfo>

#include "foundation/shared.h"
#include "psock.h"
#include "psockshared.h"

namespace {

// The most a frame's array grows before any of its payload has arrived.
unsigned int const kFirstRoom = 16384;
// The bytes of a frame's count.
int const kCountBytes = 4;

// A frame's count is an int in the binary streams' portable form: four bytes,
// two's complement, most significant first. Coded by hand, because a stream
// buffer and a binary stream built for four bytes cost more than the rest of
// a small frame's trip through the library; byte by byte, which compilers
// turn into one load or store and a byte swap (a loop costs some fifty
// instructions at -O2).
void PutCount(char* bytes, int count) {
  auto const wire = static_cast<std::uint32_t>(count);
  bytes[0] = static_cast<char>(wire >> 24);
  bytes[1] = static_cast<char>(wire >> 16);
  bytes[2] = static_cast<char>(wire >> 8);
  bytes[3] = static_cast<char>(wire);
}

int GetCount(char const* bytes) {
  auto const byte = [bytes](int i) { return std::uint32_t{static_cast<unsigned char>(bytes[i])}; };
  std::uint32_t const wire = byte(0) << 24 | byte(1) << 16 | byte(2) << 8 | byte(3);
  return static_cast<int>(static_cast<std::int32_t>(wire));
}

// A failed transfer keeps its mapped status in err; a receive of nothing maps
// to success and keeps nothing.
void KeepFailure(errstatus& err) {
  errstatus mapped = errMapError();
  if (mapped != errOK) err = mapped;
}

}  // namespace

psockStream::~psockStream() = default;

void psockStream::Initialize() {}

void psockStream::Shutdown() {}

bool psockStream::IsOnTheSameMachine() {
  unsigned long long sock = getSock();
  alignas(8) unsigned char local[28];
  alignas(8) unsigned char peer[28];
  int localLength = sizeof local;
  int peerLength = sizeof peer;
  if (vek_getsockname(sock, reinterpret_cast<sockaddr*>(local), &localLength) != 0) return false;
  if (vek_getpeername(sock, reinterpret_cast<sockaddr*>(peer), &peerLength) != 0) return false;
  char localName[1025];
  char peerName[1025];
  if (vek_get_nodenameinfo(reinterpret_cast<sockaddr*>(local), localLength, localName,
                           sizeof localName, nullptr, 0, 0) != 0 ||
      vek_get_nodenameinfo(reinterpret_cast<sockaddr*>(peer), peerLength, peerName,
                           sizeof peerName, nullptr, 0, 0) != 0) {
    return false;
  }
  return std::strcmp(localName, peerName) == 0;
}

psockStreamImpl::psockStreamImpl(unsigned long long sock) : sock(sock), err(errOK) {}

psockStreamImpl::~psockStreamImpl() { CloseSocket(); }

int psockStreamImpl::Read(void* p, int n, bool oob) {
  int got = vek_recv(sock, p, n, oob ? vekMsgOob : 0);
  if (got > 0) return got;
  KeepFailure(err);  // a closed peer maps to its own status
  return -1;
}

int psockStreamImpl::Write(void const* p, int n, bool oob) {
  int sent = vek_send(sock, p, n, oob ? vekMsgOob : 0);
  if (sent == -1) KeepFailure(err);
  return sent;
}

int psockStreamImpl::WriteGathered(void const* head, int headLength, void const* body, int bodyLength) {
  int sent = vek_send_gathered(sock, head, headLength, body, bodyLength, 0);
  if (sent == -1) KeepFailure(err);
  return sent;
}

bool psockStreamImpl::Exception() {
  fd_set except;
  timeval now{0, 0};
  return SelectWait(nullptr, nullptr, &except, &now) != 0;
}

int psockStreamImpl::Select(fd_set* read, fd_set* write, fd_set* except, timeval* tv) {
  tv->tv_sec = 0;
  tv->tv_usec = 10;
  return SelectWait(read, write, except, tv);
}

int SelectOn(unsigned long long sock, fd_set* read, fd_set* write, fd_set* except, timeval* tv) {
  for (fd_set* set : {read, write, except}) {
    if (set == nullptr) continue;
    fds_zero(*set);
    fds_set(sock, *set);
  }
  // select takes the handle's low 32 bits on every platform.
  return fds_select(static_cast<int>(static_cast<std::uint32_t>(sock)), read, write, except, tv);
}

int psockStreamImpl::SelectWait(fd_set* read, fd_set* write, fd_set* except, timeval* tv) {
  return SelectOn(sock, read, write, except, tv);
}

errstatus psockStreamImpl::getErr() { return err; }

unsigned long long psockStreamImpl::getSock() { return sock; }

void psockStreamImpl::CloseSocket() {
  if (sock == vekInvalidSocket) return;
  vek_closesocket(sock);
  sock = vekInvalidSocket;
}

errstatus Write(psockStream& s, char const* p, int n) {
  errstatus e = s.getErr();
  if (e != errOK) return e;
  while (n > 0) {
    int w = s.Write(p, n, false);
    n -= w;
    p += w;
    e = s.getErr();
    if (e != errOK) return e;
  }
  return e;
}

errstatus Read(psockStream& s, char* p, int& n) {
  int r = n;
  errstatus e = s.getErr();
  while (e == errOK && r > 0) {
    int g = s.Read(p, r, false);
    if (g > 0) {
      p += g;
      r -= g;
    }
    e = s.getErr();
  }
  n -= r;
  return e;
}

namespace {

// One frame on the library's own stream: the count and the payload in one
// gathered send, so that the peer is not woken for a segment of 4 bytes (the
// socket sends at once) and the payload is not copied; whatever a short send
// leaves goes out as the exact write sends.
errstatus WriteFrame(psockStreamImpl& s, char const* count, char const* payload, int size) {
  errstatus e = s.getErr();
  if (e != errOK) return e;
  int sent = std::max(s.WriteGathered(count, kCountBytes, payload, size), 0);
  e = s.getErr();
  if (e != errOK) return e;
  if (sent < kCountBytes) {
    e = Write(s, count + sent, kCountBytes - sent);
    if (e != errOK) return e;
    sent = kCountBytes;
  }
  return Write(s, payload + (sent - kCountBytes), size - (sent - kCountBytes));
}

}  // namespace

errstatus Write(psockStream& s, dsXArray<char>& a) {
  char count[kCountBytes];
  int const size = static_cast<int>(a.GetSize());
  PutCount(count, size);
  // A stream of another class (a subclass of psockStreamImpl too) gets its
  // own Write calls: the count, then the payload.
  if (typeid(s) == typeid(psockStreamImpl)) {
    return WriteFrame(static_cast<psockStreamImpl&>(s), count, a.GetDataPtr(), size);
  }
  errstatus e = Write(s, count, kCountBytes);
  if (e != errOK) return e;
  return Write(s, a.GetDataPtr(), size);
}

namespace {

// How much a full array grows before the next receive of a frame that has
// left bytes to come: as much again as has arrived, at least kFirstRoom, or
// all that the socket holds already if that is more; never past the frame's
// end. Beyond kFirstRoom every step is bytes that have come, so a count of
// 2 GiB followed by a close never becomes a large block, and a frame that
// has arrived whole is taken in one receive.
unsigned int Growth(psockStream& s, unsigned int arrived, unsigned int left) {
  long long step = std::max(arrived, kFirstRoom);
  if (step < left) step = std::max(step, vek_recv_queued(s.getSock()));  // -1 (no socket) adds nothing
  return static_cast<unsigned int>(std::min<long long>(step, left));
}

// Receives a frame's payload of length bytes straight into the spare room of
// a, behind what it holds; every receive is offered all the room there is, up
// to the frame's end. The array grows only with what arrives, whatever the
// count announces (Growth), so it takes few receives and no second copy and
// is never much more than twice what came.
errstatus ReceivePayload(psockStream& s, dsXArray<char>& a, int length) {
  unsigned int const start = a.GetSize();
  unsigned int arrived = 0;
  errstatus e = errOK;
  while (length > 0) {
    unsigned int const have = start + arrived;
    unsigned int const left = static_cast<unsigned int>(length);
    if (a.GetCapacity() == have) a.Resize(have + Growth(s, arrived, left));
    unsigned int const room = std::min(a.GetCapacity() - have, left);
    // The size covers the room while it is offered; only what came is kept.
    a.Resize(have + room);
    int g = s.Read(a.GetDataPtr() + have, static_cast<int>(room), false);
    if (g > 0) {
      arrived += static_cast<unsigned int>(g);
      length -= g;
    }
    e = g < 0 ? errFramedReceive : s.getErr();
    if (e != errOK) break;
  }
  a.Resize(start + arrived);
  return e;
}

}  // namespace

errstatus Read(psockStream& s, dsXArray<char>& a) {
  char header[kCountBytes];
  char* next = header;
  for (int h = kCountBytes; h > 0;) {
    errstatus e = s.getErr();
    if (e != errOK) return e;
    int g = s.Read(next, h, false);
    if (g < 0) return errFramedReceive;
    h -= g;
    next += g;
  }
  errstatus e = s.getErr();
  if (e != errOK) return e;
  return ReceivePayload(s, a, GetCount(header));
}

int ReadFromSocket(psockStream& s, void* p, int n) {
  int got = s.Read(p, n, false);
  return got == 0 ? -1 : got;
}

int WriteToSocket(psockStream& s, void const* p, int n) { return s.Write(p, n, false); }

vekSocketEvent::vekSocketEvent(psockStream* s, Type t)
    : vekEvent(new vekSelectEvent(s->getSock(), t)), stream(s), type(t) {}

QUILLON_EVENT_KIND_MEMBERS(vekSocketEvent)

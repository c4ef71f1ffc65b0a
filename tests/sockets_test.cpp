// Sockets: the lower calls, streams and frames, servers and their loops, and
// stream buffers. All on 127.0.0.1, ports the system picks; every wait bounded.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "quillon.h"
#include "testsupport.h"

namespace {

using Stream = std::unique_ptr<psockStream>;

// Takes the first connection it is given and ends the loop.
class Taker : public psockBlockingServer {
 public:
  bool Execute(psockStream* connection) override {
    taken.reset(connection);
    return true;
  }
  Stream taken;
};

struct Connection {
  Stream client, server;
};

Connection Connect() {
  Taker listener;
  EXPECT_TRUE(listener.Initialize(SystemAssigned));
  Connection c;
  c.client.reset(psockServer::Connect("127.0.0.1", listener.GetPort()));
  EXPECT_NE(c.client, nullptr);
  QTEST_BOUNDED("the blocking loop that its handler ends", listener.Run());
  c.server = std::move(listener.taken);
  return c;
}

void SendRaw(psockStream& s, std::string const& bytes) {
  ASSERT_TRUE(qtest::host::SendAll(s.getSock(), bytes.data(), bytes.size()));
}

dsXArray<char>& Fill(dsXArray<char>& a, std::string const& bytes) {
  a.Append(static_cast<unsigned>(bytes.size()), bytes.data());
  return a;
}

std::string Bytes(dsXArray<char> const& a) { return std::string(a.GetDataPtr(), a.GetSize()); }

// Reads one frame and gives its payload, or "<failed>".
std::string Frame(psockStream& s) {
  dsXArray<char> a;
  return QTEST_BOUNDED("the framed read (past the frame's end?)", Read(s, a)) == errOK ? Bytes(a) : "<failed>";
}

TEST(SocketStream, LowerCallsSelectEventsExactReadsAndClose) {
  Connection c = Connect();
  for (psockStream* s : {c.client.get(), c.server.get()}) EXPECT_FALSE(qtest::host::IsInheritable(s->getSock()));
  // Where the platform's own option numbers differ from the wrapper's, they mean nothing to it.
  int on = 1;
  if (qtest::host::kSocketLevel != vekSolSocket || qtest::host::kReuseAddressOption != vekSoReuseAddr) {
    EXPECT_EQ(vek_setsockopt(c.client->getSock(), qtest::host::kSocketLevel, qtest::host::kReuseAddressOption, &on,
                             sizeof on),
              -1);
  }

  vekSocketEvent readable(c.server.get(), vekSelectEvent::Readable);
  EXPECT_FALSE(readable.Wait(0));
  EXPECT_EQ(vek_recv_queued(c.server->getSock()), 0);
  SendRaw(*c.client, "x");
  EXPECT_TRUE(readable.Wait(5000));
  EXPECT_EQ(vek_recv_queued(c.server->getSock()), 1);  // what has come and not been received
  EXPECT_EQ(vek_recv_queued(vekInvalidSocket), -1);
  EXPECT_TRUE(c.server->IsOnTheSameMachine());

  // An exact read that meets the close reports how much came.
  SendRaw(*c.client, "hello");
  c.client->CloseSocket();
  char buffer[16];
  int n = 16;
  EXPECT_EQ(QTEST_BOUNDED("the exact read (the peer's close not seen?)", Read(*c.server, buffer, n)), errSysPeerClosed);
  EXPECT_EQ(std::string(buffer, static_cast<std::size_t>(n)), "xhello");

  // Sends to the closed peer: the first may still be taken; a later one meets
  // the reset without a signal.
  std::string block(65536, 'x');
  auto const [result, status] = QTEST_BOUNDED("sending to the closed peer", [&] {
    int sent = 0;
    for (int i = 0; i < 100 && sent >= 0; ++i) {
      sent = vek_send(c.server->getSock(), block.data(), static_cast<long long>(block.size()), 0);
    }
    return std::make_pair(sent, errMapError());  // the last error belongs to this thread
  }());
  EXPECT_EQ(result, -1);
  EXPECT_TRUE(status == errSysBrokenPipe || status == errSysConnReset) << status;
  c.server->CloseSocket();
  c.server->CloseSocket();
  EXPECT_EQ(c.server->getSock(), ~0ULL);
}

// The library's own stream sends each frame in one gathered send; read back to
// back into one array, where room offered past a frame's end would take the
// next frame's bytes, then a frame cut by the peer's close. (The count's bytes
// are the wire image's test, wire_test.cpp.)
TEST(SocketFrame, FramesBackToBackIntoOneArrayAndOneCutByTheClose) {
  Connection c = Connect();
  std::string const frames[] = {qtest::Pattern(10000), "", "second"};
  for (std::string const& payload : frames) {
    dsXArray<char> a;
    ASSERT_EQ(Write(*c.client, Fill(a, payload)), errOK);
  }
  SendRaw(*c.client, std::string("\0\0\0\x0a", 4) + "abcd");
  c.client->CloseSocket();  // a read past a frame's end fails instead of waiting
  dsXArray<char> all;
  Fill(all, "#");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Read(*c.server, all), errOK);
  EXPECT_EQ(QTEST_BOUNDED("the framed read cut by the close", Read(*c.server, all)), errFramedReceive);
  EXPECT_TRUE(Bytes(all) == "#" + frames[0] + frames[2] + "abcd") << all.GetSize() << " bytes";
  // The failure is kept: a write, which the closed peer would still take, fails.
  EXPECT_EQ(Write(*c.server, all), errSysPeerClosed);
  char buffer[8];
  EXPECT_EQ(ReadFromSocket(*c.server, buffer, 8), -1) << "not held back, and a closed peer is never 0";
}

// A stream of its own class over a library stream, whose Read and Write move
// at most 3 bytes a call; it notes what each Write was asked to send.
class Piecemeal : public psockStream {
 public:
  explicit Piecemeal(psockStream& inner) : inner(inner) {}
  int Read(void* p, int n, bool oob) override { return inner.Read(p, std::min(n, 3), oob); }
  int Write(void const* p, int n, bool oob) override {
    asked.push_back(n);
    return inner.Write(p, std::min(n, 3), oob);
  }
  bool Exception() override { return inner.Exception(); }
  int Select(fd_set* r, fd_set* w, fd_set* e, timeval* tv) override { return inner.Select(r, w, e, tv); }
  int SelectWait(fd_set* r, fd_set* w, fd_set* e, timeval* tv) override { return inner.SelectWait(r, w, e, tv); }
  errstatus getErr() override { return inner.getErr(); }
  unsigned long long getSock() override { return inner.getSock(); }
  void CloseSocket() override { inner.CloseSocket(); }
  std::vector<int> asked;

 private:
  psockStream& inner;
};

// Short transfers are finished, and a count that comes in pieces is put together.
TEST(SocketFrame, StreamsOfOtherClassesTransferThroughTheirOwnCalls) {
  Connection c = Connect();
  Piecemeal client(*c.client), server(*c.server);
  dsXArray<char> a;
  EXPECT_EQ(Write(client, Fill(a, "abcdefgh")), errOK);
  EXPECT_EQ(client.asked, (std::vector<int>{4, 1, 8, 5, 2}));  // the count, then the payload
  c.client->CloseSocket();  // a count put together wrongly reads past the end and fails
  EXPECT_EQ(Frame(server), "abcdefgh");
}

TEST(SocketFrame, ASendCutShortIsFinishedFromWhereItStopped) {
  QTEST_POSIX_ONLY("a signal that cuts a send short");
  Connection c = Connect();
  std::string const payload = qtest::Pattern(8 << 20);
  dsXArray<char> a;
  std::atomic<errstatus> written{errNothingYet};
  std::thread writer([&] { written = Write(*c.client, Fill(a, payload)); });
  // Nothing is read yet: the send fills the socket's buffers and waits there.
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_TRUE(qtest::host::InterruptThread(writer));
  EXPECT_TRUE(Frame(*c.server) == payload) << "the frame's bytes out of order";
  QTEST_BOUNDED("the writer", writer.join());
  EXPECT_EQ(written.load(), errOK);
}

// Counts handler calls and idle turns; the handler never ends the loop.
template <class Base>
class Counting : public Base {
 public:
  using Base::Base;
  bool Execute(psockStream* connection) override {
    delete connection;
    ++handled;
    return false;
  }
  bool DoIdle() override {
    ++idle;
    return Base::DoIdle();
  }
  std::atomic<int> handled{0}, idle{0};
};
using NonBlocking = Counting<psockNonBlockingServer>;

TEST(SocketServer, BacklogVariableIsReadAndReported) {
  qtest::EnvVar backlog("VRN_FSERV_BACKLOG", nullptr);
  for (auto const& c : {std::make_pair("", ""), std::make_pair("3", "RTF: Backlog set to 5\n"),
                        std::make_pair("1000", "RTF: Backlog set to 1000\n")}) {
    backlog.Set(*c.first ? c.first : nullptr);
    NonBlocking server;
    testing::internal::CaptureStdout();
    EXPECT_TRUE(server.Initialize(SystemAssigned));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), c.second);
  }
}

TEST(SocketServer, FailuresPrintTheirMessages) {
  NonBlocking first, second, unnamed, never;
  ASSERT_TRUE(first.Initialize(SystemAssigned));
  testing::internal::CaptureStderr();
  EXPECT_FALSE(second.Initialize(first.GetPort()));
  EXPECT_FALSE(unnamed.Initialize(-1));  // "-1" names no service: no address to listen on
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "ERROR: port is busy.\nERROR: OS could not create socket.\n");
  EXPECT_EQ(unnamed.GetPort(), -1);

  // A failed wait (nothing to wait on) prints its diagnostics and ends the loop.
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  QTEST_BOUNDED("a wait of 1.5 s with nothing to wait on", never.WaitAndProcess(1500));
  std::string const out = testing::internal::GetCapturedStdout();
  std::string const err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(out, "Failure on connection's socket: " + std::to_string(errSysInvalidArgument) +
                     "\nwaittime = (1,500000)\nmsec = 1500\nLastError = " +
                     std::to_string(qtest::host::kErrorInvalidArgument) + "\n");
  EXPECT_EQ(err.rfind("Socket failed: : ", 0), 0u) << err;
}

// Whether this host can bind a socket to the numeric address text (port 0).
bool HostHasAddress(int family, char const* text) {
  addrinfo hints{};
  hints.ai_family = family;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICHOST;
  addrinfo* found = nullptr;
  if (vek_get_nodeaddrinfo(text, "0", &hints, &found) != 0) return false;
  unsigned long long sock = vek_socket(found->ai_family, found->ai_socktype, found->ai_protocol);
  bool bound = sock != vekInvalidSocket &&
               vek_bind(sock, found->ai_addr, static_cast<int>(found->ai_addrlen)) == 0;
  if (sock != vekInvalidSocket) vek_closesocket(sock);
  vek_free_nodeaddrinfo(found);
  return bound;
}

// Connects to address:port and says whether the server took the connection.
bool Reaches(NonBlocking& server, char const* address) {
  Stream client(psockServer::Connect(address, server.GetPort()));
  int before = server.handled;
  server.Run();
  return client != nullptr && server.handled == before + 1;
}

TEST(SocketServer, NonBlockingRunsServeWhatWaitsOnTheOneAddressGiven) {
  NonBlocking server;
  ASSERT_TRUE(server.Initialize(SystemAssigned));
  QTEST_BOUNDED("a non-blocking run with nothing waiting", server.Run());
  EXPECT_EQ(server.idle, 1);
  Stream a(psockServer::Connect("127.0.0.1", server.GetPort()));
  Stream b(psockServer::Connect("localhost", server.GetPort()));
  ASSERT_TRUE(a && b);
  EXPECT_TRUE(server.IsConnectionReceived());
  QTEST_BOUNDED("a non-blocking run with two clients waiting", server.Run());
  EXPECT_EQ(server.handled, 2);
  EXPECT_EQ(server.idle, 2);
  EXPECT_EQ(psockServer::Connect("no-such-host.invalid", 80), nullptr);
  EXPECT_EQ(errMapError(), errSysNameNotResolved);

  NonBlocking v4;
  ASSERT_TRUE(v4.Initialize(SystemAssigned, "127.0.0.1"));
  EXPECT_TRUE(Reaches(v4, "127.0.0.1"));
  EXPECT_FALSE(Reaches(v4, "127.0.0.2"));  // all of 127/8 is this host

  // A host name: its first address, the one Connect tries too.
  NonBlocking named;
  ASSERT_TRUE(named.Initialize(SystemAssigned, "localhost"));
  EXPECT_TRUE(Reaches(named, "localhost"));

  if (HostHasAddress(AF_INET6, "::1")) {
    NonBlocking v6;
    ASSERT_TRUE(v6.Initialize(SystemAssigned, "::1"));
    EXPECT_TRUE(Reaches(v6, "::1"));
    EXPECT_FALSE(Reaches(v6, "127.0.0.1"));  // a dual-stack socket, but bound to ::1 only
  }
}

TEST(SocketService, StopEndsTheLoopAfterWaitingWorkAndPauseHoldsIt) {
  vekService stopped;
  stopped.Stop();
  Counting<psockService> once(stopped, 20);
  ASSERT_TRUE(once.Initialize(SystemAssigned));
  Stream waiting(psockServer::Connect("127.0.0.1", once.GetPort()));
  // Serves the waiting client, then stops at the first timeout.
  QTEST_BOUNDED("the loop of a stopped service", once.Run());
  EXPECT_EQ(once.handled, 1);
  EXPECT_EQ(once.idle, 1);

  vekService service;
  Counting<psockService> server(service, 10);
  ASSERT_TRUE(server.Initialize(SystemAssigned));
  service.Pause();
  auto running = std::async(std::launch::async, [&] { server.Run(); });
  ASSERT_TRUE(qtest::WaitUntil([&] { return server.idle >= 1; }));
  Stream client(psockServer::Connect("127.0.0.1", server.GetPort()));
  // Paused in its idle turn, the loop accepts nothing.
  EXPECT_FALSE(qtest::WaitUntil([&] { return server.handled > 0; }, std::chrono::milliseconds(200)));
  service.Continue();
  EXPECT_TRUE(qtest::WaitUntil([&] { return server.handled == 1; }));
  service.Pause();
  service.Stop();  // a stop also ends a pause
  QTEST_BOUNDED("the paused loop after a stop", running.get());
}

TEST(SocketBuffer, IoStreamsFlushWhenDestroyedAndSendBeforeReading) {
  Connection c = Connect();
  {
    ioSockStream out(*c.client);
    out << "hello " << 42 << '\n';
  }
  EXPECT_NE(c.client->getSock(), ~0ULL);  // the stream outlives its iostream
  ioSockStream io(*c.server);
  io << "re: ";  // no flush: reading sends it
  std::string word;
  int number = 0;
  QTEST_BOUNDED("reading what the destroyed stream should have flushed", static_cast<void>(io >> word >> number));
  EXPECT_EQ(word + std::to_string(number), "hello42");
  vekSocketEvent readable(c.client.get(), vekSelectEvent::Readable);
  ASSERT_TRUE(readable.Wait(5000)) << "what was written was not sent before the read";
  ISockSBuf in(*c.client);
  EXPECT_EQ(in.in_avail(), 0);  // no estimate, although the bytes are there
  std::istream text(&in);
  QTEST_BOUNDED("reading the reply", static_cast<void>(text >> word));
  EXPECT_EQ(word, "re:");
}

// A buffer over a string whose Write takes at most two bytes a call, while
// its budget lasts.
class Memory : public vekIOStreamBuf {
 public:
  Memory(std::string input, int size, int budget = 1000)
      : vekStreamBufferSize(size), vekStreamBufferBase(nullptr), vekIOStreamBuf(size, nullptr),
        input(std::move(input)), budget(budget) {}
  ~Memory() override { flush(); }
  bool Drain() { return DrainPutArea(); }
  std::string Pending() const { return std::string(pbase(), pptr()); }
  std::string input, output;
  int budget;

 private:
  int Read(void* p, int n) override {
    std::size_t const count = input.copy(static_cast<char*>(p), static_cast<std::size_t>(n));
    input.erase(0, count);
    return count == 0 ? -1 : static_cast<int>(count);
  }
  int Write(void const* p, int n) override {
    int const took = std::min({n, 2, budget});
    if (took <= 0) return -1;
    budget -= took;
    output.append(static_cast<char const*>(p), static_cast<std::size_t>(took));
    return took;
  }
};

TEST(SocketBuffer, LowerBuffersHandleShortTransfersFailuresAndResizing) {
  Memory small("abcdefghij", 6);  // a get area of 3 bytes, a put area of 3
  std::iostream io(&small);
  io << "12345678";
  std::string word;
  io >> word;
  EXPECT_EQ(word, "abcdefghij");
  EXPECT_EQ(small.output, "12345678");  // sent before the first read, in short writes
  io.clear();
  io << "xy";
  EXPECT_FALSE(small.SetBufferSize(8));  // output pending
  io << std::flush;
  EXPECT_TRUE(small.SetBufferSize(8));
  io << "zz" << std::flush;
  EXPECT_EQ(small.output, "12345678xyzz");

  // A failed drain keeps what did not go at the start of the area and sends no byte twice.
  Memory put("", 16, 5);  // a put area of 8 bytes
  ASSERT_EQ(put.sputn("abcdefgh", 8), 8);
  EXPECT_FALSE(put.Drain());
  EXPECT_EQ(put.output, "abcde");
  EXPECT_EQ(put.Pending(), "fgh");
  put.budget = 100;
  ASSERT_EQ(put.sputn("ij", 2), 2);
  EXPECT_TRUE(put.Drain());
  EXPECT_EQ(put.output, "abcdefghij");
  EXPECT_EQ(put.Pending(), "");
}

}  // namespace

// A server under hostile peers: a thousand connections that close inside the
// count or the payload, announce 2 GiB and go, send a negative count, or
// reset. The server must go on answering good clients, and give back every
// descriptor and the memory it took. The peers use raw POSIX sockets (a reset
// needs SO_LINGER), and the measures come from /proc: Linux only.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>

#include "quillon.h"
#include "testsupport.h"

namespace {

// Echoes one framed message per connection and counts the messages that
// did not come whole; "quit" ends the loop.
class EchoServer : public psockBlockingServer {
 public:
  bool Execute(psockStream* connection) override {
    dsXArray<char> message;
    bool quit = false;
    if (Read(*connection, message) == errOK) {
      quit = std::string(message.GetDataPtr(), message.GetSize()) == "quit";
      Write(*connection, message);
    } else {
      ++broken;
    }
    delete connection;
    return quit;
  }
  std::atomic<int> broken{0};
};

// A raw client socket, closed when it goes.
class Peer {
 public:
  explicit Peer(int port) : fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    timeval limit{10, 0};  // no answer waits longer
    connected = fd >= 0 && ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) == 0 &&
                ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  }
  ~Peer() {
    if (fd >= 0) ::close(fd);
  }

  bool Send(std::string const& bytes) {
    return ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
  }
  // Closing now sends a reset instead of the orderly end.
  void ResetOnClose() {
    linger hard{1, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
  }
  std::string Receive(std::size_t count) {
    std::string bytes(count, '\0');
    std::size_t got = 0;
    while (got < count) {
      ssize_t n = ::recv(fd, &bytes[got], count - got, 0);
      if (n <= 0) break;
      got += static_cast<std::size_t>(n);
    }
    return bytes.substr(0, got);
  }

  bool connected;

 private:
  int fd;
};

std::string Count(std::int32_t n) {
  std::uint32_t const wire = htonl(static_cast<std::uint32_t>(n));
  return std::string(reinterpret_cast<char const*>(&wire), 4);
}

// One hostile connection of the given kind.
void Hostile(int port, int kind) {
  Peer peer(port);
  ASSERT_TRUE(peer.connected);
  switch (kind) {
    case 0: peer.Send(Count(100).substr(0, 2)); break;                 // closes inside the count
    case 1: peer.Send(Count(100) + std::string(10, 'p')); break;       // closes inside the payload
    case 2: peer.Send(Count(0x7FFFFFFF) + std::string(96 * 1024, 'g')); break;  // announces 2 GiB
    case 3: peer.Send(Count(-5)); break;                               // a negative count
    default:                                                           // resets the connection
      peer.Send(Count(100) + "abc");
      peer.ResetOnClose();
  }
}

// A good client: its frame comes back.
void ExpectEcho(int port, std::string const& text) {
  Peer peer(port);
  ASSERT_TRUE(peer.connected);
  ASSERT_TRUE(peer.Send(Count(static_cast<std::int32_t>(text.size())) + text));
  EXPECT_EQ(peer.Receive(4 + text.size()), Count(static_cast<std::int32_t>(text.size())) + text);
}

// Memory in use. A sanitizer keeps freed blocks in quarantine and maps
// shadow memory, so there the allocator's own count of live bytes stands in
// for the resident size; otherwise the resident size from /proc, which the C
// library's caches may keep a few megabytes above where it was.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
// The sanitizer runtimes' allocator interface (gcc ships no header for it).
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
long MemoryInUse() { return static_cast<long>(__sanitizer_get_current_allocated_bytes()); }
long const kMemoryTolerance = 1L << 20;
#else
long MemoryInUse() { return qtest::host::ResidentBytes(); }
long const kMemoryTolerance = 8L << 20;
#endif

// The server's loop on a thread of its own, told to end ("quit") when the
// test is over, however it ends.
class Serving {
 public:
  explicit Serving(EchoServer& server) : port(server.GetPort()), loop([&server] { server.Run(); }) {}
  ~Serving() {
    Peer(port).Send(Count(4) + "quit");
    loop.join();
  }
  int const port;

 private:
  std::thread loop;
};

TEST(Soak, ServerOutlivesAThousandHostilePeersAndGivesEverythingBack) {
  if (qtest::host::OpenDescriptorCount() < 0) GTEST_SKIP() << "needs /proc/self/fd";
  EchoServer server;
  ASSERT_TRUE(server.Initialize(SystemAssigned));
  int const descriptors = qtest::host::OpenDescriptorCount();  // the listening socket is open from here on
  Serving serving(server);
  int const port = serving.port;
  // Each good answer also shows that the server has dealt with all before it;
  // it closes each connection right after its answer went out.
  auto hostileRounds = [&](int count) {
    for (int i = 0; i < count && !testing::Test::HasFailure(); ++i) {
      Hostile(port, i % 5);
      if (i % 50 == 49) ExpectEcho(port, "between " + std::to_string(i));
    }
    ExpectEcho(port, "after all");
    qtest::WaitUntil([&] { return qtest::host::OpenDescriptorCount() == descriptors; }, std::chrono::seconds(5));
    EXPECT_EQ(qtest::host::OpenDescriptorCount(), descriptors) << "descriptors left open";
  };

  // Every kind a few times first, so that caches and buffers exist.
  hostileRounds(100);
  long const memory = MemoryInUse();
  hostileRounds(1000);
  EXPECT_LE(MemoryInUse(), memory + kMemoryTolerance) << "memory kept";
  EXPECT_EQ(server.broken, 4 * 1100 / 5) << "every peer but the negative count breaks off";
}

}  // namespace

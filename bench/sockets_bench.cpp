// Framed messages on loopback beside the same traffic with raw send and recv.
#include <benchmark/benchmark.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "quillon.h"

namespace {

// A connected pair on 127.0.0.1 made by the library; the raw cases use the
// same kind of sockets through their fds.
class Taker : public psockBlockingServer {
 public:
  bool Execute(psockStream* connection) override {
    taken.reset(connection);
    return true;
  }
  std::unique_ptr<psockStream> taken;
};

struct Pair {
  Pair() {
    Taker listener;
    listener.Initialize(SystemAssigned);
    client.reset(psockServer::Connect("127.0.0.1", listener.GetPort()));
    listener.AcceptAndExecute();
    server = std::move(listener.taken);
  }
  std::unique_ptr<psockStream> client;
  std::unique_ptr<psockStream> server;
};

int Fd(std::unique_ptr<psockStream> const& s) { return static_cast<int>(s->getSock()); }

bool SendAll(int fd, char const* p, std::size_t n) {
  while (n > 0) {
    ssize_t sent = ::send(fd, p, n, MSG_NOSIGNAL);
    if (sent <= 0) return false;
    p += sent;
    n -= static_cast<std::size_t>(sent);
  }
  return true;
}

bool RecvAll(int fd, char* p, std::size_t n) {
  while (n > 0) {
    ssize_t got = ::recv(fd, p, n, 0);
    if (got <= 0) return false;
    p += got;
    n -= static_cast<std::size_t>(got);
  }
  return true;
}

// The raw frame: the same 4-byte big-endian count and payload, sent at once.
void PutCount(char* header, std::uint32_t n) {
  header[0] = static_cast<char>(n >> 24);
  header[1] = static_cast<char>(n >> 16);
  header[2] = static_cast<char>(n >> 8);
  header[3] = static_cast<char>(n);
}

std::uint32_t GetCount(char const* header) {
  auto byte = [&](int i) { return static_cast<std::uint32_t>(static_cast<unsigned char>(header[i])); };
  return byte(0) << 24 | byte(1) << 16 | byte(2) << 8 | byte(3);
}

void RoundTrip_quillon(benchmark::State& state) {
  Pair pair;
  std::thread echo([&] {
    dsXArray<char> message;
    while (Read(*pair.server, message) == errOK && Write(*pair.server, message) == errOK) {
      message.Resize(0);
    }
  });
  dsXArray<char> request;
  dsXArray<char> reply;
  std::vector<char> payload(static_cast<std::size_t>(state.range(0)), 'r');
  request.Append(static_cast<unsigned>(payload.size()), payload.data());
  for (auto _ : state) {
    reply.Resize(0);
    if (Write(*pair.client, request) != errOK || Read(*pair.client, reply) != errOK) {
      state.SkipWithError("round trip failed");
      break;
    }
  }
  pair.client->CloseSocket();
  echo.join();
  state.SetItemsProcessed(state.iterations());
}

// The raw frame goes out in one send; split sends the count and the payload
// separately, as the library's two writes do.
void RoundTripRaw(benchmark::State& state, bool split) {
  Pair pair;
  auto sendFrame = [split](int fd, std::vector<char> const& frame) {
    if (!split) return SendAll(fd, frame.data(), frame.size());
    return SendAll(fd, frame.data(), 4) && SendAll(fd, frame.data() + 4, frame.size() - 4);
  };
  std::thread echo([&] {
    std::vector<char> message;
    char header[4];
    while (RecvAll(Fd(pair.server), header, 4)) {
      std::uint32_t n = GetCount(header);
      message.resize(4 + n);
      std::memcpy(message.data(), header, 4);
      if (!RecvAll(Fd(pair.server), message.data() + 4, n)) break;
      if (!sendFrame(Fd(pair.server), message)) break;
    }
  });
  std::vector<char> request(4 + static_cast<std::size_t>(state.range(0)), 'r');
  PutCount(request.data(), static_cast<std::uint32_t>(state.range(0)));
  std::vector<char> reply;
  for (auto _ : state) {
    char header[4];
    bool ok = sendFrame(Fd(pair.client), request) && RecvAll(Fd(pair.client), header, 4);
    if (ok) {
      reply.resize(GetCount(header));
      ok = RecvAll(Fd(pair.client), reply.data(), reply.size());
    }
    if (!ok) {
      state.SkipWithError("round trip failed");
      break;
    }
  }
  pair.client->CloseSocket();
  echo.join();
  state.SetItemsProcessed(state.iterations());
}

void RoundTrip_syscall(benchmark::State& state) { RoundTripRaw(state, false); }

void RoundTrip_syscall_split(benchmark::State& state) { RoundTripRaw(state, true); }

// One way: the client sends a burst of messages of state.range(0) bytes, 16
// MiB in all, and the server takes each whole and answers the last one with a
// byte, so that the time covers every delivery. The receiver's array either
// keeps its block between messages, as a server's would, or is a new array
// for every message; the raw receiver does the same with its buffer.
enum class Receiver { keeps, fresh };

int Burst(benchmark::State const& state) {
  return static_cast<int>(std::max<std::int64_t>(1, (std::int64_t{16} << 20) / state.range(0)));
}

void Delivered(benchmark::State& state) {
  state.SetBytesProcessed(state.iterations() * Burst(state) * state.range(0));
}

// Sends the bursts and waits for each acknowledgement.
template <class SendOne>
void SendBursts(benchmark::State& state, psockStream& client, SendOne sendOne) {
  int const burst = Burst(state);
  for (auto _ : state) {
    for (int i = 0; i < burst; ++i) sendOne();
    char ack = 0;
    int one = 1;
    if (Read(client, &ack, one) != errOK) {
      state.SkipWithError("transfer failed");
      break;
    }
  }
  client.CloseSocket();
  Delivered(state);
}

template <Receiver receiver>
void Throughput_quillon(benchmark::State& state) {
  Pair pair;
  int const burst = Burst(state);
  std::thread sink([&] {
    dsXArray<char> kept;
    for (;;) {
      for (int i = 0; i < burst; ++i) {
        dsXArray<char> fresh;
        dsXArray<char>& message = receiver == Receiver::fresh ? fresh : kept;
        message.Resize(0);
        if (Read(*pair.server, message) != errOK) return;
      }
      if (Write(*pair.server, "k", 1) != errOK) return;
    }
  });
  std::vector<char> payload(static_cast<std::size_t>(state.range(0)), 'p');
  dsXArray<char> message;
  message.Append(static_cast<unsigned>(payload.size()), payload.data());
  SendBursts(state, *pair.client, [&] { Write(*pair.client, message); });
  sink.join();
}

// Each receive takes all that the socket holds of the message.
template <Receiver receiver>
void Throughput_syscall(benchmark::State& state) {
  Pair pair;
  int const burst = Burst(state);
  std::thread sink([&] {
    std::vector<char> kept;
    char header[4];
    for (;;) {
      for (int i = 0; i < burst; ++i) {
        if (!RecvAll(Fd(pair.server), header, 4)) return;
        std::size_t const n = GetCount(header);
        std::unique_ptr<char[]> fresh;
        char* message;
        if (receiver == Receiver::fresh) {
          fresh.reset(new char[n]);
          message = fresh.get();
        } else {
          kept.resize(n);
          message = kept.data();
        }
        if (!RecvAll(Fd(pair.server), message, n)) return;
      }
      if (!SendAll(Fd(pair.server), "k", 1)) return;
    }
  });
  std::vector<char> message(4 + static_cast<std::size_t>(state.range(0)), 'p');
  PutCount(message.data(), static_cast<std::uint32_t>(state.range(0)));
  SendBursts(state, *pair.client, [&] { SendAll(Fd(pair.client), message.data(), message.size()); });
  sink.join();
}

}  // namespace

BENCHMARK(RoundTrip_quillon)->Name("RoundTrip/quillon")->Arg(64)->UseRealTime();
BENCHMARK(RoundTrip_syscall)->Name("RoundTrip/syscall")->Arg(64)->UseRealTime();
BENCHMARK(RoundTrip_syscall_split)->Name("RoundTrip/syscall_split")->Arg(64)->UseRealTime();
#define QUILLON_MESSAGE_SIZES ->Arg(16 << 10)->Arg(64 << 10)->Arg(1 << 20)->Arg(64 << 20)->UseRealTime()
BENCHMARK(Throughput_quillon<Receiver::keeps>)->Name("Throughput/quillon") QUILLON_MESSAGE_SIZES;
BENCHMARK(Throughput_syscall<Receiver::keeps>)->Name("Throughput/syscall") QUILLON_MESSAGE_SIZES;
BENCHMARK(Throughput_quillon<Receiver::fresh>)->Name("ThroughputFresh/quillon") QUILLON_MESSAGE_SIZES;
BENCHMARK(Throughput_syscall<Receiver::fresh>)->Name("ThroughputFresh/syscall") QUILLON_MESSAGE_SIZES;

BENCHMARK_MAIN();

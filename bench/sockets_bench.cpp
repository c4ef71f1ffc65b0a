// Framed messages on loopback beside the same traffic with raw send and recv.
#include <benchmark/benchmark.h>
#include <sys/socket.h>

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

// The receiver's array keeps its block between messages, as a server's would.
dsXACtrl const kLargeGrain(1u << 16, false);

void RoundTrip_quillon(benchmark::State& state) {
  Pair pair;
  std::thread echo([&] {
    dsXArray<char> message(&kLargeGrain);
    while (Read(*pair.server, message) == errOK && Write(*pair.server, message) == errOK) {
      message.Resize(0);
    }
  });
  dsXArray<char> request(&kLargeGrain);
  dsXArray<char> reply(&kLargeGrain);
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

// One way: the client sends messages, the server takes each whole and
// answers the last one with a byte, so that the time covers every delivery.
constexpr int kBurst = 16;

void Throughput_quillon(benchmark::State& state) {
  Pair pair;
  std::thread sink([&] {
    dsXArray<char> message(&kLargeGrain);
    for (;;) {
      for (int i = 0; i < kBurst; ++i) {
        message.Resize(0);
        if (Read(*pair.server, message) != errOK) return;
      }
      if (Write(*pair.server, "k", 1) != errOK) return;
    }
  });
  std::vector<char> payload(static_cast<std::size_t>(state.range(0)), 'p');
  dsXArray<char> message(&kLargeGrain);
  message.Append(static_cast<unsigned>(payload.size()), payload.data());
  for (auto _ : state) {
    for (int i = 0; i < kBurst; ++i) Write(*pair.client, message);
    char ack = 0;
    int one = 1;
    if (Read(*pair.client, &ack, one) != errOK) {
      state.SkipWithError("transfer failed");
      break;
    }
  }
  pair.client->CloseSocket();
  sink.join();
  state.SetBytesProcessed(state.iterations() * kBurst * state.range(0));
}

// chunk limits each receive, as the library's 4096-byte buffer does; 0 takes
// all that the socket has.
void ThroughputRaw(benchmark::State& state, std::size_t chunk) {
  Pair pair;
  std::thread sink([&] {
    std::vector<char> message;
    char header[4];
    for (;;) {
      for (int i = 0; i < kBurst; ++i) {
        if (!RecvAll(Fd(pair.server), header, 4)) return;
        message.resize(GetCount(header));
        for (std::size_t done = 0; done < message.size();) {
          std::size_t step = message.size() - done;
          if (chunk != 0 && step > chunk) step = chunk;
          if (!RecvAll(Fd(pair.server), message.data() + done, step)) return;
          done += step;
        }
      }
      if (!SendAll(Fd(pair.server), "k", 1)) return;
    }
  });
  std::vector<char> message(4 + static_cast<std::size_t>(state.range(0)), 'p');
  PutCount(message.data(), static_cast<std::uint32_t>(state.range(0)));
  for (auto _ : state) {
    for (int i = 0; i < kBurst; ++i) SendAll(Fd(pair.client), message.data(), message.size());
    char ack = 0;
    if (!RecvAll(Fd(pair.client), &ack, 1)) {
      state.SkipWithError("transfer failed");
      break;
    }
  }
  pair.client->CloseSocket();
  sink.join();
  state.SetBytesProcessed(state.iterations() * kBurst * state.range(0));
}

void Throughput_syscall(benchmark::State& state) { ThroughputRaw(state, 0); }

void Throughput_syscall_4k(benchmark::State& state) { ThroughputRaw(state, 4096); }

}  // namespace

BENCHMARK(RoundTrip_quillon)->Name("RoundTrip/quillon")->Arg(64)->UseRealTime();
BENCHMARK(RoundTrip_syscall)->Name("RoundTrip/syscall")->Arg(64)->UseRealTime();
BENCHMARK(RoundTrip_syscall_split)->Name("RoundTrip/syscall_split")->Arg(64)->UseRealTime();
BENCHMARK(Throughput_quillon)->Name("Throughput/quillon")->Arg(1 << 20)->UseRealTime();
BENCHMARK(Throughput_syscall)->Name("Throughput/syscall")->Arg(1 << 20)->UseRealTime();
BENCHMARK(Throughput_syscall_4k)->Name("Throughput/syscall_4k")->Arg(1 << 20)->UseRealTime();

BENCHMARK_MAIN();

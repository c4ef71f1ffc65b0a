// Workloads and raw baselines that more than one benchmark program runs: the
// framed round trip and throughput over loopback, the launch of a child and a
// 64 MiB read from its pipe, a stream buffer over memory, and a scratch
// directory. Each workload is written once and run by every implementation.
#ifndef QUILLON_BENCHSUPPORT_H
#define QUILLON_BENCHSUPPORT_H

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <memory>
#include <streambuf>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "quillon.h"

extern char** environ;

namespace bench {

// --- memory -----------------------------------------------------------------

// A stream buffer over one fixed array, rewound before each pass.
class ArrayBuf : public std::streambuf {
 public:
  explicit ArrayBuf(std::size_t bytes) : storage(bytes) { Rewind(); }
  void Rewind() {
    setp(storage.data(), storage.data() + storage.size());
    setg(storage.data(), storage.data(), storage.data() + storage.size());
  }

 private:
  std::vector<char> storage;
};

// --- files --------------------------------------------------------------------

// A fresh directory under TMPDIR (or /tmp), removed with all it holds at exit.
class ScratchDir {
 public:
  ScratchDir() {
    char const* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base != nullptr && *base != 0 ? base : "/tmp") + "/quillon-bench-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back(0);
    char const* made = mkdtemp(buffer.data());
    if (made != nullptr) path = made;
  }
  ScratchDir(ScratchDir const&) = delete;
  ScratchDir& operator=(ScratchDir const&) = delete;
  ~ScratchDir() {
    std::error_code ignored;
    if (!path.empty()) std::filesystem::remove_all(path, ignored);
  }
  std::string const& Path() const { return path; }

 private:
  std::string path;
};

// --- children and pipes -----------------------------------------------------

constexpr long long kPipeBytes = 64ll << 20;
constexpr std::size_t kPipeChunk = 1 << 16;
// The producer of the pipe reads, by absolute path for every implementation.
char const kProducer[] = "/usr/bin/head -c 67108864 /dev/zero";

// posix_spawn of argv with its standard output on outFd (-1: the parent's);
// the pid, or -1.
inline pid_t SpawnRaw(char* const argv[], int outFd) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (outFd >= 0) posix_spawn_file_actions_adddup2(&actions, outFd, 1);
  pid_t pid = 0;
  int failed = posix_spawn(&pid, argv[0], &actions, nullptr, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  return failed == 0 ? pid : -1;
}

inline int WaitRaw(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

inline void LaunchTrue_quillon(benchmark::State& state) {
  for (auto _ : state) {
    ExecProcess task("/bin/true", 0);
    if (!task.Start()) state.SkipWithError("no launch");
    benchmark::DoNotOptimize(task.WaitForProcess());
  }
}

inline void LaunchTrue_syscall(benchmark::State& state) {
  char program[] = "/bin/true";
  char* argv[] = {program, nullptr};
  for (auto _ : state) {
    pid_t pid = SpawnRaw(argv, -1);
    if (pid < 0) state.SkipWithError("no launch");
    benchmark::DoNotOptimize(WaitRaw(pid));
  }
}

// One pass an iteration: onePass reads all that the producer writes and
// gives the count of bytes, or -1.
template <class OnePass>
void PipeReads(benchmark::State& state, OnePass onePass) {
  std::vector<char> chunk(kPipeChunk);
  for (auto _ : state) {
    if (onePass(chunk) != kPipeBytes) state.SkipWithError("short read");
  }
  state.SetBytesProcessed(state.iterations() * kPipeBytes);
}

inline void PipeRead_quillon(benchmark::State& state) {
  PipeReads(state, [](std::vector<char>& chunk) {
    ExecProcess task(kProducer, 7);
    iPipeStream* fromChild = nullptr;
    if (OpenPipeWithChildProc(nullptr, &fromChild, nullptr, &task) != errOK) return -1ll;
    long long total = 0;
    while (fromChild->read(chunk.data(), static_cast<std::streamsize>(chunk.size())) || fromChild->gcount() > 0) {
      total += fromChild->gcount();
    }
    task.WaitForProcess();
    DeletePipe(fromChild);
    return total;
  });
}

inline void PipeRead_syscall(benchmark::State& state) {
  PipeReads(state, [](std::vector<char>& chunk) {
    char head[] = "/usr/bin/head", count[] = "-c", bytes[] = "67108864", zero[] = "/dev/zero";
    char* argv[] = {head, count, bytes, zero, nullptr};
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return -1ll;
    pid_t pid = SpawnRaw(argv, ends[1]);
    close(ends[1]);
    long long total = 0;
    ssize_t n;
    while (pid > 0 && (n = read(ends[0], chunk.data(), chunk.size())) > 0) total += n;
    close(ends[0]);
    if (pid > 0) WaitRaw(pid);
    return total;
  });
}

// --- framed messages over loopback ------------------------------------------

// A connected pair on 127.0.0.1 made by the library.
struct LoopbackPair {
  LoopbackPair() {
    Taker listener;
    listener.Initialize(SystemAssigned);
    client.reset(psockServer::Connect("127.0.0.1", listener.GetPort()));
    listener.AcceptAndExecute();
    server = std::move(listener.taken);
  }
  std::unique_ptr<psockStream> client;
  std::unique_ptr<psockStream> server;

 private:
  class Taker : public psockBlockingServer {
   public:
    bool Execute(psockStream* connection) override {
      taken.reset(connection);
      return true;
    }
    std::unique_ptr<psockStream> taken;
  };
};

// What a receiver does with its buffer between messages: keep it, as a
// server's would, or take a new one for every message.
enum class Receiver { keeps, fresh };

// One end of a connection that speaks framed messages through the library.
// It holds one message: what it was given to send, or what it last received.
class QuillonEnd {
 public:
  explicit QuillonEnd(std::unique_ptr<psockStream> stream) : stream(std::move(stream)) {}
  void SetMessage(std::vector<char> const& payload) {
    message.Resize(0);
    message.Append(static_cast<unsigned>(payload.size()), payload.data());
  }
  bool Send() { return Write(*stream, message) == errOK; }
  bool Receive(Receiver receiver) {
    if (receiver == Receiver::fresh) {
      dsXArray<char> fresh;
      return Read(*stream, fresh) == errOK;
    }
    message.Resize(0);
    return Read(*stream, message) == errOK;
  }
  bool SendByte() { return Write(*stream, "k", 1) == errOK; }
  bool ReceiveByte() {
    char byte = 0;
    int one = 1;
    return Read(*stream, &byte, one) == errOK;
  }
  void Close() { stream->CloseSocket(); }

 private:
  std::unique_ptr<psockStream> stream;
  dsXArray<char> message;
};

// One end that frames by hand: a 4-byte big-endian count and the payload,
// over a Transport with the contract of send and recv (SendSome, ReceiveSome,
// Close). The count and the payload go out in one send, or in two (split),
// as the library's framed write sends them.
template <class Transport>
class HandFramedEnd {
 public:
  explicit HandFramedEnd(Transport transport, bool split = false) : transport(std::move(transport)), split(split) {}
  void SetMessage(std::vector<char> const& payload) {
    frame.assign(4, 0);
    frame.insert(frame.end(), payload.begin(), payload.end());
    auto const n = static_cast<std::uint32_t>(payload.size());
    for (int i = 0; i < 4; ++i) frame[i] = static_cast<char>(n >> (24 - 8 * i));
  }
  bool Send() {
    if (!split) return SendAll(frame.data(), frame.size());
    return SendAll(frame.data(), 4) && SendAll(frame.data() + 4, frame.size() - 4);
  }
  bool Receive(Receiver receiver) {
    char header[4];
    if (!ReceiveAll(header, 4)) return false;
    std::uint32_t n = 0;
    for (char byte : header) n = n << 8 | static_cast<unsigned char>(byte);
    if (receiver == Receiver::fresh) {
      std::unique_ptr<char[]> fresh(new char[n]);
      return ReceiveAll(fresh.get(), n);
    }
    frame.resize(4 + std::size_t{n});
    std::memcpy(frame.data(), header, 4);
    return ReceiveAll(frame.data() + 4, n);
  }
  bool SendByte() { return SendAll("k", 1); }
  bool ReceiveByte() {
    char byte = 0;
    return ReceiveAll(&byte, 1);
  }
  void Close() { transport.Close(); }

 private:
  bool SendAll(char const* p, std::size_t n) {
    return Whole(p, n, [this](char const* at, std::size_t left) { return transport.SendSome(at, left); });
  }
  bool ReceiveAll(char* p, std::size_t n) {
    return Whole(p, n, [this](char* at, std::size_t left) { return transport.ReceiveSome(at, left); });
  }
  // Repeats step, a send or a receive, until n bytes have gone through it.
  template <class Pointer, class Step>
  static bool Whole(Pointer p, std::size_t n, Step step) {
    while (n > 0) {
      long done = step(p, n);
      if (done <= 0) return false;
      p += done;
      n -= static_cast<std::size_t>(done);
    }
    return true;
  }

  Transport transport;
  bool split;
  std::vector<char> frame;  // count and payload
};

// Raw send and recv on a socket that the library made (so with the same
// options), which it keeps open until Close.
class SocketCalls {
 public:
  explicit SocketCalls(std::unique_ptr<psockStream> owner) : owner(std::move(owner)) {}
  long SendSome(char const* p, std::size_t n) { return ::send(Fd(), p, n, MSG_NOSIGNAL); }
  long ReceiveSome(char* p, std::size_t n) { return ::recv(Fd(), p, n, 0); }
  void Close() { owner->CloseSocket(); }

 private:
  int Fd() const { return static_cast<int>(owner->getSock()); }
  std::unique_ptr<psockStream> owner;
};
using RawEnd = HandFramedEnd<SocketCalls>;

// The client and server ends of one loopback connection.
template <class End>
struct Ends {
  End client, server;
};

inline Ends<QuillonEnd> QuillonEnds() {
  LoopbackPair pair;
  return {QuillonEnd(std::move(pair.client)), QuillonEnd(std::move(pair.server))};
}

inline Ends<RawEnd> RawEnds(bool split) {
  LoopbackPair pair;
  return {RawEnd(SocketCalls(std::move(pair.client)), split), RawEnd(SocketCalls(std::move(pair.server)), split)};
}

// Keeps the threads that join it on the first CPU its maker may run on, and
// gives the maker back its own CPUs at the end. Over loopback, two threads on
// two CPUs mostly measure where the scheduler places them and how long an
// idle CPU takes to wake (a 64-byte round trip: about 80 us, against 6 us on
// one CPU), and a repetition's time swings by tens of percent; on one CPU it
// is the work of both ends and the kernel, within a few percent.
class OneCpu {
 public:
  OneCpu() : maker(pthread_self()) {
    CPU_ZERO(&own);
    pthread_getaffinity_np(maker, sizeof own, &own);
    CPU_ZERO(&one);
    int cpu = 0;
    while (cpu < CPU_SETSIZE - 1 && !CPU_ISSET(cpu, &own)) ++cpu;
    CPU_SET(cpu, &one);
    Join();
  }
  ~OneCpu() { pthread_setaffinity_np(maker, sizeof own, &own); }
  OneCpu(OneCpu const&) = delete;
  OneCpu& operator=(OneCpu const&) = delete;
  // Moves the calling thread onto the CPU.
  void Join() const { pthread_setaffinity_np(pthread_self(), sizeof one, &one); }

 private:
  pthread_t maker;
  cpu_set_t own, one;
};

// The client sends a message of state.range(0) bytes and waits for its echo.
// Both ends share one CPU (OneCpu).
template <class End>
void RoundTrips(benchmark::State& state, Ends<End> ends) {
  OneCpu cpu;
  std::thread echo([&] {
    cpu.Join();
    while (ends.server.Receive(Receiver::keeps) && ends.server.Send()) {
    }
  });
  ends.client.SetMessage(std::vector<char>(static_cast<std::size_t>(state.range(0)), 'r'));
  for (auto _ : state) {
    if (!ends.client.Send() || !ends.client.Receive(Receiver::keeps)) {
      state.SkipWithError("round trip failed");
      break;
    }
  }
  ends.client.Close();
  echo.join();
  state.SetItemsProcessed(state.iterations());
}

// One way: the client sends a burst of messages of state.range(0) bytes, 16
// MiB in all, and the server takes each whole and answers the last one with
// a byte, so that the time covers every delivery. Both ends share one CPU
// (OneCpu).
template <class End>
void Throughputs(benchmark::State& state, Ends<End> ends, Receiver receiver) {
  int const burst = static_cast<int>(std::max<std::int64_t>(1, (std::int64_t{16} << 20) / state.range(0)));
  OneCpu cpu;
  std::thread sink([&] {
    cpu.Join();
    for (;;) {
      for (int i = 0; i < burst; ++i) {
        if (!ends.server.Receive(receiver)) return;
      }
      if (!ends.server.SendByte()) return;
    }
  });
  ends.client.SetMessage(std::vector<char>(static_cast<std::size_t>(state.range(0)), 'p'));
  for (auto _ : state) {
    for (int i = 0; i < burst; ++i) ends.client.Send();
    if (!ends.client.ReceiveByte()) {
      state.SkipWithError("transfer failed");
      break;
    }
  }
  ends.client.Close();
  sink.join();
  state.SetBytesProcessed(state.iterations() * burst * state.range(0));
}

}  // namespace bench

#endif

// The same work through quillon, through POCO (the peer) and through the
// standard library or raw system calls, in one process: binary encoding and
// decoding, launching a child, reading a pipe, framed messages over loopback,
// copying a file, recursive mutexes and removing a tree. Cases are named
// <case>/quillon, <case>/poco and <case>/<baseline>.
#include <Poco/BinaryReader.h>
#include <Poco/BinaryWriter.h>
#include <Poco/Exception.h>
#include <Poco/File.h>
#include <Poco/Mutex.h>
#include <Poco/Net/ServerSocket.h>
#include <Poco/Net/SocketAddress.h>
#include <Poco/Net/StreamSocket.h>
#include <Poco/Pipe.h>
#include <Poco/PipeStream.h>
#include <Poco/Process.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <istream>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

#include "benchsupport.h"

namespace {

using namespace bench;

// --- binary encoding: records of an int and a double, big-endian ------------

constexpr int kRecords = 100000;
constexpr std::size_t kRecordBytes = 4 + 8;

struct Record {
  std::int32_t id;
  double value;
};

std::vector<Record> const& Records() {
  static std::vector<Record> const records = [] {
    std::vector<Record> made(kRecords);
    for (int i = 0; i < kRecords; ++i) made[i] = {i * 37 - 5, i * 0.25 - 100};
    return made;
  }();
  return records;
}

template <class T>
T Swapped(T v) {
  unsigned char bytes[sizeof(T)];
  std::memcpy(bytes, &v, sizeof(T));
  std::reverse(bytes, bytes + sizeof(T));
  std::memcpy(&v, bytes, sizeof(T));
  return v;
}

// All records through a writer, and back through a reader: a quillon stream
// and a POCO one take the same calls.
template <class Writer>
void WriteRecords(Writer& out) {
  for (Record const& r : Records()) out << r.id << r.value;
}

template <class Reader>
double SumOfRecords(Reader& in) {
  double sum = 0;
  std::int32_t id = 0;
  double value = 0;
  for (int i = 0; i < kRecords; ++i) {
    in >> id >> value;
    sum += id + value;
  }
  return sum;
}

// Encodes all records into a buffer per iteration; onePass(buf) does it once.
template <class OnePass>
void Encodes(benchmark::State& state, OnePass onePass) {
  ArrayBuf buf(kRecordBytes * kRecords);
  for (auto _ : state) {
    buf.Rewind();
    onePass(buf);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kRecords);
}

void Encode_quillon(benchmark::State& state) {
  Encodes(state, [](ArrayBuf& buf) {
    bdtOStream out(&buf, 1);
    WriteRecords(out);
    benchmark::DoNotOptimize(out.rdstate());
  });
}

void Encode_poco(benchmark::State& state) {
  Encodes(state, [](ArrayBuf& buf) {
    std::ostream stream(&buf);
    Poco::BinaryWriter out(stream, Poco::BinaryWriter::NETWORK_BYTE_ORDER);
    WriteRecords(out);
    benchmark::DoNotOptimize(out.good());
  });
}

// The limit: each value swapped by hand into a plain array.
void Encode_swap(benchmark::State& state) {
  std::vector<char> wire(kRecordBytes * kRecords);
  for (auto _ : state) {
    char* p = wire.data();
    for (Record const& r : Records()) {
      std::int32_t const id = Swapped(r.id);
      double const value = Swapped(r.value);
      std::memcpy(p, &id, 4);
      std::memcpy(p + 4, &value, 8);
      p += kRecordBytes;
    }
    benchmark::DoNotOptimize(wire.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kRecords);
}

// Decodes all records from a buffer that holds their encoding.
template <class OnePass>
void Decodes(benchmark::State& state, OnePass onePass) {
  ArrayBuf buf(kRecordBytes * kRecords);
  bdtOStream out(&buf, 1);
  WriteRecords(out);
  for (auto _ : state) {
    buf.Rewind();
    benchmark::DoNotOptimize(onePass(buf));
  }
  state.SetItemsProcessed(state.iterations() * kRecords);
}

void Decode_quillon(benchmark::State& state) {
  Decodes(state, [](ArrayBuf& buf) {
    bdtIStream in(&buf, 1);
    return SumOfRecords(in);
  });
}

void Decode_poco(benchmark::State& state) {
  Decodes(state, [](ArrayBuf& buf) {
    std::istream stream(&buf);
    Poco::BinaryReader in(stream, Poco::BinaryReader::NETWORK_BYTE_ORDER);
    return SumOfRecords(in);
  });
}

void Decode_swap(benchmark::State& state) {
  std::vector<char> wire(kRecordBytes * kRecords);
  {
    ArrayBuf buf(wire.size());
    bdtOStream out(&buf, 1);
    WriteRecords(out);
    buf.sgetn(wire.data(), static_cast<std::streamsize>(wire.size()));
  }
  for (auto _ : state) {
    double sum = 0;
    for (char const* p = wire.data(); p != wire.data() + wire.size(); p += kRecordBytes) {
      std::int32_t id;
      double value;
      std::memcpy(&id, p, 4);
      std::memcpy(&value, p + 4, 8);
      sum += Swapped(id) + Swapped(value);
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * kRecords);
}

// --- children and pipes -----------------------------------------------------

void Launch_poco(benchmark::State& state) {
  for (auto _ : state) {
    Poco::ProcessHandle child = Poco::Process::launch("/bin/true", Poco::Process::Args());
    benchmark::DoNotOptimize(child.wait());
  }
}

void PipeRead_poco(benchmark::State& state) {
  PipeReads(state, [](std::vector<char>& chunk) {
    Poco::Pipe fromChild;
    Poco::ProcessHandle child =
        Poco::Process::launch("/usr/bin/head", {"-c", "67108864", "/dev/zero"}, nullptr, &fromChild, nullptr);
    Poco::PipeInputStream in(fromChild);
    long long total = 0;
    while (in.read(chunk.data(), static_cast<std::streamsize>(chunk.size())) || in.gcount() > 0) {
      total += in.gcount();
    }
    child.wait();
    return total;
  });
}

// --- framed messages over loopback ------------------------------------------

// sendBytes and receiveBytes of a POCO socket; its failures, which it throws,
// count as a failed call.
class PocoCalls {
 public:
  explicit PocoCalls(Poco::Net::StreamSocket socket) : socket(std::move(socket)) { this->socket.setNoDelay(true); }
  long SendSome(char const* p, std::size_t n) {
    try {
      return socket.sendBytes(p, static_cast<int>(n));
    } catch (Poco::Exception const&) {
      return -1;
    }
  }
  long ReceiveSome(char* p, std::size_t n) {
    try {
      return socket.receiveBytes(p, static_cast<int>(n));
    } catch (Poco::Exception const&) {
      return -1;
    }
  }
  void Close() { socket.close(); }

 private:
  Poco::Net::StreamSocket socket;
};
using PocoEnd = HandFramedEnd<PocoCalls>;

Ends<PocoEnd> PocoEnds() {
  Poco::Net::ServerSocket listener(Poco::Net::SocketAddress("127.0.0.1", 0));
  Poco::Net::StreamSocket client(listener.address());
  Poco::Net::StreamSocket server = listener.acceptConnection();
  return {PocoEnd(PocoCalls(client)), PocoEnd(PocoCalls(server))};
}

void FramedRoundTrip_quillon(benchmark::State& state) { RoundTrips(state, QuillonEnds()); }
void FramedRoundTrip_poco(benchmark::State& state) { RoundTrips(state, PocoEnds()); }
void FramedRoundTrip_syscall(benchmark::State& state) { RoundTrips(state, RawEnds(false)); }

void FramedThroughput_quillon(benchmark::State& state) { Throughputs(state, QuillonEnds(), Receiver::keeps); }
void FramedThroughput_poco(benchmark::State& state) { Throughputs(state, PocoEnds(), Receiver::keeps); }
void FramedThroughput_syscall(benchmark::State& state) { Throughputs(state, RawEnds(false), Receiver::keeps); }

// --- files --------------------------------------------------------------------

constexpr std::size_t kFileBytes = std::size_t(64) << 20;

// A 64 MiB source file and the place of its copy.
struct CopyFiles {
  ScratchDir scratch;
  std::string source = scratch.Path() + "/source";
  std::string target = scratch.Path() + "/target";

  CopyFiles() {
    std::vector<char> block(1 << 20);
    for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<char>((i * 7919) >> 3);
    std::ofstream out(source, std::ios::binary);
    for (std::size_t done = 0; done < kFileBytes; done += block.size()) {
      out.write(block.data(), static_cast<std::streamsize>(block.size()));
    }
  }
};

template <class CopyOnce>
void Copies(benchmark::State& state, CopyOnce copyOnce) {
  static CopyFiles files;
  for (auto _ : state) {
    if (!copyOnce(files.source, files.target)) state.SkipWithError("copy failed");
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kFileBytes));
}

void Copy_quillon(benchmark::State& state) {
  Copies(state, [](std::string const& from, std::string const& to) {
    return pfuFS::pfuCopyFile(from.c_str(), to.c_str()) == errOK;
  });
}

void Copy_poco(benchmark::State& state) {
  Copies(state, [](std::string const& from, std::string const& to) {
    Poco::File(from).copyTo(to);
    return true;
  });
}

void Copy_std(benchmark::State& state) {
  Copies(state, [](std::string const& from, std::string const& to) {
    return std::filesystem::copy_file(from, to, std::filesystem::copy_options::overwrite_existing);
  });
}

// A tree of 10 directories of 100 small files each, made afresh (untimed)
// before every removal.
void MakeTree(std::string const& top) {
  std::filesystem::create_directory(top);
  for (int d = 0; d < 10; ++d) {
    std::string const dir = top + "/d" + std::to_string(d);
    std::filesystem::create_directory(dir);
    for (int f = 0; f < 100; ++f) std::ofstream(dir + "/f" + std::to_string(f)) << f;
  }
}

template <class RemoveOnce>
void Removals(benchmark::State& state, RemoveOnce removeOnce) {
  ScratchDir scratch;
  std::string const top = scratch.Path() + "/tree";
  for (auto _ : state) {
    state.PauseTiming();
    MakeTree(top);
    state.ResumeTiming();
    if (!removeOnce(top) || std::filesystem::exists(top)) state.SkipWithError("removal failed");
  }
}

void RemoveTree_quillon(benchmark::State& state) {
  Removals(state, [](std::string const& top) { return pfuFS::pfuRemoveDirRec(pfuDirPath(top.c_str())) == errOK; });
}

void RemoveTree_poco(benchmark::State& state) {
  Removals(state, [](std::string const& top) {
    Poco::File(top).remove(true);
    return true;
  });
}

void RemoveTree_std(benchmark::State& state) {
  Removals(state, [](std::string const& top) { return std::filesystem::remove_all(top) > 0; });
}

// --- recursive mutexes ----------------------------------------------------------

void Lock(proMutex& m) { m.Lock(); }
void Unlock(proMutex& m) { m.Unlock(); }
void Lock(Poco::Mutex& m) { m.lock(); }
void Unlock(Poco::Mutex& m) { m.unlock(); }
void Lock(std::recursive_mutex& m) { m.lock(); }
void Unlock(std::recursive_mutex& m) { m.unlock(); }

// One thread takes state.range(0) levels and gives them back.
template <class Mutex>
void MutexUncontended(benchmark::State& state) {
  Mutex mutex;
  auto const levels = state.range(0);
  for (auto _ : state) {
    for (auto level = levels; level > 0; --level) Lock(mutex);
    for (auto level = levels; level > 0; --level) Unlock(mutex);
  }
}

// Two threads take turns on one mutex around a shared count.
template <class Mutex>
void MutexContended(benchmark::State& state) {
  static Mutex mutex;
  static long long shared = 0;
  for (auto _ : state) {
    Lock(mutex);
    benchmark::DoNotOptimize(++shared);
    Unlock(mutex);
  }
}

}  // namespace

BENCHMARK(Encode_quillon)->Name("BinaryEncode/quillon");
BENCHMARK(Encode_poco)->Name("BinaryEncode/poco");
BENCHMARK(Encode_swap)->Name("BinaryEncode/swap");
BENCHMARK(Decode_quillon)->Name("BinaryDecode/quillon");
BENCHMARK(Decode_poco)->Name("BinaryDecode/poco");
BENCHMARK(Decode_swap)->Name("BinaryDecode/swap");

BENCHMARK(LaunchTrue_quillon)->Name("Launch/quillon")->UseRealTime();
BENCHMARK(Launch_poco)->Name("Launch/poco")->UseRealTime();
BENCHMARK(LaunchTrue_syscall)->Name("Launch/syscall")->UseRealTime();
BENCHMARK(PipeRead_quillon)->Name("PipeRead64MiB/quillon")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(PipeRead_poco)->Name("PipeRead64MiB/poco")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(PipeRead_syscall)->Name("PipeRead64MiB/syscall")->Unit(benchmark::kMillisecond)->UseRealTime();

BENCHMARK(FramedRoundTrip_quillon)->Name("FramedRoundTrip/quillon")->Arg(64)->UseRealTime();
BENCHMARK(FramedRoundTrip_poco)->Name("FramedRoundTrip/poco")->Arg(64)->UseRealTime();
BENCHMARK(FramedRoundTrip_syscall)->Name("FramedRoundTrip/syscall")->Arg(64)->UseRealTime();
// A second per repetition at least, as for the library's own socket cases.
#define PEER_MESSAGE_SIZES ->Arg(16 << 10)->Arg(1 << 20)->MeasureProcessCPUTime()->UseRealTime()->MinTime(1)
BENCHMARK(FramedThroughput_quillon)->Name("FramedThroughput/quillon") PEER_MESSAGE_SIZES;
BENCHMARK(FramedThroughput_poco)->Name("FramedThroughput/poco") PEER_MESSAGE_SIZES;
BENCHMARK(FramedThroughput_syscall)->Name("FramedThroughput/syscall") PEER_MESSAGE_SIZES;

BENCHMARK(Copy_quillon)->Name("Copy64MiB/quillon")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Copy_poco)->Name("Copy64MiB/poco")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Copy_std)->Name("Copy64MiB/std")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(RemoveTree_quillon)->Name("RemoveTree/quillon")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(RemoveTree_poco)->Name("RemoveTree/poco")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(RemoveTree_std)->Name("RemoveTree/std")->Unit(benchmark::kMillisecond)->UseRealTime();

BENCHMARK(MutexUncontended<proMutex>)->Name("MutexUncontended/quillon")->Arg(1)->Arg(3);
BENCHMARK(MutexUncontended<Poco::Mutex>)->Name("MutexUncontended/poco")->Arg(1)->Arg(3);
BENCHMARK(MutexUncontended<std::recursive_mutex>)->Name("MutexUncontended/std")->Arg(1)->Arg(3);
BENCHMARK(MutexContended<proMutex>)->Name("MutexContended/quillon")->Threads(2)->UseRealTime();
BENCHMARK(MutexContended<Poco::Mutex>)->Name("MutexContended/poco")->Threads(2)->UseRealTime();
BENCHMARK(MutexContended<std::recursive_mutex>)->Name("MutexContended/std")->Threads(2)->UseRealTime();

BENCHMARK_MAIN();

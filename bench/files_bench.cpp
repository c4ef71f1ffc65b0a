// File copy, checksum and string replacement beside the standard library and
// plain system-call loops, on 64 MiB files; recursive removal of trees of
// 100 to 100,000 files beside std::filesystem::remove_all.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "quillon.h"

namespace {

constexpr std::size_t kFileBytes = std::size_t(64) << 20;

// A fresh directory under TMPDIR (or /tmp).
std::string MakeScratchDir() {
  char const* base = std::getenv("TMPDIR");
  std::string pattern = std::string(base != nullptr && *base != 0 ? base : "/tmp") + "/quillon-bench-XXXXXX";
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back(0);
  return mkdtemp(buffer.data());
}

// A scratch directory with the two source files, removed at exit.
struct Scratch {
  std::string dir, data, text, target;
  Scratch() {
    dir = MakeScratchDir();
    data = dir + "/data";
    text = dir + "/text";
    target = dir + "/target";
    std::string bytes(kFileBytes, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>((i * 7919) >> 3);
    std::ofstream(data, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    std::string const line = "the quick brown fox jumps over the lazy dog, line of text\n";
    std::ofstream out(text, std::ios::binary);
    for (std::size_t done = 0; done < kFileBytes; done += line.size()) out << line;
  }
  ~Scratch() { std::filesystem::remove_all(dir); }
};

Scratch& Files() {
  static Scratch scratch;
  return scratch;
}

void Processed(benchmark::State& state) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kFileBytes));
}

void Copy_quillon(benchmark::State& state) {
  Scratch& files = Files();
  for (auto _ : state) {
    if (pfuFS::pfuCopyFile(files.data.c_str(), files.target.c_str()) != errOK) state.SkipWithError("copy");
  }
  Processed(state);
}

void Copy_std(benchmark::State& state) {
  Scratch& files = Files();
  for (auto _ : state) {
    std::filesystem::copy_file(files.data, files.target, std::filesystem::copy_options::overwrite_existing);
  }
  Processed(state);
}

void Copy_syscall(benchmark::State& state) {
  Scratch& files = Files();
  std::vector<char> buffer(1 << 16);
  for (auto _ : state) {
    int in = ::open(files.data.c_str(), O_RDONLY);
    int out = ::open(files.target.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ssize_t n;
    while ((n = ::read(in, buffer.data(), buffer.size())) > 0) {
      if (::write(out, buffer.data(), static_cast<std::size_t>(n)) != n) state.SkipWithError("write");
    }
    ::close(in);
    ::close(out);
  }
  Processed(state);
}

void Checksum_quillon(benchmark::State& state) {
  Scratch& files = Files();
  for (auto _ : state) {
    unsigned checksum = 0;
    if (pfuFS::pfuCalcCheckSumByPath(files.data.c_str(), checksum) != errOK) state.SkipWithError("checksum");
    benchmark::DoNotOptimize(checksum);
  }
  Processed(state);
}

// The limit: read the file and touch every byte, nothing more.
void Checksum_syscall(benchmark::State& state) {
  Scratch& files = Files();
  std::vector<char> buffer(1 << 16);
  for (auto _ : state) {
    int in = ::open(files.data.c_str(), O_RDONLY);
    std::uint64_t touched = 0;
    ssize_t n;
    while ((n = ::read(in, buffer.data(), buffer.size())) > 0) {
      for (ssize_t i = 0; i + 8 <= n; i += 8) {
        std::uint64_t word;
        std::memcpy(&word, buffer.data() + i, 8);
        touched ^= word;
      }
    }
    ::close(in);
    benchmark::DoNotOptimize(touched);
  }
  Processed(state);
}

void Replace_quillon(benchmark::State& state) {
  Scratch& files = Files();
  for (auto _ : state) {
    if (pfuFS::pfuReplaceString("fox", "cat", files.text.c_str(), files.target.c_str()) != errOK)
      state.SkipWithError("replace");
  }
  Processed(state);
}

// The whole file into a string, replaced, and written out.
void Replace_std(benchmark::State& state) {
  Scratch& files = Files();
  for (auto _ : state) {
    std::ifstream in(files.text, std::ios::binary);
    std::ostringstream whole;
    whole << in.rdbuf();
    std::string const text = whole.str();
    std::string result;
    result.reserve(text.size());
    std::size_t from = 0;
    for (std::size_t at = text.find("fox"); at != std::string::npos; at = text.find("fox", from)) {
      result.append(text, from, at - from).append("cat");
      from = at + 3;
    }
    result.append(text, from, std::string::npos);
    std::ofstream(files.target, std::ios::binary).write(result.data(), static_cast<std::streamsize>(result.size()));
  }
  Processed(state);
}

// Trees to remove: empty files, 100 to a directory, below one top directory.
struct Trees {
  std::string dir = MakeScratchDir();
  ~Trees() { std::filesystem::remove_all(dir); }

  // Builds a tree of files and gives its path.
  std::string Build(std::size_t files) {
    std::string const top = dir + "/tree";
    ::mkdir(top.c_str(), 0777);
    int const topFd = ::open(top.c_str(), O_RDONLY | O_DIRECTORY);
    for (std::size_t done = 0; done < files; done += 100) {
      std::string const sub = "d" + std::to_string(done / 100);
      ::mkdirat(topFd, sub.c_str(), 0777);
      int const subFd = ::openat(topFd, sub.c_str(), O_RDONLY | O_DIRECTORY);
      for (std::size_t i = done; i < files && i < done + 100; ++i)
        ::close(::openat(subFd, ("f" + std::to_string(i)).c_str(), O_WRONLY | O_CREAT, 0666));
      ::close(subFd);
    }
    ::close(topFd);
    return top;
  }
};

Trees& TreeScratch() {
  static Trees trees;
  return trees;
}

// The CPU time of the calling thread, user and system: the work of a
// removal, which the load of a shared machine disturbs less than the clock.
double ThreadSeconds() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

// Times only the removal; each tree is built outside the timed part.
template <class Remove>
void TimeRemoval(benchmark::State& state, Remove remove) {
  std::size_t const files = static_cast<std::size_t>(state.range(0));
  for (auto _ : state) {
    std::string const tree = TreeScratch().Build(files);
    double const start = ThreadSeconds();
    if (!remove(tree)) state.SkipWithError("remove");
    state.SetIterationTime(ThreadSeconds() - start);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

void RemoveTree_quillon(benchmark::State& state) {
  TimeRemoval(state, [](std::string const& tree) { return pfuFS::pfuRemoveDirRec(pfuDirPath(tree.c_str())) == errOK; });
}

void RemoveTree_std(benchmark::State& state) {
  TimeRemoval(state, [](std::string const& tree) {
    std::error_code error;
    std::filesystem::remove_all(tree, error);
    return !error;
  });
}

}  // namespace

BENCHMARK(Copy_quillon)->Name("Copy/quillon")->UseRealTime();
BENCHMARK(Copy_std)->Name("Copy/std")->UseRealTime();
BENCHMARK(Copy_syscall)->Name("Copy/syscall")->UseRealTime();
BENCHMARK(Checksum_quillon)->Name("Checksum/quillon")->UseRealTime();
BENCHMARK(Checksum_syscall)->Name("Checksum/syscall")->UseRealTime();
BENCHMARK(Replace_quillon)->Name("Replace/quillon")->UseRealTime();
BENCHMARK(Replace_std)->Name("Replace/std")->UseRealTime();
// Sizes one after the other, each beside its baseline, so a change of load
// hits both alike; fixed iteration counts bound the building of trees.
BENCHMARK(RemoveTree_quillon)->Name("RemoveTree/quillon")->Arg(100)->Iterations(300)->UseManualTime();
BENCHMARK(RemoveTree_std)->Name("RemoveTree/std")->Arg(100)->Iterations(300)->UseManualTime();
BENCHMARK(RemoveTree_quillon)->Name("RemoveTree/quillon")->Arg(10000)->Iterations(8)->UseManualTime();
BENCHMARK(RemoveTree_std)->Name("RemoveTree/std")->Arg(10000)->Iterations(8)->UseManualTime();
BENCHMARK(RemoveTree_quillon)->Name("RemoveTree/quillon")->Arg(100000)->Iterations(2)->UseManualTime();
BENCHMARK(RemoveTree_std)->Name("RemoveTree/std")->Arg(100000)->Iterations(2)->UseManualTime();

BENCHMARK_MAIN();

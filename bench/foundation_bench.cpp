// Growing arrays and owning strings beside std::vector and std::string.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "quillon.h"

namespace {

constexpr unsigned int kTotalBytes = 1u << 20;
constexpr unsigned int kChunk = 4096;

void ByteAppends_quillon(benchmark::State& state) {
  for (auto _ : state) {
    dsXArray<char> array;
    for (unsigned int i = 0; i < kTotalBytes; ++i) array += static_cast<char>(i);
    benchmark::DoNotOptimize(array.GetDataPtr());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kTotalBytes);
}

void ByteAppends_std_vector(benchmark::State& state) {
  for (auto _ : state) {
    std::vector<char> array;
    for (unsigned int i = 0; i < kTotalBytes; ++i) array.push_back(static_cast<char>(i));
    benchmark::DoNotOptimize(array.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kTotalBytes);
}

void ChunkAppends_quillon(benchmark::State& state) {
  std::vector<char> chunk(kChunk, 'x');
  unsigned int const total = static_cast<unsigned int>(state.range(0));
  for (auto _ : state) {
    dsXArray<char> array;
    for (unsigned int done = 0; done < total; done += kChunk) array.Append(kChunk, chunk.data());
    benchmark::DoNotOptimize(array.GetDataPtr());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * total);
}

void ChunkAppends_std_vector(benchmark::State& state) {
  std::vector<char> chunk(kChunk, 'x');
  unsigned int const total = static_cast<unsigned int>(state.range(0));
  for (auto _ : state) {
    std::vector<char> array;
    for (unsigned int done = 0; done < total; done += kChunk) {
      array.insert(array.end(), chunk.begin(), chunk.end());
    }
    benchmark::DoNotOptimize(array.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * total);
}

// A string that grows by short pieces: every dsString append copies the
// whole text into an exact-size buffer, by design.
void StringAppends_quillon(benchmark::State& state) {
  int const pieces = static_cast<int>(state.range(0));
  for (auto _ : state) {
    dsString text;
    for (int i = 0; i < pieces; ++i) text += "0123456789";
    benchmark::DoNotOptimize(static_cast<char const*>(text));
  }
}

void StringAppends_std_string(benchmark::State& state) {
  int const pieces = static_cast<int>(state.range(0));
  for (auto _ : state) {
    std::string text;
    for (int i = 0; i < pieces; ++i) text += "0123456789";
    benchmark::DoNotOptimize(text.data());
  }
}

}  // namespace

BENCHMARK(ByteAppends_quillon)->Name("ByteAppends/quillon");
BENCHMARK(ByteAppends_std_vector)->Name("ByteAppends/std_vector");
BENCHMARK(ChunkAppends_quillon)->Name("ChunkAppends/quillon")->Arg(1 << 20)->Arg(64 << 20);
BENCHMARK(ChunkAppends_std_vector)->Name("ChunkAppends/std_vector")->Arg(1 << 20)->Arg(64 << 20);
BENCHMARK(StringAppends_quillon)->Name("StringAppends/quillon")->Arg(10)->Arg(1000);
BENCHMARK(StringAppends_std_string)->Name("StringAppends/std_string")->Arg(10)->Arg(1000);

BENCHMARK_MAIN();

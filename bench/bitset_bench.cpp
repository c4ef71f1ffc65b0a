// Bit sets beside std::vector<bool> and a hand-written scan of 64-bit words,
// which is the limit: walking the positions that are on, counting them after
// a change, and rank and select. The argument is the density in percent of a
// set of 10 million positions.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "quillon.h"

#if defined(__x86_64__) || defined(__i386__)
#  define BENCH_POPCNT __attribute__((target("popcnt")))  // the limit uses the instruction too
#else
#  define BENCH_POPCNT
#endif

namespace {

constexpr std::uint32_t kPositions = 10000000;

// The same positions in the three forms.
struct Sets {
  dsBitSet quillon{kPositions};
  std::vector<bool> flags = std::vector<bool>(kPositions);
  std::vector<std::uint64_t> words = std::vector<std::uint64_t>(kPositions / 64 + 1);
  std::vector<std::uint32_t> probes;  // positions and ranks to ask for
  std::uint32_t onCount = 0;

  explicit Sets(int percent) {
    std::mt19937 random(static_cast<std::uint32_t>(percent));
    std::bernoulli_distribution on(percent / 100.0);
    for (std::uint32_t i = 0; i < kPositions; ++i) {
      if (!on(random)) continue;
      quillon.SetOn(i);
      flags[i] = true;
      words[i / 64] |= std::uint64_t{1} << (i % 64);
      ++onCount;
    }
    for (int i = 0; i < 64; ++i) probes.push_back(static_cast<std::uint32_t>(random() % kPositions));
  }
};

Sets& SetsFor(int percent) {
  static Sets sparse(1), dense(50);
  return percent == 1 ? sparse : dense;
}

BENCH_POPCNT std::uint32_t WordCount(std::vector<std::uint64_t> const& words, std::size_t bits) {
  std::uint32_t total = 0;
  std::size_t whole = bits / 64;
  for (std::size_t w = 0; w < whole; ++w) total += static_cast<std::uint32_t>(__builtin_popcountll(words[w]));
  if (bits % 64 != 0) {
    total += static_cast<std::uint32_t>(
        __builtin_popcountll(words[whole] & ((std::uint64_t{1} << (bits % 64)) - 1)));
  }
  return total;
}

BENCH_POPCNT std::uint32_t WordSelect(std::vector<std::uint64_t> const& words, std::uint32_t rank) {
  for (std::size_t w = 0; w < words.size(); ++w) {
    auto inWord = static_cast<std::uint32_t>(__builtin_popcountll(words[w]));
    if (inWord <= rank) {
      rank -= inWord;
      continue;
    }
    std::uint64_t word = words[w];
    while (rank-- != 0) word &= word - 1;
    return static_cast<std::uint32_t>(w * 64 + static_cast<std::size_t>(__builtin_ctzll(word)));
  }
  return dsBitSet::none;
}

void Iterate_quillon(benchmark::State& state) {
  Sets& sets = SetsFor(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    std::uint64_t sum = 0;
    for (std::uint32_t p = sets.quillon.First(); p != dsBitSet::none; p = sets.quillon.Next(p)) sum += p;
    benchmark::DoNotOptimize(sum);
  }
}

void Iterate_wordscan(benchmark::State& state) {
  Sets& sets = SetsFor(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    std::uint64_t sum = 0;
    for (std::size_t w = 0; w < sets.words.size(); ++w) {
      for (std::uint64_t word = sets.words[w]; word != 0; word &= word - 1) {
        sum += w * 64 + static_cast<std::size_t>(__builtin_ctzll(word));
      }
    }
    benchmark::DoNotOptimize(sum);
  }
}

void Iterate_std_vector_bool(benchmark::State& state) {
  Sets& sets = SetsFor(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    std::uint64_t sum = 0;
    for (std::uint32_t i = 0; i < kPositions; ++i) {
      if (sets.flags[i]) sum += i;
    }
    benchmark::DoNotOptimize(sum);
  }
}

// One position changes, then the set is counted again.
void CountAfterChange_quillon(benchmark::State& state) {
  Sets& sets = SetsFor(static_cast<int>(state.range(0)));
  std::size_t n = 0;
  for (auto _ : state) {
    std::uint32_t p = sets.probes[n++ % sets.probes.size()];
    sets.quillon.SetOn(p);
    benchmark::DoNotOptimize(sets.quillon.GetSize());
  }
}

BENCH_POPCNT void CountAfterChange_wordscan(benchmark::State& state) {
  Sets& sets = SetsFor(static_cast<int>(state.range(0)));
  std::size_t n = 0;
  for (auto _ : state) {
    std::uint32_t p = sets.probes[n++ % sets.probes.size()];
    sets.words[p / 64] |= std::uint64_t{1} << (p % 64);
    benchmark::DoNotOptimize(WordCount(sets.words, kPositions));
  }
}

void CountAfterChange_std_vector_bool(benchmark::State& state) {
  Sets& sets = SetsFor(static_cast<int>(state.range(0)));
  std::size_t n = 0;
  for (auto _ : state) {
    std::uint32_t p = sets.probes[n++ % sets.probes.size()];
    sets.flags[p] = true;
    benchmark::DoNotOptimize(std::count(sets.flags.begin(), sets.flags.end(), true));
  }
}

void Rank_quillon(benchmark::State& state) {
  Sets& sets = SetsFor(static_cast<int>(state.range(0)));
  std::size_t n = 0;
  for (auto _ : state) benchmark::DoNotOptimize(sets.quillon.GetIndex(sets.probes[n++ % sets.probes.size()]));
}

void Rank_wordscan(benchmark::State& state) {
  Sets& sets = SetsFor(static_cast<int>(state.range(0)));
  std::size_t n = 0;
  for (auto _ : state) benchmark::DoNotOptimize(WordCount(sets.words, sets.probes[n++ % sets.probes.size()]));
}

void Rank_std_vector_bool(benchmark::State& state) {
  Sets& sets = SetsFor(static_cast<int>(state.range(0)));
  std::size_t n = 0;
  for (auto _ : state) {
    std::uint32_t p = sets.probes[n++ % sets.probes.size()];
    benchmark::DoNotOptimize(std::count(sets.flags.begin(), sets.flags.begin() + p, true));
  }
}

// The ranks asked for lie anywhere among the positions that are on.
std::uint32_t RankProbe(Sets const& sets, std::size_t n) {
  return static_cast<std::uint32_t>(
      static_cast<std::uint64_t>(sets.probes[n % sets.probes.size()]) * sets.onCount / kPositions);
}

void Select_quillon(benchmark::State& state) {
  Sets& sets = SetsFor(static_cast<int>(state.range(0)));
  std::size_t n = 0;
  for (auto _ : state) benchmark::DoNotOptimize(sets.quillon.ByIndex(RankProbe(sets, n++)));
}

void Select_wordscan(benchmark::State& state) {
  Sets& sets = SetsFor(static_cast<int>(state.range(0)));
  std::size_t n = 0;
  for (auto _ : state) benchmark::DoNotOptimize(WordSelect(sets.words, RankProbe(sets, n++)));
}

void Select_std_vector_bool(benchmark::State& state) {
  Sets& sets = SetsFor(static_cast<int>(state.range(0)));
  std::size_t n = 0;
  for (auto _ : state) {
    std::uint32_t rank = RankProbe(sets, n++), found = dsBitSet::none;
    for (std::uint32_t i = 0; i < kPositions; ++i) {
      if (sets.flags[i] && rank-- == 0) {
        found = i;
        break;
      }
    }
    benchmark::DoNotOptimize(found);
  }
}

}  // namespace

#define BITSET_CASE(name, unit)                                                                   \
  BENCHMARK(name##_quillon)->Name(#name "/quillon")->Arg(1)->Arg(50)->Unit(unit);                 \
  BENCHMARK(name##_wordscan)->Name(#name "/wordscan")->Arg(1)->Arg(50)->Unit(unit);               \
  BENCHMARK(name##_std_vector_bool)->Name(#name "/std_vector_bool")->Arg(1)->Arg(50)->Unit(unit)

BITSET_CASE(Iterate, benchmark::kMillisecond);
BITSET_CASE(CountAfterChange, benchmark::kMicrosecond);
BITSET_CASE(Rank, benchmark::kMicrosecond);
BITSET_CASE(Select, benchmark::kMicrosecond);

BENCHMARK_MAIN();

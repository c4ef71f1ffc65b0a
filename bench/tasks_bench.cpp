// Sorted maps and interned strings beside std::map, a bisection over a sorted
// std::vector and an std::unordered_map-based intern table; locks and
// asynchronous calls beside their std:: counterparts.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "quillon.h"

namespace {

constexpr std::size_t kProbes = 4096;  // lookups cycle through this many keys

// N distinct keys in random order, and a random sequence of them to look up.
template <class Key>
struct Workload {
  std::vector<Key> keys;
  std::vector<Key> probes;

  void Shuffle(std::size_t count) {
    std::mt19937 random(7);
    std::shuffle(keys.begin(), keys.end(), random);
    for (std::size_t i = 0; i < kProbes; ++i) probes.push_back(keys[random() % count]);
  }
};

// Pointer keys: addresses spread over a block, as task handles would be.
struct PointerWorkload : Workload<void*> {
  std::vector<char> block;

  explicit PointerWorkload(std::size_t count) : block(count * 64) {
    for (std::size_t i = 0; i < count; ++i) keys.push_back(&block[i * 64]);
    Shuffle(count);
  }
};

// Text keys: short identifiers, owned here, as the map's caller owns them.
struct TextWorkload : Workload<char const*> {
  std::vector<std::string> texts;

  explicit TextWorkload(std::size_t count) {
    char text[48];
    for (std::size_t i = 0; i < count; ++i) {
      std::snprintf(text, sizeof text, "name.%zu.%zx", i * 7919 % count, i);
      texts.emplace_back(text);
    }
    for (auto const& text : texts) keys.push_back(text.c_str());
    Shuffle(count);
  }
};

struct TextLess {
  bool operator()(char const* first, char const* second) const {
    return std::strcmp(first, second) < 0;
  }
};

// Each lookup case's structure, built once per process and size and kept
// until exit: a case runs several times (each repetition, and the runs that
// size its iteration count), and filling 100,000 entries costs far more than
// the lookups timed on them. Keys come from one workload per size, shared by
// every structure.
template <class Built>
Built const& Once(std::int64_t count) {
  static std::map<std::int64_t, std::unique_ptr<Built const>> made;
  std::unique_ptr<Built const>& slot = made[count];
  if (slot == nullptr) slot = std::make_unique<Built const>(static_cast<std::size_t>(count));
  return *slot;
}

template <class Work, class Map>
struct QuillonMap {
  using Value = std::remove_reference_t<decltype(std::declval<Map&>()[nullptr])>;
  explicit QuillonMap(std::size_t count) : work(Once<Work>(static_cast<std::int64_t>(count))) {
    for (auto key : work.keys) map.Add(key, Value{});
  }
  Work const& work;
  Map map;
};

template <class Work, class Value, class Less>
struct StdMap {
  explicit StdMap(std::size_t count) : work(Once<Work>(static_cast<std::int64_t>(count))) {
    for (auto key : work.keys) map.emplace(key, Value{});
  }
  Work const& work;
  std::map<typename decltype(Work::keys)::value_type, Value, Less> map;
};

template <class Work, class Value, class Less>
struct SortedVector {
  using Key = typename decltype(Work::keys)::value_type;
  explicit SortedVector(std::size_t count) : work(Once<Work>(static_cast<std::int64_t>(count))) {
    for (Key key : work.keys) entries.emplace_back(key, Value{});
    std::sort(entries.begin(), entries.end(), [](auto const& a, auto const& b) { return Less()(a.first, b.first); });
  }
  Work const& work;
  std::vector<std::pair<Key, Value>> entries;
};

template <class Work, class Map>
void LookupsInMap(benchmark::State& state) {
  auto const& built = Once<QuillonMap<Work, Map>>(state.range(0));
  using Value = typename QuillonMap<Work, Map>::Value;
  std::size_t next = 0;
  for (auto _ : state) {
    Value value{};
    benchmark::DoNotOptimize(built.map.Find(built.work.probes[next], value));
    benchmark::DoNotOptimize(value);
    next = (next + 1) % kProbes;
  }
}

template <class Work, class Value, class Less>
void LookupsInStdMap(benchmark::State& state) {
  auto const& built = Once<StdMap<Work, Value, Less>>(state.range(0));
  std::size_t next = 0;
  for (auto _ : state) {
    auto found = built.map.find(built.work.probes[next]);
    benchmark::DoNotOptimize(found != built.map.end() ? found->second : Value{});
    next = (next + 1) % kProbes;
  }
}

template <class Work, class Value, class Less>
void LookupsInSortedVector(benchmark::State& state) {
  auto const& built = Once<SortedVector<Work, Value, Less>>(state.range(0));
  auto const& entries = built.entries;
  using Key = typename SortedVector<Work, Value, Less>::Key;
  Less const less;
  auto const byKey = [less](std::pair<Key, Value> const& entry, Key key) { return less(entry.first, key); };
  std::size_t next = 0;
  for (auto _ : state) {
    Key const key = built.work.probes[next];
    auto found = std::lower_bound(entries.begin(), entries.end(), key, byKey);
    bool const hit = found != entries.end() && !less(key, found->first);
    benchmark::DoNotOptimize(hit ? found->second : Value{});
    next = (next + 1) % kProbes;
  }
}

using ScalarMap = dsScalarMap<pmManageTask*, void*>;
using StringMap = dsNonOwnerStringMap<dsStringCell*>;

void ScalarLookup_quillon(benchmark::State& state) { LookupsInMap<PointerWorkload, ScalarMap>(state); }

void ScalarLookup_std_map(benchmark::State& state) {
  LookupsInStdMap<PointerWorkload, pmManageTask*, std::less<void*>>(state);
}

void ScalarLookup_lower_bound(benchmark::State& state) {
  LookupsInSortedVector<PointerWorkload, pmManageTask*, std::less<void*>>(state);
}

void StringLookup_quillon(benchmark::State& state) { LookupsInMap<TextWorkload, StringMap>(state); }

void StringLookup_std_map(benchmark::State& state) {
  LookupsInStdMap<TextWorkload, dsStringCell*, TextLess>(state);
}

void StringLookup_lower_bound(benchmark::State& state) {
  LookupsInSortedVector<TextWorkload, dsStringCell*, TextLess>(state);
}

// The intern table a program would write with the standard library: one node
// per distinct text, counted, its key's text shared by all users.
class InternTable {
 public:
  char const* Make(char const* text) {
    auto entry = table.try_emplace(text, 0).first;
    ++entry->second;
    return entry->first.c_str();
  }
  void Drop(char const* text) {
    auto entry = table.find(text);
    if (--entry->second == 0) table.erase(entry);
  }

 private:
  std::unordered_map<std::string, unsigned int> table;
};

// The text that UniqueMakeDrop makes: with range(0) 1 one that is already
// held (a count goes up and down); with 0 a new one (a cell is made, entered,
// taken out and deleted), which sorts into the middle of the held ones.
std::string TextToMake(benchmark::State const& state, TextWorkload const& work) {
  if (state.range(0) != 0) return work.texts[0];
  std::vector<std::string> sorted = work.texts;
  std::sort(sorted.begin(), sorted.end());
  return sorted[sorted.size() / 2] + "+";
}

// Making and dropping a string among state.range(1) other live strings.
void UniqueMakeDrop_quillon(benchmark::State& state) {
  TextWorkload work(static_cast<std::size_t>(state.range(1)));
  std::vector<dsUniqueString*> live;
  for (char const* key : work.keys) live.push_back(new dsUniqueString(key));
  std::string const made = TextToMake(state, work);
  char const* const text = made.c_str();
  for (auto _ : state) {
    dsUniqueString string(text);
    benchmark::DoNotOptimize(string.GiveString());
  }
  for (dsUniqueString* string : live) delete string;
}

void UniqueMakeDrop_unordered_map(benchmark::State& state) {
  TextWorkload work(static_cast<std::size_t>(state.range(1)));
  InternTable table;
  for (char const* key : work.keys) table.Make(key);
  std::string const made = TextToMake(state, work);
  char const* const text = made.c_str();
  for (auto _ : state) {
    benchmark::DoNotOptimize(table.Make(text));
    table.Drop(text);
  }
}

// Growth: a map filled with state.range(0) keys in random order, then
// emptied, and as many distinct texts interned and dropped. Each insert
// shifts the entries behind it in one sorted array, so the time per entry
// grows with the entries once the shifts outweigh the bisection.
void SortedFill_quillon(benchmark::State& state) {
  PointerWorkload const& work = Once<PointerWorkload>(state.range(0));
  for (auto _ : state) {
    ScalarMap map;
    for (void* key : work.keys) map.Add(static_cast<pmManageTask*>(key), nullptr);
    benchmark::DoNotOptimize(map.GetSize());
  }
}

void SortedFill_std_map(benchmark::State& state) {
  PointerWorkload const& work = Once<PointerWorkload>(state.range(0));
  for (auto _ : state) {
    std::map<void*, void*> map;
    for (void* key : work.keys) map.emplace(key, nullptr);
    benchmark::DoNotOptimize(map.size());
  }
}

void InternMany_quillon(benchmark::State& state) {
  TextWorkload const& work = Once<TextWorkload>(state.range(0));
  std::vector<std::unique_ptr<dsUniqueString>> live(work.keys.size());
  for (auto _ : state) {
    for (std::size_t i = 0; i < live.size(); ++i) live[i] = std::make_unique<dsUniqueString>(work.keys[i]);
    for (auto& string : live) string.reset();
  }
}

void InternMany_unordered_map(benchmark::State& state) {
  TextWorkload const& work = Once<TextWorkload>(state.range(0));
  for (auto _ : state) {
    InternTable table;
    for (char const* key : work.keys) benchmark::DoNotOptimize(table.Make(key));
    for (char const* key : work.keys) table.Drop(key);
  }
}

// proMutex under the names the std:: cases use, so one body serves both.
class QuillonMutex {
 public:
  void lock() { mutex.Lock(); }
  void unlock() { mutex.Unlock(); }

 private:
  proMutex mutex;
};

template <class Mutex>
void MutexLockUnlock(benchmark::State& state) {
  Mutex mutex;
  for (auto _ : state) {
    mutex.lock();
    mutex.unlock();
  }
}

// One more level on a mutex that the thread already holds.
template <class Mutex>
void MutexNested(benchmark::State& state) {
  Mutex mutex;
  mutex.lock();
  for (auto _ : state) {
    mutex.lock();
    mutex.unlock();
  }
  mutex.unlock();
}

// Every thread of the run takes the one mutex around a short critical section.
template <class Mutex>
void MutexContended(benchmark::State& state) {
  static Mutex mutex;
  static std::uint64_t shared = 0;
  for (auto _ : state) {
    mutex.lock();
    benchmark::DoNotOptimize(++shared);
    mutex.unlock();
  }
}

int Answer(void* argument) { return *static_cast<int*>(argument); }

void AsyncRoundTrip_quillon(benchmark::State& state) {
  int value = 42;
  for (auto _ : state) {
    ptkAsyncCallEvent* event = call_async_func(Answer, &value);
    event->Wait(-1);
    benchmark::DoNotOptimize(event->GetReturnValue());
    delete event;
  }
}

void AsyncRoundTrip_std(benchmark::State& state) {
  int value = 42;
  for (auto _ : state) {
    auto result = std::async(std::launch::async, Answer, &value);
    benchmark::DoNotOptimize(result.get());
  }
}

}  // namespace

#define QUILLON_LOOKUP_SIZES ->Arg(16)->Arg(1000)->Arg(100000)
BENCHMARK(ScalarLookup_quillon)->Name("ScalarLookup/quillon") QUILLON_LOOKUP_SIZES;
BENCHMARK(ScalarLookup_std_map)->Name("ScalarLookup/std_map") QUILLON_LOOKUP_SIZES;
BENCHMARK(ScalarLookup_lower_bound)->Name("ScalarLookup/lower_bound") QUILLON_LOOKUP_SIZES;
BENCHMARK(StringLookup_quillon)->Name("StringLookup/quillon") QUILLON_LOOKUP_SIZES;
BENCHMARK(StringLookup_std_map)->Name("StringLookup/std_map") QUILLON_LOOKUP_SIZES;
BENCHMARK(StringLookup_lower_bound)->Name("StringLookup/lower_bound") QUILLON_LOOKUP_SIZES;

#define QUILLON_INTERN_CASES ->Args({0, 1000})->Args({1, 1000})
#define QUILLON_GROWTH_SIZES ->Arg(64)->Arg(512)->Arg(4096)->Arg(32768)->Unit(benchmark::kMicrosecond)
BENCHMARK(SortedFill_quillon)->Name("SortedFill/quillon") QUILLON_GROWTH_SIZES;
BENCHMARK(SortedFill_std_map)->Name("SortedFill/std_map") QUILLON_GROWTH_SIZES;
BENCHMARK(InternMany_quillon)->Name("InternMany/quillon") QUILLON_GROWTH_SIZES;
BENCHMARK(InternMany_unordered_map)->Name("InternMany/unordered_map") QUILLON_GROWTH_SIZES;
BENCHMARK(UniqueMakeDrop_quillon)->Name("UniqueMakeDrop/quillon") QUILLON_INTERN_CASES;
BENCHMARK(UniqueMakeDrop_unordered_map)->Name("UniqueMakeDrop/unordered_map") QUILLON_INTERN_CASES;

BENCHMARK_TEMPLATE(MutexLockUnlock, QuillonMutex)->Name("MutexLockUnlock/quillon");
BENCHMARK_TEMPLATE(MutexLockUnlock, std::recursive_mutex)->Name("MutexLockUnlock/std");
BENCHMARK_TEMPLATE(MutexNested, QuillonMutex)->Name("MutexNested/quillon");
BENCHMARK_TEMPLATE(MutexNested, std::recursive_mutex)->Name("MutexNested/std");
BENCHMARK_TEMPLATE(MutexContended, QuillonMutex)->Name("MutexContended/quillon")->Threads(2)->UseRealTime();
BENCHMARK_TEMPLATE(MutexContended, std::recursive_mutex)->Name("MutexContended/std")->Threads(2)->UseRealTime();
BENCHMARK(AsyncRoundTrip_quillon)->Name("AsyncRoundTrip/quillon")->UseRealTime();
BENCHMARK(AsyncRoundTrip_std)->Name("AsyncRoundTrip/std")->UseRealTime();

BENCHMARK_MAIN();

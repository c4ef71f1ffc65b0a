// The binary streams on an in-memory buffer beside a hand-written loop that
// byte-swaps into a plain array (the limit) and beside the bare sputn/sgetn
// calls of the same buffer; 100-byte strings in both forms beside a loop that
// copies them with a swapped prefix; memStream beside memcpy.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <streambuf>
#include <vector>

#include "benchsupport.h"
#include "quillon.h"

namespace {

constexpr int kValues = 1000000;
constexpr int kMemBytes = 64 * 1024;
constexpr int kStrings = 100000;
constexpr int kStringBytes = 100;

using bench::ArrayBuf;

std::uint32_t Reversed(std::uint32_t v) {
  return (v >> 24) | ((v >> 8) & 0xff00u) | ((v << 8) & 0xff0000u) | (v << 24);
}

std::uint64_t Reversed(std::uint64_t v) {
  return (static_cast<std::uint64_t>(Reversed(static_cast<std::uint32_t>(v))) << 32) |
         Reversed(static_cast<std::uint32_t>(v >> 32));
}

// The same value type as a same-sized unsigned integer, for the hand loops.
template <class T>
using Bits = std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>;

// The portable image of a value (its bytes most significant first), and back.
template <class T>
Bits<T> ToWire(T v) {
  Bits<T> bits;
  std::memcpy(&bits, &v, sizeof bits);
  return Reversed(bits);
}

template <class T>
T FromWire(Bits<T> bits) {
  bits = Reversed(bits);
  T v;
  std::memcpy(&v, &bits, sizeof v);
  return v;
}

template <class T>
std::vector<T> Values() {
  std::vector<T> values(kValues);
  for (int i = 0; i < kValues; ++i) values[i] = static_cast<T>(i * 37 - 5);
  return values;
}

template <class T>
void Write_quillon(benchmark::State& state) {
  std::vector<T> const values = Values<T>();
  ArrayBuf buf(sizeof(T) * kValues);
  for (auto _ : state) {
    buf.Rewind();
    bdtOStream out(&buf, 1);
    for (T v : values) out << v;
    benchmark::DoNotOptimize(out.rdstate());
  }
  state.SetItemsProcessed(state.iterations() * kValues);
}

template <class T>
void Write_sputn(benchmark::State& state) {
  std::vector<T> const values = Values<T>();
  ArrayBuf buf(sizeof(T) * kValues);
  for (auto _ : state) {
    buf.Rewind();
    for (T v : values) {
      Bits<T> bits = ToWire(v);
      buf.sputn(reinterpret_cast<char const*>(&bits), sizeof bits);
    }
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kValues);
}

template <class T>
void Write_swap(benchmark::State& state) {
  std::vector<T> const values = Values<T>();
  std::vector<char> out(sizeof(T) * kValues);
  for (auto _ : state) {
    char* p = out.data();
    for (T v : values) {
      Bits<T> bits = ToWire(v);
      std::memcpy(p, &bits, sizeof bits);
      p += sizeof bits;
    }
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kValues);
}

// A buffer filled with the portable images of the values.
template <class T>
void Fill(ArrayBuf& buf) {
  std::vector<T> const values = Values<T>();
  bdtOStream out(&buf, 1);
  for (T v : values) out << v;
}

template <class T>
void Read_quillon(benchmark::State& state) {
  ArrayBuf buf(sizeof(T) * kValues);
  Fill<T>(buf);
  for (auto _ : state) {
    buf.Rewind();
    bdtIStream in(&buf, 1);
    T sum = 0, v = 0;
    for (int i = 0; i < kValues; ++i) {
      in >> v;
      sum += v;
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * kValues);
}

template <class T>
void Read_sgetn(benchmark::State& state) {
  ArrayBuf buf(sizeof(T) * kValues);
  Fill<T>(buf);
  for (auto _ : state) {
    buf.Rewind();
    T sum = 0;
    for (int i = 0; i < kValues; ++i) {
      Bits<T> bits;
      buf.sgetn(reinterpret_cast<char*>(&bits), sizeof bits);
      sum += FromWire<T>(bits);
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * kValues);
}

template <class T>
void Read_swap(benchmark::State& state) {
  std::vector<T> const values = Values<T>();
  std::vector<char> wire(sizeof(T) * kValues);
  for (int i = 0; i < kValues; ++i) {
    Bits<T> bits = ToWire(values[i]);
    std::memcpy(&wire[sizeof bits * i], &bits, sizeof bits);
  }
  for (auto _ : state) {
    T sum = 0;
    char const* p = wire.data();
    for (int i = 0; i < kValues; ++i, p += sizeof(Bits<T>)) {
      Bits<T> bits;
      std::memcpy(&bits, p, sizeof bits);
      sum += FromWire<T>(bits);
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * kValues);
}

// 100-byte strings; the argument picks the form (1 portable, 0 native).
std::string Text() {
  std::string text(kStringBytes, ' ');
  for (int i = 0; i < kStringBytes; ++i) text[i] = static_cast<char>('a' + i % 26);
  return text;
}

constexpr std::size_t kStringWire = sizeof(std::int32_t) + kStringBytes;

void StringWrite_quillon(benchmark::State& state) {
  std::string const text = Text();
  ArrayBuf buf(kStringWire * kStrings);
  for (auto _ : state) {
    buf.Rewind();
    bdtOStream out(&buf, static_cast<int>(state.range(0)));
    for (int i = 0; i < kStrings; ++i) out << text.c_str();
    benchmark::DoNotOptimize(out.rdstate());
  }
  state.SetItemsProcessed(state.iterations() * kStrings);
}

void StringWrite_swap(benchmark::State& state) {
  std::string const text = Text();
  std::vector<char> out(kStringWire * kStrings);
  for (auto _ : state) {
    char* p = out.data();
    for (int i = 0; i < kStrings; ++i) {
      std::uint32_t const n = Reversed(static_cast<std::uint32_t>(std::strlen(text.c_str())));
      std::memcpy(p, &n, sizeof n);
      std::memcpy(p + sizeof n, text.data(), kStringBytes);
      p += kStringWire;
    }
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kStrings);
}

void StringRead_quillon(benchmark::State& state) {
  std::string const text = Text();
  ArrayBuf buf(kStringWire * kStrings);
  int const portable = static_cast<int>(state.range(0));
  {
    bdtOStream out(&buf, portable);
    for (int i = 0; i < kStrings; ++i) out << text.c_str();
  }
  for (auto _ : state) {
    buf.Rewind();
    bdtIStream in(&buf, portable);
    dsString value;
    for (int i = 0; i < kStrings; ++i) in >> value;
    benchmark::DoNotOptimize(static_cast<char const*>(value));
  }
  state.SetItemsProcessed(state.iterations() * kStrings);
}

// The string read into an owned copy of its own, as a dsString is.
void StringRead_swap(benchmark::State& state) {
  std::string const text = Text();
  std::vector<char> wire(kStringWire * kStrings);
  for (int i = 0; i < kStrings; ++i) {
    std::uint32_t const n = Reversed(static_cast<std::uint32_t>(kStringBytes));
    std::memcpy(&wire[kStringWire * i], &n, sizeof n);
    std::memcpy(&wire[kStringWire * i + sizeof n], text.data(), kStringBytes);
  }
  for (auto _ : state) {
    char const* p = wire.data();
    std::size_t total = 0;
    for (int i = 0; i < kStrings; ++i) {
      std::uint32_t n;
      std::memcpy(&n, p, sizeof n);
      n = Reversed(n);
      std::string value(p + sizeof n, n);
      total += value.size();
      p += sizeof n + n;
    }
    benchmark::DoNotOptimize(total);
  }
  state.SetItemsProcessed(state.iterations() * kStrings);
}

void MemWrite_quillon(benchmark::State& state) {
  std::vector<char> source(kMemBytes, 'x');
  memStream stream;
  for (auto _ : state) {
    stream.Seek(0, 0);
    stream.Write(source.data(), kMemBytes);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * kMemBytes);
}

// The baseline of both directions: one plain copy of the same bytes.
void Mem_memcpy(benchmark::State& state) {
  std::vector<char> source(kMemBytes, 'x'), target(kMemBytes);
  for (auto _ : state) {
    std::memcpy(target.data(), source.data(), kMemBytes);
    benchmark::DoNotOptimize(target.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * kMemBytes);
}

void MemRead_quillon(benchmark::State& state) {
  std::vector<char> source(kMemBytes, 'x'), target(kMemBytes);
  memStream stream;
  stream.Write(source.data(), kMemBytes);
  for (auto _ : state) {
    stream.Seek(0, 0);
    int got;
    stream.Read(target.data(), kMemBytes, got);
    benchmark::DoNotOptimize(target.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * kMemBytes);
}

}  // namespace

BENCHMARK(Write_quillon<int>)->Name("IntWrite/quillon");
BENCHMARK(Write_swap<int>)->Name("IntWrite/swap");
BENCHMARK(Write_sputn<int>)->Name("IntWrite/sputn");
BENCHMARK(Read_quillon<int>)->Name("IntRead/quillon");
BENCHMARK(Read_swap<int>)->Name("IntRead/swap");
BENCHMARK(Read_sgetn<int>)->Name("IntRead/sgetn");
BENCHMARK(Write_quillon<double>)->Name("DoubleWrite/quillon");
BENCHMARK(Write_swap<double>)->Name("DoubleWrite/swap");
BENCHMARK(Write_sputn<double>)->Name("DoubleWrite/sputn");
BENCHMARK(Read_quillon<double>)->Name("DoubleRead/quillon");
BENCHMARK(Read_swap<double>)->Name("DoubleRead/swap");
BENCHMARK(Read_sgetn<double>)->Name("DoubleRead/sgetn");
BENCHMARK(StringWrite_quillon)->Name("StringWrite/quillon")->Arg(0)->Arg(1);
BENCHMARK(StringWrite_swap)->Name("StringWrite/swap")->Arg(0)->Arg(1);
BENCHMARK(StringRead_quillon)->Name("StringRead/quillon")->Arg(0)->Arg(1);
BENCHMARK(StringRead_swap)->Name("StringRead/swap")->Arg(0)->Arg(1);
BENCHMARK(MemWrite_quillon)->Name("MemWrite/quillon");
BENCHMARK(Mem_memcpy)->Name("MemWrite/memcpy");
BENCHMARK(MemRead_quillon)->Name("MemRead/quillon");
BENCHMARK(Mem_memcpy)->Name("MemRead/memcpy");

BENCHMARK_MAIN();

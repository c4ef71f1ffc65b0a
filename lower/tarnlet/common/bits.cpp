// Counting bits. A matter of the processor, not of the operating system: the
// same on every host that g++ (or mingw-w64's g++) builds for, with the
// population-count instruction chosen at run time on x86.
#include "vekbits.h"

#include <cstdint>
#include <cstring>

namespace {

// The body is the same for both versions: it is inlined into each, so only
// the instruction the compiler may use for the count differs.
__attribute__((always_inline)) inline std::size_t CountBlock(unsigned char const* bytes, std::size_t count) {
  std::size_t total = 0;
  std::size_t i = 0;
  for (; i + 8 <= count; i += 8) {
    std::uint64_t word;
    std::memcpy(&word, bytes + i, 8);
    total += static_cast<std::size_t>(__builtin_popcountll(word));
  }
  for (; i < count; ++i) total += static_cast<std::size_t>(__builtin_popcount(bytes[i]));
  return total;
}

std::size_t CountPortable(unsigned char const* bytes, std::size_t count) {
  return CountBlock(bytes, count);
}

#if defined(__x86_64__) || defined(__i386__)
__attribute__((target("popcnt"))) std::size_t CountWithInstruction(unsigned char const* bytes,
                                                                  std::size_t count) {
  return CountBlock(bytes, count);
}

using CountFunction = std::size_t (*)(unsigned char const*, std::size_t);

CountFunction ChooseCount() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("popcnt") ? &CountWithInstruction : &CountPortable;
}
#endif

}  // namespace

std::size_t vekCountBits(unsigned char const* bytes, std::size_t count) {
  if (count == 0) return 0;
#if defined(__x86_64__) || defined(__i386__)
  static CountFunction const count_bits = ChooseCount();
  return count_bits(bytes, count);
#else
  return CountPortable(bytes, count);
#endif
}

// Shared pieces of the fuzz programs: a check that stops the run so that
// libFuzzer keeps the input, a watch on the largest allocation, a private
// temporary directory, and the locale switch.
#ifndef QUILLON_FUZZSUPPORT_H
#define QUILLON_FUZZSUPPORT_H

#include <sanitizer/allocator_interface.h>
#include <unistd.h>

#include <atomic>
#include <clocale>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

// A property that must hold for every input; a failure is a crash for libFuzzer.
#define FUZZ_CHECK(condition)                                                         \
  do {                                                                                \
    if (!(condition)) {                                                               \
      std::fprintf(stderr, "%s:%d: property failed: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                   \
    }                                                                                 \
  } while (0)

namespace fuzz {

// The largest single allocation made while an AllocationWatch lives, seen
// through the sanitizer's allocation hook. Counts that come off the wire must
// not turn into allocations of their own size.
class AllocationWatch {
 public:
  AllocationWatch() {
    static bool const installed = __sanitizer_install_malloc_and_free_hooks(&OnAllocate, &OnFree) != 0;
    FUZZ_CHECK(installed);
    largest.store(0);
    watching.store(true);
  }
  ~AllocationWatch() { watching.store(false); }
  std::size_t Largest() const { return largest.load(); }

 private:
  static void OnAllocate(const volatile void*, std::size_t size) {
    if (watching.load(std::memory_order_relaxed) && size > largest.load(std::memory_order_relaxed))
      largest.store(size, std::memory_order_relaxed);
  }
  static void OnFree(const volatile void*) {}

  static inline std::atomic<bool> watching{false};
  static inline std::atomic<std::size_t> largest{0};
};

// A directory of the program's own below TMPDIR, removed when the program ends.
inline std::string const& PrivateDir() {
  static std::string const path = [] {
    char const* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base != nullptr && *base != 0 ? base : "/tmp") + "/quillon-fuzz-XXXXXX";
    FUZZ_CHECK(::mkdtemp(pattern.data()) != nullptr);
    static std::string removeAtExit;
    removeAtExit = pattern;
    std::atexit([] {
      std::error_code ignored;
      std::filesystem::remove_all(removeAtExit, ignored);
    });
    return pattern;
  }();
  return path;
}

// Native text in UTF-8 (C.UTF-8) or in the plain C locale.
inline void UseLocale(bool utf8) {
  static int current = -1;
  if (current == static_cast<int>(utf8)) return;
  FUZZ_CHECK(std::setlocale(LC_ALL, utf8 ? "C.UTF-8" : "C") != nullptr);
  current = utf8;
}

inline bool IsAscii(std::string const& text) {
  for (char c : text)
    if (static_cast<unsigned char>(c) >= 0x80) return false;
  return true;
}

// Strict UTF-8, the neutral form: no overlong forms, no surrogates, nothing
// above U+10FFFF, no byte 0 inside the length given.
inline bool IsStrictUtf8(std::string const& text) {
  std::size_t const n = text.size();
  for (std::size_t i = 0; i < n;) {
    unsigned char const lead = static_cast<unsigned char>(text[i]);
    std::size_t trail;
    if (lead == 0) return false;
    if (lead < 0x80) trail = 0;
    else if (lead >= 0xC2 && lead <= 0xDF) trail = 1;
    else if (lead >= 0xE0 && lead <= 0xEF) trail = 2;
    else if (lead >= 0xF0 && lead <= 0xF4) trail = 3;
    else return false;
    if (n - i <= trail) return false;
    unsigned long value = trail == 0 ? lead : lead & (0x3Fu >> trail);
    for (std::size_t k = 1; k <= trail; ++k) {
      unsigned char const next = static_cast<unsigned char>(text[i + k]);
      if ((next & 0xC0) != 0x80) return false;
      value = value << 6 | (next & 0x3Fu);
    }
    unsigned long const least[] = {0, 0x80, 0x800, 0x10000};
    if (value < least[trail] || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) return false;
    i += trail + 1;
  }
  return true;
}

}  // namespace fuzz

#endif

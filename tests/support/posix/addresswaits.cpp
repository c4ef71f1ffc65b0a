// The test program's own address waits, in front of tarnlet's: they call the
// hooks of WatchAddressWaits and pass every call on to the library. A program
// links this file only when it calls WatchAddressWaits. POSIX code only.
#include <dlfcn.h>

#include <atomic>
#include <cstdint>

#include "platform.h"

namespace {

std::atomic<qtest::host::AddressWaitHooks const*> watching{nullptr};

template <typename Function>
Function Next(char const* name) {
  return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

namespace qtest::host {

bool WatchAddressWaits(AddressWaitHooks const* hooks) {
  watching = hooks;
  return true;
}

}  // namespace qtest::host

// Visible, so that the library's calls reach them.
extern "C" __attribute__((visibility("default"))) bool vekWaitOnAddress(std::atomic<std::uint32_t>* word, std::uint32_t expected,
                                 int msec) {
  static auto const next = Next<bool (*)(std::atomic<std::uint32_t>*, std::uint32_t, int)>(
      "vekWaitOnAddress");
  if (auto const* hooks = watching.load()) hooks->beforeWait(word);
  return next(word, expected, msec);
}

extern "C" __attribute__((visibility("default"))) void vekWakeByAddressSingle(std::atomic<std::uint32_t>* word) {
  static auto const next = Next<void (*)(std::atomic<std::uint32_t>*)>("vekWakeByAddressSingle");
  if (auto const* hooks = watching.load()) {
    hooks->wake(word, [&] { next(word); });
  } else {
    next(word);
  }
}

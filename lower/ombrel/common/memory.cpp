// The memory hooks, the stop and the thread's last error: the same on every
// host but for how the stop's line reaches standard error.
#include "ombmem.h"

#include <atomic>
#include <cstdlib>
#include <string>

#include "stderr.h"

namespace {

std::atomic<long long> liveBlocks{0};
thread_local int lastError = 0;

[[noreturn]] void outOfMemory(std::size_t bytes, int line) {
  std::string message = "out of memory: no block of " + std::to_string(bytes) + " bytes";
  vekAbort(message.c_str(), "lower/ombrel/memory", line);
}

}  // namespace

void* vekAlloc(std::size_t bytes) {
  void* block = std::malloc(bytes == 0 ? 1 : bytes);
  if (block == nullptr) outOfMemory(bytes, __LINE__);
  liveBlocks.fetch_add(1, std::memory_order_relaxed);
  return block;
}

void* vekReAlloc(void* block, std::size_t bytes) {
  if (block == nullptr) return bytes == 0 ? nullptr : vekAlloc(bytes);
  if (bytes == 0) {
    vekFree(block);
    return nullptr;
  }
  void* moved = std::realloc(block, bytes);
  if (moved == nullptr) outOfMemory(bytes, __LINE__);
  return moved;
}

void vekFree(void* block) {
  if (block == nullptr) return;
  liveBlocks.fetch_sub(1, std::memory_order_relaxed);
  std::free(block);
}

long long vekLiveBlocks() { return liveBlocks.load(std::memory_order_relaxed); }

void vekAbort(char const* message, char const* file, int line) {
  // One write, so that the line stays whole even if other threads print.
  std::string text = "quillon stop: ";
  text += message != nullptr ? message : "(no message)";
  text += " [";
  text += file != nullptr ? file : "?";
  text += ':';
  text += std::to_string(line);
  text += "]\n";
  vekWriteStandardError(text.data(), text.size());
  std::abort();
}

void vekSetLastError(int code) { lastError = code; }
int vekGetLastError() { return lastError; }

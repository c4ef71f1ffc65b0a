// Locks and asynchronous calls beside their std:: counterparts.
#include <benchmark/benchmark.h>

#include <future>
#include <mutex>

#include "quillon.h"

namespace {

void MutexLockUnlock_quillon(benchmark::State& state) {
  proMutex mutex;
  for (auto _ : state) {
    mutex.Lock();
    mutex.Unlock();
  }
}

void MutexLockUnlock_std(benchmark::State& state) {
  std::recursive_mutex mutex;
  for (auto _ : state) {
    mutex.lock();
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

BENCHMARK(MutexLockUnlock_quillon)->Name("MutexLockUnlock/quillon");
BENCHMARK(MutexLockUnlock_std)->Name("MutexLockUnlock/std");
BENCHMARK(AsyncRoundTrip_quillon)->Name("AsyncRoundTrip/quillon")->UseRealTime();
BENCHMARK(AsyncRoundTrip_std)->Name("AsyncRoundTrip/std")->UseRealTime();

BENCHMARK_MAIN();

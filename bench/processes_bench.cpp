// Child processes and pipes beside raw posix_spawn, waitpid and read.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

#include "quillon.h"

extern char** environ;

namespace {

constexpr long long kPipeBytes = 64ll << 20;
constexpr std::size_t kChunk = 1 << 16;
char const kProducer[] = "head -c 67108864 /dev/zero";

void Launch_quillon(benchmark::State& state) {
  for (auto _ : state) {
    ExecProcess task("/bin/true", 0);
    if (!task.Start()) state.SkipWithError("no launch");
    benchmark::DoNotOptimize(task.WaitForProcess());
  }
}

void Launch_syscall(benchmark::State& state) {
  char program[] = "/bin/true";
  char* argv[] = {program, nullptr};
  for (auto _ : state) {
    pid_t pid = 0;
    if (posix_spawn(&pid, program, nullptr, nullptr, argv, environ) != 0) state.SkipWithError("no launch");
    int status = 0;
    waitpid(pid, &status, 0);
    benchmark::DoNotOptimize(status);
  }
}

void PipeRead_quillon(benchmark::State& state) {
  std::vector<char> chunk(kChunk);
  for (auto _ : state) {
    ExecProcess task(kProducer, 7);
    iPipeStream* fromChild = nullptr;
    if (OpenPipeWithChildProc(nullptr, &fromChild, nullptr, &task) != errOK) {
      state.SkipWithError("no child");
      break;
    }
    long long total = 0;
    while (fromChild->read(chunk.data(), kChunk) || fromChild->gcount() > 0) total += fromChild->gcount();
    if (total != kPipeBytes) state.SkipWithError("short read");
    task.WaitForProcess();
    DeletePipe(fromChild);
  }
  state.SetBytesProcessed(state.iterations() * kPipeBytes);
}

void PipeRead_syscall(benchmark::State& state) {
  std::vector<char> chunk(kChunk);
  char head[] = "/usr/bin/head", count[] = "-c", bytes[] = "67108864", zero[] = "/dev/zero";
  char* argv[] = {head, count, bytes, zero, nullptr};
  for (auto _ : state) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
      state.SkipWithError("no pipe");
      break;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
    pid_t pid = 0;
    int failed = posix_spawn(&pid, head, &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    long long total = 0;
    ssize_t n;
    while (failed == 0 && (n = read(ends[0], chunk.data(), kChunk)) > 0) total += n;
    close(ends[0]);
    if (total != kPipeBytes) state.SkipWithError("short read");
    int status = 0;
    if (failed == 0) waitpid(pid, &status, 0);
  }
  state.SetBytesProcessed(state.iterations() * kPipeBytes);
}

}  // namespace

BENCHMARK(Launch_quillon)->Name("Launch/quillon");
BENCHMARK(Launch_syscall)->Name("Launch/syscall");
BENCHMARK(PipeRead_quillon)->Name("PipeRead64MiB/quillon")->Unit(benchmark::kMillisecond);
BENCHMARK(PipeRead_syscall)->Name("PipeRead64MiB/syscall")->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();

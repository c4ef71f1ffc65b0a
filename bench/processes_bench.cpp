// Child processes and pipes beside raw posix_spawn, waitpid and read.
#include "benchsupport.h"

BENCHMARK(bench::LaunchTrue_quillon)->Name("Launch/quillon");
BENCHMARK(bench::LaunchTrue_syscall)->Name("Launch/syscall");
BENCHMARK(bench::PipeRead_quillon)->Name("PipeRead64MiB/quillon")->Unit(benchmark::kMillisecond);
BENCHMARK(bench::PipeRead_syscall)->Name("PipeRead64MiB/syscall")->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();

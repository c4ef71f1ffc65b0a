// Framed messages on loopback beside the same traffic framed by hand over raw
// send and recv. Both ends run in one process, the peer on a second thread,
// over sockets the library made (so TCP_NODELAY on both sides).
#include "benchsupport.h"

namespace {

using namespace bench;

void RoundTrip_quillon(benchmark::State& state) { RoundTrips(state, QuillonEnds()); }

// The raw frame goes out in one send; split sends the count and the payload
// separately, as the library's framed write does.
void RoundTrip_syscall(benchmark::State& state) { RoundTrips(state, RawEnds(false)); }

void RoundTrip_syscall_split(benchmark::State& state) { RoundTrips(state, RawEnds(true)); }

// The receiver's buffer either keeps its block between messages or is new for
// every message.
template <Receiver receiver>
void Throughput_quillon(benchmark::State& state) {
  Throughputs(state, QuillonEnds(), receiver);
}

template <Receiver receiver>
void Throughput_syscall(benchmark::State& state) {
  Throughputs(state, RawEnds(false), receiver);
}

// The count and the payload in two sends, as the library sends them.
void Throughput_syscall_split(benchmark::State& state) { Throughputs(state, RawEnds(true), Receiver::keeps); }

}  // namespace

BENCHMARK(RoundTrip_quillon)->Name("RoundTrip/quillon")->Arg(64)->UseRealTime();
BENCHMARK(RoundTrip_syscall)->Name("RoundTrip/syscall")->Arg(64)->UseRealTime();
BENCHMARK(RoundTrip_syscall_split)->Name("RoundTrip/syscall_split")->Arg(64)->UseRealTime();
// A second per repetition at least: over loopback an iteration's time swings
// by tens of percent with how the kernel schedules the two ends.
#define QUILLON_MESSAGE_SIZES \
  ->Arg(16 << 10)->Arg(64 << 10)->Arg(1 << 20)->Arg(64 << 20)->MeasureProcessCPUTime()->UseRealTime()->MinTime(1)
BENCHMARK(Throughput_quillon<Receiver::keeps>)->Name("Throughput/quillon") QUILLON_MESSAGE_SIZES;
BENCHMARK(Throughput_syscall<Receiver::keeps>)->Name("Throughput/syscall") QUILLON_MESSAGE_SIZES;
BENCHMARK(Throughput_syscall_split)->Name("Throughput/syscall_split") QUILLON_MESSAGE_SIZES;
BENCHMARK(Throughput_quillon<Receiver::fresh>)->Name("ThroughputFresh/quillon") QUILLON_MESSAGE_SIZES;
BENCHMARK(Throughput_syscall<Receiver::fresh>)->Name("ThroughputFresh/syscall") QUILLON_MESSAGE_SIZES;

BENCHMARK_MAIN();

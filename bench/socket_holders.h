// Processes that hold sockets of the loopback interface, for benchmarks that look for holders.
#ifndef TAVO_BENCH_SOCKET_HOLDERS_H
#define TAVO_BENCH_SOCKET_HOLDERS_H

#include <benchmark/benchmark.h>

namespace tavo::bench {

// Socket number N is of port kFirstHeldPort + N.
inline constexpr int kFirstHeldPort = 10000;

// Has as many sockets held, by as many processes, as the first two arguments of the benchmark say,
// and labels it with what there is. Benchmarks of equal arguments share the processes. Returns how
// many sockets are held.
int HoldSockets(benchmark::State &state);

}  // namespace tavo::bench

#endif

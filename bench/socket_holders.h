// Processes that hold sockets of the loopback interface, for benchmarks that search for holders.
#ifndef TAVO_BENCH_SOCKET_HOLDERS_H
#define TAVO_BENCH_SOCKET_HOLDERS_H

#include <benchmark/benchmark.h>

namespace tavo::bench {

// Socket number N is of port kFirstHeldPort + N.
inline constexpr int kFirstHeldPort = 10000;

// Makes processes hold sockets, according to the first two arguments of the benchmark, and labels
// the benchmark with the actual numbers. Benchmarks with equal arguments share the processes.
// Returns the number of held sockets.
int HoldSockets(benchmark::State &state);

}  // namespace tavo::bench

#endif

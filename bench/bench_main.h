// Common setup of the benchmark programs: they run in a private appliance, with a heap that keeps
// its pages.
#ifndef TAVO_BENCH_BENCH_MAIN_H
#define TAVO_BENCH_BENCH_MAIN_H

#include "ratio_reporter.h"

namespace tavo::bench {

// Registers the benchmarks with `register_benchmarks` and runs them. Returns the exit status: 0; 2
// for wrong usage or outside an appliance.
int RunBenchmarks(int argc, char **argv, void (*register_benchmarks)(), RatioReporter &reporter);

// Raises the limit of open descriptors to the maximum.
void AllowManySockets();

}  // namespace tavo::bench

#endif

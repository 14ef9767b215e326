// Service files as packages ship them, to be read by the benchmarks.
#ifndef TAVO_BENCH_SERVICE_FILES_H
#define TAVO_BENCH_SERVICE_FILES_H

#include <benchmark/benchmark.h>

namespace tavo::bench {

inline constexpr char kServiceFolder[] = "/usr/local/etc/services.d";

// What each service declares: a port and nearly every one above it, or that port and ten in a row.
enum class PortLists { kWide, kFew };

// Fills the folder with `files` files of `sections` sections each; benchmarks of equal arguments
// share what the first of them wrote.
void WriteServiceFiles(int files, int sections, PortLists ports = PortLists::kWide);

// A benchmark: enumerates that many files of that many sections, the two arguments.
void EnumerateServiceFiles(benchmark::State &state);

}  // namespace tavo::bench

#endif

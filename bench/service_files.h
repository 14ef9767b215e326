// Service files as packages ship them, to be read by the benchmarks.
#ifndef TAVO_BENCH_SERVICE_FILES_H
#define TAVO_BENCH_SERVICE_FILES_H

namespace tavo::bench {

inline constexpr char kServiceFolder[] = "/usr/local/etc/services.d";

// Fills the folder with `files` files of `sections` sections each; benchmarks of equal arguments
// share what the first of them wrote.
void WriteServiceFiles(int files, int sections);

}  // namespace tavo::bench

#endif

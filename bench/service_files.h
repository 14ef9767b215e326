// Service files like those of packages, for the benchmarks to read.
#ifndef TAVO_BENCH_SERVICE_FILES_H
#define TAVO_BENCH_SERVICE_FILES_H

#include <benchmark/benchmark.h>

#include "tavoserviceconf.h"

namespace tavo::bench {

inline constexpr char kServiceFolder[] = "/usr/local/etc/services.d";

// The ports of each service: a port and nearly every one above it, or that port and ten consecutive
// ones.
enum class PortLists { kWide, kFew };

// Fills the folder with `files` files of `sections` sections each; benchmarks with equal arguments
// share them.
void WriteServiceFiles(int files, int sections, PortLists ports = PortLists::kWide);

// A benchmark that enumerates the service files; the two arguments are the numbers of files and
// sections.
template <PortLists ports = PortLists::kWide>
void EnumerateServiceFiles(benchmark::State &state) {
    const int files = static_cast<int>(state.range(0));
    WriteServiceFiles(files, static_cast<int>(state.range(1)), ports);
    for (auto _ : state) {
        TAVO_SERVICE_CONF *list = nullptr;
        if (TAVOServiceConfEnum(&list, TAVO_SERVICE_CONF_DIR_PACKAGE) != files) {
            state.SkipWithError("not every file was read");
        }
        TAVOServiceConfFree(list);
    }
}

}  // namespace tavo::bench

#endif

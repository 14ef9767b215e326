// Checks whether a port is taken by a firewall service, a setting or a socket, compared with one
// enumeration of the service files. The check needs two of them: for the services and for the
// sockets.
//
// Arguments are the number of files and of sections in each.
#include <benchmark/benchmark.h>

#include "bench_main.h"
#include "service_files.h"
#include "tavoserviceconf.h"

namespace {

using tavo::bench::EnumerateServiceFiles;
using tavo::bench::WriteServiceFiles;

constexpr int kFlags =
    TAVO_PORT_CHECK_FW_SERVICE | TAVO_PORT_CHECK_SYS_KEY | TAVO_PORT_CHECK_RUNTIME;

void Ask(benchmark::State &state, const char *port, int expected) {
    WriteServiceFiles(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    for (auto _ : state) {
        TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
        if (TLIBIsPortConflict("", port, "tcp,udp", kFlags, &conflicts) != expected) {
            state.SkipWithError("not the right answer");
        }
        TAVOServiceConfPortsFree(conflicts);
    }
}

void FreePort(benchmark::State &state) {
    Ask(state, "999", 0);
}

// Nearly every service declares this port.
void TakenPort(benchmark::State &state) {
    Ask(state, "64000", 1);
}

void RegisterAll() {
    static constexpr struct {
        const char *name;
        void (*run)(benchmark::State &);
    } kFamilies[] = {
        {"TakenPort", TakenPort}, {"FreePort", FreePort}, {"Enumerate", EnumerateServiceFiles<>}};
    for (const int files : {100, 1000}) {
        for (const auto &family : kFamilies) {
            benchmark::RegisterBenchmark(family.name, family.run)
                ->Args({files, 5})
                ->Repetitions(5)
                ->Unit(benchmark::kMicrosecond);
        }
    }
}

}  // namespace

int main(int argc, char **argv) {
    tavo::bench::RatioReporter reporter({{"TakenPort", "Enumerate"}, {"TakenPort", "FreePort"}});
    return tavo::bench::RunBenchmarks(argc, argv, RegisterAll, reporter);
}

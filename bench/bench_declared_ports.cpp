// Checks whether any of all ports is declared, compared with listing the declared ports.
//
// Arguments are the number of service files and of sections in each.
#include <benchmark/benchmark.h>

#include "bench_main.h"
#include "service_files.h"
#include "tavoserviceconf.h"

namespace {

// Port 65535 cannot be queried.
constexpr int kLastPort = 65534;

void Prepare(const benchmark::State &state) {
    tavo::bench::WriteServiceFiles(static_cast<int>(state.range(0)),
                                   static_cast<int>(state.range(1)), tavo::bench::PortLists::kFew);
}

void AskForAll(benchmark::State &state) {
    Prepare(state);
    for (auto _ : state) {
        if (TAVOConfIsConflictPortRange(1, kLastPort, TAVO_PROTO_BOTH) != 1) {
            state.SkipWithError("not the right answer");
        }
    }
}

void AskForOne(benchmark::State &state) {
    Prepare(state);
    for (auto _ : state) {
        if (TAVOConfIsConflictPort(kLastPort, TAVO_PROTO_BOTH) != 0) {
            state.SkipWithError("not the right answer");
        }
    }
}

void Fetch(benchmark::State &state) {
    Prepare(state);
    for (auto _ : state) {
        TLIBCDList *declared = ServiceConfListFetch();
        if (TLIBCDListCount(declared) == 0) {
            state.SkipWithError("nothing was listed");
        }
        TAVOConfPortConflictResultListFree(declared);
    }
}

void RegisterAll() {
    static constexpr struct {
        const char *name;
        void (*run)(benchmark::State &);
    } kFamilies[] = {{"AskForAll", AskForAll}, {"AskForOne", AskForOne}, {"Fetch", Fetch}};
    for (const int files : {100, 1000}) {
        for (const auto &family : kFamilies) {
            benchmark::RegisterBenchmark(family.name, family.run)
                ->Args({files, 5})
                ->Repetitions(5)
                ->Unit(benchmark::kMillisecond);
        }
    }
}

}  // namespace

int main(int argc, char **argv) {
    tavo::bench::RatioReporter reporter({{"AskForAll", "AskForOne"}, {"AskForAll", "Fetch"}});
    return tavo::bench::RunBenchmarks(argc, argv, RegisterAll, reporter);
}

// Finds the declarers of one port if a service declares many ranges that cover nearly all ports.
// The lower bound is listing that service with its ranges.
//
// The argument is the number of ranges.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "bench_main.h"
#include "service_files.h"
#include "tavoserviceconf.h"

namespace {

void WriteRanges(const benchmark::State &state) {
    const std::string folder = tavo::bench::kServiceFolder;
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    std::ofstream file(folder + "/wide.sc");
    file << "[wide]\ntitle=T\ndesc=D\ndst.ports=\"1:65535";
    for (std::int64_t i = 1; i < state.range(0); ++i) {
        file << ",1:65535";
    }
    file << "/tcp\"\n";
}

void AskAmongRanges(benchmark::State &state) {
    WriteRanges(state);
    TLIBCSzList *ports = TLIBCSzListAlloc(1);
    TLIBCSzListPush(&ports, "47110");
    for (auto _ : state) {
        TLIBCDList *results = TAVOConfPortConflictResultListAllocAndCheck(ports, TAVO_PROTO_TCP);
        if (TLIBCDListCount(results) != state.range(0)) {
            state.SkipWithError("not the right answer");
        }
        TAVOConfPortConflictResultListFree(results);
    }
    TLIBCSzListFree(ports);
}

void ListRanges(benchmark::State &state) {
    WriteRanges(state);
    for (auto _ : state) {
        TAVO_FW_SERVICE *services = nullptr;
        TAVOFwServiceEnum(&services);
        const TAVO_FW_SERVICE *wide = TAVOFWServiceFind(services, "wide");
        if (wide == nullptr || TLIBCSzListCount(wide->pDstPortList) != state.range(0)) {
            state.SkipWithError("not every range was listed");
        }
        TAVOFwServiceFree(services);
    }
}

void RegisterAll() {
    static constexpr struct {
        const char *name;
        void (*run)(benchmark::State &);
    } kFamilies[] = {{"AskAmongRanges", AskAmongRanges}, {"ListRanges", ListRanges}};
    for (const int ranges : {100, 1000, 10000}) {
        for (const auto &family : kFamilies) {
            benchmark::RegisterBenchmark(family.name, family.run)
                ->Arg(ranges)
                ->Repetitions(5)
                ->Unit(benchmark::kMillisecond);
        }
    }
}

}  // namespace

int main(int argc, char **argv) {
    tavo::bench::RatioReporter reporter({tavo::bench::Ratio{"AskAmongRanges", "ListRanges"}});
    return tavo::bench::RunBenchmarks(argc, argv, RegisterAll, reporter);
}

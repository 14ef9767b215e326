// Checks a large service file against an installed one of the same size, compared with reading both
// files once.
//
// Arguments are the number of sections and of ranges in each. With one section, every range of one
// file overlaps every range of the other; with several sections, each section skips itself.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "bench_main.h"
#include "service_files.h"
#include "tavoserviceconf.h"

namespace {

constexpr char kNewFile[] = "/tmp/new.sc";

std::string Ranges(int section, int ranges) {
    std::string text;
    for (int i = 0; i < ranges; ++i) {
        const int first = 20000 + (section + i) % 30000;
        text += (i == 0 ? "" : ",") + std::to_string(first);
        text += ranges == 1 ? "" : ":" + std::to_string(60000 - i % 1000);
    }
    return text;
}

void WriteFile(const std::string &path, const std::string &prefix, int sections, int ranges) {
    std::ofstream out(path);
    for (int i = 0; i < sections; ++i) {
        out << "[" << prefix << i << "]\ntitle=\"T\"\ndesc=\"D\"\ndst.ports=\"" << Ranges(i, ranges)
            << "/udp\"\n";
    }
}

// Returns the expected result.
int Prepare(const benchmark::State &state) {
    const int sections = static_cast<int>(state.range(0));
    const int ranges = static_cast<int>(state.range(1));
    std::filesystem::remove_all(tavo::bench::kServiceFolder);
    std::filesystem::create_directories(tavo::bench::kServiceFolder);
    WriteFile(std::string(tavo::bench::kServiceFolder) + "/installed.sc", "s", sections, ranges);
    WriteFile(kNewFile, sections == 1 ? "other" : "s", sections, ranges);
    return sections == 1 ? 1 : 0;
}

void CheckFile(benchmark::State &state) {
    const int expected = Prepare(state);
    for (auto _ : state) {
        TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
        if (TLIBIsConfPortConflict(kNewFile, &conflicts) != expected) {
            state.SkipWithError("not the right answer");
        }
        TAVOServiceConfPortsFree(conflicts);
    }
}

void ReadFiles(benchmark::State &state) {
    Prepare(state);
    for (auto _ : state) {
        TAVO_SERVICE_CONF *files = nullptr;
        if (TAVOServiceConfEnum(&files, TAVO_SERVICE_CONF_DIR_PACKAGE) != 1 ||
            TAVOServiceConfGet(kNewFile, &files) != 0) {
            state.SkipWithError("not every file was read");
        }
        TAVOServiceConfFree(files);
    }
}

void RegisterAll() {
    static constexpr struct {
        const char *name;
        void (*run)(benchmark::State &);
    } kFamilies[] = {{"CheckFile", CheckFile}, {"ReadFiles", ReadFiles}};
    static constexpr int kSizes[][2] = {{1, 1000}, {1, 10000}, {1000, 1}, {16000, 1}};
    for (const auto &[sections, ranges] : kSizes) {
        for (const auto &family : kFamilies) {
            benchmark::RegisterBenchmark(family.name, family.run)
                ->Args({sections, ranges})
                ->Repetitions(5)
                ->Unit(benchmark::kMillisecond);
        }
    }
}

}  // namespace

int main(int argc, char **argv) {
    tavo::bench::RatioReporter reporter({tavo::bench::Ratio{"CheckFile", "ReadFiles"}});
    return tavo::bench::RunBenchmarks(argc, argv, RegisterAll, reporter);
}

// Finds the holder of a port: the library, the programs that administrators use, and as a lower
// bound a program that only reads the four socket tables and every descriptor link, without
// evaluating them.
//
// Arguments are the number of sockets of the loopback interface and the number of processes that
// hold them, in equal shares. Most sockets are TCP, as on an appliance that serves files: for each
// page of a UDP table the kernel walks from the start of the table, for any reader. Times are
// processor time of this process and of its children.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cctype>
#include <string>
#include <utility>

#include "bench_main.h"
#include "run_command.h"
#include "socket_holders.h"
#include "tavoserviceconf.h"

namespace {

using tavo::bench::HoldSockets;
using tavo::bench::kFirstHeldPort;
using tavo::bench::ProcessorSeconds;
using tavo::bench::RunSilently;

template <typename Work>
void Measure(benchmark::State &state, Work work) {
    const int held = HoldSockets(state);
    for (auto _ : state) {
        const double start = ProcessorSeconds();
        if (!work(held)) {
            state.SkipWithError("not the right answer");
        }
        state.SetIterationTime(ProcessorSeconds() - start);
    }
}

// The whole check for one port.
void Check(benchmark::State &state) {
    TLIBCSzList *ports = TLIBCSzListAlloc(1);
    TLIBCSzListPush(&ports, std::to_string(kFirstHeldPort).c_str());
    Measure(state, [ports](int) {
        TLIBCDList *results =
            TAVORuntimePortConflictResultListAllocAndCheck(ports, TAVO_PROTO_BOTH);
        const int verdict = TAVORuntimeVerifyConflictPort(results, kFirstHeldPort, TAVO_PROTO_BOTH);
        TAVORuntimePortConflictResultListFree(results);
        return verdict == 1;
    });
    TLIBCSzListFree(ports);
}

// The list of all held ports.
void Fetch(benchmark::State &state) {
    Measure(state, [](int held) {
        TLIBCDList *results = RuntimeServiceListFetch();
        const int count = TLIBCDListCount(results);
        TAVORuntimePortConflictResultListFree(results);
        return count == held;
    });
}

void ReadToEnd(const char *path) {
    static char buffer[65536];
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    while (read(fd, buffer, sizeof(buffer)) > 0) {
    }
    close(fd);
}

void ReadLinks(const std::string &folder) {
    DIR *links = opendir(folder.c_str());
    if (links == nullptr) {
        return;
    }
    while (const dirent *entry = readdir(links)) {
        char target[256];
        benchmark::DoNotOptimize(readlinkat(dirfd(links), entry->d_name, target, sizeof(target)));
    }
    closedir(links);
}

void Floor(benchmark::State &state) {
    Measure(state, [](int) {
        for (const char *table :
             {"/proc/net/tcp", "/proc/net/tcp6", "/proc/net/udp", "/proc/net/udp6"}) {
            ReadToEnd(table);
        }
        DIR *processes = opendir("/proc");
        while (const dirent *entry = readdir(processes)) {
            if (std::isdigit(static_cast<unsigned char>(entry->d_name[0])) != 0) {
                ReadLinks("/proc/" + std::string(entry->d_name) + "/fd");
            }
        }
        closedir(processes);
        return true;
    });
}

void Ss(benchmark::State &state) {
    Measure(state, [](int) { return RunSilently({"ss", "-H", "-tuanp"}) == 0; });
}

void Lsof(benchmark::State &state) {
    Measure(state, [](int) { return RunSilently({"lsof", "-nP", "-i"}) == 0; });
}

void RegisterAll() {
    static constexpr struct {
        const char *name;
        void (*run)(benchmark::State &);
    } kFamilies[] = {
        {"Check", Check}, {"Fetch", Fetch}, {"Floor", Floor}, {"Ss", Ss}, {"Lsof", Lsof}};
    static constexpr std::pair<int, int> kSizes[] = {{1000, 10}, {10000, 200}, {50000, 1000}};
    for (const auto &[sockets, processes] : kSizes) {
        for (const auto &family : kFamilies) {
            benchmark::RegisterBenchmark(family.name, family.run)
                ->Args({sockets, processes})
                ->Iterations(3)
                ->Repetitions(3)
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond);
        }
    }
}

}  // namespace

int main(int argc, char **argv) {
    tavo::bench::AllowManySockets();
    tavo::bench::RatioReporter reporter(
        {{"Check", "Fetch"}, {"Check", "Floor"}, {"Check", "Ss"}, {"Check", "Lsof"}});
    return tavo::bench::RunBenchmarks(argc, argv, RegisterAll, reporter);
}

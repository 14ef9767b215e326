// servicetool, started like a user does. The cost of a command is compared with one enumeration of
// the same service files by the library; that of a command that queries sockets, with `servicetool
// ports --held`.
//
// Arguments are the number of files and of sections in each; or the number of sockets and of
// processes that hold them; or the number of ports that one section declares. Times are processor
// time; for a command, that of its process and its children.
// command that of its process and of those that it started.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "bench_main.h"
#include "run_command.h"
#include "service_files.h"
#include "socket_holders.h"

namespace {

using namespace tavo::bench;

using Words = std::vector<std::string>;

constexpr char kAskedFile[] = "/tmp/asked.sc";

// Runs `servicetool WORDS...`. Exit status 1 is a result, such as a port that is taken.
void MeasureCommand(benchmark::State &state, const Words &words) {
    static const std::string program =
        std::filesystem::read_symlink("/proc/self/exe").parent_path() / "servicetool";
    Words command = {program};
    command.insert(command.end(), words.begin(), words.end());
    for (auto _ : state) {
        const double start = ProcessorSeconds();
        const int status = RunSilently(command);
        state.SetIterationTime(ProcessorSeconds() - start);
        if (status != 0 && status != 1) {
            state.SkipWithError(("exit status " + std::to_string(status)).c_str());
            break;
        }
    }
}

void MeasureOverFiles(benchmark::State &state, const Words &words) {
    WriteServiceFiles(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)),
                      PortLists::kFew);
    MeasureCommand(state, words);
}

void MeasureOverSockets(benchmark::State &state, const Words &words) {
    WriteServiceFiles(1, 1, PortLists::kFew);
    HoldSockets(state);
    MeasureCommand(state, words);
}

std::string Section(const std::string &name, const std::string &ports) {
    return "[" + name + "]\ntitle=\"Asked\"\ndesc=\"A service\"\ndst.ports=\"" + ports +
           "/tcp\"\n\n";
}

// ---- Service files ----

void CheckOne(benchmark::State &state) {
    MeasureOverFiles(state, {"check", "8080"});
}

// Some of the ports are taken, most are free.
void Check200(benchmark::State &state) {
    Words words = {"check"};
    for (int i = 0; i < 200; ++i) {
        words.push_back(std::to_string(1024 + 300 * i));
    }
    MeasureOverFiles(state, words);
}

void CheckFile50(benchmark::State &state) {
    std::ofstream file(kAskedFile);
    for (int i = 0; i < 50; ++i) {
        file << Section("asked-" + std::to_string(i), std::to_string(40000 + i));
    }
    file.close();
    MeasureOverFiles(state, {"check", "--file", kAskedFile});
}

void List(benchmark::State &state) {
    MeasureOverFiles(state, {"list"});
}

void Services(benchmark::State &state) {
    MeasureOverFiles(state, {"services"});
}

void Why(benchmark::State &state) {
    MeasureOverFiles(state, {"why", "8080"});
}

void Ports(benchmark::State &state) {
    MeasureOverFiles(state, {"ports"});
}

// ---- Sockets ----

void PortsHeld(benchmark::State &state) {
    MeasureOverSockets(state, {"ports", "--held"});
}

void Suggest(benchmark::State &state) {
    MeasureOverSockets(state, {"suggest"});
}

void CheckSockets(benchmark::State &state) {
    MeasureOverSockets(state, {"check", "1:65535", "--source", "socket"});
}

// ---- One section with many ports ----

void CheckLongList(benchmark::State &state) {
    std::string ports = "1";
    for (int port = 2; port <= state.range(0); ++port) {
        ports += "," + std::to_string(port);
    }
    std::ofstream(kAskedFile) << Section("asked", ports);
    WriteServiceFiles(1, 1, PortLists::kFew);
    MeasureCommand(state, {"check", "--file", kAskedFile});
}

// ---- The table ----

// With fewer files, most of the cost of a command is starting the program.
constexpr char kReachAt[] = "1000/5";

struct Family {
    const char *name;
    void (*run)(benchmark::State &);
};

// A command runs long enough to be timed individually.
void RegisterCommand(const Family &family, const std::vector<std::int64_t> &arguments) {
    benchmark::RegisterBenchmark(family.name, family.run)
        ->Args(arguments)
        ->Iterations(1)
        ->Repetitions(3)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
}

void RegisterAll() {
    for (const int files : {10, 100, 1000, 5000}) {
        benchmark::RegisterBenchmark("Enumerate", EnumerateServiceFiles<PortLists::kFew>)
            ->Args({files, 5})
            ->Repetitions(3)
            ->Unit(benchmark::kMillisecond);
        for (const Family &family :
             {Family{"CheckOne", CheckOne}, Family{"Check200", Check200},
              Family{"CheckFile50", CheckFile50}, Family{"List", List},
              Family{"Services", Services}, Family{"Why", Why}, Family{"Ports", Ports}}) {
            RegisterCommand(family, {files, 5});
        }
    }
    for (const int sockets : {1000, 10000, 50000}) {
        for (const Family &family : {Family{"PortsHeld", PortsHeld}, Family{"Suggest", Suggest},
                                     Family{"CheckSockets", CheckSockets}}) {
            RegisterCommand(family, {sockets, sockets / 50});
        }
    }
    for (const int ports : {600, 6000, 60000}) {
        RegisterCommand({"CheckLongList", CheckLongList}, {ports});
    }
}

}  // namespace

int main(int argc, char **argv) {
    AllowManySockets();
    RatioReporter reporter({{"CheckOne", "Enumerate", 3, kReachAt},
                            {"Check200", "CheckOne", 1.3, kReachAt},
                            {"CheckFile50", "CheckOne", 1.5, kReachAt},
                            {"List", "Enumerate", 3, kReachAt},
                            {"Services", "Enumerate", 3, kReachAt},
                            {"Why", "Enumerate", 5, kReachAt},
                            {"Ports", "Enumerate", 5, kReachAt},
                            {"Suggest", "PortsHeld", 1.5},
                            {"CheckSockets", "PortsHeld", 1.5},
                            {"CheckLongList", kOneSecond, 1}});
    return RunBenchmarks(argc, argv, RegisterAll, reporter);
}

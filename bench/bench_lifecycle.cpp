// Changes service files: installs one of 4 KiB, updates it, writes a section of it; for a caller
// that uses 1 GiB of memory and one that uses 20 MiB.
//
// Nearly all of the time is spent waiting for the programs that a change runs, so the lower bound
// is the same programs without the library (Programs). For the installation `install -D` of
// coreutils is a peer, which copies the file without any checks. The counter "own" is the share of
// the library: all of the time except waiting for programs. "check" is the part of it that checks
// whether the ports are free. Most of that is the kernel's walk through its sockets, and there is
// little else in "own".
//
// The argument is the change: 0 installs, 1 updates, 2 writes a section.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <unistd.h>

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "bench_main.h"
#include "service_files.h"
#include "tavocore.h"
#include "tavoserviceconf.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr char kBaseName[] = "bench.sc";
constexpr char kSource[] = "/packages/bench.sc";
constexpr char kInstalled[] = "/usr/local/etc/services.d/bench.sc";

// Other installed files, as on an appliance with a few packages.
constexpr int kOtherFiles = 20;
constexpr int kOtherSections = 2;

// ---- The programs of a change ----

// A program and its arguments.
using Call = std::vector<std::string>;

Clock::duration g_waited{};
Clock::duration g_checked{};
bool g_recording = false;
std::vector<Call> g_calls;

void Record(const std::vector<const char *> &arguments) {
    if (g_recording) {
        g_calls.emplace_back(arguments.begin(), arguments.end());
    }
}

// Runs `work` and adds its duration to `sum`.
template <typename Work>
int Timed(Clock::duration &sum, Work work) {
    const Clock::time_point start = Clock::now();
    const int result = work();
    sum += Clock::now() - start;
    return result;
}

// The same for a check, which may be part of another one, without the time that it waits for
// programs.
template <typename Check>
int TimedCheck(Check check) {
    const Clock::duration waited = g_waited;
    const Clock::duration checked = g_checked;
    Clock::duration time{};
    const int result = Timed(time, check);
    g_checked = checked + time - (g_waited - waited);
    return result;
}

template <typename Function>
Function *Next(const char *name, Function * /*like*/) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// These take precedence over the functions of the libraries.
extern "C" {

__attribute__((visibility("default"))) int TLIBCExec(const char *szProgram, const char *szArg1,
                                                     const char *szArg2, const char *szArg3,
                                                     const char *szArg4) {
    static const auto next = Next("TLIBCExec", TLIBCExec);
    std::vector<const char *> arguments = {szProgram};
    for (const char *argument : {szArg1, szArg2, szArg3, szArg4}) {
        if (argument != nullptr) {
            arguments.push_back(argument);
        }
    }
    Record(arguments);
    return Timed(g_waited, [&] { return next(szProgram, szArg1, szArg2, szArg3, szArg4); });
}

// All callers here pass at most three arguments.
__attribute__((visibility("default"))) int TLIBCExecl(const char *szProgram, int nOptions,
                                                      const char *szArg, ...) {
    static const auto next = Next("TLIBCExecl", TLIBCExecl);
    const char *arguments[4] = {szArg};
    va_list rest;
    va_start(rest, szArg);
    for (int i = 0; i < 3 && arguments[i] != nullptr; ++i) {
        arguments[i + 1] = va_arg(rest, const char *);
    }
    va_end(rest);
    std::vector<const char *> call = {szProgram};
    for (int i = 0; arguments[i] != nullptr; ++i) {
        call.push_back(arguments[i]);
    }
    Record(call);
    return Timed(g_waited, [&] {
        return next(szProgram, nOptions, arguments[0], arguments[1], arguments[2], nullptr);
    });
}

__attribute__((visibility("default"))) int TLIBCExecInput(const char *szProgram, const char *szArg,
                                                          const void *pInput, size_t cbInput,
                                                          int nSeconds) {
    static const auto next = Next("TLIBCExecInput", TLIBCExecInput);
    Record({szProgram, szArg});
    return Timed(g_waited, [&] { return next(szProgram, szArg, pInput, cbInput, nSeconds); });
}

__attribute__((visibility("default"))) int TLIBIsConfPortConflict(
    const char *szPath, TAVO_SERVICE_CONF_PORT **ppConflictPorts) {
    static const auto next = Next("TLIBIsConfPortConflict", TLIBIsConfPortConflict);
    return TimedCheck([&] { return next(szPath, ppConflictPorts); });
}

__attribute__((visibility("default"))) int TLIBIsPortConflict(
    const char *szSkipServices, const char *szPort, const char *szProtocol, int nCheckFlags,
    TAVO_SERVICE_CONF_PORT **ppConflictPorts) {
    static const auto next = Next("TLIBIsPortConflict", TLIBIsPortConflict);
    return TimedCheck(
        [&] { return next(szSkipServices, szPort, szProtocol, nCheckFlags, ppConflictPorts); });
}

}  // extern "C"

namespace {

// ---- The caller ----

// The memory that the callers use, in MiB.
constexpr int kSmall = 20;
constexpr int kLarge = 1024;

// A fork would have to copy the page tables of all of it.
void HoldMemory(int mebibytes) {
    static std::unique_ptr<char[]> held;
    static int holds = 0;
    if (holds != mebibytes) {
        const std::size_t size = static_cast<std::size_t>(mebibytes) << 20;
        held.reset();
        held.reset(new char[size]);
        std::memset(held.get(), 1, size);
        holds = mebibytes;
    }
}

// ---- The changes ----

std::string FourKibibytes() {
    std::string text = "[bench]\ntitle=Bench\ndesc=A service\ndst.ports=\"7001/tcp\"\n";
    while (text.size() < 4096) {
        text += "# A line of a service file that says what the service is good for.\n";
    }
    text.resize(4095);
    return text + "\n";
}

// Programs that do nothing, because the run time of the appliance's programs is not measured.
void StandIn(const std::string &path) {
    std::filesystem::remove(path);
    std::filesystem::copy("/usr/bin/true", path);
}

void Prepare() {
    static bool prepared = false;
    if (prepared) {
        return;
    }
    prepared = true;
    tavo::bench::WriteServiceFiles(kOtherFiles, kOtherSections, tavo::bench::PortLists::kFew);
    for (const char *tool : {"/usr/tavo/sbin/tavoroutertool", "/usr/tavo/bin/tavofirewall",
                             "/usr/tavo/lib/plugins/port_config/portforward"}) {
        StandIn(tool);
    }
    std::filesystem::create_directory("/packages");
    std::ofstream(kSource) << FourKibibytes();
}

bool Install() {
    return TAVOServiceConfInstall(kSource, TAVO_SERVICE_CONF_DIR_PACKAGE) >= 0;
}

bool Update() {
    TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
    const int result = TAVOServiceConfUpdateBaseName(kBaseName, kSource,
                                                     TAVO_SERVICE_CONF_DIR_PACKAGE, &conflicts);
    TAVOServiceConfPortsFree(conflicts);
    return result >= 0;
}

template <std::size_t Size>
void CopyText(char (&field)[Size], std::string_view text) {
    text.copy(field, Size - 1);
}

// The port differs each time, so that there is something to write.
bool SetSection() {
    static std::uint32_t turn = 0;
    TAVO_SERVICE_CONF_SET_PARAM param = {};
    param.nRestartMode = TAVO_RESTART_MODE_RESTART;
    param.nRestartFlags = TAVO_RESTART_FIREWALL;
    param.nWriteMode = TAVO_WRITE_MODE_SET;
    param.nCheckFlags = TAVO_PORT_CHECK_PORT_FORWARD | TAVO_PORT_CHECK_FW_SERVICE;
    CopyText(param.szFileName, kBaseName);
    CopyText(param.szSectionName, "bench");
    param.nLocation = TAVO_SERVICE_CONF_DIR_PACKAGE;
    TAVO_SERVICE_CONF_PORT port = {};
    port.nDirection = TAVO_PORT_DIRECTION_DST;
    port.nPortStart = 7001 + ++turn % 2;
    port.nProtocol = TAVO_PROTO_TCP;
    TAVO_SERVICE_CONF_SECTION section = {};
    CopyText(section.szName, "bench");
    CopyText(section.strTitle.szText, "Bench");
    CopyText(section.strDesc.szText, "A service");
    section.pDstPorts = &port;
    return TLIBServiceConfSectionSet(&param, &section) == 0;
}

constexpr struct { bool (*make)(); } kChanges[] = {{Install}, {Update}, {SetSection}};

// The library, called by a process that uses that much memory.
template <int Mebibytes>
void Caller(benchmark::State &state) {
    const auto change = kChanges[state.range(0)].make;
    Prepare();
    HoldMemory(Mebibytes);
    Install();
    Clock::duration total{};
    g_waited = {};
    g_checked = {};
    for (auto _ : state) {
        if (Timed(total, [&] { return change() ? 0 : -1; }) != 0) {
            state.SkipWithError("the change failed");
        }
    }
    const auto share = [&](Clock::duration part) {
        return std::chrono::duration<double>(part) / total;
    };
    state.counters["own"] = share(total - g_waited);
    state.counters["check"] = share(g_checked);
}

// ---- The peers ----

// Runs the programs with the arguments that they had in the change. A copy that no longer exists is
// created again.
void Programs(benchmark::State &state) {
    Prepare();
    HoldMemory(kSmall);
    Install();
    g_calls.clear();
    g_recording = true;
    kChanges[state.range(0)].make();
    g_recording = false;
    for (auto _ : state) {
        for (const Call &call : g_calls) {
            const auto argument = [&](std::size_t i) {
                return i < call.size() ? call[i].c_str() : nullptr;
            };
            TLIBCExec(argument(0), argument(1), argument(2), argument(3), argument(4));
        }
    }
    for (const Call &call : g_calls) {
        if (call.front() == "/bin/cp") {
            std::filesystem::remove(call.back());
        }
    }
}

void InstallD(benchmark::State &state) {
    Prepare();
    HoldMemory(kSmall);
    for (auto _ : state) {
        if (TLIBCExec("/usr/bin/install", "-D", kSource, kInstalled, nullptr) != 0) {
            state.SkipWithError("install failed");
        }
    }
}

void RegisterAll() {
    static constexpr struct {
        const char *name;
        void (*run)(benchmark::State &);
        int changes;
    } kFamilies[] = {{"LargeCaller", Caller<kLarge>, 3},
                     {"SmallCaller", Caller<kSmall>, 3},
                     {"Programs", Programs, 3},
                     {"InstallD", InstallD, 1}};
    for (int change = 0; change < 3; ++change) {
        for (const auto &family : kFamilies) {
            if (change < family.changes) {
                benchmark::RegisterBenchmark(family.name, family.run)
                    ->Arg(change)
                    ->UseRealTime()
                    ->Repetitions(5)
                    ->Unit(benchmark::kMicrosecond);
            }
        }
    }
}

}  // namespace

int main(int argc, char **argv) {
    tavo::bench::RatioReporter reporter(
        {{"LargeCaller", "SmallCaller"}, {"LargeCaller", "Programs"}, {"LargeCaller", "InstallD"}});
    return tavo::bench::RunBenchmarks(argc, argv, RegisterAll, reporter);
}

// Asking who holds a port: the library, the programs that administrators use, and a floor that only
// reads the four tables of sockets and every descriptor link, and makes nothing of them.
//
// Arguments are how many sockets of the loopback interface there are and how many processes hold
// them, in equal shares. Most are TCP, as on an appliance that serves files: for a table of UDP
// sockets the kernel walks from its start at every read of a page, whoever reads. Times are
// processor time of this process and of those that it started.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "bench_main.h"
#include "tavoserviceconf.h"

namespace {

constexpr int kFirstPort = 10000;

// Opens a socket of a port of its own, every fifth for UDP, every second over IPv6; a TCP socket
// listens. -1 where it cannot be had.
int OpenSocket(int number) {
    const bool tcp = number % 5 != 0;
    const bool over_ipv6 = number % 2 == 1;
    const in_port_t port = htons(static_cast<in_port_t>(kFirstPort + number));
    sockaddr_in6 ipv6 = {};
    ipv6.sin6_family = AF_INET6;
    ipv6.sin6_port = port;
    ipv6.sin6_addr = in6addr_loopback;
    sockaddr_in ipv4 = {};
    ipv4.sin_family = AF_INET;
    ipv4.sin_port = port;
    ipv4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const auto *name = over_ipv6 ? reinterpret_cast<const sockaddr *>(&ipv6)
                                 : reinterpret_cast<const sockaddr *>(&ipv4);
    const int fd = socket(over_ipv6 ? AF_INET6 : AF_INET, tcp ? SOCK_STREAM : SOCK_DGRAM, 0);
    if (fd >= 0 && bind(fd, name, over_ipv6 ? sizeof(ipv6) : sizeof(ipv4)) == 0 &&
        (!tcp || listen(fd, 1) == 0)) {
        return fd;
    }
    if (fd >= 0) {
        close(fd);
    }
    return -1;
}

// Holds sockets first..last-1 until the benchmark ends; writes how many there are to `report`.
[[noreturn]] void Hold(int first, int last, int report) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    int held = 0;
    for (int number = first; number < last; ++number) {
        held += OpenSocket(number) >= 0 ? 1 : 0;
    }
    const bool told = write(report, &held, sizeof(held)) == sizeof(held);
    close(report);  // the reader is not to wait for those who never told
    if (!told) {
        _exit(1);
    }
    for (;;) {
        pause();
    }
}

// The processes that hold the sockets.
class Holders {
  public:
    ~Holders() { Stop(); }

    // Starts as many as there can be; how many sockets they hold.
    int Start(int sockets, int processes) {
        Stop();
        int report[2];
        if (pipe(report) != 0) {
            return 0;
        }
        for (int i = 0; i < processes; ++i) {
            const pid_t child = fork();
            if (child == 0) {
                Hold(sockets * i / processes, sockets * (i + 1) / processes, report[1]);
            }
            if (child > 0) {
                children_.push_back(child);
            }
        }
        close(report[1]);
        int total = 0;
        for (std::size_t i = 0; i < children_.size(); ++i) {
            int held = 0;
            total += read(report[0], &held, sizeof(held)) == sizeof(held) ? held : 0;
        }
        close(report[0]);
        return total;
    }

    std::size_t Count() const { return children_.size(); }

  private:
    void Stop() {
        for (const pid_t child : children_) {
            kill(child, SIGKILL);
        }
        for (const pid_t child : children_) {
            waitpid(child, nullptr, 0);
        }
        children_.clear();
    }

    std::vector<pid_t> children_;
};

// Benchmarks of equal arguments share what the first of them started.
int Prepare(benchmark::State &state) {
    static Holders holders;
    static std::pair<int, int> prepared;
    static int held = 0;
    const std::pair wanted(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    if (std::exchange(prepared, wanted) != wanted) {
        held = holders.Start(wanted.first, wanted.second);
    }
    state.SetLabel(std::to_string(held) + " sockets in " + std::to_string(holders.Count()) +
                   " processes");
    return held;
}

double ProcessorSeconds() {
    double seconds = 0;
    for (const int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        rusage usage;
        getrusage(who, &usage);
        for (const timeval &time : {usage.ru_utime, usage.ru_stime}) {
            seconds += static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
        }
    }
    return seconds;
}

template <typename Work>
void Measure(benchmark::State &state, Work work) {
    const int held = Prepare(state);
    for (auto _ : state) {
        const double start = ProcessorSeconds();
        if (!work(held)) {
            state.SkipWithError("not the right answer");
        }
        state.SetIterationTime(ProcessorSeconds() - start);
    }
}

// The whole question, for one port.
void Check(benchmark::State &state) {
    TLIBCSzList *ports = TLIBCSzListAlloc(1);
    TLIBCSzListPush(&ports, std::to_string(kFirstPort).c_str());
    Measure(state, [ports](int) {
        TLIBCDList *results =
            TAVORuntimePortConflictResultListAllocAndCheck(ports, TAVO_PROTO_BOTH);
        const int verdict = TAVORuntimeVerifyConflictPort(results, kFirstPort, TAVO_PROTO_BOTH);
        TAVORuntimePortConflictResultListFree(results);
        return verdict == 1;
    });
    TLIBCSzListFree(ports);
}

// The list of all that is held.
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

extern "C" char **environ;

// Runs a program, its output thrown away.
bool RunSilently(const std::vector<const char *> &command) {
    std::vector<char *> arguments;
    for (const char *word : command) {
        arguments.push_back(const_cast<char *>(word));
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    pid_t child = 0;
    int status = -1;
    if (posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ) == 0) {
        waitpid(child, &status, 0);
    }
    posix_spawn_file_actions_destroy(&actions);
    return status == 0;
}

void Ss(benchmark::State &state) {
    Measure(state, [](int) { return RunSilently({"ss", "-H", "-tuanp"}); });
}

void Lsof(benchmark::State &state) {
    Measure(state, [](int) { return RunSilently({"lsof", "-nP", "-i"}); });
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
    tavo::bench::RatioReporter reporter("Check", {"Fetch", "Floor", "Ss", "Lsof"});
    return tavo::bench::RunBenchmarks(argc, argv, RegisterAll, reporter);
}

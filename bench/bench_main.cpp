#include "bench_main.h"

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace tavo::bench {

int RunBenchmarks(int argc, char **argv, void (*register_benchmarks)(), RatioReporter &reporter) {
    // The benchmarks empty the service folders and open thousands of sockets, which must not happen
    // on a developer's machine.
    char host[64] = "";
    gethostname(host, sizeof(host) - 1);
    if (std::strcmp(host, "appliance") != 0) {
        std::fprintf(stderr, "%s runs in the private appliance only: ./dev bench\n", argv[0]);
        return 2;
    }
    // The heap keeps its pages between iterations, like that of a long-running back end; otherwise
    // most of the measured time would be memory allocation in the kernel.
    mallopt(M_TRIM_THRESHOLD, 1 << 28);
    mallopt(M_MMAP_THRESHOLD, 1 << 28);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    register_benchmarks();
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return 0;
}

void AllowManySockets() {
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace tavo::bench

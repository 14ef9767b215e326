#include "ratio_reporter.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace tavo::bench {
namespace {

double Median(std::vector<double> times) {
    const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
    std::nth_element(times.begin(), middle, times.end());
    return *middle;
}

double SecondsOfOneIteration(const benchmark::BenchmarkReporter::Run &run) {
    const double time =
        run.run_name.time_type.empty() ? run.GetAdjustedCPUTime() : run.GetAdjustedRealTime();
    return time / benchmark::GetTimeUnitMultiplier(run.time_unit);
}

}  // namespace

// Escape sequences for colours are for terminals only.
RatioReporter::RatioReporter(std::vector<Ratio> ratios)
    : ConsoleReporter(isatty(STDOUT_FILENO) != 0 ? OO_ColorTabular : OO_Tabular),
      ratios_(std::move(ratios)) {}

void RatioReporter::ReportRuns(const std::vector<Run> &runs) {
    ConsoleReporter::ReportRuns(runs);
    for (const Run &run : runs) {
        if (run.run_type != Run::RT_Iteration || run.error_occurred) {
            continue;
        }
        times_[run.run_name.function_name + "/" + run.run_name.args].push_back(
            SecondsOfOneIteration(run));
        if (std::find(arguments_.begin(), arguments_.end(), run.run_name.args) ==
            arguments_.end()) {
            arguments_.push_back(run.run_name.args);
        }
    }
}

void RatioReporter::Finalize() {
    ConsoleReporter::Finalize();
    std::printf("\n%-40s %12s  %-20s %12s %8s %6s\n", "SUBJECT", "MS", "PEER", "MS", "RATIO",
                "REACH");
    for (const std::string &arguments : arguments_) {
        PrintRatios(arguments);
    }
}

double RatioReporter::MedianOf(const std::string &family, const std::string &arguments) const {
    if (family == kOneSecond) {
        return 1;
    }
    const auto times = times_.find(family + "/" + arguments);
    return times == times_.end() ? 0 : Median(times->second);
}

void RatioReporter::PrintRatios(const std::string &arguments) const {
    for (const Ratio &ratio : ratios_) {
        const double subject = MedianOf(ratio.subject, arguments);
        const double peer = MedianOf(ratio.peer, arguments);
        if (subject <= 0 || peer <= 0) {
            continue;
        }
        char reach[16] = "-";
        if (ratio.reach > 0 && (ratio.reach_at.empty() || ratio.reach_at == arguments)) {
            std::snprintf(reach, sizeof(reach), "%.2f", ratio.reach);
        }
        std::printf("%-40s %12.3f  %-20s %12.3f %8.2f %6s\n",
                    (ratio.subject + "/" + arguments).c_str(), subject * 1e3, ratio.peer.c_str(),
                    peer * 1e3, subject / peer, reach);
    }
}

}  // namespace tavo::bench

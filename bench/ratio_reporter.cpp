#include "ratio_reporter.h"

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

}  // namespace

RatioReporter::RatioReporter(std::string subject, std::vector<std::string> peers)
    : subject_(std::move(subject)), peers_(std::move(peers)) {}

void RatioReporter::ReportRuns(const std::vector<Run> &runs) {
    ConsoleReporter::ReportRuns(runs);
    for (const Run &run : runs) {
        if (run.run_type != Run::RT_Iteration || run.error_occurred) {
            continue;
        }
        times_[run.run_name.function_name + "/" + run.run_name.args].push_back(
            run.run_name.time_type.empty() ? run.GetAdjustedCPUTime() : run.GetAdjustedRealTime());
        if (std::find(arguments_.begin(), arguments_.end(), run.run_name.args) ==
            arguments_.end()) {
            arguments_.push_back(run.run_name.args);
        }
    }
}

void RatioReporter::Finalize() {
    ConsoleReporter::Finalize();
    for (const std::string &arguments : arguments_) {
        const auto subject = times_.find(subject_ + "/" + arguments);
        for (const std::string &peer_name : peers_) {
            const auto peer = times_.find(peer_name + "/" + arguments);
            if (subject != times_.end() && peer != times_.end()) {
                std::printf("%s/%s takes %.2f of the time of %s\n", subject_.c_str(),
                            arguments.c_str(), Median(subject->second) / Median(peer->second),
                            peer_name.c_str());
            }
        }
    }
}

}  // namespace tavo::bench

// Shows, behind the ordinary table, how each benchmark compares with its peers.
#ifndef TAVO_BENCH_RATIO_REPORTER_H
#define TAVO_BENCH_RATIO_REPORTER_H

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace tavo::bench {

// Benchmarks are named FAMILY/ARGUMENTS. For every ARGUMENTS the median processor time of
// `subject`, or the time that it measured itself, is divided by that of each peer.
class RatioReporter : public benchmark::ConsoleReporter {
  public:
    RatioReporter(std::string subject, std::vector<std::string> peers);

    void ReportRuns(const std::vector<Run> &runs) override;
    void Finalize() override;

  private:
    std::string subject_;
    std::vector<std::string> peers_;
    std::vector<std::string> arguments_;                // in the order of their first report
    std::map<std::string, std::vector<double>> times_;  // by FAMILY/ARGUMENTS
};

}  // namespace tavo::bench

#endif

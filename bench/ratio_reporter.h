// Prints the ordinary table, then a table that compares each benchmark with its peers.
#ifndef TAVO_BENCH_RATIO_REPORTER_H
#define TAVO_BENCH_RATIO_REPORTER_H

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace tavo::bench {

// A peer that is a time limit, not a benchmark.
inline constexpr char kOneSecond[] = "one second";

// A comparison: the median time of `subject` is divided by that of `peer`, for all arguments that
// both have. The limit for the result, 0 for none, is printed next to it: for the arguments
// `reach_at`, or for all if that is empty.
struct Ratio {
    std::string subject;
    std::string peer;
    double reach = 0;
    std::string reach_at = {};
};

// Benchmarks are named FAMILY/ARGUMENTS. Times are processor times, or those that the benchmark
// measured itself.
class RatioReporter : public benchmark::ConsoleReporter {
  public:
    explicit RatioReporter(std::vector<Ratio> ratios);

    void ReportRuns(const std::vector<Run> &runs) override;
    void Finalize() override;

  private:
    // In seconds; 0 if nothing was measured.
    double MedianOf(const std::string &family, const std::string &arguments) const;
    void PrintRatios(const std::string &arguments) const;

    std::vector<Ratio> ratios_;
    std::vector<std::string> arguments_;                // in the order of their first report
    std::map<std::string, std::vector<double>> times_;  // by FAMILY/ARGUMENTS, in seconds
};

}  // namespace tavo::bench

#endif

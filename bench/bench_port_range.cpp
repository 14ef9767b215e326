// Port range sets compared with Boost.ICL's interval_set, which stores the same ranges in a
// balanced tree.
//
// The argument is the number of ranges: ascending, not touching each other, with gaps of
// alternately odd and even size. A benchmark frees what it allocates within the measured time.
#include <benchmark/benchmark.h>

#include <boost/icl/interval_set.hpp>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bench_main.h"
#include "tavoserviceconf.h"

namespace {

using Tree = boost::icl::interval_set<std::uint32_t>;
using Bounds = std::pair<std::uint32_t, std::uint32_t>;

struct Destroy {
    void operator()(TAVO_PORT_RANGE *set) const { TLIBPortRangeDestory(set); }
};
using Set = std::unique_ptr<TAVO_PORT_RANGE, Destroy>;

// This many ranges would need more ports than there are, but both peers accept any 32-bit value.
// Every third range is a single port.
std::vector<Bounds> Ranges(std::int64_t count, std::uint32_t first) {
    std::vector<Bounds> ranges;
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint32_t start = first + 12 * i;
        ranges.emplace_back(start, start + (i % 3 == 0 ? 0 : 7));
    }
    return ranges;
}

std::string Text(const std::vector<Bounds> &ranges) {
    std::string text;
    for (const auto &[start, end] : ranges) {
        text += (text.empty() ? "" : ",") + std::to_string(start);
        text += start == end ? "" : ":" + std::to_string(end);
    }
    return text;
}

Set Imported(const std::string &text) {
    Set set(TLIBPortRangeCreate());
    TLIBPortRangeImport(set.get(), text.c_str());
    return set;
}

Tree Built(const std::vector<Bounds> &ranges) {
    Tree tree;
    for (const auto &[start, end] : ranges) {
        tree += Tree::interval_type::closed(start, end);
    }
    return tree;
}

// Two sets whose ranges overlap each other and share most of their ports.
constexpr std::uint32_t kFirst = 1;
constexpr std::uint32_t kOtherFirst = 4;

void Import(benchmark::State &state) {
    const std::string text = Text(Ranges(state.range(0), kFirst));
    for (auto _ : state) {
        if (Imported(text)->nCount != state.range(0)) {
            state.SkipWithError("not every range was imported");
        }
    }
}

void BuildTree(benchmark::State &state) {
    const std::vector<Bounds> ranges = Ranges(state.range(0), kFirst);
    for (auto _ : state) {
        if (Built(ranges).iterative_size() != static_cast<std::size_t>(state.range(0))) {
            state.SkipWithError("not every range was added");
        }
    }
}

// The best case of the tree: the hint that each range belongs at the end.
void BuildTreeWithHint(benchmark::State &state) {
    const std::vector<Bounds> ranges = Ranges(state.range(0), kFirst);
    for (auto _ : state) {
        Tree tree;
        for (const auto &[start, end] : ranges) {
            tree.add(tree.end(), Tree::interval_type::closed(start, end));
        }
        benchmark::DoNotOptimize(tree);
    }
}

void Overlap(benchmark::State &state) {
    const Set a = Imported(Text(Ranges(state.range(0), kFirst)));
    const Set b = Imported(Text(Ranges(state.range(0), kOtherFirst)));
    for (auto _ : state) {
        const Set both(TLIBPortRangeCreate());
        if (TLIBPortRangeOverlap(a.get(), b.get(), both.get()) != 0 || both->nCount == 0) {
            state.SkipWithError("no overlap");
        }
    }
}

void OverlapTrees(benchmark::State &state) {
    const Tree a = Built(Ranges(state.range(0), kFirst));
    const Tree b = Built(Ranges(state.range(0), kOtherFirst));
    for (auto _ : state) {
        const Tree both = a & b;
        if (both.empty()) {
            state.SkipWithError("no overlap");
        }
    }
}

void Join(benchmark::State &state) {
    const Set a = Imported(Text(Ranges(state.range(0), kFirst)));
    const Set b = Imported(Text(Ranges(state.range(0), kOtherFirst)));
    for (auto _ : state) {
        const Set any(TLIBPortRangeCreate());
        if (TLIBPortRangeJoin(any.get(), a.get()) != 0 ||
            TLIBPortRangeJoin(any.get(), b.get()) != 0) {
            state.SkipWithError("not joined");
        }
    }
}

void JoinTrees(benchmark::State &state) {
    const Tree a = Built(Ranges(state.range(0), kFirst));
    const Tree b = Built(Ranges(state.range(0), kOtherFirst));
    for (auto _ : state) {
        Tree any = a;
        any += b;
        benchmark::DoNotOptimize(any);
    }
}

void Export(benchmark::State &state) {
    const Set set = Imported(Text(Ranges(state.range(0), kFirst)));
    for (auto _ : state) {
        char *text = TLIBPortRangeExport(set.get());
        benchmark::DoNotOptimize(text);
        TLIBCStrPut(text);
    }
}

// The same text, printed with one call of the C library per range.
void PrintWithStdio(benchmark::State &state) {
    const std::vector<Bounds> ranges = Ranges(state.range(0), kFirst);
    for (auto _ : state) {
        std::string text;
        char piece[32];
        for (const auto &[start, end] : ranges) {
            std::snprintf(piece, sizeof(piece), start == end ? ",%d" : ",%d:%d",
                          static_cast<int>(start), static_cast<int>(end));
            text += piece;
        }
        benchmark::DoNotOptimize(text);
    }
}

void RegisterAll() {
    static constexpr struct {
        const char *family;
        const char *job;
        void (*run)(benchmark::State &);
    } kBenchmarks[] = {{"Library", "import", Import},
                       {"IntervalSet", "import", BuildTree},
                       {"HintedIntervalSet", "import", BuildTreeWithHint},
                       {"Library", "overlap", Overlap},
                       {"IntervalSet", "overlap", OverlapTrees},
                       {"Library", "join", Join},
                       {"IntervalSet", "join", JoinTrees},
                       {"Library", "export", Export},
                       {"Stdio", "export", PrintWithStdio}};
    for (const auto &[family, job, run] : kBenchmarks) {
        benchmark::RegisterBenchmark(family, run)
            ->ArgName(job)
            ->Arg(1000)
            ->Arg(32768)
            ->Repetitions(5)
            ->Unit(benchmark::kMicrosecond);
    }
}

}  // namespace

int main(int argc, char **argv) {
    tavo::bench::RatioReporter reporter(
        {{"Library", "IntervalSet"}, {"Library", "HintedIntervalSet"}, {"Library", "Stdio"}});
    return tavo::bench::RunBenchmarks(argc, argv, RegisterAll, reporter);
}

// Compares sets with the simplest representation of ports: a table with a mark for each of the
// 65,536.
//
// The table also records which ranges Remove has cut: they have the type of a single port, and Join
// adds only that port.
#include <random>
#include <set>

#include "port_range_test.h"

namespace tavo::test {
namespace {

constexpr std::size_t kPorts = 65536;

class Table {
  public:
    void Add(std::size_t start, std::size_t end) {
        ports_.replace(start, end - start + 1, end - start + 1, kTaken);
        ForgetCuts(RunStart(start), RunEnd(end));
    }

    int Remove(std::size_t start, std::size_t end) {
        if (ports_.find(kTaken, start) == std::string::npos) {
            return -1;
        }
        if (ports_[start] == kTaken && RunStart(start) < start) {
            const std::size_t first = RunStart(start);
            cuts_.erase(first);
            if (RunEnd(start) == start) {
                Clear(first, start);
            }
        }
        const bool cut = end + 1 < kPorts && ports_[end] == kTaken && ports_[end + 1] == kTaken;
        Clear(start, end);
        if (cut) {
            cuts_.insert(end + 1);
        }
        return 0;
    }

    void Join(const Table &other) {
        for (const Node &node : other.Nodes()) {
            Add(node.start, node.type == 0 ? node.start : node.end);
        }
    }

    void AddOverlap(const Table &a, const Table &b) {
        Table both;
        for (std::size_t port = 0; port < kPorts; ++port) {
            both.ports_[port] = std::max(a.ports_[port], b.ports_[port]);
        }
        Join(both);
    }

    // The runs of taken ports, which are the nodes that a set must have.
    std::vector<Node> Nodes() const {
        std::vector<Node> nodes;
        for (std::size_t port = ports_.find(kTaken); port < kPorts;) {
            nodes.emplace_back(port, RunEnd(port));
            if (cuts_.count(port) != 0) {
                nodes.back().type = 0;
            }
            port = ports_.find(kTaken, RunEnd(port) + 1);
        }
        return nodes;
    }

  private:
    static constexpr char kFree = '.';
    static constexpr char kTaken = '#';
    static_assert(kTaken < kFree);  // the intersection takes the greater mark

    // The first and the last port of the run that contains a taken port.
    std::size_t RunStart(std::size_t port) const { return ports_.rfind(kFree, port) + 1; }
    std::size_t RunEnd(std::size_t port) const {
        return std::min(ports_.find(kFree, port), kPorts) - 1;
    }

    void Clear(std::size_t start, std::size_t end) {
        ports_.replace(start, end - start + 1, end - start + 1, kFree);
        ForgetCuts(start, end);
    }

    void ForgetCuts(std::size_t start, std::size_t end) {
        cuts_.erase(cuts_.lower_bound(start), cuts_.upper_bound(end));
    }

    std::string ports_ = std::string(kPorts, kFree);
    std::set<std::size_t> cuts_;  // starts of the ranges that Remove cut
};

class PortRangeTable : public PortRangeTest {
  protected:
    static constexpr std::size_t kSets = 3;

    std::uint32_t Random(std::uint32_t below) {
        return std::uniform_int_distribution<std::uint32_t>(0, below - 1)(engine_);
    }

    // Mostly short ranges in a small part of the table, so that they overlap, but also single
    // ports, and ranges anywhere.
    Node RandomRange() {
        const std::uint32_t ports = Random(4) == 0 ? kPorts : 2000;
        const std::uint32_t start = Random(2) == 0 ? Random(ports) : kPorts - 1 - Random(ports);
        const std::uint32_t length = Random(3) == 0 ? 1 : 1 + Random(Random(20) == 0 ? 5000 : 30);
        return {start, std::min<std::uint32_t>(start + length, kPorts) - 1};
    }

    void Add(std::size_t i) {
        const Node range = RandomRange();
        tables_[i].Add(range.start, range.end);
        ASSERT_EQ(
            range.type == 0 ? sets_[i].Add(range.start) : sets_[i].Add(range.start, range.end), 0);
    }

    void Remove(std::size_t i) {
        const Node range = RandomRange();
        const bool empty = sets_[i].Get()->pRanges == nullptr;
        ASSERT_EQ(sets_[i].Remove(range.start, range.end),
                  empty ? -1 : tables_[i].Remove(range.start, range.end));
    }

    void Join(std::size_t i) {
        const std::size_t source = Random(kSets);
        const std::vector<Node> before = sets_[source].Nodes();
        tables_[i].Join(Table(tables_[source]));
        ASSERT_EQ(TLIBPortRangeJoin(sets_[i].Get(), sets_[source].Get()), 0);
        if (source != i) {
            ASSERT_EQ(sets_[source].Nodes(), before);
        }
    }

    void Overlap(std::size_t i) {
        const std::size_t a = Random(kSets);
        const std::size_t b = Random(kSets);
        if (Random(4) == 0) {
            sets_[i] = Set();
            tables_[i] = Table();
        }
        tables_[i].AddOverlap(Table(tables_[a]), Table(tables_[b]));
        ASSERT_EQ(TLIBPortRangeOverlap(sets_[a].Get(), sets_[b].Get(), sets_[i].Get()), 0);
    }

    void Import(std::size_t i) {
        std::string text;
        for (std::uint32_t left = 1 + Random(8); left > 0; --left) {
            const Node range = RandomRange();
            tables_[i].Add(range.start, range.end);
            text += std::to_string(range.start);
            text += range.type == 0 ? "" : ":" + std::to_string(range.end);
            text += left == 1 ? "" : Random(3) == 0 ? " , " : ",";
        }
        ASSERT_EQ(TLIBPortRangeImport(sets_[i].Get(), text.c_str()), 0);
    }

    // A set that is exported and imported is unchanged, except for the types of cut ranges.
    void ExportAndImport(std::size_t i) {
        char *text = TLIBPortRangeExport(sets_[i].Get());
        ASSERT_EQ(text == nullptr, sets_[i].Get()->pRanges == nullptr);
        const std::vector<Node> before = sets_[i].Nodes();
        sets_[i] = Set();
        tables_[i] = Table();
        for (const Node &node : before) {
            tables_[i].Add(node.start, node.end);
        }
        if (text != nullptr) {
            ASSERT_EQ(TLIBPortRangeImport(sets_[i].Get(), text), 0);
        }
        TLIBCStrPut(text);
    }

    std::mt19937 engine_;
    Set sets_[kSets];
    Table tables_[kSets];
};

// Checks the guarantees of Add without the table.
void CheckInvariants(const std::vector<Node> &nodes) {
    for (std::size_t i = 1; i < nodes.size(); ++i) {
        ASSERT_LT(nodes[i - 1].end + 1, nodes[i].start);
    }
    for (const Node &node : nodes) {
        ASSERT_LE(node.start, node.end);
        ASSERT_LT(node.end, kPorts);
    }
}

TEST_F(PortRangeTable, HoldsTheSamePortsAfterAnyOperations) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    engine_.seed(seed);
    for (int step = 0; step < 40000; ++step) {
        const std::size_t i = Random(kSets);
        const std::uint32_t operation = Random(100);
        if (operation < 40) {
            Add(i);
        } else if (operation < 80) {
            Remove(i);
        } else if (operation < 85) {
            Join(i);
        } else if (operation < 90) {
            Overlap(i);
        } else if (operation < 95) {
            Import(i);
        } else {
            ExportAndImport(i);
        }
        ASSERT_FALSE(HasFatalFailure()) << "step " << step;
        const std::vector<Node> nodes = sets_[i].Nodes();
        ASSERT_EQ(nodes, tables_[i].Nodes()) << "step " << step;
        CheckInvariants(nodes);
        log_.Clear();
    }
}

}  // namespace
}  // namespace tavo::test

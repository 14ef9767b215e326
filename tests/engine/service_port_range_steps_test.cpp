// Compares sets with a step-by-step reference, in which each operation starts at the head and takes
// no shortcuts. Any 32-bit bounds are used, in any order, so that the sets reach every disorder
// that callers can cause.
#include <algorithm>
#include <random>

#include "port_range_test.h"

namespace tavo::test {
namespace {

using Plain = std::vector<Node>;

void PlainAdd(Plain &set, std::uint32_t start, std::uint32_t end) {
    auto at = set.begin();
    while (at != set.end() && at->end + 1 < start) {
        ++at;
    }
    if (at == set.end()) {
        set.emplace_back(start, end);
        return;
    }
    std::uint32_t first = std::min(at->start, start);
    if (end + 1 < at->start) {
        set.emplace(at, first, end);
        return;
    }
    do {
        end = std::max(end, at->end);
        at = set.erase(at);
    } while (at != set.end() && !(at->start > end + 1));
    set.emplace(at, first, end);
}

int PlainRemove(Plain &set, std::uint32_t start, std::uint32_t end) {
    auto at = std::find_if(set.begin(), set.end(), [&](const Node &n) { return n.end >= start; });
    if (at == set.end()) {
        return -1;
    }
    if (at->start < start && start < at->end) {
        at = set.emplace(at, at->start, start - 1) + 1;
    }
    while (at != set.end() && at->start <= end) {
        if (end < at->end) {
            *at = Node(end + 1, at->end, 0);
            ++at;
        } else {
            at = set.erase(at);
        }
    }
    return 0;
}

// Set and source must be different objects, here and below.
void PlainJoin(Plain &set, const Plain &source) {
    for (const Node &node : source) {
        PlainAdd(set, node.start, node.type == 0 ? node.start : node.end);
    }
}

void PlainOverlap(const Plain &a, const Plain &b, Plain &out) {
    auto other = b.begin();
    for (const Node &node : a) {
        while (other != b.end() && other->end < node.start) {
            ++other;
        }
        while (other != b.end() && other->start <= node.end) {
            PlainAdd(out, std::max(node.start, other->start), std::min(node.end, other->end));
            if (!(other->end < node.end)) {
                break;
            }
            ++other;
        }
    }
}

void PlainImport(Plain &set, const std::string &text) {
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t comma = std::min(text.find(',', begin), text.size());
        const std::string item = text.substr(begin, comma - begin);
        const std::size_t colon = item.find(':');
        const auto start = static_cast<std::uint32_t>(std::strtol(item.c_str(), nullptr, 10));
        const auto end =
            colon == std::string::npos
                ? start
                : static_cast<std::uint32_t>(std::strtol(item.c_str() + colon + 1, nullptr, 10));
        PlainAdd(set, start, end);
        begin = comma + 1;
    }
}

std::string PlainExport(const Plain &set) {
    std::string text;
    for (const Node &node : set) {
        char piece[32];
        snprintf(piece, sizeof(piece), node.start == node.end ? "%s%d" : "%s%d:%d",
                 text.empty() ? "" : ",", static_cast<int>(node.start), static_cast<int>(node.end));
        text += piece;
    }
    return text;
}

class PortRangeSteps : public PortRangeTest {
  protected:
    static constexpr std::size_t kSets = 3;

    std::uint32_t Random(std::uint32_t below) {
        return std::uniform_int_distribution<std::uint32_t>(0, below - 1)(engine_);
    }

    std::uint32_t RandomPort() {
        switch (Random(5)) {
            case 0:
                return kHighest - Random(20);
            case 1:
                return 65530 + Random(12);
            case 2:
                return static_cast<std::uint32_t>(engine_());
            default:
                return Random(60);
        }
    }

    Node RandomRange() {
        const std::uint32_t start = RandomPort();
        return {start, Random(4) == 0 ? RandomPort() : start + Random(6), Random(3) == 0 ? 0U : 1U};
    }

    std::string RandomText() {
        static constexpr const char *kPieces[] = {
            ",",        ",",          ",",           ",",          ":",   ":",
            " ",        "\t",         "\n",          "-",          "+",   "x",
            "0",        "7",          "42",          "65535",      "99",  "007",
            "00000000", "1234567890", "99999999999", "4294967296", "123", "18446744073"};
        std::string text;
        for (std::uint32_t left = Random(16); left > 0; --left) {
            text += kPieces[Random(std::size(kPieces))];
        }
        return text;
    }

    void Add(std::size_t i) {
        const Node range = RandomRange();
        TAVO_SERVICE_CONF_PORT port = {0, range.type, 0, range.start, range.end, nullptr};
        const std::uint32_t end = range.type == 0 ? range.start : range.end;
        PlainAdd(plain_[i], range.start, end);
        ASSERT_EQ(TLIBPortRangeAdd(sets_[i].Get(), &port), 0);
        ASSERT_EQ(port.nPortEnd, end);
    }

    void Remove(std::size_t i) {
        const Node range = RandomRange();
        ASSERT_EQ(sets_[i].Remove(range.start, range.end),
                  PlainRemove(plain_[i], range.start, range.end));
    }

    void Join(std::size_t i) {
        const std::size_t source = Random(kSets);
        PlainJoin(plain_[i], Plain(plain_[source]));
        ASSERT_EQ(TLIBPortRangeJoin(sets_[i].Get(), sets_[source].Get()), 0);
    }

    void Overlap(std::size_t i) {
        const std::size_t a = Random(kSets);
        const std::size_t b = Random(kSets);
        PlainOverlap(Plain(plain_[a]), Plain(plain_[b]), plain_[i]);
        ASSERT_EQ(TLIBPortRangeOverlap(sets_[a].Get(), sets_[b].Get(), sets_[i].Get()), 0);
    }

    void Import(std::size_t i) {
        const std::string text = RandomText();
        PlainImport(plain_[i], text);
        ASSERT_EQ(TLIBPortRangeImport(sets_[i].Get(), text.c_str()), 0) << text;
    }

    void Export(std::size_t i) {
        char *text = TLIBPortRangeExport(sets_[i].Get());
        const std::string printed = text == nullptr ? "" : text;
        TLIBCStrPut(text);
        ASSERT_EQ(printed, PlainExport(plain_[i]));
    }

    void Operate(std::size_t i) {
        switch (Random(7)) {
            case 0:
                return Join(i);
            case 1:
                return Overlap(i);
            case 2:
                return Import(i);
            case 3:
                return Export(i);
            case 4:
                return Remove(i);
            default:
                return Add(i);
        }
    }

    // Unordered sets grow when they are joined with themselves.
    void StartAgainWhenLarge(std::size_t i) {
        if (plain_[i].size() > 100) {
            sets_[i] = Set();
            plain_[i].clear();
        }
    }

    std::mt19937 engine_;
    Set sets_[kSets];
    Plain plain_[kSets];
};

TEST_F(PortRangeSteps, GiveTheSameNodesWhateverTheBounds) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    engine_.seed(seed);
    for (int step = 0; step < 60000; ++step) {
        const std::size_t i = Random(kSets);
        Operate(i);
        ASSERT_FALSE(HasFatalFailure()) << "step " << step;
        ASSERT_EQ(sets_[i].Nodes(), plain_[i]) << "step " << step;
        StartAgainWhenLarge(i);
        log_.Clear();
    }
}

}  // namespace
}  // namespace tavo::test

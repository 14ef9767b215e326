// Port ranges, declared ranges and candidates, compared with a table of all ports.
#include "ports/port_query.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bitset>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "engine/text_ranges.h"
#include "temporary_folder.h"

namespace tavo::test {

using namespace tool;

namespace {

using PortTable = std::bitset<kHighestPort + 1>;

PortTable TableOf(const PortRanges &ranges) {
    PortTable table;
    for (const PortRange &range : ranges) {
        for (std::uint32_t port = range.first; port <= range.last; ++port) {
            table.set(port);
        }
    }
    return table;
}

// Whether the ranges are ascending and do not touch each other.
bool IsSet(const PortRanges &ranges) {
    for (std::size_t i = 0; i < ranges.size(); ++i) {
        if (ranges[i].first > ranges[i].last ||
            (i > 0 && ranges[i].first <= ranges[i - 1].last + 1)) {
            return false;
        }
    }
    return true;
}

class RandomRanges {
  public:
    explicit RandomRanges(unsigned int seed) : random_(seed) {}

    // Short ranges close together, so that they overlap, and some anywhere.
    PortRanges Next() {
        PortRanges ranges(Below(12));
        for (PortRange &range : ranges) {
            range.first = Below(8) == 0 ? Below(65536) : 65400 + Below(100);
            range.last = std::min(range.first + Below(8), kHighestPort);
        }
        return ranges;
    }

  private:
    std::uint32_t Below(std::uint32_t limit) {
        return std::uniform_int_distribution<std::uint32_t>(0, limit - 1)(random_);
    }

    std::mt19937 random_;
};

TEST(PortRanges, AreWhatATableOfAllPortsSays) {
    const unsigned int seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    RandomRanges random(seed);
    for (int i = 0; i < 300; ++i) {
        const PortRanges a = Merged(random.Next());
        const PortRanges raw = random.Next();
        const PortRanges b = Merged(raw);
        ASSERT_TRUE(IsSet(b));
        ASSERT_EQ(TableOf(b), TableOf(raw));
        ASSERT_TRUE(IsSet(Without(a, b)));
        ASSERT_EQ(TableOf(Without(a, b)), TableOf(a) & ~TableOf(b));
        ASSERT_EQ(PortCount(a), TableOf(a).count());
        for (const PortRange &range : raw) {
            ASSERT_TRUE(IsSet(Overlap(a, range)));
            ASSERT_EQ(TableOf(Overlap(a, range)), TableOf(a) & TableOf({range}));
        }
    }
}

TEST(PortRanges, PrintAsPortLists) {
    EXPECT_EQ(PortsText(PortRange{80, 80}), "80");
    EXPECT_EQ(PortsText(PortRange{80, 81}), "80:81");
    EXPECT_EQ(PortsText(PortRanges{{80, 80}, {90, 95}}), "80,90:95");
    EXPECT_EQ(PortsText(PortRanges{}), "");
}

// ---- Declared texts

// Whether the text can be compared; `ranges` gets the ranges before the first invalid one in any
// case.
bool ReadDeclaredPorts(const char *text, PortRanges &ranges) {
    GrowingArray<Range> read;
    const int result = TextRanges(TAVO_HERE, text, kDeclaredRangeSeparator).ReadAll(read);
    for (const Range &range : read) {
        ranges.push_back(
            {static_cast<std::uint32_t>(range.low), static_cast<std::uint32_t>(range.high)});
    }
    return result == 0;
}

TEST(DeclaredText, IsReadAsTheLibraryComparesIt) {
    const std::pair<const char *, PortRanges> cases[] = {
        {"", {}},
        {"80", {{80, 80}}},
        {" 80 , 443 ", {{80, 80}, {443, 443}}},
        {"1000-2000", {{1000, 2000}}},
        {"2000-1000", {{1000, 2000}}},
        {"80,,443,", {{80, 80}, {443, 443}}},
    };
    for (const auto &[text, ranges] : cases) {
        PortRanges read;
        EXPECT_TRUE(ReadDeclaredPorts(text, read)) << text;
        EXPECT_EQ(read, ranges) << text;
    }
}

TEST(DeclaredText, IsRefusedWhereTheLibraryCannotCompareIt) {
    for (const char *text :
         {"x", "80,x", "80, ,443", "65536", "-80", "80-", "1-2-3", "1 - 2", "1000:2000", "-"}) {
        PortRanges read;
        EXPECT_FALSE(ReadDeclaredPorts(text, read)) << text;
    }
}

// ---- Candidates

TEST(PortCandidates, GiveTheNearestFirstAndTheLowerOfTwo) {
    const PortRanges ports = {{90, 95}, {100, 100}, {103, 110}};
    EXPECT_EQ(PortsText(NearestBlocks(ports, 5, 1, 100)), "100,103,104,95,105");
    EXPECT_EQ(NearestBlocks(ports, 99, 1, 100).size(), 15U);
    EXPECT_TRUE(NearestBlocks(ports, 0, 1, 100).empty());
}

TEST(PortCandidates, ReachBothEndsFromAnywhere) {
    for (const std::uint32_t near : {1U, 30000U, 65535U}) {
        EXPECT_EQ(NearestBlocks({{1, 1}, {65535, 65535}}, 3, 1, near).size(), 2U) << near;
    }
}

TEST(PortCandidates, GiveTheBlockThatStartsNearest) {
    const PortRanges ports = {{80, 90}, {99, 101}, {112, 120}};
    EXPECT_EQ(PortsText(NearestBlocks(ports, 1, 3, 100)), "99:101");
    EXPECT_EQ(PortsText(NearestBlocks(ports, 1, 4, 100)), "112:115");
    EXPECT_EQ(PortsText(NearestBlocks(ports, 1, 9, 100)), "112:120");
    EXPECT_EQ(PortsText(NearestBlocks(ports, 1, 10, 100)), "81:90");
    EXPECT_TRUE(NearestBlocks(ports, 1, 12, 100).empty());
}

TEST(PortCandidates, GiveNoBlockBeyondTheLastPort) {
    EXPECT_EQ(PortsText(NearestBlocks({{65530, 65535}}, 1, 6, 65535)), "65530:65535");
    EXPECT_TRUE(NearestBlocks({{65530, 65535}}, 1, 7, 65535).empty());
}

// Compared with a search through all ports.
TEST(PortCandidates, AreTheNearestOfAnySet) {
    std::mt19937 random(20261122);
    for (int round = 0; round < 50; ++round) {
        PortRanges ranges;
        for (int i = 0; i < 40; ++i) {
            const auto first = static_cast<std::uint32_t>(random() % 65500);
            ranges.push_back({first, first + static_cast<std::uint32_t>(random() % 30)});
        }
        const PortRanges set = Merged(std::move(ranges));
        const PortTable free = TableOf(set);
        const auto near = static_cast<std::uint32_t>(random() % (kHighestPort + 1));
        const std::size_t size = 1 + random() % 30;
        const auto distance = [near](std::uint32_t port) {
            return port < near ? near - port : port - near;
        };
        std::uint32_t nearest = kHighestPort + 1;
        for (std::uint32_t port = 0; port + size <= kHighestPort + 1; ++port) {
            std::size_t row = 0;
            while (row < size && free[port + row]) {
                ++row;
            }
            if (row == size && (nearest > kHighestPort || distance(port) < distance(nearest))) {
                nearest = port;
            }
        }
        const PortRanges block = NearestBlocks(set, 1, size, near);
        ASSERT_EQ(block.empty(), nearest > kHighestPort);
        if (!block.empty()) {
            EXPECT_EQ(block.front().first, nearest);
            EXPECT_EQ(PortCount(block), size);
        }
    }
}

// ---- The kernel's own range

TEST(EphemeralPorts, AreReadFromTheKernelsFile) {
    const TemporaryFolder folder;
    PortRange range{};
    EXPECT_EQ(ReadEphemeralPorts(folder.Write("range", "32768\t60999\n"), range), "");
    EXPECT_EQ(range, (PortRange{32768, 60999}));
    EXPECT_EQ(ReadEphemeralPorts(kEphemeralPorts, range), "");
}

TEST(EphemeralPorts, AreAProblemWhereTheyAreNotThere) {
    const TemporaryFolder folder;
    PortRange range = {7, 9};
    EXPECT_EQ(ReadEphemeralPorts(folder / "missing", range), "no such file or directory");
    for (const char *text : {"", "x", "1", "2 1", "1 65536", "-2 -1", "1 x"}) {
        EXPECT_EQ(ReadEphemeralPorts(folder.Write("range", text), range),
                  "does not contain a range of ports")
            << text;
    }
    EXPECT_EQ(range, (PortRange{7, 9}));
}

}  // namespace
}  // namespace tavo::test

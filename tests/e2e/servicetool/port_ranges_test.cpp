// Ports as ranges, as they are declared, and as candidates, against a table of all ports.
#include "ports/port_ranges.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bitset>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "ports/declared_text.h"
#include "ports/ephemeral_ports.h"
#include "ports/port_candidates.h"
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

// Ascending ranges of which none touches the next.
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

    // Short ranges in a narrow part of all ports, so that they meet, and some anywhere.
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
    const PortCandidates candidates(100, {{90, 95}, {100, 100}, {103, 110}});
    EXPECT_EQ(candidates.NearestPorts(5), (std::vector<std::uint32_t>{100, 103, 104, 95, 105}));
    EXPECT_EQ(candidates.NearestPorts(99).size(), 15U);
    EXPECT_TRUE(candidates.NearestPorts(0).empty());
}

TEST(PortCandidates, ReachBothEndsFromAnywhere) {
    for (const std::uint32_t near : {1U, 30000U, 65535U}) {
        const PortCandidates candidates(near, {{1, 1}, {65535, 65535}});
        EXPECT_EQ(candidates.NearestPorts(3).size(), 2U) << near;
    }
}

TEST(PortCandidates, AreNoMoreOnceTheyAreRemoved) {
    PortCandidates candidates(10, {{1, 20}});
    candidates.Remove({{5, 9}, {11, 20}});
    EXPECT_EQ(candidates.NearestPorts(3), (std::vector<std::uint32_t>{10, 4, 3}));
}

TEST(PortCandidates, GiveTheBlockThatStartsNearest) {
    const PortCandidates candidates(100, {{80, 90}, {99, 101}, {112, 120}});
    EXPECT_EQ(candidates.NearestBlock(3), (PortRange{99, 101}));
    EXPECT_EQ(candidates.NearestBlock(4), (PortRange{112, 115}));
    EXPECT_EQ(candidates.NearestBlock(9), (PortRange{112, 120}));
    EXPECT_EQ(candidates.NearestBlock(10), (PortRange{81, 90}));
    EXPECT_EQ(candidates.NearestBlock(12), std::nullopt);
}

TEST(PortCandidates, GiveNoBlockBeyondTheLastPort) {
    const PortCandidates candidates(65535, {{65530, 65535}});
    EXPECT_EQ(candidates.NearestBlock(6), (PortRange{65530, 65535}));
    EXPECT_EQ(candidates.NearestBlock(7), std::nullopt);
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
        EXPECT_EQ(ReadEphemeralPorts(folder.Write("range", text), range), "holds no range of ports")
            << text;
    }
    EXPECT_EQ(range, (PortRange{7, 9}));
}

}  // namespace
}  // namespace tavo::test

// Compares merged and indexed ranges with a search of all ports and ranges.
#include "engine/text_ranges.h"

#include <gmock/gmock.h>

#include <random>
#include <set>
#include <utility>
#include <vector>

#include "failing_allocation.h"

namespace tavo::test {
namespace {

std::vector<Range> RandomRanges(std::mt19937 &random, int count) {
    const auto below = [&random](int limit) {
        return std::uniform_int_distribution<int>(0, limit - 1)(random);
    };
    std::vector<Range> ranges;
    for (int i = 0; i < count; ++i) {
        const int low = below(60);
        ranges.push_back({low, low + (below(4) == 0 ? below(40) : below(3))});
    }
    return ranges;
}

TEST(MergeRanges, KeepsThePortsInAscendingRangesWithGaps) {
    std::mt19937 random(1);
    for (int round = 0; round < 500; ++round) {
        const std::vector<Range> ranges = RandomRanges(random, round % 12);
        std::set<int> ports;
        for (const Range &range : ranges) {
            for (int port = range.low; port <= range.high; ++port) {
                ports.insert(port);
            }
        }
        GrowingArray<Range> merged;
        ASSERT_TRUE(merged.AppendAll(ranges));
        MergeRanges(merged);
        std::vector<int> listed;
        for (const Range &range : merged) {
            ASSERT_TRUE(listed.empty() || listed.back() + 1 < range.low) << "round " << round;
            for (int port = range.low; port <= range.high; ++port) {
                listed.push_back(port);
            }
        }
        ASSERT_THAT(listed, testing::ElementsAreArray(ports)) << "round " << round;
    }
}

TEST(RangeIndex, FindsTheSameOverlapsAsASearchOfAllRanges) {
    std::mt19937 random(2);
    for (int round = 0; round < 200; ++round) {
        const std::vector<Range> ranges = RandomRanges(random, round % 12);
        RangeIndex index;
        for (std::size_t i = 0; i < ranges.size(); ++i) {
            ASSERT_TRUE(index.Add(ranges[i], i));
        }
        index.Sort();
        for (const Range &asked : RandomRanges(random, 40)) {
            std::vector<std::size_t> expected;
            for (std::size_t i = 0; i < ranges.size(); ++i) {
                if (ranges[i].low <= asked.high && asked.low <= ranges[i].high) {
                    expected.push_back(i);
                }
            }
            std::vector<std::size_t> found;
            index.ForEachOverlap(
                asked, [&found](const Range &, std::size_t number) { found.push_back(number); });
            ASSERT_THAT(found, testing::UnorderedElementsAreArray(expected))
                << asked.low << "-" << asked.high << " in round " << round;
            ASSERT_EQ(index.HasOverlap(asked), !expected.empty())
                << asked.low << "-" << asked.high << " in round " << round;
        }
    }
}

TEST(GrowingArray, KeepsTheItemsBeforeAFailedAppend) {
    const std::vector<int> items(40, 7);
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        GrowingArray<int> array;
        const bool appended = fail.During([&] { return array.AppendAll(items); });
        EXPECT_EQ(appended, !fail.Hit());
        EXPECT_EQ(array.Count() == items.size(), appended);
        EXPECT_EQ(std::count(array.begin(), array.end(), 7),
                  static_cast<std::ptrdiff_t>(array.Count()));
    });
    EXPECT_GT(allocations, 1);
}

}  // namespace
}  // namespace tavo::test

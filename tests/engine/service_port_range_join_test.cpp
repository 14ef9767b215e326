#include <random>

#include "port_range_test.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using PortRangeJoin = PortRangeTest;

TEST_F(PortRangeJoin, AddsEveryRange) {
    const Set target({{5, 6}, {50, 60}});
    const Set source({{1, 4}, {20, 20}, {55, 70}});
    EXPECT_EQ(TLIBPortRangeJoin(target.Get(), source.Get()), 0);
    EXPECT_THAT(target.Nodes(), ElementsAre(Node(1, 6), Node(20, 20), Node(50, 70)));
    EXPECT_THAT(source.Nodes(), ElementsAre(Node(1, 4), Node(20, 20), Node(55, 70)));
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PortRangeJoin, TakesEmptySets) {
    const Set target;
    const Set source({{1, 4}});
    const Set empty;
    EXPECT_EQ(TLIBPortRangeJoin(target.Get(), empty.Get()), 0);
    EXPECT_THAT(target.Nodes(), IsEmpty());
    EXPECT_EQ(TLIBPortRangeJoin(target.Get(), source.Get()), 0);
    EXPECT_EQ(TLIBPortRangeJoin(target.Get(), empty.Get()), 0);
    EXPECT_THAT(target.Nodes(), ElementsAre(Node(1, 4)));
    EXPECT_EQ(TLIBPortRangeJoin(target.Get(), target.Get()), 0);
    EXPECT_EQ(TLIBPortRangeJoin(empty.Get(), empty.Get()), 0);
    EXPECT_THAT(empty.Nodes(), IsEmpty());
}

// The entries of a caller's list of conflicts have this form.
TEST_F(PortRangeJoin, TakesPortsInAnyOrderAndFillsInSinglePortsOfItsOwnOnly) {
    const Set target;
    const Set source({{443, 0, 0}, {80, 90}, {22, 0, 0}, {85, 100}});
    EXPECT_EQ(TLIBPortRangeJoin(target.Get(), source.Get()), 0);
    EXPECT_THAT(target.Nodes(), ElementsAre(Node(22, 22), Node(80, 100), Node(443, 443)));
    EXPECT_THAT(source.Nodes(),
                ElementsAre(Node(443, 0, 0), Node(80, 90), Node(22, 0, 0), Node(85, 100)));
}

TEST_F(PortRangeJoin, GivesItsNodesNeitherDirectionNorProtocol) {
    const Set target;
    TAVO_SERVICE_CONF_PORT port = {1, 0, 3, 80, 0, nullptr};
    const TAVO_PORT_RANGE wrapper = {0, &port};
    EXPECT_EQ(TLIBPortRangeJoin(target.Get(), &wrapper), 0);
    EXPECT_THAT(target.Nodes(), ElementsAre(Node(80, 80)));
    EXPECT_EQ(Describe(port), "dst 80 protocol 3");
}

// Such a node has the type of a single port, and Add treats it as one.
TEST_F(PortRangeJoin, AddsTheFirstPortOnlyOfARangeThatRemoveCut) {
    const Set source({{10, 20}});
    source.Remove(12, 12);
    const Set target;
    EXPECT_EQ(TLIBPortRangeJoin(target.Get(), source.Get()), 0);
    EXPECT_THAT(target.Nodes(), ElementsAre(Node(10, 11), Node(13, 13)));
    EXPECT_THAT(source.Nodes(), ElementsAre(Node(10, 11), Node(13, 20, 0)));
}

TEST_F(PortRangeJoin, LeavesASetThatJoinsItselfAsItIs) {
    const Set set({{1, 4}, {6, 6}, {10, kHighest - 1}});
    EXPECT_EQ(TLIBPortRangeJoin(set.Get(), set.Get()), 0);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(1, 4), Node(6, 6), Node(10, kHighest - 1)));
}

TEST_F(PortRangeJoin, TidiesASetThatJoinsItself) {
    const Set set({{10, 14}, {10, 20}, {21, 30}, {40, 50, 0}});
    EXPECT_EQ(TLIBPortRangeJoin(set.Get(), set.Get()), 0);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(10, 30), Node(40, 50)));
}

TEST_F(PortRangeJoin, TakesEachRangeOfASetThatJoinsItselfOnce) {
    const Set set({{15, 5}, {20, 10}, {30, kHighest}});
    EXPECT_EQ(TLIBPortRangeJoin(set.Get(), set.Get()), 0);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(15, 5), Node(20, 10), Node(30, kHighest), Node(15, 5),
                                         Node(20, 10), Node(30, kHighest)));
}

TEST_F(PortRangeJoin, RejectsNull) {
    const Set set({{1, 5}});
    EXPECT_EQ(TLIBPortRangeJoin(nullptr, set.Get()), -1);
    EXPECT_EQ(TLIBPortRangeJoin(set.Get(), nullptr), -1);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(1, 5)));
    EXPECT_THAT(Messages(), ElementsAre("Bad parameters.", "Bad parameters."));
    EXPECT_EQ(TLIBCErrGet(), 0xD00U);
    EXPECT_THAT(Sources(),
                ElementsAre("service_port_range_join.cpp", "service_port_range_join.cpp"));
}

TEST_F(PortRangeJoin, KeepsWhatWasAddedBeforeMemoryRanOut) {
    const std::vector<Node> nodes = {{1, 4}, {20, 20}, {55, 70}};
    std::size_t nth = 0;
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        const Set target;
        const Set source(nodes);
        log_.Clear();
        const int result =
            fail.During([&] { return TLIBPortRangeJoin(target.Get(), source.Get()); });
        EXPECT_EQ(result, fail.Hit() ? -1 : 0);
        EXPECT_EQ(target.Nodes(), FirstOf(nodes, fail.Hit() ? nth : nodes.size()));
        EXPECT_EQ(source.Nodes(), nodes);
        nth = fail.Hit() ? nth + 1 : 0;
        if (fail.Hit()) {
            EXPECT_THAT(Messages(), ElementsAre("Out of memory", "Failed to TLIBPortRangeAdd()."));
            EXPECT_EQ(TLIBCErrGet(), 0x200U);
            EXPECT_THAT(Sources(),
                        ElementsAre("service_port_range_add.cpp", "service_port_range_join.cpp"));
        }
    });
    EXPECT_EQ(allocations, 3);
}

// Entries in any order give the same result as adding each one separately.
TEST_F(PortRangeJoin, AddsAListInAnyOrder) {
    const unsigned int seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto port = [&random] { return static_cast<std::uint32_t>(random() % 300); };
    for (int round = 0; round < 2000; ++round) {
        const Set joined;
        const Set added;
        std::vector<Node> nodes;
        for (int i = 0; i < 10; ++i) {
            const std::uint32_t start = port();
            EXPECT_EQ(joined.Add(start), 0);
            EXPECT_EQ(added.Add(start), 0);
        }
        for (int i = 0; i < 20; ++i) {
            const std::uint32_t start = port();
            // Some ranges have their end before their start; the order then matters.
            const std::uint32_t end = round % 4 == 0 ? port() : start + port() % 9;
            nodes.emplace_back(start, end);
            EXPECT_EQ(added.Add(start, end), 0);
        }
        const Set source(nodes);
        ASSERT_EQ(TLIBPortRangeJoin(joined.Get(), source.Get()), 0);
        ASSERT_EQ(joined.Nodes(), added.Nodes());
        ASSERT_EQ(source.Nodes(), nodes);
    }
}

TEST_F(PortRangeJoin, KeepsASetThatJoinsItselfWithoutMemory) {
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        const Set set({{1, 4}, {20, 20}});
        log_.Clear();
        const int result = fail.During([&] { return TLIBPortRangeJoin(set.Get(), set.Get()); });
        EXPECT_EQ(result, fail.Hit() ? -1 : 0);
        EXPECT_THAT(set.Nodes(), ElementsAre(Node(1, 4), Node(20, 20)));
        if (fail.Hit()) {
            EXPECT_EQ(Messages().back(), "Failed to TLIBPortRangeAdd().");
        }
    });
    EXPECT_EQ(allocations, 3);
}

}  // namespace
}  // namespace tavo::test

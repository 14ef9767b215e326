#include "port_range_test.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using PortRangeRemove = PortRangeTest;

TEST_F(PortRangeRemove, CutsAPortOutOfARange) {
    const Set set({{10, 20}});
    EXPECT_EQ(set.Remove(15, 15), 0);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(10, 14), Node(16, 20, 0)));
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PortRangeRemove, GivesTheLeftPieceItsTypeAndTheRightPieceThatOfASinglePort) {
    const Set set({{10, 20}});
    EXPECT_EQ(set.Remove(11, 12), 0);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(10, 10, 0), Node(13, 20, 0)));
    EXPECT_EQ(set.Remove(16, 17), 0);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(10, 10, 0), Node(13, 15, 1), Node(18, 20, 0)));
}

TEST_F(PortRangeRemove, CutsTheFrontOffARange) {
    const Set set({{10, 20}, {30, 40}});
    EXPECT_EQ(set.Remove(5, 12), 0);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(13, 20, 0), Node(30, 40)));
}

TEST_F(PortRangeRemove, CutsTheBackOffARange) {
    const Set set({{10, 20}, {30, 40}});
    EXPECT_EQ(set.Remove(15, 25), 0);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(10, 14), Node(30, 40)));
}

TEST_F(PortRangeRemove, TakesOutEveryRangeInBetween) {
    const Set set({{1, 2}, {10, 20}, {30, 30}, {40, 50}, {60, 70}});
    EXPECT_EQ(set.Remove(15, 45), 0);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(1, 2), Node(10, 14), Node(46, 50, 0), Node(60, 70)));
    EXPECT_EQ(set.Remove(0, kHighest), 0);
    EXPECT_THAT(set.Nodes(), IsEmpty());
}

TEST_F(PortRangeRemove, TakesOutARangeOfJustThesePorts) {
    const Set set({{10, 20}, {30, 30}});
    EXPECT_EQ(set.Remove(10, 20), 0);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(30, 30)));
    EXPECT_EQ(set.Remove(30, 30), 0);
    EXPECT_THAT(set.Nodes(), IsEmpty());
    EXPECT_EQ(set.Get()->pRanges, nullptr);
}

TEST_F(PortRangeRemove, TakesOutAWholeRangeThatEndsWhereTheRemovalStarts) {
    for (const std::uint32_t end : {20U, 25U}) {
        const Set set({{10, 20}, {30, 40}});
        EXPECT_EQ(set.Remove(20, end), 0);
        EXPECT_THAT(set.Nodes(), ElementsAre(Node(30, 40)));
    }
}

TEST_F(PortRangeRemove, ChangesNothingInAGap) {
    const Set set({{10, 20}, {30, 40}});
    EXPECT_EQ(set.Remove(5, 9), 0);
    EXPECT_EQ(set.Remove(21, 29), 0);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(10, 20), Node(30, 40)));
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PortRangeRemove, ReportsThatNoRangeEndsThereOrLater) {
    const Set set({{10, 20}});
    EXPECT_EQ(set.Remove(30, 30), -1);
    EXPECT_EQ(set.Remove(21, kHighest), -1);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(10, 20)));
    EXPECT_THAT(Messages(), ElementsAre("Can't find entry to remove in the list",
                                        "Can't find entry to remove in the list"));
    EXPECT_EQ(TLIBCErrGet(), 0xD00U);
    EXPECT_THAT(Sources(),
                ElementsAre("service_port_range_remove.cpp", "service_port_range_remove.cpp"));
}

TEST_F(PortRangeRemove, LeavesPortsTwiceWhenTheEndOfASinglePortIsNotFilledIn) {
    const Set set({{10, 20}});
    const TAVO_SERVICE_CONF_PORT port = {0, 0, 0, 15, 0, nullptr};
    EXPECT_EQ(TLIBPortRangeRemove(set.Get(), &port), 0);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(10, 14), Node(10, 20)));
    EXPECT_EQ(port.nPortEnd, 0U);
}

TEST_F(PortRangeRemove, TakesNothingOutForAPortThatIsNotFilledInAtTheEdgeOfARange) {
    for (const std::uint32_t start : {10U, 20U}) {
        const Set set({{10, 20}});
        EXPECT_EQ(set.Remove(start, 0), 0);
        EXPECT_THAT(set.Nodes(), ElementsAre(Node(10, 20)));
    }
}

TEST_F(PortRangeRemove, TakesBoundsInTheWrongOrderAsTheyAre) {
    const Set set({{10, 20}});
    EXPECT_EQ(set.Remove(15, 12), 0);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(10, 14), Node(13, 20, 0)));
}

TEST_F(PortRangeRemove, ContinuesAfterAPieceThatItKept) {
    const Set set({{10, 20}, {10, 30}});
    EXPECT_EQ(set.Remove(5, 15), 0);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(16, 20, 0), Node(16, 30, 0)));
}

TEST_F(PortRangeRemove, ReachesTheFirstAndTheLastValue) {
    const Set set({{0, kHighest}});
    EXPECT_EQ(set.Remove(0, 0), 0);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(1, kHighest, 0)));
    EXPECT_EQ(set.Remove(kHighest - 1, kHighest), 0);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(1, kHighest - 2)));
}

TEST_F(PortRangeRemove, TakesANodeOfTheSetItself) {
    const Set set({{1, 5}, {10, 20}});
    EXPECT_EQ(TLIBPortRangeRemove(set.Get(), set.Get()->pRanges), 0);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(10, 20)));
}

TEST_F(PortRangeRemove, RejectsNullAndAnEmptySet) {
    const Set set({{10, 20}});
    const Set empty;
    const TAVO_SERVICE_CONF_PORT port = {0, 0, 0, 15, 15, nullptr};
    EXPECT_EQ(TLIBPortRangeRemove(nullptr, &port), -1);
    EXPECT_EQ(TLIBPortRangeRemove(set.Get(), nullptr), -1);
    EXPECT_EQ(TLIBPortRangeRemove(empty.Get(), &port), -1);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(10, 20)));
    EXPECT_THAT(Messages(), ElementsAre("Bad parameters.", "Bad parameters.", "Bad parameters."));
    EXPECT_EQ(TLIBCErrGet(), 0xD00U);
}

TEST_F(PortRangeRemove, KeepsTheSetWholeWithoutMemory) {
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        const Set set({{10, 20}, {30, 40}});
        log_.Clear();
        const int result = fail.During([&] { return set.Remove(15, 35); });
        const std::vector<Node> nodes = set.Nodes();
        if (!fail.Hit()) {
            EXPECT_EQ(result, 0);
            EXPECT_THAT(nodes, ElementsAre(Node(10, 14), Node(36, 40, 0)));
            return;
        }
        EXPECT_EQ(result, -1);
        EXPECT_THAT(Messages(), ElementsAre("Failed to memory allocation."));
        EXPECT_EQ(TLIBCErrGet(), 0x200U);
        EXPECT_THAT(Sources(), ElementsAre("service_port_range_remove.cpp"));
        EXPECT_THAT(nodes, ElementsAre(Node(10, 20), Node(30, 40)));
    });
    EXPECT_EQ(allocations, 2);
}

TEST_F(PortRangeRemove, KeepsEveryRangeInBetweenWithoutMemory) {
    const std::vector<Node> before = {{10, 20}, {30, 40}, {50, 50}, {60, 70}};
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        const Set set(before);
        const int result = fail.During([&] { return set.Remove(12, 65); });
        EXPECT_EQ(result, fail.Hit() ? -1 : 0);
        EXPECT_EQ(set.Nodes(), fail.Hit() ? before : std::vector<Node>({{10, 11}, {66, 70, 0}}));
    });
    EXPECT_EQ(allocations, 2);
}

}  // namespace
}  // namespace tavo::test

#include "port_range_test.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using PortRangeCreate = PortRangeTest;
using PortRangeAdd = PortRangeTest;

TEST_F(PortRangeCreate, GivesAnEmptySet) {
    const Set set;
    EXPECT_EQ(set.Get()->nCount, 0);
    EXPECT_EQ(set.Get()->pRanges, nullptr);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PortRangeCreate, GivesNullWithoutMemory) {
    FailingAllocation fail(1, FailingAllocation::Mode::kOnlyNth);
    EXPECT_EQ(fail.During(TLIBPortRangeCreate), nullptr);
    EXPECT_TRUE(fail.Hit());
    EXPECT_EQ(ErrorState(), "0x200 service_port_range_add.cpp");
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PortRangeCreate, DestroyTakesNullAndSetsOfNodesThatTheCallerBuilt) {
    TLIBPortRangeDestory(nullptr);
    const Set set({{1, 5}, {7, 7}});
}

TEST_F(PortRangeCreate, BeginsASetWhoseChangesRecordNoError) {
    const Set set;
    const Set out;
    EXPECT_EQ(TLIBPortRangeImport(set.Get(), "21, 80:90"), 0);
    EXPECT_EQ(set.Add(443), 0);
    EXPECT_EQ(set.Remove(85, 85), 0);
    EXPECT_EQ(TLIBPortRangeJoin(out.Get(), set.Get()), 0);
    EXPECT_EQ(TLIBPortRangeOverlap(set.Get(), out.Get(), out.Get()), 0);
    TLIBCStrPut(TLIBPortRangeExport(out.Get()));
    EXPECT_EQ(TLIBPortRangeExport(Set().Get()), nullptr);
    EXPECT_EQ(ErrorState(), "0x0 ");
}

TEST_F(PortRangeAdd, KeepsRangesInOrder) {
    const Set set;
    EXPECT_EQ(set.Add(443), 0);
    EXPECT_EQ(set.Add(6000, 6010), 0);
    EXPECT_EQ(set.Add(21), 0);
    EXPECT_EQ(set.Add(1024, 1100), 0);
    EXPECT_THAT(set.Nodes(),
                ElementsAre(Node(21, 21), Node(443, 443), Node(1024, 1100), Node(6000, 6010)));
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PortRangeAdd, FillsInTheEndOfASinglePort) {
    const Set set;
    TAVO_SERVICE_CONF_PORT port = {1, 0, 3, 80, 0, nullptr};
    EXPECT_EQ(TLIBPortRangeAdd(set.Get(), &port), 0);
    EXPECT_EQ(port.nPortEnd, 80U);
    port.nPortEnd = 90;
    EXPECT_EQ(TLIBPortRangeAdd(set.Get(), &port), 0);
    EXPECT_EQ(port.nPortEnd, 80U);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(80, 80)));
}

TEST_F(PortRangeAdd, ReadsNothingButTypeAndPortsAndKeepsTheRestOfTheRecord) {
    const Set set;
    TAVO_SERVICE_CONF_PORT elsewhere = {};
    TAVO_SERVICE_CONF_PORT port = {1, 1, 3, 80, 90, &elsewhere};
    EXPECT_EQ(TLIBPortRangeAdd(set.Get(), &port), 0);
    EXPECT_EQ(Describe(port), "dst 80:90 protocol 3");
    EXPECT_EQ(port.pNext, &elsewhere);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(80, 90)));
}

TEST_F(PortRangeAdd, TakesEveryTypeButThatOfASinglePortForARange) {
    const Set set;
    for (const std::uint32_t type : {1U, 2U, kHighest}) {
        TAVO_SERVICE_CONF_PORT port = {0, type, 0, 80, 80 + type, nullptr};
        EXPECT_EQ(TLIBPortRangeAdd(set.Get(), &port), 0);
    }
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(80, 82)));
}

TEST_F(PortRangeAdd, MakesTheTypeOfANodeFromItsPorts) {
    const Set set;
    EXPECT_EQ(set.Add(5, 5), 0);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(5, 5, 0)));
    EXPECT_EQ(set.Add(6), 0);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(5, 6, 1)));
}

TEST_F(PortRangeAdd, MakesNeighboursOne) {
    const Set set;
    set.Add(80);
    set.Add(81);
    set.Add(79);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(79, 81)));
}

TEST_F(PortRangeAdd, MakesOverlappingRangesOne) {
    const Set set;
    set.Add(100, 200);
    set.Add(150, 300);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(100, 300)));
    set.Add(50, 120);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(50, 300)));
    set.Add(60, 70);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(50, 300)));
}

TEST_F(PortRangeAdd, KeepsRangesApartThatAreAPortApart) {
    const Set set;
    set.Add(1, 5);
    set.Add(7, 9);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(1, 5), Node(7, 9)));
    set.Add(6);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(1, 9)));
}

TEST_F(PortRangeAdd, TakesInEveryRangeThatItReaches) {
    const Set set({{1, 2}, {10, 12}, {20, 20}, {30, 40}, {42, 50}, {60, 61}});
    set.Add(11, 41);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(1, 2), Node(10, 50), Node(60, 61)));
    set.Add(0, 65535);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(0, 65535)));
}

TEST_F(PortRangeAdd, TakesAReversedRangeAsItIs) {
    const Set set;
    set.Add(15, 5);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(15, 5)));
    const Set before({{10, 20}});
    before.Add(15, 5);
    EXPECT_THAT(before.Nodes(), ElementsAre(Node(10, 5), Node(10, 20)));
    const Set touching({{10, 20}});
    touching.Add(15, 9);
    EXPECT_THAT(touching.Nodes(), ElementsAre(Node(10, 20)));
}

TEST_F(PortRangeAdd, TakesAny32BitValue) {
    const Set set;
    set.Add(65536, 70000);
    set.Add(65535);
    set.Add(kHighest - 1);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(65535, 70000), Node(kHighest - 1, kHighest - 1)));
}

TEST_F(PortRangeAdd, PutsARangeAfterOneThatEndsAtTheHighestValue) {
    const Set set({{10, kHighest}});
    set.Add(20);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(10, kHighest), Node(20, 20)));
    const Set from_zero({{10, kHighest}});
    from_zero.Add(0);
    EXPECT_THAT(from_zero.Nodes(), ElementsAre(Node(0, 0), Node(10, kHighest)));
}

TEST_F(PortRangeAdd, ReachesNothingAfterTheHighestValue) {
    const Set set({{10, 20}});
    set.Add(3, kHighest);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(3, kHighest), Node(10, 20)));
    const Set from_zero({{0, 20}});
    from_zero.Add(3, kHighest);
    EXPECT_THAT(from_zero.Nodes(), ElementsAre(Node(0, kHighest)));
}

TEST_F(PortRangeAdd, TakesANodeOfTheSetItself) {
    const Set set({{1, 5}, {6, 9}});
    EXPECT_EQ(TLIBPortRangeAdd(set.Get(), set.Get()->pRanges), 0);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(1, 9)));
}

TEST_F(PortRangeAdd, RejectsNull) {
    const Set set({{1, 5}});
    TAVO_SERVICE_CONF_PORT port = {0, 0, 0, 80, 7, nullptr};
    EXPECT_EQ(TLIBPortRangeAdd(nullptr, &port), -1);
    EXPECT_EQ(port.nPortEnd, 7U);
    EXPECT_EQ(TLIBPortRangeAdd(set.Get(), nullptr), -1);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(1, 5)));
    EXPECT_THAT(Messages(), ElementsAre("Bad parameters.", "Bad parameters."));
    EXPECT_EQ(TLIBCErrGet(), 0xD00U);
    EXPECT_THAT(Sources(), ElementsAre("service_port_range_add.cpp", "service_port_range_add.cpp"));
}

// The range is added after the others, before them, or merged with them.
TEST_F(PortRangeAdd, LeavesTheSetAsItWasWithoutMemory) {
    for (const std::uint32_t start : {80U, 1U, 12U}) {
        const Set set({{10, 20}});
        TAVO_SERVICE_CONF_PORT port = {0, 0, 0, start, 0, nullptr};
        log_.Clear();
        FailingAllocation fail(1, FailingAllocation::Mode::kOnlyNth);
        EXPECT_EQ(fail.During([&] { return TLIBPortRangeAdd(set.Get(), &port); }), -1);
        EXPECT_TRUE(fail.Hit());
        EXPECT_THAT(set.Nodes(), ElementsAre(Node(10, 20)));
        EXPECT_EQ(port.nPortEnd, start);
        EXPECT_THAT(Messages(), ElementsAre("Out of memory"));
        EXPECT_EQ(TLIBCErrGet(), 0x200U);
        EXPECT_THAT(Sources(), ElementsAre("service_port_range_add.cpp"));
    }
}

}  // namespace
}  // namespace tavo::test

#include "port_range_test.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PortRangeOverlap : public PortRangeTest {
  protected:
    // The overlap of both sets; their order must not matter.
    static std::vector<Node> Common(const Set &a, const Set &b) {
        const std::vector<Node> a_before = a.Nodes();
        const std::vector<Node> b_before = b.Nodes();
        const Set common;
        const Set the_same;
        EXPECT_EQ(TLIBPortRangeOverlap(a.Get(), b.Get(), common.Get()), 0);
        EXPECT_EQ(TLIBPortRangeOverlap(b.Get(), a.Get(), the_same.Get()), 0);
        EXPECT_EQ(common.Nodes(), the_same.Nodes());
        EXPECT_EQ(a.Nodes(), a_before);
        EXPECT_EQ(b.Nodes(), b_before);
        return common.Nodes();
    }
};

TEST_F(PortRangeOverlap, FindsWhatBothHave) {
    EXPECT_THAT(Common(Set({{1, 100}}), Set({{50, 60}, {90, 200}})),
                ElementsAre(Node(50, 60), Node(90, 100)));
    EXPECT_THAT(Common(Set({{10, 20}, {30, 40}, {50, 60}}), Set({{15, 35}, {60, 70}})),
                ElementsAre(Node(15, 20), Node(30, 35), Node(60, 60)));
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PortRangeOverlap, FindsPortsAtTheEdges) {
    EXPECT_THAT(Common(Set({{0, 5}, {kHighest, kHighest}}), Set({{5, 9}, {20, kHighest}})),
                ElementsAre(Node(5, 5), Node(kHighest, kHighest)));
    EXPECT_THAT(Common(Set({{10, 20}}), Set({{10, 20}})), ElementsAre(Node(10, 20)));
}

TEST_F(PortRangeOverlap, FindsNothingInSetsThatOnlyTouch) {
    EXPECT_THAT(Common(Set({{1, 5}, {10, 15}}), Set({{6, 9}, {16, 20}})), IsEmpty());
}

TEST_F(PortRangeOverlap, FindsNothingInAnEmptySet) {
    EXPECT_THAT(Common(Set(), Set({{1, 5}})), IsEmpty());
    EXPECT_THAT(Common(Set(), Set()), IsEmpty());
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PortRangeOverlap, AddsToWhatIsThere) {
    const Set out({{1, 9}, {100, 110}});
    const Set a({{5, 50}});
    const Set b({{10, 20}, {40, 105}});
    EXPECT_EQ(TLIBPortRangeOverlap(a.Get(), b.Get(), out.Get()), 0);
    EXPECT_THAT(out.Nodes(), ElementsAre(Node(1, 20), Node(40, 50), Node(100, 110)));
}

TEST_F(PortRangeOverlap, LooksAtPortsAndNotAtTypes) {
    EXPECT_THAT(Common(Set({{10, 20, 0}}), Set({{5, 30, 0}})), ElementsAre(Node(10, 20)));
}

TEST_F(PortRangeOverlap, MakesPiecesOneThatItFindsTwice) {
    const Set a({{10, 14}, {10, 20}});
    const Set b({{12, 30}});
    const Set out;
    EXPECT_EQ(TLIBPortRangeOverlap(a.Get(), b.Get(), out.Get()), 0);
    EXPECT_THAT(out.Nodes(), ElementsAre(Node(12, 20)));
}

TEST_F(PortRangeOverlap, AddsToEitherOfTheTwo) {
    const Set a({{1, 9}, {20, 30}});
    const Set b({{5, 25}});
    EXPECT_EQ(TLIBPortRangeOverlap(a.Get(), b.Get(), a.Get()), 0);
    EXPECT_THAT(a.Nodes(), ElementsAre(Node(1, 9), Node(20, 30)));
    EXPECT_EQ(TLIBPortRangeOverlap(a.Get(), b.Get(), b.Get()), 0);
    EXPECT_THAT(b.Nodes(), ElementsAre(Node(5, 25)));
    EXPECT_EQ(TLIBPortRangeOverlap(a.Get(), a.Get(), a.Get()), 0);
    EXPECT_THAT(a.Nodes(), ElementsAre(Node(1, 9), Node(20, 30)));
}

TEST_F(PortRangeOverlap, AddsToASetOutOfOrderThatIsOneOfTheTwo) {
    const Set set({{10, 14}, {10, 20}, {21, 30}, {40, 35}});
    EXPECT_EQ(TLIBPortRangeOverlap(set.Get(), set.Get(), set.Get()), 0);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(10, 30), Node(40, 35)));
}

TEST_F(PortRangeOverlap, RejectsNull) {
    const Set a({{1, 5}});
    const Set out({{80, 80}});
    EXPECT_EQ(TLIBPortRangeOverlap(nullptr, a.Get(), out.Get()), -1);
    EXPECT_EQ(TLIBPortRangeOverlap(a.Get(), nullptr, out.Get()), -1);
    EXPECT_EQ(TLIBPortRangeOverlap(a.Get(), a.Get(), nullptr), -1);
    EXPECT_THAT(out.Nodes(), ElementsAre(Node(80, 80)));
    EXPECT_THAT(Messages(), ElementsAre("Bad parameters.", "Bad parameters.", "Bad parameters."));
    EXPECT_EQ(TLIBCErrGet(), 0xD00U);
    EXPECT_EQ(Sources()[0], "service_port_range_overlap.cpp");
}

TEST_F(PortRangeOverlap, KeepsWhatWasAddedBeforeMemoryRanOut) {
    const std::vector<Node> pieces = {{50, 60}, {90, 100}};
    std::size_t nth = 0;
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        const Set a({{1, 100}});
        const Set b({{50, 60}, {90, 200}});
        const Set out;
        log_.Clear();
        ++nth;
        const int result =
            fail.During([&] { return TLIBPortRangeOverlap(a.Get(), b.Get(), out.Get()); });
        EXPECT_EQ(result, fail.Hit() ? -1 : 0);
        if (!fail.Hit()) {
            EXPECT_EQ(out.Nodes(), pieces);
            nth = 0;
        } else if (nth == 1) {
            EXPECT_THAT(out.Nodes(), IsEmpty());
            EXPECT_THAT(Messages(), ElementsAre("Failed to memory allocation."));
            EXPECT_EQ(TLIBCErrGet(), 0x200U);
            EXPECT_THAT(Sources(), ElementsAre("service_port_range_overlap.cpp"));
        } else {
            EXPECT_EQ(out.Nodes(), FirstOf(pieces, nth - 2));
            EXPECT_THAT(Messages(), ElementsAre("Out of memory", "Failed to TLIBPortRangeAdd()."));
            EXPECT_EQ(TLIBCErrGet(), 0x200U);
            EXPECT_EQ(Sources()[1], "service_port_range_overlap.cpp");
        }
    });
    EXPECT_EQ(allocations, 3);
}

// The array for the pieces grows more than once.
TEST_F(PortRangeOverlap, KeepsEverySetWholeWhereverMemoryRunsOut) {
    std::vector<Node> nodes;
    for (std::uint32_t start = 0; start < 1000; start += 10) {
        nodes.emplace_back(start, start + 4);
    }
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        const Set a(nodes);
        const Set b({{0, 1000}});
        const Set out;
        const int result =
            fail.During([&] { return TLIBPortRangeOverlap(a.Get(), b.Get(), out.Get()); });
        EXPECT_EQ(result, fail.Hit() ? -1 : 0);
        const std::vector<Node> added = out.Nodes();
        EXPECT_EQ(added, FirstOf(nodes, added.size()));
        EXPECT_EQ(added.size() == nodes.size(), !fail.Hit());
    });
    EXPECT_GT(allocations, static_cast<int>(nodes.size()) + 1);
}

}  // namespace
}  // namespace tavo::test

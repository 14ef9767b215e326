#include "port_range_test.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PortRangeImport : public PortRangeTest {
  protected:
    static std::vector<Node> Import(const char *text) {
        const Set set;
        EXPECT_EQ(TLIBPortRangeImport(set.Get(), text), 0) << text;
        return set.Nodes();
    }
};

TEST_F(PortRangeImport, ReadsPortsAndRanges) {
    EXPECT_THAT(Import("21,1024:1100"), ElementsAre(Node(21, 21), Node(1024, 1100)));
    EXPECT_THAT(Import("1024:1100,21"), ElementsAre(Node(21, 21), Node(1024, 1100)));
    EXPECT_THAT(Import("80,81,79,100:200,150:300"), ElementsAre(Node(79, 81), Node(100, 300)));
    EXPECT_THAT(Import("5:5"), ElementsAre(Node(5, 5)));
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PortRangeImport, AddsToWhatIsThere) {
    const Set set({{1, 5}, {90, 95}});
    EXPECT_EQ(TLIBPortRangeImport(set.Get(), "6,80:90"), 0);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(1, 6), Node(80, 95)));
}

TEST_F(PortRangeImport, LeavesTheTextAlone) {
    char text[] = " 21 , 1024:1100 ";
    Import(text);
    EXPECT_STREQ(text, " 21 , 1024:1100 ");
}

TEST_F(PortRangeImport, PassesOverBlanksAroundItemsAndNumbers) {
    EXPECT_THAT(Import(" 21\t,\n1024 : 1100 "), ElementsAre(Node(21, 21), Node(1024, 1100)));
}

TEST_F(PortRangeImport, CutsAtCommasOnly) {
    EXPECT_THAT(Import("80 443"), ElementsAre(Node(80, 80)));
    EXPECT_THAT(Import("80;443"), ElementsAre(Node(80, 80)));
    EXPECT_THAT(Import("80-443"), ElementsAre(Node(80, 80)));
}

TEST_F(PortRangeImport, TakesItemsWithoutANumberForPortZero) {
    for (const char *text :
         {"", " ", "http", "x80", ":", ",", "0,", ",,,", "-", "0:", ":0", "- 1"}) {
        EXPECT_THAT(Import(text), ElementsAre(Node(0, 0))) << text;
    }
    EXPECT_THAT(Import("80,"), ElementsAre(Node(0, 0), Node(80, 80)));
    EXPECT_THAT(Import(",80"), ElementsAre(Node(0, 0), Node(80, 80)));
    EXPECT_THAT(Import("80,,90"), ElementsAre(Node(0, 0), Node(80, 80), Node(90, 90)));
    EXPECT_THAT(Import(":80"), ElementsAre(Node(0, 80)));
}

TEST_F(PortRangeImport, ReadsWhatStrtolReads) {
    EXPECT_THAT(Import("0080"), ElementsAre(Node(80, 80)));
    EXPECT_THAT(Import("+80"), ElementsAre(Node(80, 80)));
    EXPECT_THAT(Import("80tcp"), ElementsAre(Node(80, 80)));
    EXPECT_THAT(Import("80tcp:90udp"), ElementsAre(Node(80, 90)));
    EXPECT_THAT(Import("0x50"), ElementsAre(Node(0, 0)));
    EXPECT_THAT(Import("1:2:3"), ElementsAre(Node(1, 2)));
    EXPECT_THAT(Import("000000000000000000000000080:0000000000000000000000000090"),
                ElementsAre(Node(80, 90)));
}

TEST_F(PortRangeImport, TakesTheLow32BitsOfANumber) {
    EXPECT_THAT(Import("65536"), ElementsAre(Node(65536, 65536)));
    EXPECT_THAT(Import("999999999"), ElementsAre(Node(999999999, 999999999)));
    EXPECT_THAT(Import("4294967295"), ElementsAre(Node(kHighest, kHighest)));
    EXPECT_THAT(Import("4294967296"), ElementsAre(Node(0, 0)));
    EXPECT_THAT(Import("4294967376:4294967386"), ElementsAre(Node(80, 90)));
    EXPECT_THAT(Import("-1"), ElementsAre(Node(kHighest, kHighest)));
    EXPECT_THAT(Import("5:-1"), ElementsAre(Node(5, kHighest)));
    EXPECT_THAT(Import("99999999999999999999"), ElementsAre(Node(kHighest, kHighest)));
    EXPECT_THAT(Import("-99999999999999999999"), ElementsAre(Node(0, 0)));
}

TEST_F(PortRangeImport, TakesAReversedRangeAsItIs) {
    EXPECT_THAT(Import("1000:999"), ElementsAre(Node(1000, 999)));
    EXPECT_THAT(Import("10:20,15:5"), ElementsAre(Node(10, 5), Node(10, 20)));
}

TEST_F(PortRangeImport, ReadsThousandsOfItems) {
    std::string text;
    std::string backwards;
    for (int port = 1; port <= 10000; ++port) {
        text += (port == 1 ? "" : ",") + std::to_string(port * 3);
        backwards = std::to_string(port * 3) + (port == 1 ? "" : ",") + backwards;
    }
    const std::vector<Node> nodes = Import(text.c_str());
    EXPECT_EQ(nodes.size(), 10000U);
    EXPECT_EQ(Import(backwards.c_str()), nodes);
}

TEST_F(PortRangeImport, RejectsNull) {
    const Set set({{1, 5}});
    EXPECT_EQ(TLIBPortRangeImport(nullptr, "80"), -1);
    EXPECT_EQ(TLIBPortRangeImport(set.Get(), nullptr), -1);
    EXPECT_THAT(set.Nodes(), ElementsAre(Node(1, 5)));
    EXPECT_THAT(Messages(), ElementsAre("Bad parameters.", "Bad parameters."));
    EXPECT_EQ(TLIBCErrGet(), 0xD00U);
    EXPECT_EQ(Sources()[0], "service_port_range_import.cpp");
}

TEST_F(PortRangeImport, KeepsWhatWasAddedBeforeMemoryRanOut) {
    const std::vector<Node> nodes = {{21, 21}, {1024, 1100}};
    std::vector<std::vector<std::string>> messages;
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        const Set set;
        log_.Clear();
        const int result =
            fail.During([&] { return TLIBPortRangeImport(set.Get(), "21, 1024:1100"); });
        EXPECT_EQ(result, fail.Hit() ? -1 : 0);
        const std::vector<Node> added = set.Nodes();
        EXPECT_EQ(added, FirstOf(nodes, added.size()));
        EXPECT_EQ(added.size() == nodes.size(), !fail.Hit());
        messages.push_back(Messages());
        if (fail.Hit()) {
            EXPECT_EQ(Sources().back(), "service_port_range_import.cpp");
        }
    });
    EXPECT_EQ(allocations, 3);
    const auto add_failed = ElementsAre("Out of memory", "Failed to TLIBPortRangeAdd().");
    const auto copy_failed = ElementsAre("Out of memory.");
    EXPECT_THAT(messages, ElementsAre(add_failed, copy_failed, add_failed, IsEmpty(), add_failed,
                                      copy_failed, add_failed, IsEmpty()));
}

}  // namespace
}  // namespace tavo::test

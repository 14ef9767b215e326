#include "port_range_test.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PortRangeExport : public PortRangeTest {
  protected:
    static std::string Export(const Set &set) {
        char *text = TLIBPortRangeExport(set.Get());
        if (text == nullptr) {
            return "no text";
        }
        std::string copy(text);
        TLIBCStrPut(text);
        return copy;
    }
};

TEST_F(PortRangeExport, PrintsPortsAndRanges) {
    EXPECT_EQ(Export(Set({{21, 21}})), "21");
    EXPECT_EQ(Export(Set({{1024, 1100}})), "1024:1100");
    EXPECT_EQ(Export(Set({{0, 0}, {21, 21}, {1024, 1100}, {65535, 65535}})),
              "0,21,1024:1100,65535");
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PortRangeExport, ReadsBackAsTheSameSet) {
    const Set set({{21, 21}, {1024, 1100}});
    const Set again;
    EXPECT_EQ(TLIBPortRangeImport(again.Get(), Export(set).c_str()), 0);
    EXPECT_EQ(again.Nodes(), set.Nodes());
}

TEST_F(PortRangeExport, LooksAtPortsAndNotAtTypes) {
    EXPECT_EQ(Export(Set({{13, 20, 0}, {30, 30, 1}})), "13:20,30");
}

TEST_F(PortRangeExport, PrintsSignedNumbersAndReversedRanges) {
    EXPECT_EQ(Export(Set({{1000, 999}, {0x7FFFFFFF, 0x80000000}, {0x80000001, kHighest}})),
              "1000:999,2147483647:-2147483648,-2147483647:-1");
}

TEST_F(PortRangeExport, HasRoomForTheLongestNumbers) {
    EXPECT_EQ(Export(Set({{0x80000000, 0x80000001}, {0x80000003, 0x80000004}})),
              "-2147483648:-2147483647,-2147483645:-2147483644");
}

TEST_F(PortRangeExport, PrintsThousandsOfRanges) {
    std::vector<Node> nodes;
    std::string expected;
    for (std::uint32_t port = 0; port < 30000; port += 3) {
        nodes.emplace_back(port, port + 1);
        expected += (port == 0 ? "" : ",") + std::to_string(port) + ":" + std::to_string(port + 1);
    }
    EXPECT_EQ(Export(Set(nodes)), expected);
}

TEST_F(PortRangeExport, GivesNoTextAndNoLineForAnEmptySet) {
    EXPECT_EQ(Export(Set()), "no text");
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PortRangeExport, RejectsNull) {
    EXPECT_EQ(TLIBPortRangeExport(nullptr), nullptr);
    EXPECT_THAT(Messages(), ElementsAre("Bad parameters."));
    EXPECT_EQ(TLIBCErrGet(), 0xD00U);
    EXPECT_THAT(Sources(), ElementsAre("service_port_range_export.cpp"));
}

// The core library may work without some of its allocations; the text is then complete.
TEST_F(PortRangeExport, GivesNoTextWithoutMemory) {
    const Set set({{21, 21}, {1024, 1100}});
    int failures = 0;
    ForEachFailingAllocation([&](FailingAllocation &fail) {
        log_.Clear();
        char *text = fail.During([&] { return TLIBPortRangeExport(set.Get()); });
        if (text != nullptr) {
            EXPECT_STREQ(text, "21,1024:1100");
            EXPECT_THAT(Messages(), IsEmpty());
            TLIBCStrPut(text);
            return;
        }
        ++failures;
        EXPECT_TRUE(fail.Hit());
        EXPECT_THAT(Messages(), ElementsAre("Failed to TLIBCStrGet()."));
        EXPECT_THAT(Sources(), ElementsAre("service_port_range_export.cpp"));
    });
    EXPECT_GE(failures, 4);
    EXPECT_EQ(TLIBCErrGet(), 0x200U);
    TLIBCErrSetEx(0, nullptr, 0);
}

TEST_F(PortRangeExport, SetsNoErrorOfItsOwnWithoutMemory) {
    const Set set({{21, 21}});
    FailingAllocation fail(1, FailingAllocation::Mode::kOnlyNth);
    EXPECT_EQ(fail.During([&] { return TLIBPortRangeExport(set.Get()); }), nullptr);
    EXPECT_TRUE(fail.Hit());
    EXPECT_THAT(Messages(), ElementsAre("Failed to TLIBCStrGet()."));
}

}  // namespace
}  // namespace tavo::test

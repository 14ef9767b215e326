#include <gmock/gmock.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <random>

#include "failing_allocation.h"
#include "library_test.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PortsToStr : public LibraryTest {
  protected:
    int Print(const TAVO_SERVICE_CONF_PORT *list, int ports_size = 64, int proto_size = 64) {
        return TLIBServiceConfPortsToStr(list, ports_, ports_size, proto_, proto_size);
    }

    void ExpectUntouched() {
        EXPECT_STREQ(ports_, "ports");
        EXPECT_STREQ(proto_, "proto");
    }

    char ports_[64] = "ports";
    char proto_[64] = "proto";
};

TEST_F(PortsToStr, PrintsFromTheHeadOn) {
    TAVO_SERVICE_CONF_PORT list[] = {
        {1, 0, 1, 443, 0, &list[1]}, {1, 1, 1, 6000, 6010, &list[2]}, {1, 0, 1, 80, 0, nullptr}};
    EXPECT_EQ(Print(list), 0);
    EXPECT_STREQ(ports_, "443,6000:6010,80");
    EXPECT_STREQ(proto_, "tcp");
    EXPECT_EQ(TLIBCErrGet(), 0U);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PortsToStr, PrintsTheSmallerPortOfARangeFirst) {
    const TAVO_SERVICE_CONF_PORT range = {1, 1, 2, 1000, 999, nullptr};
    EXPECT_EQ(Print(&range), 0);
    EXPECT_STREQ(ports_, "999:1000");
    EXPECT_STREQ(proto_, "udp");
}

TEST_F(PortsToStr, PrintsProtocolsInMapOrder) {
    const TAVO_SERVICE_CONF_PORT both = {1, 0, 3, 1, 0, nullptr};
    EXPECT_EQ(Print(&both), 0);
    EXPECT_STREQ(proto_, "tcp,udp");
    const TAVO_SERVICE_CONF_PORT more_bits = {1, 0, 7, 1, 0, nullptr};
    EXPECT_EQ(Print(&more_bits), 0);
    EXPECT_STREQ(proto_, "tcp,udp");
}

TEST_F(PortsToStr, DoesNotLookAtTheDirection) {
    TAVO_SERVICE_CONF_PORT list[] = {{0, 0, 1, 1, 0, &list[1]}, {1, 0, 1, 2, 0, nullptr}};
    EXPECT_EQ(Print(list), 0);
    EXPECT_STREQ(ports_, "1,2");
}

TEST_F(PortsToStr, PrintsPortsAsSignedNumbers) {
    const TAVO_SERVICE_CONF_PORT port = {1, 0, 1, UINT_MAX, 0, nullptr};
    EXPECT_EQ(Print(&port), 0);
    EXPECT_STREQ(ports_, "-1");
}

TEST_F(PortsToStr, RejectsEntriesOfDifferentProtocols) {
    TAVO_SERVICE_CONF_PORT list[] = {{1, 0, 3, 1, 0, &list[1]}, {1, 0, 7, 2, 0, nullptr}};
    EXPECT_EQ(Print(list), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_conf_ports_to_str.cpp");
    EXPECT_THAT(Messages(), ElementsAre("Different protocol in port linked list"
                                        "[0x0D00 service_conf_ports_to_str.cpp:N]"));
    ExpectUntouched();
}

TEST_F(PortsToStr, NeedsRoomForTheTerminators) {
    TAVO_SERVICE_CONF_PORT list[] = {{1, 0, 1, 443, 0, &list[1]}, {1, 0, 1, 80, 0, nullptr}};
    for (auto [ports_size, proto_size] : {std::pair{6, 64}, {64, 3}, {1, 1}, {3, 4}}) {
        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        EXPECT_EQ(Print(list, ports_size, proto_size), -1);
        EXPECT_EQ(ErrorState(), "0xBF00 service_conf_ports_to_str.cpp");
        EXPECT_THAT(Messages(),
                    ElementsAre("input array too small[0xBF00 service_conf_ports_to_str.cpp:N]"));
        ExpectUntouched();
    }
    EXPECT_EQ(Print(list, 7, 4), 0);
    EXPECT_STREQ(ports_, "443,80");
    EXPECT_STREQ(proto_, "tcp");
}

TEST_F(PortsToStr, RejectsBadArguments) {
    const TAVO_SERVICE_CONF_PORT port = {1, 0, 1, 80, 0, nullptr};
    const TAVO_SERVICE_CONF_PORT no_protocol = {1, 0, 4, 80, 0, nullptr};
    struct {
        const TAVO_SERVICE_CONF_PORT *list;
        char *ports;
        int ports_size;
        char *proto;
        int proto_size;
    } const rows[] = {
        {nullptr, ports_, 64, proto_, 64},      {&port, nullptr, 64, proto_, 64},
        {&port, ports_, 0, proto_, 64},         {&port, ports_, 64, nullptr, 64},
        {&port, ports_, 64, proto_, 0},         {&port, ports_, -1, proto_, 64},
        {&no_protocol, ports_, 64, proto_, 64},
    };
    for (const auto &row : rows) {
        TLIBCErrSetEx(0, nullptr, 0);
        EXPECT_EQ(TLIBServiceConfPortsToStr(row.list, row.ports, row.ports_size, row.proto,
                                            row.proto_size),
                  -1);
        EXPECT_EQ(ErrorState(), "0xD00 service_conf_ports_to_str.cpp");
        ExpectUntouched();
    }
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PortsToStr, AnswersALongListThatCannotFit) {
    std::vector<TAVO_SERVICE_CONF_PORT> list(1000000, {1, 0, 1, 80, 0, nullptr});
    for (std::size_t i = 1; i < list.size(); ++i) {
        list[i - 1].pNext = &list[i];
    }
    EXPECT_EQ(Print(list.data()), -1);
    EXPECT_EQ(ErrorState(), "0xBF00 service_conf_ports_to_str.cpp");
    list.back().nProtocol = 2;
    EXPECT_EQ(Print(list.data()), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_conf_ports_to_str.cpp");
}

TEST_F(PortsToStr, ReportsEveryFailedAllocation) {
    TAVO_SERVICE_CONF_PORT list[] = {{1, 0, 3, 1, 0, &list[1]}, {1, 1, 3, 7, 9, nullptr}};
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        const int result = fail.During([&] { return Print(list); });
        if (!fail.Hit()) {
            ASSERT_EQ(result, 0);
            strcpy(ports_, "ports");
            strcpy(proto_, "proto");
            return;
        }
        EXPECT_EQ(result, -1);
        EXPECT_EQ(TLIBCErrGet(), 0x200U);
        ASSERT_EQ(Messages().size(), 1U);
        EXPECT_THAT(Messages()[0],
                    testing::MatchesRegex("TLIBCStrCat fail!\\[0x0200 [a-z_]+\\.cpp:N\\]"));
        ExpectUntouched();
    });
    EXPECT_GE(allocations, 2);
}

// The parser reads a printed list as the same list in reverse order, with ranges in ascending
// order.
TEST_F(PortsToStr, PrintedListsReadBackReversed) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 engine(seed);
    const auto random = [&](std::uint32_t below) {
        return std::uniform_int_distribution<std::uint32_t>(0, below - 1)(engine);
    };
    for (int round = 0; round < 2000; ++round) {
        std::vector<TAVO_SERVICE_CONF_PORT> list(1 + random(6));
        const std::uint32_t protocol = 1 + random(3);
        std::vector<std::string> expected;
        for (std::size_t i = 0; i < list.size(); ++i) {
            const std::uint32_t a = random(65536);
            const std::uint32_t b = random(65536);
            const std::uint32_t type = random(2);
            list[i] = {1, type, protocol, a, type * b, nullptr};
            if (i > 0) {
                list[i - 1].pNext = &list[i];
            }
            TAVO_SERVICE_CONF_PORT normal = list[i];
            if (type == 1) {
                normal.nPortStart = std::min(a, b);
                normal.nPortEnd = std::max(a, b);
            }
            expected.insert(expected.begin(), Describe(normal));
        }
        char ports[256];
        char proto[16];
        ASSERT_EQ(TLIBServiceConfPortsToStr(list.data(), ports, 256, proto, 16), 0);
        const std::string joined = std::string(ports) + "/" + proto;
        TAVO_SERVICE_CONF_PORT *parsed = nullptr;
        ASSERT_EQ(TAVOServiceConfPortsGet(joined.c_str(), 1, &parsed), 0) << joined;
        EXPECT_EQ(Describe(parsed), expected) << joined;
        TAVOServiceConfPortsFree(parsed);
    }
}

}  // namespace
}  // namespace tavo::test

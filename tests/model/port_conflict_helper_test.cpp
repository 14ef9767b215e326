#include <gmock/gmock.h>

#include <climits>

#include "library_test.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PortConflictHelper : public LibraryTest {};

TEST_F(PortConflictHelper, MapHoldsTcpThenUdp) {
    ASSERT_EQ(sizeof(gProtoTypeMapping) / sizeof(gProtoTypeMapping[0]), 2U);
    EXPECT_EQ(gProtoTypeMapping[0].nProto, 1);
    EXPECT_STREQ(gProtoTypeMapping[0].szName, "tcp");
    EXPECT_EQ(gProtoTypeMapping[1].nProto, 2);
    EXPECT_STREQ(gProtoTypeMapping[1].szName, "udp");
    EXPECT_EQ(TLIBServiceProtoMapSizeGet(), 2);
}

TEST_F(PortConflictHelper, ExactTestsLookAtTheLow16Bits) {
    struct {
        int value, tcp, udp, both, legal;
    } const rows[] = {
        {0, 0, 0, 0, 0},       {1, 1, 0, 0, 1},       {2, 0, 1, 0, 1},      {3, 0, 0, 1, 1},
        {4, 0, 0, 0, 0},       {5, 0, 0, 0, 0},       {65537, 1, 0, 0, 1},  {0x70002, 0, 1, 0, 1},
        {0x10003, 0, 0, 1, 1}, {0x10000, 0, 0, 0, 0}, {-65535, 1, 0, 0, 1}, {-1, 0, 0, 0, 0},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(IsTCP(row.value), row.tcp) << row.value;
        EXPECT_EQ(IsUDP(row.value), row.udp) << row.value;
        EXPECT_EQ(IsBothTCPAndUDP(row.value), row.both) << row.value;
        EXPECT_EQ(IsLegalProtocol(row.value), row.legal) << row.value;
    }
}

TEST_F(PortConflictHelper, BitTestsGiveTheValueOfTheBit) {
    EXPECT_EQ(HasTCP(3), 1);
    EXPECT_EQ(HasTCP(2), 0);
    EXPECT_EQ(HasTCP(-1), 1);
    EXPECT_EQ(HasUDP(3), 2);
    EXPECT_EQ(HasUDP(1), 0);
    EXPECT_EQ(HasUDP(0x10002), 2);
}

TEST_F(PortConflictHelper, ToUPortReadsAsScanfDoes) {
    struct {
        const char *text;
        unsigned port;
    } const rows[] = {
        {"0", 0},
        {"80", 80},
        {" 80", 80},
        {"\t80", 80},
        {"80abc", 80},
        {"+80", 80},
        {"65535", 65535},
        {"65536", 0},
        {"65617", 81},
        {"-1", 65535},
        {"0080", 80},
        {"4294967376", 80},
        // strtoul returns its maximum for larger numbers; the low 16 bits of it are all set.
        {"99999999999999999999999", 65535},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(ToUPort(row.text), row.port) << row.text;
    }
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_F(PortConflictHelper, ToUPortLogsWhatIsNoNumber) {
    EXPECT_EQ(ToUPort("x"), 0);
    EXPECT_EQ(ToUPort(""), 0);
    EXPECT_EQ(ToUPort(" -"), 0);
    EXPECT_EQ(ToUPort(nullptr), 0);
    EXPECT_THAT(Messages(), ElementsAre("Failed on parse port: x",
                                        "Failed on parse port: ", "Failed on parse port:  -",
                                        "Failed on parse port: (null)"));
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_F(PortConflictHelper, NamesTheTcpStatesOfTheKernel) {
    const char *const names[] = {"TCP_ESTABLISHED", "TCP_SYN_SENT",   "TCP_SYN_RECV",
                                 "TCP_FIN_WAIT1",   "TCP_FIN_WAIT2",  "TCP_TIME_WAIT",
                                 "TCP_CLOSE",       "TCP_CLOSE_WAIT", "TCP_LAST_ACK",
                                 "TCP_LISTEN",      "TCP_CLOSING"};
    for (unsigned state = 1; state <= 11; ++state) {
        EXPECT_STREQ(TAVOTCPStateToString(state), names[state - 1]);
    }
    EXPECT_STREQ(TAVOTCPStateToString(0), "Illegal_TCP_STATE");
    EXPECT_STREQ(TAVOTCPStateToString(12), "Illegal_TCP_STATE");
    EXPECT_STREQ(TAVOTCPStateToString(UINT_MAX), "Illegal_TCP_STATE");
}

TEST_F(PortConflictHelper, IndexGetGivesTheBitOfARow) {
    int proto = -7;
    EXPECT_EQ(TLIBServiceProtoIndexGet(0, &proto), 0);
    EXPECT_EQ(proto, 1);
    EXPECT_EQ(TLIBServiceProtoIndexGet(1, &proto), 0);
    EXPECT_EQ(proto, 2);
}

TEST_F(PortConflictHelper, IndexGetRejectsRowsThatAreNotThereAndNull) {
    for (int index : {-1, 2, INT_MAX, INT_MIN}) {
        TLIBCErrSetEx(0, nullptr, 0);
        int proto = -7;
        EXPECT_EQ(TLIBServiceProtoIndexGet(index, &proto), -1);
        EXPECT_EQ(ErrorState(), "0xD00 port_conflict_helper.cpp");
        EXPECT_EQ(proto, -7);
    }
    TLIBCErrSetEx(0, nullptr, 0);
    EXPECT_EQ(TLIBServiceProtoIndexGet(0, nullptr), -1);
    EXPECT_EQ(ErrorState(), "0xD00 port_conflict_helper.cpp");
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PortConflictHelper, StrGetNeedsRoomForTheTerminator) {
    char name[5] = "....";
    EXPECT_EQ(TLIBServiceProtoStrGet(0, name, 3), -1);
    EXPECT_STREQ(name, "....");
    EXPECT_EQ(ErrorState(), "0xBF00 port_conflict_helper.cpp");
    EXPECT_THAT(Messages(),
                ElementsAre("input array too small[0xBF00 port_conflict_helper.cpp:N]"));

    EXPECT_EQ(TLIBServiceProtoStrGet(0, name, 4), 0);
    EXPECT_STREQ(name, "tcp");
    EXPECT_EQ(TLIBServiceProtoStrGet(1, name, 4), 0);
    EXPECT_STREQ(name, "udp");
}

TEST_F(PortConflictHelper, StrGetRejectsBadArguments) {
    char name[8] = "sentry";
    struct {
        int index;
        char *buffer;
        int size;
    } const rows[] = {{2, name, 8}, {-1, name, 8}, {0, nullptr, 8}, {0, name, 0}, {0, name, -4}};
    for (const auto &row : rows) {
        TLIBCErrSetEx(0, nullptr, 0);
        EXPECT_EQ(TLIBServiceProtoStrGet(row.index, row.buffer, row.size), -1);
        EXPECT_EQ(ErrorState(), "0xD00 port_conflict_helper.cpp");
        EXPECT_STREQ(name, "sentry");
    }
    EXPECT_THAT(Messages(), IsEmpty());
}

}  // namespace
}  // namespace tavo::test

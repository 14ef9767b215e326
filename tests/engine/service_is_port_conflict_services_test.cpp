// The firewall services as a source.
#include <gmock/gmock.h>

#include "conflict_test.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class FirewallServices : public ConflictTest {
  protected:
    int AskServices(const std::string &ports, const std::string &protocols = "tcp",
                    const std::string &skip = "") {
        return Ask(ports, protocols, TAVO_PORT_CHECK_FW_SERVICE, skip);
    }
};

TEST_F(FirewallServices, OfTheTableCollide) {
    EXPECT_EQ(AskServices("23"), 1);
    EXPECT_EQ(AskServices("24"), 0);
    EXPECT_THAT(Conflicts(), ElementsAre("src 23 protocol 3"));
}

TEST_F(FirewallServices, OfServiceFilesCollide) {
    Service("web", "8080,9000:9010/tcp");
    EXPECT_EQ(AskServices("9005:9020,8080"), 1);
    EXPECT_THAT(Conflicts(), ElementsAre("src 8080 protocol 3", "src 9005:9010 protocol 3"));
}

TEST_F(FirewallServices, CollideOnASharedProtocolOnly) {
    Service("web", "8080/tcp");
    Service("dns", "5300/tcp,udp");
    EXPECT_EQ(AskServices("8080", "udp"), 0);
    EXPECT_EQ(AskServices("8080", "tcp,udp"), 1);
    EXPECT_EQ(AskServices("5300", "udp"), 1);
    EXPECT_EQ(AskServices("161", "tcp"), 0) << "snmp is udp";
    EXPECT_EQ(AskServices("161", "UDP"), 1);
}

TEST_F(FirewallServices, CollideOnAnyProtocolWhereNoneIsNamed) {
    EXPECT_EQ(AskServices("161", ""), 1);
    EXPECT_EQ(AskServices("23", ""), 1);
}

TEST_F(FirewallServices, DoNotCollideOnAProtocolThatIsNone) {
    EXPECT_EQ(AskServices("23", "tcp udp"), 0) << "protocols are parsed as in a port list";
    EXPECT_EQ(AskServices("23", "sctp"), 0);
    EXPECT_EQ(Messages().front(),
              "protocol format error (tcp udp)! It should be \"tcp\" or \"udp\" or \"tcp,udp\", "
              "tavoerr=[0x0D00 service_conf_ports_get.cpp:N]");
}

TEST_F(FirewallServices, ReadTheProtocolTextAsItWasGiven) {
    EXPECT_EQ(AskServices("23", "SCTP"), 0);
    EXPECT_THAT(Messages(), ElementsAre(testing::StartsWith("protocol format error (SCTP)!")));
}

TEST_F(FirewallServices, LeaveTheCallersProtocolTextAlone) {
    char protocols[] = " TCP , udp ";
    EXPECT_EQ(TLIBIsPortConflict("", "23", protocols, TAVO_PORT_CHECK_FW_SERVICE, &conflicts_), 1);
    EXPECT_STREQ(protocols, " TCP , udp ");
}

TEST_F(FirewallServices, ThatAreSkippedDoNotCollide) {
    Service("web", "8080/tcp");
    EXPECT_EQ(AskServices("8080,23", "tcp", "web telnet"), 0);
    EXPECT_EQ(AskServices("8080", "tcp", "Web"), 1);
}

TEST_F(FirewallServices, AreComparedInTheOrderOfTheirList) {
    Service("a", "8080/tcp");
    Service("b", "8081/tcp");
    EXPECT_EQ(AskServices("8080:8081,23"), 1);
    EXPECT_THAT(Conflicts(),
                ElementsAre("src 23 protocol 3", "src 8081 protocol 3", "src 8080 protocol 3"));
}

TEST_F(FirewallServices, CollideWhetherSupportedOrNot) {
    WriteFile("/etc.defaults/tavoinfo.conf", "supportups=\"no\"\n");
    EXPECT_EQ(AskServices("3493"), 1);
}

TEST_F(FirewallServices, RefuseAQueryWithBlanks) {
    EXPECT_EQ(AskServices("8080 8081"), -1);
    EXPECT_EQ(AskServices("8080 8081", "sctp"), 0) << "no service compares it";
}

TEST_F(FirewallServices, MeetThousandsOfItems) {
    Service("web", "40000/tcp");
    std::string query = "30000";
    for (int port = 30001; port <= 35000; ++port) {
        query += "," + std::to_string(port);
    }
    EXPECT_EQ(AskServices(query + ",40000", "tcp", "ups_server"), 1);
    EXPECT_THAT(Conflicts(), ElementsAre("src 40000 protocol 3"));
    EXPECT_THAT(Messages(), IsEmpty());
}

}  // namespace
}  // namespace tavo::test

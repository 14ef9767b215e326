// Tests which sources are queried, with stand-ins that record the queries.
#include <netinet/in.h>

#include <climits>
#include <string>
#include <vector>

#include "socket_diagnostics.h"
#include "socket_tables.h"
#include "used_ports.h"

namespace {

bool g_diagnostics_answer = true;
bool g_tables_answer = true;
std::vector<std::string> g_asked;

}  // namespace

namespace tavo {

// Finds the ports 0, 10 and 65535.
bool AskForSockets(int protocol, PortRange range, PortSet &ports) {
    g_asked.push_back("diagnostics " + std::to_string(protocol) + " " +
                      std::to_string(range.first) + ".." + std::to_string(range.last));
    ports[0] = ports[10] = ports[65535] = true;
    return g_diagnostics_answer;
}

// Finds the ports 0, 20 and 21.
bool ReadSocketTables(const SocketTables &tables, PortSet &ports) {
    g_asked.push_back(std::string(tables.ipv4) + " " + tables.ipv6);
    ports[0] = ports[20] = ports[21] = true;
    return g_tables_answer;
}

namespace test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SourcesTest : public testing::Test {
  protected:
    SourcesTest() {
        g_diagnostics_answer = true;
        g_tables_answer = true;
        g_asked.clear();
    }
};

TEST_F(SourcesTest, OnlyDiagnosticsAreUsedIfTheyWork) {
    EXPECT_THAT(UsedPorts(kTcp, 0, 65535), ElementsAre(10, 65535));
    EXPECT_THAT(UsedPorts(kUdp, 9, 10), ElementsAre(10));
    EXPECT_THAT(g_asked, ElementsAre("diagnostics 6 1..65535", "diagnostics 17 9..10"));
}

TEST_F(SourcesTest, PortsFromFailedDiagnosticsDoNotCount) {
    g_diagnostics_answer = false;
    EXPECT_THAT(UsedPorts(kTcp, 0, 65535), ElementsAre(20, 21));
    EXPECT_THAT(g_asked, ElementsAre("diagnostics 6 1..65535", "/proc/net/tcp /proc/net/tcp6"));
}

TEST_F(SourcesTest, TablesAreNarrowedToTheRange) {
    g_diagnostics_answer = false;
    EXPECT_THAT(UsedPorts(kUdp, 21, 30), ElementsAre(21));
    EXPECT_THAT(g_asked, ElementsAre("diagnostics 17 21..30", "/proc/net/udp /proc/net/udp6"));
}

TEST_F(SourcesTest, PortsFromFailedTablesDoNotCount) {
    g_diagnostics_answer = false;
    g_tables_answer = false;
    int slots[2] = {-7, -7};
    int count = 2;
    EXPECT_EQ(TAVONetGetPortUsedInRange(slots, &count, 1, 65535, kTcp), -1);
    EXPECT_EQ(RecordedError(), "0x900 used_ports.cpp");
    EXPECT_THAT(slots, ElementsAre(-7, -7));
    EXPECT_EQ(count, 2);
}

TEST_F(SourcesTest, NoSourceIsUsedForARangeWithoutPorts) {
    int slot = -7;
    for (const auto &[low, high] : {std::pair{INT_MIN, 0}, {65536, INT_MAX}}) {
        int count = 1;
        EXPECT_EQ(TAVONetGetPortUsedInRange(&slot, &count, low, high, kTcp), 0);
        EXPECT_EQ(count, 0);
    }
    EXPECT_EQ(slot, -7);
    EXPECT_THAT(g_asked, IsEmpty());
}

}  // namespace
}  // namespace test
}  // namespace tavo

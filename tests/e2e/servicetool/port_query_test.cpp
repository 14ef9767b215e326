// PORTS[/PROTOCOLS] on the command line: valid and invalid arguments, and the position of the
// error.
#include "ports/port_query.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>

#include "tavoserviceconf.h"

namespace tavo::test {

using namespace tool;

namespace {

using namespace std::string_literals;

TEST(PortQuery, IsReadAndPrintedInOneForm) {
    const std::pair<const char *, const char *> cases[] = {
        {"80", "80/tcp,udp"},
        {"80/tcp", "80/tcp"},
        {"80/UDP", "80/udp"},
        {"80/udp,tcp", "80/tcp,udp"},
        {"80/tcp,tcp", "80/tcp"},
        {"1/tcp", "1/tcp"},
        {"65535/tcp", "65535/tcp"},
        {"0080/tcp", "80/tcp"},
        {"000000000000000000000080/tcp", "80/tcp"},
        {"443,80/tcp", "443,80/tcp"},
        {"1000:2000/tcp", "1000:2000/tcp"},
        {"2000:1000/tcp", "1000:2000/tcp"},
        {"80:80/tcp", "80/tcp"},
        {"1:65535", "1:65535/tcp,udp"},
        {" 80 , 443 / tcp , udp ", "80,443/tcp,udp"},
        {"80,80/tcp", "80,80/tcp"},
    };
    for (const auto &[text, printed] : cases) {
        PortQuery query;
        const auto problem = ReadPortQuery(text, query);
        ASSERT_FALSE(problem) << text << ": " << problem->message;
        EXPECT_EQ(QueryText(query), printed);
    }
}

struct Refused {
    std::string text;
    std::size_t column;
    std::string message;
    std::string fix;
};

TEST(PortQuery, IsRefusedWithThePlaceAndAFix) {
    const std::string from_1 = "name ports from 1 to 65535";
    const std::string name_port = "name a port, as in 80/tcp";
    const std::string name_protocols = "write tcp, udp or tcp,udp";
    const std::string commas = "separate ports by commas, and put no blanks into a range";
    const Refused cases[] = {
        {"", 1, "no port is named", name_port},
        {"  ", 3, "no port is named", name_port},
        {"/tcp", 1, "no port is named", name_port},
        {"0", 1, "no service can be reached at port 0", from_1},
        {"00/tcp", 1, "no service can be reached at port 0", from_1},
        {"0:80", 1, "no service can be reached at port 0", from_1},
        {"80,65536", 4, "port 65536 is above 65535", from_1},
        {"80:99999", 4, "port 99999 is above 65535", from_1},
        {"4294967376", 1, "port 4294967376 is above 65535", from_1},
        {"18446744073709551696", 1, "port 18446744073709551696 is above 65535", from_1},
        {"80,x", 4, "\"x\" is not a port number", ""},
        {"+80", 1, "\"+80\" is not a port number", ""},
        {"-80", 1, "\"-80\" is not a port number", ""},
        {"0x50", 1, "\"0x50\" is not a port number", ""},
        {"http/tcp", 1, "\"http\" is not a port number", ""},
        {"1000-2000", 1, "\"1000-2000\" is not a port number", "write 1000:2000"},
        {"80,1000..2000/tcp", 4, "\"1000..2000\" is not a port number", "write 1000:2000"},
        {"80 443", 1, "\"80 443\" is not a port number", commas},
        {"80;443", 1, "\"80;443\" is not a port number", commas},
        {"80: 90", 4, "\" 90\" is not a port number", commas},
        {"80,", 4, "a port is missing next to a comma", "remove the comma"},
        {",80", 1, "a port is missing next to a comma", "remove the comma"},
        {"80,,443", 4, "a port is missing next to a comma", "remove the comma"},
        {":80", 1, "a range is written START:END, and one of them is missing", ""},
        {"80:", 4, "a range is written START:END, and one of them is missing", ""},
        {"1:2:3", 4, "a range has one colon only: START:END", ""},
        {"80/", 4, "a protocol is missing", name_protocols},
        {"80/tcp,", 8, "a protocol is missing", name_protocols},
        {"80/sctp", 4, "\"sctp\" is not a protocol", name_protocols},
        {"80/tcp,x", 8, "\"x\" is not a protocol", name_protocols},
        {"80/tcp/udp", 4, "\"tcp/udp\" is not a protocol", name_protocols},
        {"80/tcp udp", 4, "\"tcp udp\" is not a protocol", name_protocols},
        {"80\0"s, 1, "\"80\0\" is not a port number"s, ""},
        {"80/tcp\0x"s, 4, "\"tcp\0x\" is not a protocol"s, name_protocols},
    };
    for (const Refused &refused : cases) {
        PortQuery query = {{{7, 9}}, TAVO_PROTO_UDP};
        const auto problem = ReadPortQuery(refused.text, query);
        ASSERT_TRUE(problem) << refused.text;
        EXPECT_EQ(problem->message, refused.message);
        EXPECT_EQ(problem->ColumnIn(refused.text), refused.column) << refused.text;
        EXPECT_EQ(problem->fix, refused.fix) << refused.text;
        EXPECT_EQ(QueryText(query), "7:9/udp") << refused.text;
    }
}

TEST(PortQuery, TakesThousandsOfPorts) {
    std::string text = "1";
    for (int port = 2; port <= 65535; ++port) {
        text += ',' + std::to_string(port);
    }
    PortQuery query;
    ASSERT_FALSE(ReadPortQuery(text, query));
    EXPECT_EQ(Merged(query.items), (PortRanges{{1, 65535}}));
}

TEST(PortQuery, ReadsProtocolsAlone) {
    std::uint32_t protocols = 7;
    EXPECT_FALSE(ReadProtocols("tcp", protocols));
    EXPECT_EQ(protocols, 1U);
    EXPECT_FALSE(ReadProtocols("UDP, tcp", protocols));
    EXPECT_EQ(protocols, 3U);
    const std::string_view text = "udp,icmp";
    const auto problem = ReadProtocols(text, protocols);
    ASSERT_TRUE(problem);
    EXPECT_EQ(problem->message, "\"icmp\" is not a protocol");
    EXPECT_EQ(problem->ColumnIn(text), 5U);
    EXPECT_EQ(protocols, 3U);
}

}  // namespace
}  // namespace tavo::test

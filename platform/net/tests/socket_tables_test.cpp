// Tests the parsing of tables, with files instead of those in /proc/net.
#include "socket_tables.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cctype>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "patterns.h"
#include "temporary_folder.h"

namespace tavo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kHeader[] =
    "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout "
    "inode                                                     \n";
constexpr char kIpv4[] = "0100007F";
constexpr char kIpv6[] = "00000000000000000000000001000000";

// A line as written by the kernel, without its newline.
std::string Line(const std::string &port, const std::string &state = "0A",
                 const std::string &address = kIpv4) {
    return "   0: " + address + ":" + port + " " + std::string(address.size(), '0') + ":0000 " +
           state + " 00000000:00000000 00:00000000 00000000     0        0 637 1 00000000 100 0";
}

class SocketTablesTest : public testing::Test {
  protected:
    // The ports read from the table, with the other family's table missing.
    std::vector<int> PortsOf(const std::string &table) {
        const std::string path = folder_.Write("table", table);
        PortSet ports;
        EXPECT_TRUE(ReadSocketTables({path.c_str(), absent_.c_str()}, ports));
        return Marked(ports);
    }

    static std::vector<int> Marked(const PortSet &ports) {
        std::vector<int> marked;
        for (std::size_t port = 0; port < ports.size(); ++port) {
            if (ports[port]) {
                marked.push_back(static_cast<int>(port));
            }
        }
        return marked;
    }

    const test::TemporaryFolder folder_;
    const std::string absent_ = folder_ / "absent";
};

TEST_F(SocketTablesTest, ReturnTheLocalPortsOfBothFamilies) {
    const std::string ipv4 = folder_.Write("ipv4", kHeader + Line("0016") + "\n");
    const std::string ipv6 = folder_.Write("ipv6", kHeader + Line("01BB", "0A", kIpv6) + "\n");
    PortSet ports;
    EXPECT_TRUE(ReadSocketTables({ipv4.c_str(), ipv6.c_str()}, ports));
    EXPECT_THAT(Marked(ports), ElementsAre(22, 443));
}

TEST_F(SocketTablesTest, ReadARealTable) {
    EXPECT_THAT(
        PortsOf(
            "  sl  local_address                         remote_address                        st "
            "tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode\n"
            "   0: 00000000000000000000000000000000:0016 00000000000000000000000000000000:0000 0A "
            "00000000:00000000 00:00000000 00000000     0        0 2168 1 000000008c47d22d 100 0\n"
            "   1: 0000000000000000FFFF00000100007F:1F90 0000000000000000FFFF00000100007F:9C40 01 "
            "00000000:00000000 00:00000000 00000000     0        0 9130 1 00000000d4f6a1b5 20 4\n"
            "10002: 00000000000000000000000001000000:9C41 00000000000000000000000001000000:1F90 06 "
            "00000000:00000000 03:0000176F 00000000     0        0 0 3 000000001d6b2f07\n"),
        ElementsAre(22, 8080));
}

TEST_F(SocketTablesTest, IncludeEveryStateButTimeWait) {
    for (int state = 1; state <= 13; ++state) {
        char digits[3];
        std::snprintf(digits, sizeof(digits), "%02X", static_cast<unsigned int>(state));
        const std::vector<int> ports = PortsOf(Line("0050", digits) + "\n");
        EXPECT_EQ(ports.size(), state == 6 ? 0u : 1u) << "state " << digits;
    }
}

TEST_F(SocketTablesTest, ReadAnEmptyTable) {
    EXPECT_THAT(PortsOf(""), IsEmpty());
    EXPECT_THAT(PortsOf(kHeader), IsEmpty());
}

TEST_F(SocketTablesTest, ReadALastLineWithoutItsNewline) {
    EXPECT_THAT(PortsOf(kHeader + Line("0050")), ElementsAre(80));
}

TEST_F(SocketTablesTest, ReadTheEndsOfThePorts) {
    EXPECT_THAT(PortsOf(Line("0000") + "\n" + Line("FFFF") + "\n"), ElementsAre(0, 65535));
}

TEST_F(SocketTablesTest, ReadLettersOfEitherCase) {
    EXPECT_THAT(PortsOf(Line("abCd", "0a", "0100007f")), ElementsAre(0xABCD));
}

TEST_F(SocketTablesTest, NeedNothingAfterTheState) {
    EXPECT_THAT(PortsOf("0: 0100007F:0050 00000000:0000 0A"), ElementsAre(80));
}

// A line that is not a socket is ignored; the lines around it count.
class BadLine : public SocketTablesTest, public testing::WithParamInterface<std::string> {};

TEST_P(BadLine, IsIgnored) {
    EXPECT_FALSE(ParseSocketLine(GetParam()));
    EXPECT_THAT(PortsOf(Line("0001") + "\n" + GetParam() + "\n" + Line("0002") + "\n"),
                ElementsAre(1, 2));
    EXPECT_THAT(PortsOf(Line("0001") + "\n" + GetParam()), ElementsAre(1));
}

INSTANTIATE_TEST_SUITE_P(
    SocketTables, BadLine,
    testing::Values("", " ", "\t \t", "garbage", ":", "   0:", "   0: ",
                    "   0: 0100007F:0050",                     // truncated
                    "   0: 0100007F:0050 00000000:0000",       //
                    "   0: 0100007F:0050 00000000:0000 ",      //
                    "   0: 0100007F:0050 00000000:0000 A",     //
                    "   0  0100007F:0050 00000000:0000 0A",    // no colon after the number
                    "   0:0100007F:0050 00000000:0000 0A",     // no blank
                    "   0: 0100007F0050 00000000:0000 0A",     // no colon before the port
                    "   0: 0100007F:050 00000000:0000 0A",     // three digits, five
                    "   0: 0100007F:10050 00000000:0000 0A",   //
                    "   0: 0100007F: 00000000:0000 0A",        // none
                    "   0: 0100007F:00G0 00000000:0000 0A",    // not digits
                    "   0: 0100007F:+050 00000000:0000 0A",    //
                    "   0: 0100007F:-050 00000000:0000 0A",    //
                    "   0: 0100007F:0x50 00000000:0000 0A",    //
                    "   0: 0100007F:0050:1 00000000:0000 0A",  //
                    "   0: 100007F:0050 00000000:0000 0A",     // addresses of other lengths
                    "   0: 00100007F:0050 00000000:0000 0A",   //
                    "   0: :0050 00000000:0000 0A",            //
                    "   0: 0100007G:0050 00000000:0000 0A",    // invalid address
                    "   0: 0100007F:0050 000000000000 0A",     // no remote address
                    "   0: 0100007F:0050 00000000:0000 00A",   // invalid state
                    "   0: 0100007F:0050 00000000:0000 ZZ",    //
                    "   0: 0100007F:0050 00000000:0000 0A\r",  //
                    std::string("   0: 0100007F:0050\0 00000000:0000 0A", 37)));

TEST_F(SocketTablesTest, IgnoreALineThatIsTooLong) {
    const auto padded = [](std::size_t length) {
        std::string line = Line("0050");
        line.resize(length, ' ');
        return line;
    };
    const std::string after = "\n" + Line("0001");
    EXPECT_THAT(PortsOf(padded(8191) + after), ElementsAre(1, 80));
    for (const std::size_t length : {8192u, 8193u, 16384u, 100'000u}) {
        EXPECT_THAT(PortsOf(padded(length) + after), ElementsAre(1)) << length;
        EXPECT_THAT(PortsOf(Line("0001") + "\n" + padded(length)), ElementsAre(1)) << length;
    }
}

TEST_F(SocketTablesTest, IgnoreTheEndOfALongLineToo) {
    EXPECT_THAT(PortsOf(std::string(8192, ' ') + Line("0050") + "\n" + Line("0001")),
                ElementsAre(1));
}

TEST_F(SocketTablesTest, AreReadCompletelyWhateverTheirSize) {
    std::string table = kHeader;
    for (unsigned int port = 0; port < 65536; ++port) {
        char digits[5];
        std::snprintf(digits, sizeof(digits), "%04X", port);
        table += Line(digits, "07", port % 2 == 0 ? kIpv4 : kIpv6) + "\n";
    }
    EXPECT_EQ(PortsOf(table).size(), 65536u);
}

TEST_F(SocketTablesTest, MayLackAFamily) {
    const std::string path = folder_.Write("table", Line("0050"));
    PortSet ports;
    EXPECT_TRUE(ReadSocketTables({absent_.c_str(), path.c_str()}, ports));
    EXPECT_THAT(Marked(ports), ElementsAre(80));
}

TEST_F(SocketTablesTest, CannotBothBeAbsent) {
    PortSet ports;
    EXPECT_FALSE(ReadSocketTables({absent_.c_str(), absent_.c_str()}, ports));
}

// A folder can be opened but not read; a path below a file cannot be opened.
TEST_F(SocketTablesTest, MustBeReadableIfTheyExist) {
    const std::string path = folder_.Write("table", Line("0050"));
    for (const std::string &bad : {folder_.Path(), path + "/below"}) {
        PortSet ports;
        EXPECT_FALSE(ReadSocketTables({path.c_str(), bad.c_str()}, ports)) << bad;
        EXPECT_FALSE(ReadSocketTables({bad.c_str(), path.c_str()}, ports)) << bad;
        EXPECT_FALSE(ReadSocketTables({bad.c_str(), absent_.c_str()}, ports)) << bad;
    }
}

TEST_F(SocketTablesTest, LeaveNoDescriptorOpen) {
    const auto open = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    const auto before = open();
    const std::string path = folder_.Write("table", Line("0050"));
    PortSet ports;
    ReadSocketTables({path.c_str(), path.c_str()}, ports);
    ReadSocketTables({path.c_str(), absent_.c_str()}, ports);
    ReadSocketTables({folder_.Path().c_str(), path.c_str()}, ports);
    EXPECT_EQ(open(), before);
}

// A simple way to parse a table.
std::vector<int> NaivelyRead(const std::string &table) {
    constexpr char kLine[] =
        "^[ \t]*[^ \t]*:[ \t]+(?:[0-9A-Fa-f]{8}|[0-9A-Fa-f]{32}):([0-9A-Fa-f]{4})[ \t]+"
        "(?:[0-9A-Fa-f]{8}|[0-9A-Fa-f]{32}):[0-9A-Fa-f]{4}[ \t]+([0-9A-Fa-f]{2})(?:[ \t].*)?$";
    std::set<int> ports;
    for (std::size_t at = 0; at < table.size();) {
        const std::size_t end = std::min(table.find('\n', at), table.size());
        const std::string text = table.substr(at, end - at);
        const auto match = test::FirstMatch(text, kLine);
        if (match && (*match)[2] != "06") {
            ports.insert(std::stoi((*match)[1], nullptr, 16));
        }
        at = end + 1;
    }
    return {ports.begin(), ports.end()};
}

TEST_F(SocketTablesTest, AreReadAsTheSimpleParserReadsThem) {
    const unsigned int seed = std::random_device()();
    std::cout << "seed " << seed << '\n';
    std::mt19937 random(seed);
    const auto below = [&](std::size_t bound) { return random() % bound; };
    constexpr std::string_view kOdd = " \t:0aAfFgG6\n+-x";
    std::size_t found = 0;
    for (int turn = 0; turn < 200; ++turn) {
        std::string table = kHeader;
        for (std::size_t lines = below(200); lines > 0; --lines) {
            char port[5];
            char state[3];
            std::snprintf(port, sizeof(port), "%04X", static_cast<unsigned int>(below(65536)));
            std::snprintf(state, sizeof(state), "%02X", static_cast<unsigned int>(below(13)));
            std::string line = Line(port, state, below(2) == 0 ? kIpv4 : kIpv6);
            for (std::size_t change = below(3); change > 0; --change) {
                line[below(40)] = kOdd[below(kOdd.size())];
            }
            table += line + "\n";
        }
        const std::vector<int> expected = NaivelyRead(table);
        ASSERT_EQ(PortsOf(table), expected) << table;
        found += expected.size();
    }
    EXPECT_GT(found, 1000u);
}

}  // namespace
}  // namespace tavo

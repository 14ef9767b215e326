// Lines and files like /proc/net/tcp. The expected result for a line is that of the C library's
// sscanf.
#include <sys/stat.h>

#include <random>

#include "check/socket_tables.h"
#include "failing_allocation.h"
#include "plain_sockets.h"
#include "runtime_test.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kNothing[] = "no socket";

std::string Fast(const std::string &line) {
    RawSocketInfo info = {.uPort = 0, .uState = 0, .ulInode = 0, .uProtocol = TAVO_PROTO_TCP};
    return ReadSocketLine(line.c_str(), info) ? Describe(info) : kNothing;
}

std::string Scanned(const std::string &line) {
    RawSocketInfo info = {.uPort = 0, .uState = 0, .ulInode = 0, .uProtocol = TAVO_PROTO_TCP};
    return ReadSocketPlainly(line, info) ? Describe(info) : kNothing;
}

const std::string kListener =
    "   0: 0100007F:1F90 00000000:0000 0A 00000000:00000000 00:00000000 00000000     0        0 "
    "8123 1 0000000000000000 100 0 0 10 0";
const std::string kListenerV6 =
    "  12: 00000000000000000000000001000000:01BB 00000000000000000000000000000000:0000 0A "
    "00000000:00000000 00:00000000 00000000  1000        0 4294967296 1 ffff8881 100 0 0 10 0";
const std::string kDatagram =
    "12345: 00000000:0044 00000000:0000 07 00000000:00000000 00:00000000 00000000   998        0 "
    "1 2 0000000000000000 0";

// Returns `line` with its first `from` replaced, to write a table of near misses.
std::string With(std::string line, const std::string &from, const std::string &to) {
    return line.replace(line.find(from), from.size(), to);
}

TEST(SocketLine, GivesPortStateAndInode) {
    EXPECT_EQ(Fast(kListener), "8080 tcp state 10 inode 8123");
    EXPECT_EQ(Fast(kListenerV6), "443 tcp state 10 inode 4294967296");
    EXPECT_EQ(Fast(kDatagram), "68 tcp state 7 inode 1");
}

TEST(SocketLine, LeavesTheRecordAloneWhereItIsNone) {
    RawSocketInfo info = {.uPort = 7, .uState = 8, .ulInode = 9, .uProtocol = 2};
    EXPECT_FALSE(ReadSocketLine(kTableHeader, info));
    EXPECT_FALSE(ReadSocketLine(kListener.substr(0, kListener.find("8123")).c_str(), info));
    EXPECT_EQ(Describe(info), "7 udp state 8 inode 9");
    EXPECT_TRUE(ReadSocketLine(kListener.c_str(), info));
    EXPECT_EQ(Describe(info), "8080 udp state 10 inode 8123") << "the protocol is the caller's";
}

TEST(SocketLine, EndsAnywhereAfterTheInode) {
    const std::size_t end = kListener.find("8123") + 4;
    for (std::size_t length = 0; length <= kListener.size(); ++length) {
        const std::string line = kListener.substr(0, length);
        EXPECT_EQ(Fast(line) != kNothing, length > end - 4) << line;
        EXPECT_EQ(Fast(line), Scanned(line)) << line;
    }
}

struct NearMiss {
    const char *from;
    std::string to;
    const char *expected;
};

TEST(SocketLine, IsAsLenientAsFormattedReading) {
    const std::string digits20 = "18446744073709551615";
    const NearMiss cases[] = {
        {"   0:", "0:", "8080 tcp state 10 inode 8123"},
        {"   0:", "\t\r\n\v\f 0:", "8080 tcp state 10 inode 8123"},
        {"   0:", "-7:", "8080 tcp state 10 inode 8123"},
        {"   0:", "+7:", "8080 tcp state 10 inode 8123"},
        {"   0:", std::string(400, '9') + ":", "8080 tcp state 10 inode 8123"},
        {"   0:", "0 :", kNothing},
        {"   0:", ":", kNothing},
        {"   0:", "x:", kNothing},
        {"   0:", "", kNothing},
        {"0: ", "0:", "8080 tcp state 10 inode 8123"},
        {"0: ", "0:\t  ", "8080 tcp state 10 inode 8123"},
        {"0100007F", "0100007f", "8080 tcp state 10 inode 8123"},
        {"0100007F", std::string(64, 'A'), "8080 tcp state 10 inode 8123"},
        {"0100007F", std::string(65, 'A'), kNothing},
        {"0100007F", "", kNothing},
        {"0100007F", "0x00007F", kNothing},
        {":1F90", ":1f90", "8080 tcp state 10 inode 8123"},
        {":1F90", ": 1F90", "8080 tcp state 10 inode 8123"},
        {":1F90", ":0x1F90", "8080 tcp state 10 inode 8123"},
        {":1F90", ":0X1f90", "8080 tcp state 10 inode 8123"},
        {":1F90", ":00001F90", "8080 tcp state 10 inode 8123"},
        {":1F90", ":21F90", "8080 tcp state 10 inode 8123"},
        {":1F90", ":-1", "65535 tcp state 10 inode 8123"},
        {":1F90", ":FFFF", "65535 tcp state 10 inode 8123"},
        {":1F90", ":0", "0 tcp state 10 inode 8123"},
        {":1F90", ":1F90.", kNothing},
        {":1F90", ":G", kNothing},
        {":1F90", ":", kNothing},  // the peer's address is read as the port
        {"1F90 0", "1F900", kNothing},
        {" 00000000:0000 ", "\t00000000:0000\t", "8080 tcp state 10 inode 8123"},
        {" 00000000:0000 ", " " + std::string(65, '0') + ":0000 ", kNothing},
        {" 00000000:0000 ", " 00000000:0x7 ", "8080 tcp state 10 inode 8123"},
        {" 00000000:0000 ", " 00000000:-FFFFFFFFF ", "8080 tcp state 10 inode 8123"},
        {" 00000000:0000 ", " 00000000 :0000 ", kNothing},
        {" 0A ", " 0a ", "8080 tcp state 10 inode 8123"},
        {" 0A ", " 0x0A ", "8080 tcp state 10 inode 8123"},
        {" 0A ", " FFFFFFFF ", "8080 tcp state 4294967295 inode 8123"},
        {" 0A ", " 10000000A ", nullptr},
        {" 0A ", " -1 ", "8080 tcp state 4294967295 inode 8123"},
        {" 0A ", "\t0A\t", "8080 tcp state 10 inode 8123"},
        {" 0A ", " G ", kNothing},
        {" 00000000:00000000 00", " 0:0 0", "8080 tcp state 10 inode 8123"},
        {" 00000000:00000000 00", " 0 :0 0", kNothing},
        {" 00000000:00000000 00", " 0: 0 0", "8080 tcp state 10 inode 8123"},
        {" 00000000:00000000 00", " FFFFFFFFFFFFFFFFFF:0 0", "8080 tcp state 10 inode 8123"},
        {"     0        0 8123", " -1 -1 8123", "8080 tcp state 10 inode 8123"},
        {"     0        0 8123", " 4294967294 18446744073709551616 8123",
         "8080 tcp state 10 inode 8123"},
        {"     0        0 8123", "\t0\t0\t8123", "8080 tcp state 10 inode 8123"},
        {"     0        0 8123", " 0 0   8123", "8080 tcp state 10 inode 8123"},
        {"     0        0 8123", " 0x0 0 8123", kNothing},
        {"     0        0 8123", " A 0 8123", kNothing},
        {" 8123", " 0", "8080 tcp state 10 inode 0"},
        {" 8123", " 9999999999999999999", "8080 tcp state 10 inode 9999999999999999999"},
        {" 8123", " " + digits20, "8080 tcp state 10 inode 18446744073709551615"},
        {" 8123", " 18446744073709551616", "8080 tcp state 10 inode 18446744073709551615"},
        {" 8123", " 0000000000000000000000000007", "8080 tcp state 10 inode 7"},
        {" 8123", " -1", "8080 tcp state 10 inode 18446744073709551615"},
        {" 8123", " +1", "8080 tcp state 10 inode 1"},
        {" 8123", " 8123\r", "8080 tcp state 10 inode 8123"},
        {" 8123", " 8123x", "8080 tcp state 10 inode 8123"},
        {" 8123", " 0x10", "8080 tcp state 10 inode 0"},
        {" 8123", " x", kNothing},
        {" 8123", "8123", "8080 tcp state 10 inode 1"},  // the timeout is 08123, and the inode is 1
    };
    for (const NearMiss &c : cases) {
        const std::string line = With(kListener, c.from, c.to);
        EXPECT_EQ(Fast(line), Scanned(line)) << line;
        if (c.expected != nullptr) {
            EXPECT_EQ(Fast(line), c.expected) << line;
        }
    }
}

TEST(SocketLine, AgreesWithFormattedReadingOnManyMutations) {
    static constexpr char kBytes[] = " \t\r\n:.-+xX0123456789abcdefABCDEFGz\x80";
    std::mt19937 random(4711);
    const auto below = [&](std::size_t end) { return random() % end; };
    int sockets = 0;
    for (int i = 0; i < 100000; ++i) {
        std::string line = i % 3 == 0 ? kListener : i % 3 == 1 ? kListenerV6 : kDatagram;
        for (std::size_t changes = 1 + below(3); changes > 0; --changes) {
            const std::size_t at = below(line.size());
            const char byte = kBytes[below(sizeof(kBytes) - 1)];
            switch (below(4)) {
                case 0:
                    line[at] = byte;
                    break;
                case 1:
                    line.insert(at, 1 + below(2), byte);
                    break;
                case 2:
                    line.erase(at, 1 + below(3));
                    break;
                default:
                    line.insert(at, line, below(line.size()), below(30));
            }
        }
        const std::string expected = Scanned(line);
        ASSERT_EQ(Fast(line), expected) << line;
        sockets += expected != kNothing ? 1 : 0;
    }
    EXPECT_GT(sockets, 10000);
    EXPECT_LT(sockets, 90000);
}

class SocketTable : public RuntimeTest {
  protected:
    static TLIBCDList *NewList() {
        return TLIBCDListAlloc(
            [](const void *p) -> void * {
                return RawSocketInfoCopy(static_cast<const RawSocketInfo *>(p));
            },
            [](void *p) { RawSocketInfoFree(static_cast<RawSocketInfo *>(p)); });
    }

    int ParseFile(const std::string &path, uint16_t protocol = TAVO_PROTO_TCP) {
        return ParseToRawSocketInfo(path.c_str(), protocol, list_.get());
    }

    std::vector<std::string> Parse(const std::string &contents,
                                   uint16_t protocol = TAVO_PROTO_TCP) {
        EXPECT_EQ(ParseFile(folder_.Write("table", contents), protocol), 0);
        return Sockets(list_.get());
    }

    void Add(const RawSocketInfo &info) { TLIBCDListAppend(list_.get(), &info); }

    TemporaryFolder folder_;
    Elements list_{NewList()};
};

TEST_F(SocketTable, GivesItsSocketsInOrderWithoutTheHeader) {
    EXPECT_THAT(Parse(kTableHeader + kListenerV6 + "\n" + kDatagram + "\n" + kListener, 2),
                ElementsAre("443 udp state 10 inode 4294967296", "68 udp state 7 inode 1",
                            "8080 udp state 10 inode 8123"));
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(ErrorState(), "0x0 ");
}

TEST_F(SocketTable, TakesTheCallersProtocolAsItIs) {
    EXPECT_THAT(Parse(SocketLine(80, 10, 1), 7), ElementsAre("80 7 state 10 inode 1"));
}

TEST_F(SocketTable, MayBeEmptyOrGarbage) {
    for (const std::string contents : {"", "\n\n\n", kTableHeader, "garbage", "\xff\xfe\x01"}) {
        EXPECT_THAT(Parse(contents), IsEmpty());
    }
    EXPECT_THAT(Parse(std::string("\0\0\n\0", 4)), IsEmpty());
}

TEST_F(SocketTable, KeepsEveryStateAndAddress) {
    std::string lines;
    for (unsigned state = 0; state <= 12; ++state) {
        lines += SocketLine(80, state, state == 6 ? 0 : 100);
    }
    EXPECT_THAT(Parse(lines + With(SocketLine(81, 10, 5), "0100007F", "00000000")), SizeIs(14));
}

TEST_F(SocketTable, PassesOverLinesThatAreNoSocket) {
    EXPECT_THAT(Parse(SocketLine(1, 10, 1) + "   0: 0100007F:0002 00000000:0000 0A\n\n" +
                      std::string(1 << 20, 'A') + "\n" + std::string(1 << 20, ' ') + "\n" +
                      SocketLine(3, 10, 3)),
                ElementsAre("1 tcp state 10 inode 1", "3 tcp state 10 inode 3"));
}

TEST_F(SocketTable, ReadsLinesOfAnyLength) {
    EXPECT_THAT(Parse(std::string(1 << 20, ' ') + SocketLine(1, 10, 1) +
                      With(SocketLine(2, 10, 7), " 7 ", " " + std::string(1 << 20, '9') + " ") +
                      With(SocketLine(3, 10, 3), "\n", std::string(1 << 20, 'z'))),
                ElementsAre("1 tcp state 10 inode 1", "2 tcp state 10 inode 18446744073709551615",
                            "3 tcp state 10 inode 3"));
}

TEST_F(SocketTable, ReadsAnyLineEnd) {
    EXPECT_THAT(
        Parse(With(SocketLine(1, 10, 1), "\n", "\r\n") +
              With(SocketLine(2, 10, 2), " 1 0000000000000000", std::string(1, '\0')) +
              With(SocketLine(3, 10, 3), " 3 ", std::string(1, '\0') + " 3 ") +
              SocketLine(4, 10, 4).substr(0, SocketLine(4, 10, 4).find(" 4 ") + 2)),
        ElementsAre("1 tcp state 10 inode 1", "2 tcp state 10 inode 2", "4 tcp state 10 inode 4"));
}

TEST_F(SocketTable, ListsALineOnce) {
    EXPECT_THAT(Parse(SocketLine(80, 10, 1) + SocketLine(81, 10, 1) + SocketLine(80, 10, 1) +
                      With(SocketLine(80, 10, 1), "0100007F", "00000000") +
                      With(SocketLine(80, 10, 1), "   0:", "   9:")),
                ElementsAre("80 tcp state 10 inode 1", "81 tcp state 10 inode 1"));
}

TEST_F(SocketTable, DistinguishesSocketsByPortStateInodeAndProtocol) {
    EXPECT_THAT(Parse(SocketLine(80, 10, 1) + SocketLine(81, 10, 1) + SocketLine(80, 1, 1) +
                      SocketLine(80, 10, 2)),
                SizeIs(4));
    EXPECT_THAT(Parse(SocketLine(80, 10, 1), TAVO_PROTO_UDP), SizeIs(5));
}

TEST_F(SocketTable, DistinguishesSocketsByAnySingleBit) {
    std::string lines = SocketLine(80, 10, 1);
    for (unsigned bit = 0; bit < 32; ++bit) {
        lines += SocketLine(80, 10 ^ (1U << bit), 1);
        lines += SocketLine(80, 10, 1 ^ (1UL << bit)) + SocketLine(80, 10, 1 ^ (1UL << (32 + bit)));
        lines += bit < 16 ? SocketLine(80 ^ (1U << bit), 10, 1) : "";
    }
    EXPECT_THAT(Parse(lines), SizeIs(1 + 3 * 32 + 16));
    EXPECT_THAT(Parse(lines, TAVO_PROTO_UDP), SizeIs(2 * (1 + 3 * 32 + 16)));
}

TEST_F(SocketTable, ListsNothingThatIsInTheListAlready) {
    Add({.uPort = 80, .uState = 10, .ulInode = 1, .uProtocol = 1});
    Add({.uPort = 80, .uState = 10, .ulInode = 1, .uProtocol = 1});
    Parse(SocketLine(80, 10, 1) + SocketLine(81, 10, 1));
    EXPECT_THAT(Parse(SocketLine(82, 10, 1) + SocketLine(81, 10, 1)),
                ElementsAre("80 tcp state 10 inode 1", "80 tcp state 10 inode 1",
                            "81 tcp state 10 inode 1", "82 tcp state 10 inode 1"));
}

TEST_F(SocketTable, MayBeLarge) {
    std::string lines;
    for (unsigned i = 0; i < 60000; ++i) {
        lines += SocketLine(i % 30000, 10, i % 30000);
    }
    EXPECT_THAT(Parse(lines), SizeIs(30000)) << "the second half is known";
}

TEST_F(SocketTable, MustExist) {
    Add({.uPort = 80, .uState = 10, .ulInode = 1, .uProtocol = 1});
    EXPECT_EQ(ParseFile("/absent/tcp6"), -1);
    EXPECT_EQ(ErrorState(), "0x700 port_conflict_runtime_helper.cpp");
    EXPECT_EQ(ParseToRawSocketInfo(nullptr, TAVO_PROTO_TCP, list_.get()), -1);
    EXPECT_EQ(ErrorState(), "0xD00 port_conflict_runtime_helper.cpp");
    EXPECT_THAT(Messages(), ElementsAre("Failed to access File: /absent/tcp6 (Not Exist)",
                                        "Failed to access File: (null) (Not Exist)"));
    EXPECT_THAT(Sockets(list_.get()), ElementsAre("80 tcp state 10 inode 1"));
}

TEST_F(SocketTable, MustOpen) {
    const std::string pipe = folder_ / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string &path : {folder_.Path(), pipe}) {
        TLIBCErrSetEx(0, nullptr, 0);
        log_.Clear();
        EXPECT_EQ(ParseFile(path), -1);
        EXPECT_EQ(TLIBCErrGet(), 0x900u);
        EXPECT_THAT(Messages(), ElementsAre("Failed to open File: " + path + "\n"));
        EXPECT_THAT(Sockets(list_.get()), IsEmpty());
    }
}

TEST_F(SocketTable, NeedsAList) {
    const std::string path = folder_.Write("table", SocketLine(80, 10, 1));
    EXPECT_EQ(ParseToRawSocketInfo(path.c_str(), TAVO_PROTO_TCP, nullptr), -1);
    EXPECT_EQ(ErrorState(), "0xD00 port_conflict_runtime_helper.cpp");
    EXPECT_THAT(Messages(), ElementsAre("pRawSocketInfoList is undefined"));
}

TEST_F(SocketTable, ThatMemoryDoesNotHoldIsAnError) {
    std::string lines;
    for (unsigned i = 0; i < 70; ++i) {  // enough for the set of known sockets to grow
        lines += SocketLine(80 + i, 10, i);
    }
    const std::string path = folder_.Write("table", lines);
    std::vector<std::string> reported;
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        list_.reset(NewList());
        Add({.uPort = 1, .uState = 10, .ulInode = 1, .uProtocol = 1});
        const int result = fail.During([&] { return ParseFile(path); });
        const std::vector<std::string> sockets = Sockets(list_.get());
        ASSERT_EQ(result, fail.Hit() ? -1 : 0);
        ASSERT_EQ(sockets[0], "1 tcp state 10 inode 1") << "what was there stays";
        if (result == 0) {
            ASSERT_THAT(sockets, SizeIs(71));
            return;
        }
        ASSERT_EQ(TLIBCErrGet(), 0x200u);
        reported.push_back(Messages().back());
        ASSERT_LT(sockets.size(), 71u);
        if (sockets.size() > 1) {
            ASSERT_EQ(sockets[1], "80 tcp state 10 inode 0") << "what was appended stays";
        }
    });
    EXPECT_GT(allocations, 140);
    for (const std::string message : {"Failed to alloc pInfo, Out of memory.[0x0200]",
                                      "Failed to alloc pNetRecords, Out of memory.[0x0200]"}) {
        EXPECT_THAT(reported, testing::Contains(message));
    }
    EXPECT_THAT(reported, testing::Contains("Failed to parse File: " + path + ".[0x0200]"));
}

class RawSocket : public SocketTable {
  protected:
    const RawSocketInfo info_ = {.uPort = 80, .uState = 10, .ulInode = 8123, .uProtocol = 1};
};

TEST_F(RawSocket, StartsAsZeros) {
    RawSocketInfo *pInfo = RawSocketInfoAlloc();
    EXPECT_EQ(Describe(*pInfo), "0 0 state 0 inode 0");
    RawSocketInfoFree(pInfo);
    RawSocketInfoFree(nullptr);
}

TEST_F(RawSocket, IsCopiedWhole) {
    const RawSocketInfo largest = {
        .uPort = 65535, .uState = 4294967295, .ulInode = 18446744073709551615u, .uProtocol = 2};
    RawSocketInfo *pCopy = RawSocketInfoCopy(&largest);
    ASSERT_NE(pCopy, &largest);
    EXPECT_EQ(Describe(*pCopy), Describe(largest));
    RawSocketInfoFree(pCopy);
}

TEST_F(RawSocket, IsNullWhenMemoryRunsOut) {
    FailingAllocation first(1, FailingAllocation::Mode::kOnlyNth);
    EXPECT_EQ(first.During([] { return RawSocketInfoAlloc(); }), nullptr);
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(first.During([&] { return RawSocketInfoCopy(&info_); }), nullptr);
    EXPECT_THAT(Messages(), ElementsAre("Failed to allocate RawSocketInfo"));
}

TEST_F(RawSocket, IsFoundByPortStateProtocolAndInode) {
    EXPECT_EQ(ContainRawSocketInfo(list_.get(), &info_), 0) << "the list is empty";
    Add({.uPort = 1, .uState = 2, .ulInode = 3, .uProtocol = 2});
    Add(info_);
    EXPECT_EQ(ContainRawSocketInfo(list_.get(), &info_), 1);
    for (auto change : std::vector<void (*)(RawSocketInfo &)>{
             [](RawSocketInfo &info) { info.uPort = 81; },
             [](RawSocketInfo &info) { info.uState = 1; },
             [](RawSocketInfo &info) { info.ulInode += uint64_t{1} << 32; },
             [](RawSocketInfo &info) { info.uProtocol = 2; }}) {
        RawSocketInfo other = info_;
        change(other);
        EXPECT_EQ(ContainRawSocketInfo(list_.get(), &other), 0) << Describe(other);
    }
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(RawSocket, IsNotFoundInOrAsNothing) {
    EXPECT_EQ(ContainRawSocketInfo(nullptr, &info_), 0);
    EXPECT_EQ(ErrorState(), "0xD00 port_conflict_runtime_helper.cpp");
    TLIBCErrSetEx(0, nullptr, 0);
    EXPECT_EQ(ContainRawSocketInfo(list_.get(), nullptr), 0);
    EXPECT_EQ(ErrorState(), "0xD00 port_conflict_runtime_helper.cpp");
    EXPECT_THAT(Messages(), ElementsAre("pRawSocketInfoList is undefined", "pInfo is undefined"));
}

}  // namespace
}  // namespace tavo::test

// The records of held sockets.
#include <arpa/inet.h>

#include "check/held_sockets.h"
#include "runtime_test.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// "127.0.0.1", "::1"; "?" for any other kind of address.
std::string AddressText(const SocketAddress &address) {
    char text[INET6_ADDRSTRLEN];
    return address.family == AF_UNSPEC
               ? "?"
               : inet_ntop(address.family, &address.bytes, text, sizeof(text));
}

// "127.0.0.1 8080 tcp state 10 inode 7: 12 /bin/a, 13", in the order of the records.
std::vector<std::string> Describe(const HeldSockets &held) {
    std::vector<std::string> texts;
    for (const SocketRecord &socket : held.Sockets()) {
        std::string text = AddressText(socket.address) + ' ' +
                           PortAndProtocol(socket.port, socket.protocol) + " state " +
                           std::to_string(socket.state) + " inode " + std::to_string(socket.inode);
        const char *separator = ": ";
        for (const std::size_t holder : held.HoldersOf(socket)) {
            const HoldingProcessRecord &process = held.Processes()[holder];
            text += std::exchange(separator, ", ") + std::to_string(process.pid) +
                    (process.program == nullptr ? "" : std::string(" ") + process.program);
        }
        texts.push_back(text);
    }
    return texts;
}

std::vector<std::string> Held() {
    HeldSockets held;
    EXPECT_TRUE(held.Read());
    return Describe(held);
}

class HeldSocketRecords : public LibraryTest {
  protected:
    const StagedProc proc_;
};

TEST_F(HeldSocketRecords, HaveAddressPortStateInodeAndHolders) {
    StagedProc::AddProcess("12", {"socket:[7]", "/dev/null", "socket:[7]", "socket:[9]"}, "/bin/a");
    StagedProc::AddProcess("13", {"socket:[7]"}, "/bin/b");
    StagedProc::Table("tcp", SocketLine(8080, 10, 7));
    StagedProc::Table("tcp6",
                      "   0: 00000000000000000000000001000000:01BB "
                      "00000000000000000000000000000000:0000 01 00000000:00000000 00:00000000 "
                      "00000000     0        0 8 1 0000000000000000 100 0 0 10 0\n");
    StagedProc::AddProcess("14", {"socket:[8]"});
    StagedProc::Table("udp", SocketLine(53, 7, 9));
    EXPECT_THAT(Held(), ElementsAre("127.0.0.1 8080 tcp state 10 inode 7: 13 /bin/b, 12 /bin/a",
                                    "::1 443 tcp state 1 inode 8: 14 /bin/program",
                                    "127.0.0.1 53 udp state 7 inode 9: 12 /bin/a"));
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(HeldSocketRecords, HaveNoHolderThatHasEnded) {
    StagedProc::AddProcess("12", {"socket:[7]"}, "");
    StagedProc::AddProcess("13", {"socket:[7]"}, "/bin/b");
    StagedProc::Table("tcp", SocketLine(8080, 10, 7));
    EXPECT_THAT(Held(), ElementsAre("127.0.0.1 8080 tcp state 10 inode 7: 13 /bin/b"));
}

// A socket in TIME_WAIT belongs to the kernel.
TEST_F(HeldSocketRecords, AreThoseThatHaveAnInode) {
    StagedProc::Table("tcp", SocketLine(8080, 6, 0) + SocketLine(8081, 10, 7));
    EXPECT_THAT(Held(), ElementsAre("127.0.0.1 8081 tcp state 10 inode 7"));
}

TEST_F(HeldSocketRecords, NeedNoTablesOfIpv6) {
    StagedProc::AddProcess("12", {"socket:[7]"});
    StagedProc::Table("tcp", SocketLine(8080, 10, 7));
    std::filesystem::remove("/proc/net/tcp6");
    std::filesystem::remove("/proc/net/udp6");
    EXPECT_THAT(Held(), ElementsAre("127.0.0.1 8080 tcp state 10 inode 7: 12 /bin/program"));
}

TEST_F(HeldSocketRecords, NameTheTableThatCannotBeRead) {
    std::filesystem::remove("/proc/net/udp");
    HeldSockets held;
    EXPECT_FALSE(held.Read());
    EXPECT_STREQ(held.Path(), "/proc/net/udp");
    EXPECT_EQ(held.Code(), unsigned{TLIBC_ERR_NO_FILE});
    EXPECT_EQ(ErrorState(), "0x700 held_sockets.cpp");
    EXPECT_THAT(Messages(), ElementsAre("Failed to access File: /proc/net/udp (Not Exist)"));
}

TEST_F(HeldSocketRecords, NameNoTableWhereProcessesCannotBeRead) {
    StagedProc::AddProcess("12", {});
    std::filesystem::remove("/proc/12/fd");
    std::filesystem::create_symlink("fd", "/proc/12/fd");
    HeldSockets held;
    EXPECT_FALSE(held.Read());
    EXPECT_EQ(held.Path(), nullptr);
    EXPECT_EQ(held.Code(), unsigned{TLIBC_ERR_FILE_UNUSABLE});
    EXPECT_THAT(Messages(), ElementsAre("Failed to read the sockets of process 12.[0x0900]"));
}

// Without memory, the records are complete or the read fails.
TEST_F(HeldSocketRecords, AreNeverLostWithoutMemory) {
    StagedProc::AddProcess("12", {"socket:[7]"}, "/bin/a");
    StagedProc::Table("tcp", SocketLine(8080, 10, 7) + SocketLine(8081, 10, 99));
    const std::vector<std::string> whole = Held();
    ASSERT_EQ(whole.size(), 2U);
    int failures = 0;
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        TLIBCErrSetEx(0, nullptr, 0);
        log_.Clear();
        HeldSockets held;
        if (fail.During([&] { return held.Read(); })) {
            EXPECT_EQ(Describe(held), whole);
            return;
        }
        ++failures;
        EXPECT_EQ(held.Code(), unsigned{TLIBC_ERR_NO_MEMORY});
        EXPECT_THAT(Messages(), testing::Not(IsEmpty()));
    });
    EXPECT_GT(allocations, 20);
    EXPECT_GT(failures, 20);
}

TEST(SocketAddresses, AreReadFromAnyLineThatIsASocket) {
    const std::pair<const char *, const char *> cases[] = {
        {"   0: 0100007F:1F90 00000000:0000 0A", "127.0.0.1"},
        {"7:\t 0200007f:1F90", "127.0.0.2"},
        {"0: 00000000000000000000000000000000:0050", "::"},
        {"0: 0000000000000000FFFF00000100007F:0050", "::ffff:127.0.0.1"},
        {"0: 100007F:1F90", "?"},
        {"0: 0:1F90", "?"},
        {"0: 000000000000000000000000000000001:0050", "?"},
    };
    for (const auto &[line, address] : cases) {
        EXPECT_EQ(AddressText(ReadSocketAddress(line)), address) << line;
    }
}

}  // namespace
}  // namespace tavo::test

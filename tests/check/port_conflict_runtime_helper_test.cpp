// The holders of ports, with a staged /proc that contains anything that a kernel may write.
#include "failing_allocation.h"
#include "runtime_test.h"

namespace tavo::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace fs = std::filesystem;

constexpr char kFromList[] = "0xD00 port_conflict_runtime_helper.cpp";
constexpr char kFromRecords[] = "0xD00 port_conflict_runtime_helper.cpp";

class SocketList : public StagedTest {
  protected:
    static std::vector<std::string> Fetch(uint16_t protocol) {
        const Elements sockets(RawSocketInfoListFetch(protocol));
        EXPECT_NE(sockets, nullptr);
        return Sockets(sockets.get());
    }
};

TEST_F(SocketList, HasTheTablesOfTheProtocols) {
    StagedProc::Table("udp6", SocketLine(4, 7, 4));
    StagedProc::Table("udp", SocketLine(3, 7, 3));
    StagedProc::Table("tcp6", SocketLine(2, 10, 2));
    StagedProc::Table("tcp", SocketLine(1, 10, 1) + SocketLine(5, 1, 5));
    const std::vector<std::string> tcp = {"1 tcp state 10 inode 1", "5 tcp state 1 inode 5",
                                          "2 tcp state 10 inode 2"};
    const std::vector<std::string> udp = {"3 udp state 7 inode 3", "4 udp state 7 inode 4"};
    EXPECT_EQ(Fetch(TAVO_PROTO_TCP), tcp);
    EXPECT_EQ(Fetch(TAVO_PROTO_UDP), udp);
    EXPECT_THAT(Fetch(TAVO_PROTO_BOTH), SizeIs(5));
    EXPECT_THAT(Fetch(TAVO_PROTO_BOTH)[3], udp[0]);
}

TEST_F(SocketList, HasASocketOfTwoTablesOnce) {
    for (const char *table : {"tcp", "tcp6", "udp", "udp6"}) {
        StagedProc::Table(table, SocketLine(1, 7, 1));
    }
    EXPECT_THAT(Fetch(TAVO_PROTO_BOTH),
                ElementsAre("1 tcp state 7 inode 1", "1 udp state 7 inode 1"));
}

TEST_F(SocketList, NeedsALegalProtocol) {
    for (const int protocol : {0, 4, 5, 7, 65535}) {
        TLIBCErrSetEx(0, nullptr, 0);
        log_.Clear();
        EXPECT_EQ(RawSocketInfoListFetch(static_cast<uint16_t>(protocol)), nullptr);
        EXPECT_EQ(ErrorState(), kFromList);
        EXPECT_THAT(Messages(), ElementsAre("Illegal protocol: " + std::to_string(protocol)));
    }
}

TEST_F(SocketList, NeedsTheTablesOfItsProtocolsOnly) {
    for (const std::string table : {"tcp", "tcp6", "udp", "udp6"}) {
        const uint16_t needed = table[0] == 't' ? TAVO_PROTO_TCP : TAVO_PROTO_UDP;
        const std::string path = "/proc/net/" + table;
        fs::remove(path);
        for (const uint16_t protocol : {needed, uint16_t{TAVO_PROTO_BOTH}}) {
            log_.Clear();
            EXPECT_EQ(RawSocketInfoListFetch(protocol), nullptr);
            EXPECT_EQ(ErrorState(), "0x700 port_conflict_runtime_helper.cpp");
            EXPECT_THAT(Messages(), ElementsAre("Failed to access File: " + path + " (Not Exist)",
                                                "Failed to ParseToRawSocketInfo"));
        }
        EXPECT_THAT(Fetch(static_cast<uint16_t>(TAVO_PROTO_BOTH - needed)), IsEmpty());
        StagedProc::Table(table, "");
    }
}

TEST_F(SocketList, IsNullWhenMemoryRunsOut) {
    StagedProc::Table("tcp", SocketLine(1, 10, 1));
    StagedProc::Table("udp6", SocketLine(2, 10, 2));
    const auto messages =
        WithoutMemory([] { return RawSocketInfoListFetch(3); },
                      [](TLIBCDList *pSockets) {
                          const bool got = pSockets != nullptr;
                          EXPECT_THAT(Sockets(Elements(pSockets).get()), SizeIs(got ? 2 : 0));
                          return got;
                      });
    EXPECT_THAT(messages, Contains("Failed to alloc pRawSocketInfoList, Out of memory.[0x0200]"));
    EXPECT_THAT(messages, Contains("Failed to ParseToRawSocketInfo"));
}

class HeldPorts : public StagedTest {};

TEST_F(HeldPorts, NameEveryHolderInTheOrderOfTheTables) {
    StagedProc::AddProcess("9", {"socket:[1]", "socket:[4]"}, "/bin/nine");
    StagedProc::AddProcess("10", {"socket:[1]", "socket:[2]", "socket:[3]"}, "/bin/ten");
    StagedProc::Table("udp6", SocketLine(444, 7, 4));
    StagedProc::Table("udp", SocketLine(333, 7, 3));
    StagedProc::Table("tcp6", SocketLine(222, 10, 2));
    StagedProc::Table("tcp", SocketLine(65535, 10, 1));
    EXPECT_THAT(Held(),
                ElementsAre("65535 tcp 9 in state 10 /bin/nine",
                            "65535 tcp 10 in state 10 /bin/ten", "222 tcp 10 in state 10 /bin/ten",
                            "333 udp 10 in state 7 /bin/ten", "444 udp 9 in state 7 /bin/nine"));
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(ErrorState(), "0x0 ");
}

TEST_F(HeldPorts, NameAProcessOncePerState) {
    StagedProc::AddProcess("5", {"socket:[1]", "socket:[2]", "socket:[3]", "socket:[1]"});
    StagedProc::Table("tcp", SocketLine(80, 10, 1) + SocketLine(80, 1, 3));
    StagedProc::Table("tcp6", SocketLine(80, 10, 2));
    EXPECT_THAT(Held(), ElementsAre("80 tcp 5 in state 10 /bin/program",
                                    "80 tcp 5 in state 1 /bin/program"));
}

TEST_F(HeldPorts, AreDistinguishedByAnyBitOfPortProcessAndState) {
    std::string lines;
    std::vector<std::string> expected;
    const auto hold = [&](unsigned port, unsigned state) {
        lines += SocketLine(port, state, 1);
        for (const char *pid : {"5", "4"}) {
            expected.push_back(std::to_string(port) + " tcp " + pid + " in state " +
                               std::to_string(state));
        }
    };
    hold(80, 10);
    for (unsigned bit = 0; bit < 16; ++bit) {
        hold(80 ^ (1U << bit), 10);
    }
    for (unsigned bit = 0; bit < 32; ++bit) {
        hold(80, 10 ^ (1U << bit));
    }
    StagedProc::AddProcess("4", {"socket:[1]"}, "");
    StagedProc::AddProcess("5", {"socket:[1]"}, "");
    StagedProc::Table("tcp", lines);
    EXPECT_EQ(Held(), expected);
}

// The folder name 4294967295 is read as -1. As an unsigned number this is 4294967295 again.
TEST_F(HeldPorts, HaveProcessesOfAnyNumber) {
    StagedProc::AddProcess("-1", {"socket:[1]"}, "");
    StagedProc::AddProcess("2147483647", {"socket:[1]"}, "/bin/program");
    StagedProc::AddProcess("4294967295", {}, "/bin/largest");
    StagedProc::Table("tcp", SocketLine(80, 4294967295, 1));
    EXPECT_THAT(Held(), ElementsAre("80 tcp 4294967295 in state 4294967295 /bin/largest",
                                    "80 tcp 2147483647 in state 4294967295 /bin/program"));
}

TEST_F(HeldPorts, LackSocketsThatNobodyHolds) {
    StagedProc::AddProcess("5", {"socket:[1]"});
    StagedProc::Table("tcp", SocketLine(80, 6, 0) + SocketLine(81, 10, 2));
    EXPECT_THAT(Held(), IsEmpty());
    EXPECT_NE(Elements(RuntimeServiceListFetch()), nullptr);
}

TEST_F(HeldPorts, LackTheProgramThatCannotBeRead) {
    StagedProc::AddProcess("5", {"socket:[1]"}, "");
    StagedProc::Table("tcp", SocketLine(80, 10, 1) + SocketLine(81, 10, 1));
    EXPECT_THAT(Held(), ElementsAre("80 tcp 5 in state 10", "81 tcp 5 in state 10"));
}

TEST_F(HeldPorts, NeedAllFourTables) {
    for (const std::string table : {"tcp", "tcp6", "udp", "udp6"}) {
        const std::string path = "/proc/net/" + table;
        fs::remove(path);
        log_.Clear();
        EXPECT_EQ(RuntimeServiceListFetch(), nullptr);
        EXPECT_EQ(TLIBCErrGet(), 0x700u);
        EXPECT_THAT(Messages(), ElementsAre("Failed to access File: " + path + " (Not Exist)",
                                            "Failed to ParseToRawSocketInfo",
                                            "Failed to RawSocketInfoListFetch"));
        fs::create_directory(path);
        log_.Clear();
        EXPECT_EQ(RuntimeServiceListFetch(), nullptr);
        EXPECT_EQ(TLIBCErrGet(), 0x900u);
        EXPECT_THAT(Messages(), Contains("Failed to open File: " + path + "\n"));
        fs::remove(path);
        StagedProc::Table(table, "");
    }
}

TEST_F(HeldPorts, FindTheHoldersBeforeTheSockets) {
    StagedProc::AddProcess("77", {});
    fs::remove("/proc/net/tcp");
    const auto messages = WithoutMemory([] { return RuntimeServiceListFetch(); },
                                        [](TLIBCDList *pHeld) {
                                            EXPECT_EQ(pHeld, nullptr);
                                            return TLIBCErrGet() == 0x700;
                                        });
    EXPECT_THAT(messages, Contains("Failed to InodeToPidsTableFetch")) << "not the missing table";
}

TEST_F(HeldPorts, AreAllOrNullWhenMemoryRunsOut) {
    StagedProc::AddProcess("77", {"socket:[8123]", "socket:[9]"}, "/bin/a");
    StagedProc::AddProcess("9", {"socket:[8123]"}, "/bin/b");
    StagedProc::Table("tcp", SocketLine(80, 10, 8123) + SocketLine(81, 10, 9));
    const auto messages = WithoutMemory(
        [] { return RuntimeServiceListFetch(); },
        [](TLIBCDList *pHeld) {
            const Elements held(pHeld);
            if (held != nullptr) {
                EXPECT_THAT(Results(held.get()),
                            ElementsAre(MayLackProgram("80 tcp 9 in state 10 /bin/b"),
                                        MayLackProgram("80 tcp 77 in state 10 /bin/a"),
                                        MayLackProgram("81 tcp 77 in state 10 /bin/a")));
                // At most one record may lack its text, the one that was copied during the failure.
                const std::vector<std::string> records = Results(held.get());
                EXPECT_LE(std::count_if(records.begin(), records.end(),
                                        [](const std::string &record) {
                                            return record.find(" /bin/") == std::string::npos;
                                        }),
                          1);
            }
            return held != nullptr;
        });
    for (const char *message :
         {"Failed to alloc pResultList, Out of memory.[0x0200]",
          "Failed to alloc pResult, Out of memory.[0x0200]",
          "Failed to alloc szProgram, Out of memory.[0x0200]", "Failed to InodeToPidsTableFetch",
          "Failed to RawSocketInfoListFetch", "Failed to map inode[8123] to pid",
          "Failed to map inode[9] to pid"}) {
        EXPECT_THAT(messages, Contains(message));
    }
}

class RuntimeResult : public LibraryTest {
  protected:
    void Add(const TAVO_RUNTIME_PORT_CONFLICT_RESULT &result) {
        TLIBCDListAppend(list_.get(), &result);
    }

    Elements list_{TAVORuntimePortConflictResultListAlloc()};
    TAVO_RUNTIME_PORT_CONFLICT_RESULT result_ = {.uPort = 80,
                                                 .uProtocol = 1,
                                                 .uPid = 812,
                                                 .uState = 10,
                                                 .szProgram = nullptr,
                                                 .blConflict = 1};
};

TEST_F(RuntimeResult, IsFoundByAllButItsProgram) {
    EXPECT_EQ(ContainRuntimeResult(list_.get(), &result_), 0) << "the list is empty";
    Add({});
    Add(result_);
    char program[] = "/bin/program";
    result_.szProgram = program;
    EXPECT_EQ(ContainRuntimeResult(list_.get(), &result_), 1);
    for (auto change : std::vector<void (*)(TAVO_RUNTIME_PORT_CONFLICT_RESULT &)>{
             [](TAVO_RUNTIME_PORT_CONFLICT_RESULT &other) { other.uPort = 81; },
             [](TAVO_RUNTIME_PORT_CONFLICT_RESULT &other) { other.uProtocol = 2; },
             [](TAVO_RUNTIME_PORT_CONFLICT_RESULT &other) { other.uPid = 813; },
             [](TAVO_RUNTIME_PORT_CONFLICT_RESULT &other) { other.uState = 1; },
             [](TAVO_RUNTIME_PORT_CONFLICT_RESULT &other) { other.blConflict = 0; }}) {
        TAVO_RUNTIME_PORT_CONFLICT_RESULT other = result_;
        change(other);
        EXPECT_EQ(ContainRuntimeResult(list_.get(), &other), 0) << Describe(other);
    }
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(RuntimeResult, IsNotFoundInOrAsNothing) {
    EXPECT_EQ(ContainRuntimeResult(nullptr, &result_), 0);
    EXPECT_EQ(ErrorState(), kFromRecords);
    TLIBCErrSetEx(0, nullptr, 0);
    EXPECT_EQ(ContainRuntimeResult(list_.get(), nullptr), 0);
    EXPECT_EQ(ErrorState(), kFromRecords);
    EXPECT_THAT(Messages(), ElementsAre("pResultList is undefined", "pResult is undefined"));
}

}  // namespace
}  // namespace tavo::test

// The runtime check with a staged /proc, and its answers for real sockets.
#include <set>

#include "asking.h"
#include "failing_allocation.h"
#include "runtime_test.h"

namespace tavo::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

std::vector<std::string> NoTableOf(const std::string &path, std::vector<std::string> more = {}) {
    more.insert(more.begin(), {"Failed to access File: " + path + " (Not Exist)",
                               "Failed to ParseToRawSocketInfo", "Failed to RawSocketInfoListFetch",
                               "Failed to ServiceConfListFetch"});
    return more;
}

// Port 80 is held by two processes, port 53 by one of them, and port 99 by none.
class RuntimeCheck : public RuntimeTest {
  protected:
    RuntimeCheck() {
        StagedProc::AddProcess("9", {"socket:[1]", "socket:[3]"}, "/bin/nine");
        StagedProc::AddProcess("10", {"socket:[2]"}, "/bin/ten");
        StagedProc::Table("tcp", SocketLine(80, 10, 1) + SocketLine(99, 6, 0));
        StagedProc::Table("tcp6", SocketLine(80, 10, 2));
        StagedProc::Table("udp", SocketLine(53, 7, 3));
    }

    int Ask(const std::vector<std::string> &ports, uint16_t protocol) {
        return TAVORuntimePortConflictCheck(Ports(ports).get(), protocol, results_.get());
    }

    std::vector<std::string> Found() const { return Results(results_.get()); }

    static constexpr char kNine[] = "80 tcp 9 in state 10 /bin/nine";
    static constexpr char kTen[] = "80 tcp 10 in state 10 /bin/ten";
    static constexpr char kDns[] = "53 udp 9 in state 7 /bin/nine";

    StagedProc proc_;
    Elements results_{TAVORuntimePortConflictResultListAlloc()};
};

TEST_F(RuntimeCheck, NamesEveryHolderOrNobodyForEachPortAndProtocol) {
    EXPECT_EQ(Ask({"53", "80", "81"}, TAVO_PROTO_BOTH), 0);
    EXPECT_THAT(Found(), ElementsAre("53 tcp free", kDns, kNine, kTen, "80 udp free", "81 tcp free",
                                     "81 udp free"));
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(ErrorState(), "0x0 ");
}

TEST_F(RuntimeCheck, LooksAtTheProtocolsThatItIsAskedFor) {
    EXPECT_EQ(Ask({"80", "53"}, TAVO_PROTO_TCP), 0);
    EXPECT_EQ(Ask({"80", "53"}, TAVO_PROTO_UDP), 0);
    EXPECT_THAT(Found(), ElementsAre(kNine, kTen, "53 tcp free", "80 udp free", kDns))
        << "each appends";
}

TEST_F(RuntimeCheck, TakesASocketThatNobodyHoldsForFree) {
    EXPECT_EQ(Ask({"99"}, TAVO_PROTO_TCP), 0);
    EXPECT_THAT(Found(), ElementsAre("99 tcp free"));
}

TEST_F(RuntimeCheck, AnswersAPortAsOftenAsItIsAsked) {
    EXPECT_EQ(Ask({"53", "053", "53"}, TAVO_PROTO_UDP), 0);
    EXPECT_THAT(Found(), ElementsAre(kDns, kDns, kDns));
    EXPECT_EQ(Ask({}, TAVO_PROTO_UDP), 0);
    EXPECT_THAT(Found(), SizeIs(3));
}

TEST_F(RuntimeCheck, PassesOverWhatIsNoPort) {
    EXPECT_EQ(Ask({"x", "0", "65536", "", "65589", "53 tcp"}, TAVO_PROTO_UDP), 0);
    EXPECT_THAT(Found(), ElementsAre(kDns, kDns)) << "65589 wraps";
    EXPECT_THAT(Messages(),
                ElementsAre("Failed on parse port: x", "Illegal port: x", "Illegal port: 0",
                            "Illegal port: 65536", "Failed on parse port: ", "Illegal port: "));
}

TEST_F(RuntimeCheck, NeedsALegalProtocolAndBothLists) {
    const OwnedStrings ports = Ports({"80"});
    const struct {
        const TLIBCSzList *pPorts;
        uint16_t protocol;
        TLIBCDList *pResults;
        const char *message;
    } cases[] = {
        {nullptr, 0, nullptr, "Illegal protocol: 0"},
        {ports.get(), 4, results_.get(), "Illegal protocol: 4"},
        {ports.get(), 65535, results_.get(), "Illegal protocol: 65535"},
        {nullptr, 1, nullptr, "pPortList is undefined"},
        {ports.get(), 1, nullptr, "pResultList is undefined"},
    };
    for (const auto &c : cases) {
        TLIBCErrSetEx(0, nullptr, 0);
        log_.Clear();
        EXPECT_EQ(TAVORuntimePortConflictCheck(c.pPorts, c.protocol, c.pResults), -1);
        EXPECT_EQ(TLIBCErrGet(), 0xD00u);
        EXPECT_THAT(Messages(), ElementsAre(c.message));
    }
    EXPECT_THAT(Found(), IsEmpty());
    ASSERT_FALSE(log_.Lines().empty());
    for (const CapturedLog::Line &line : log_.Lines()) {
        EXPECT_THAT(line.text, testing::StartsWith("port_conflict_runtime_check.cpp:"));
    }
}

TEST_F(RuntimeCheck, FailsWithoutTheTables) {
    Ask({"53"}, TAVO_PROTO_UDP);
    for (const std::string path : {"/proc/net/udp6", "/proc/net/tcp6"}) {
        std::filesystem::remove(path);
        log_.Clear();
        EXPECT_EQ(Ask({"80"}, TAVO_PROTO_UDP), -1) << "whatever the protocol";
        EXPECT_EQ(TLIBCErrGet(), 0x700u);
        EXPECT_EQ(Messages(), NoTableOf(path));
    }
    EXPECT_THAT(Found(), ElementsAre(kDns));
}

TEST_F(RuntimeCheck, TakesEveryPortForFreeWithoutProcesses) {
    for (const char *pid : {"9", "10"}) {
        std::filesystem::remove_all(std::string("/proc/") + pid);
    }
    EXPECT_EQ(Ask({"80"}, TAVO_PROTO_TCP), 0);
    EXPECT_THAT(Found(), ElementsAre("80 tcp free"));
}

TEST_F(RuntimeCheck, KeepsWhatItAppendedBeforeMemoryRanOut) {
    const OwnedStrings ports = Ports({"80", "81"});
    std::vector<std::string> messages;
    bool partly = false;
    ForEachFailingAllocation([&](FailingAllocation &fail) {
        log_.Clear();
        results_.reset(TAVORuntimePortConflictResultListAlloc());
        Ask({"53"}, TAVO_PROTO_UDP);
        TLIBCErrSetEx(0, nullptr, 0);
        const int result = fail.During([&] {
            return TAVORuntimePortConflictCheck(ports.get(), TAVO_PROTO_TCP, results_.get());
        });
        const std::vector<std::string> found = Found();
        ASSERT_EQ(found[0], kDns);
        if (result == 0) {
            ASSERT_THAT(found, ElementsAre(kDns, MayLackProgram(kNine), MayLackProgram(kTen),
                                           "81 tcp free"));
            return;
        }
        ASSERT_EQ(TLIBCErrGet(), 0x200u);
        ASSERT_LT(found.size(), 4u);
        messages.push_back(Messages().back());
        partly = partly || found == std::vector<std::string>{kDns, kNine, kTen};
    });
    EXPECT_TRUE(partly);
    for (const char *message : {"Failed to ServiceConfListFetch", "Failed to filter result list",
                                "Failed to append no conflict result"}) {
        EXPECT_THAT(messages, Contains(message));
    }
}

TEST_F(RuntimeCheck, FillsANewList) {
    const Elements results(
        TAVORuntimePortConflictResultListAllocAndCheck(Ports({"80"}).get(), TAVO_PROTO_BOTH));
    EXPECT_THAT(Results(results.get()), ElementsAre(kNine, kTen, "80 udp free"));
}

TEST_F(RuntimeCheck, FillsNoListOnFailure) {
    EXPECT_EQ(TAVORuntimePortConflictResultListAllocAndCheck(nullptr, 0), nullptr);
    EXPECT_EQ(ErrorState().substr(0, 6), "0xD00 ");
    EXPECT_THAT(Messages(), ElementsAre("pPortList is undefined"));
    log_.Clear();
    EXPECT_EQ(TAVORuntimePortConflictResultListAllocAndCheck(Ports({}).get(), 0), nullptr);
    EXPECT_THAT(Messages(),
                ElementsAre("Illegal protocol: 0", "Failed to TAVORuntimePortConflictCheck"));
}

TEST_F(RuntimeCheck, FillsNoListWithoutMemory) {
    const OwnedStrings ports = Ports({"80", "81"});
    std::set<std::string> ends;
    ForEachFailingAllocation([&](FailingAllocation &fail) {
        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        const Elements results(fail.During([&] {
            return TAVORuntimePortConflictResultListAllocAndCheck(ports.get(), TAVO_PROTO_TCP);
        }));
        if (results != nullptr) {
            ASSERT_THAT(Results(results.get()),
                        ElementsAre(MayLackProgram(kNine), MayLackProgram(kTen), "81 tcp free"));
            return;
        }
        ASSERT_EQ(TLIBCErrGet(), 0x200u);
        ends.insert(Messages().back());
    });
    EXPECT_THAT(ends, ElementsAre("Failed to TAVORuntimePortConflictCheck",
                                  "Failed to alloc TAVORuntimePortConflictResultListAlloc, Out of "
                                  "memory.[0x0200]"));
}

// Result lists that are created without a check.
class RuntimeResultList : public RuntimeTest {
  protected:
    RuntimeResultList() {
        for (const auto &[port, protocol, held] : {std::tuple{80, 1, 1u},
                                                   {53, 2, 1u},
                                                   {80, 2, 1u},
                                                   {80, 1, 1u},
                                                   {81, 1, 0u},
                                                   {82, 2, 0u},
                                                   {82, 2, 1u},
                                                   {83, 3, 1u},
                                                   {84, 1, 2u}}) {
            TAVO_RUNTIME_PORT_CONFLICT_RESULT result = {};
            result.uPort = static_cast<uint16_t>(port);
            result.uProtocol = static_cast<uint16_t>(protocol);
            result.blConflict = held;
            TLIBCDListAppend(list_.get(), &result);
        }
    }

    std::vector<std::string> Conflicts(uint16_t protocol,
                                       const std::vector<std::string> &known = {}) {
        const OwnedStrings ports = Ports(known);
        EXPECT_EQ(TAVORuntimeListConflictPorts(list_.get(), protocol, ports.get()), 0);
        return Texts(ports.get());
    }

    Elements list_{TAVORuntimePortConflictResultListAlloc()};
};

TEST_F(RuntimeResultList, GivesEachHeldPortOnce) {
    EXPECT_THAT(Conflicts(TAVO_PROTO_BOTH), ElementsAre("80", "53", "82"));
    EXPECT_THAT(Conflicts(TAVO_PROTO_TCP), ElementsAre("80"));
    EXPECT_THAT(Conflicts(TAVO_PROTO_UDP), ElementsAre("53", "80", "82"));
    EXPECT_THAT(Conflicts(0), IsEmpty());
    EXPECT_THAT(Conflicts(7), ElementsAre("80", "53", "82")) << "only two bits count";
    EXPECT_THAT(Conflicts(TAVO_PROTO_BOTH, {"82", "080"}), ElementsAre("82", "080", "80", "53"));
}

TEST_F(RuntimeResultList, NeedsBothListsToGivePorts) {
    const OwnedStrings ports = Ports({});
    EXPECT_EQ(TAVORuntimeListConflictPorts(nullptr, TAVO_PROTO_BOTH, nullptr), -1);
    EXPECT_EQ(TAVORuntimeListConflictPorts(list_.get(), TAVO_PROTO_BOTH, nullptr), -1);
    EXPECT_EQ(TLIBCErrGet(), 0xD00u);
    EXPECT_THAT(Messages(),
                ElementsAre("pResultList is undefined", "pConflictPortList is undefined"));
}

TEST_F(RuntimeResultList, ReportsWhetherAPortIsHeldFreeOrNotListed) {
    const struct {
        uint16_t port;
        uint16_t protocol;
        int expected;
    } cases[] = {{80, 1, 1},  {80, 3, 1},  {53, 1, -2}, {53, 2, 1},  {53, 3, 1},  {81, 1, 0},
                 {81, 3, 0},  {81, 2, -2}, {82, 2, 1},  {82, 1, -2}, {83, 3, -2}, {84, 1, 0},
                 {80, 0, -2}, {80, 4, -2}, {80, 5, 1},  {0, 3, -2}};
    for (const auto &c : cases) {
        EXPECT_EQ(TAVORuntimeVerifyConflictPort(list_.get(), c.port, c.protocol), c.expected)
            << c.port << " " << c.protocol;
    }
    list_.reset(TAVORuntimePortConflictResultListAlloc());
    EXPECT_EQ(TAVORuntimeVerifyConflictPort(list_.get(), 80, 1), -2);
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(TAVORuntimeVerifyConflictPort(nullptr, 80, 1), -1);
    EXPECT_EQ(TLIBCErrGet(), 0xD00u);
    EXPECT_THAT(Messages(), ElementsAre("pResultList is undefined"));
}

// Returns the result of `ask`, followed by its output on standard error.
std::string Answer(const std::function<int()> &ask) {
    testing::internal::CaptureStderr();
    const std::string answer = std::to_string(ask());
    const std::string printed = testing::internal::GetCapturedStderr();
    return printed.empty() ? answer : answer + " " + printed;
}

class RuntimeAnswer : public RuntimeTest {
  protected:
    RuntimeAnswer() { RequireAppliance(); }

    static std::string OfPorts(const std::vector<std::string> &ports, uint16_t protocol) {
        return Answer([&] { return TAVORuntimeIsConflictPorts(Ports(ports).get(), protocol); });
    }
    static std::string OfPort(uint16_t port, uint16_t protocol) {
        return Answer([&] { return TAVORuntimeIsConflictPort(port, protocol); });
    }
    static std::string OfRange(uint16_t first, uint16_t last, uint16_t protocol) {
        return Answer([&] { return TAVORuntimeIsConflictPortRange(first, last, protocol); });
    }
};

TEST_F(RuntimeAnswer, PrintsTheHeldPortsOnStandardError) {
    const HeldSocket tcp(AF_INET, SOCK_STREAM, 7000);
    const HeldSocket udp(AF_INET6, SOCK_DGRAM, 7001);
    const Connection connection(tcp);
    EXPECT_EQ(OfPort(7000, TAVO_PROTO_TCP), "1 pConflictPortList:\n7000\n");
    EXPECT_EQ(OfPort(7000, TAVO_PROTO_UDP), "0");
    EXPECT_EQ(OfPort(7001, TAVO_PROTO_BOTH), "1 pConflictPortList:\n7001\n");
    EXPECT_EQ(OfPorts({"7002", "7001", "7000", "7001"}, TAVO_PROTO_BOTH),
              "1 pConflictPortList:\n7001\n7000\n");
    EXPECT_EQ(OfPorts({connection.ClientPort()}, TAVO_PROTO_TCP),
              "1 pConflictPortList:\n" + connection.ClientPort() + "\n");
    EXPECT_EQ(OfPorts({"7002", "7003"}, TAVO_PROTO_BOTH), "0");
    EXPECT_EQ(OfPorts({}, TAVO_PROTO_BOTH), "0");
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(OfPort(0, TAVO_PROTO_BOTH), "0");
    EXPECT_THAT(Messages(), ElementsAre("Illegal port: 0"));
}

TEST_F(RuntimeAnswer, CoversARangeWithBothEnds) {
    const HeldSocket first(AF_INET, SOCK_STREAM, 7000);
    const HeldSocket last(AF_INET, SOCK_STREAM, 7010);
    EXPECT_EQ(OfRange(7000, 7000, TAVO_PROTO_TCP), "1 pConflictPortList:\n7000\n");
    EXPECT_EQ(OfRange(6990, 7010, TAVO_PROTO_TCP), "1 pConflictPortList:\n7000\n7010\n");
    EXPECT_EQ(OfRange(1, 65534, TAVO_PROTO_BOTH), "1 pConflictPortList:\n7000\n7010\n");
    EXPECT_EQ(OfRange(7001, 7009, TAVO_PROTO_TCP), "0");
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(RuntimeAnswer, IsNoForARangeThatRunsBackwards) {
    EXPECT_EQ(OfRange(6000, 5999, TAVO_PROTO_TCP), "0");
    EXPECT_EQ(TLIBCErrGet(), 0xD00u);
    EXPECT_THAT(Messages(), ElementsAre("Illegal port range: 6000~5999"));
    log_.Clear();
    EXPECT_EQ(OfRange(65535, 1, 0), "0");
    EXPECT_THAT(Messages(), ElementsAre("Illegal port range: 65535~1"));
}

TEST_F(RuntimeAnswer, NeverComesForARangeThatEndsAt65535) {
    for (const auto first : std::initializer_list<uint16_t>{65000, 65535}) {
        const Asking asking([&] { TAVORuntimeIsConflictPortRange(first, 65535, TAVO_PROTO_TCP); });
        EXPECT_THAT(asking.LookAsleep(), testing::StartsWith("S for "));
    }
}

TEST_F(RuntimeAnswer, IsNoForBadArguments) {
    const std::string protocol = "Illegal protocol: 4";
    const std::string check = "Failed to TAVORuntimePortConflictCheck";
    EXPECT_EQ(OfPort(7000, 4), "0");
    EXPECT_EQ(OfRange(7000, 7001, 4), "0");
    EXPECT_EQ(OfPorts({"7000"}, 4), "0");
    EXPECT_EQ(Answer([] { return TAVORuntimeIsConflictPorts(nullptr, TAVO_PROTO_TCP); }), "0");
    EXPECT_THAT(Messages(), ElementsAre(protocol, check, protocol, check, protocol, check,
                                        "pPortList is undefined", check));
    EXPECT_EQ(TLIBCErrGet(), 0xD00u);
}

TEST_F(RuntimeAnswer, IsNoWithoutTheTables) {
    const StagedProc proc;
    std::filesystem::remove("/proc/net/udp");
    const auto expected = NoTableOf("/proc/net/udp", {"Failed to TAVORuntimePortConflictCheck"});
    // Standard error is not captured, because that needs /proc.
    EXPECT_EQ(TAVORuntimeIsConflictPort(80, TAVO_PROTO_TCP), 0);
    EXPECT_THAT(Messages(), testing::ElementsAreArray(expected));
    EXPECT_EQ(TLIBCErrGet(), 0x700u);
}

TEST_F(RuntimeAnswer, IsNoWhenMemoryRunsOut) {
    const StagedProc proc;
    StagedProc::AddProcess("9", {"socket:[1]"});
    StagedProc::Table("tcp", SocketLine(80, 10, 1));
    const OwnedStrings ports = Ports({"80"});
    const std::string alloc = "Failed to alloc *ppsdCheckResultCollection, Out of memory.[0x0200]";
    const std::vector<std::function<int()>> asks = {
        [&] { return TAVORuntimeIsConflictPorts(ports.get(), TAVO_PROTO_TCP); },
        [] { return TAVORuntimeIsConflictPort(80, TAVO_PROTO_TCP); },
        [] { return TAVORuntimeIsConflictPortRange(80, 81, TAVO_PROTO_TCP); }};
    testing::internal::CaptureStderr();
    for (const auto &ask : asks) {
        std::vector<std::string> messages;
        ForEachFailingAllocation([&](FailingAllocation &fail) {
            log_.Clear();
            TLIBCErrSetEx(0, nullptr, 0);
            const int answer = fail.During(ask);
            EXPECT_TRUE(answer == 1 || (answer == 0 && fail.Hit() && TLIBCErrGet() == 0x200));
            const std::vector<std::string> more = Messages();
            messages.insert(messages.end(), more.begin(), more.end());
        });
        for (const std::string &message :
             {alloc, std::string("Failed to TAVORuntimePortConflictCheck"),
              std::string("Failed to TAVORuntimeListConflictPorts")}) {
            EXPECT_THAT(messages, Contains(message));
        }
    }
    testing::internal::GetCapturedStderr();
}

}  // namespace
}  // namespace tavo::test

#include <gmock/gmock.h>

#include <iterator>
#include <random>
#include <set>

#include "conf_check_test.h"
#include "failing_allocation.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class ConfCheck : public ConfCheckTest {
  protected:
    // What a check puts behind a result that is there already.
    Lines Check(const Lines &ports, uint16_t protocol) {
        const Elements results = Findings({kBefore});
        EXPECT_EQ(TAVOConfPortConflictCheck(PortList(ports).get(), protocol, results.get()), 0);
        Lines lines = Describe<Result>(results.get());
        EXPECT_EQ(lines.front(), "7 udp free");
        lines.erase(lines.begin());
        return lines;
    }

    static constexpr Result kBefore = {7, TAVO_PROTO_UDP, nullptr, 0};
};

TEST_F(ConfCheck, NamesEveryoneWhoDeclaresThePort) {
    EXPECT_THAT(Check({"80"}, TAVO_PROTO_TCP), ElementsAre("80 tcp web", "80 tcp proxy"));
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_F(ConfCheck, SaysOnceThatNobodyDoes) {
    EXPECT_THAT(Check({"81"}, TAVO_PROTO_BOTH), ElementsAre("81 tcp free", "81 udp free"));
}

TEST_F(ConfCheck, GoesPortByPortAndForEachFirstTcp) {
    EXPECT_THAT(
        Check({"443", "8001", "80", "443"}, TAVO_PROTO_BOTH),
        ElementsAre("443 tcp web", "443 udp web3", "8001 tcp proxy", "8001 udp free", "80 tcp web",
                    "80 tcp proxy", "80 udp free", "443 tcp web", "443 udp web3"));
}

TEST_F(ConfCheck, LooksAtTheProtocolsAskedForOnly) {
    EXPECT_THAT(Check({"443", "8000"}, TAVO_PROTO_TCP),
                ElementsAre("443 tcp web", "8000 tcp proxy"));
    EXPECT_THAT(Check({"443", "8000"}, TAVO_PROTO_UDP),
                ElementsAre("443 udp web3", "8000 udp free"));
}

TEST_F(ConfCheck, FindsAServiceOfBothProtocolsUnderUdpOnly) {
    EXPECT_THAT(Check({"53"}, TAVO_PROTO_BOTH), ElementsAre("53 tcp free", "53 udp names"));
}

TEST_F(ConfCheck, FindsThePortsOfTheSystem) {
    EXPECT_THAT(Check({"514", "5000", "5005", "5006"}, TAVO_PROTO_BOTH),
                ElementsAre("514 tcp tavo-syslog", "514 udp tavo-syslog", "5000 tcp tavo-sms",
                            "5000 udp free", "5005 tcp tavo-webdav", "5005 udp free",
                            "5006 tcp tavo-webdav-ssl", "5006 udp free"));
}

TEST_F(ConfCheck, PassesOverWhatIsNoPort) {
    EXPECT_THAT(Check({"80", "0", "x", "65536", "", "9"}, TAVO_PROTO_TCP),
                ElementsAre("80 tcp web", "80 tcp proxy", "9 tcp free"));
    EXPECT_THAT(Messages(),
                ElementsAre("Illegal port: 0", "Failed on parse port: x", "Illegal port: x",
                            "Illegal port: 65536", "Failed on parse port: ", "Illegal port: "));
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_F(ConfCheck, ReadsPortsAsLenientlyAsEver) {
    EXPECT_THAT(Check({"-1", "80x", " 443", "65617", "081", "8000-8002"}, TAVO_PROTO_TCP),
                ElementsAre("65535 tcp free", "80 tcp web", "80 tcp proxy", "443 tcp web",
                            "81 tcp free", "81 tcp free", "8000 tcp proxy"));
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ConfCheck, OfNoPortFindsNothing) {
    EXPECT_THAT(Check({}, TAVO_PROTO_BOTH), IsEmpty());
}

TEST_F(ConfCheck, TakesPortZeroOfTheSettingsForNoOther) {
    Settings("");
    EXPECT_THAT(Check({"0", "65535", "1"}, TAVO_PROTO_BOTH),
                ElementsAre("65535 tcp free", "65535 udp free", "1 tcp free", "1 udp free"));
}

TEST_F(ConfCheck, TakesProtocols1To3) {
    const Elements results = Findings({kBefore});
    const Strings ports = PortList({"80"});
    for (const int protocol : {0, 4, 5, 0xFFFF}) {
        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        EXPECT_EQ(
            TAVOConfPortConflictCheck(ports.get(), static_cast<uint16_t>(protocol), results.get()),
            -1);
        EXPECT_EQ(ErrorState(), "0xD00 port_check.h");
        EXPECT_THAT(Messages(), ElementsAre("Illegal protocol: " + std::to_string(protocol)));
    }
    EXPECT_EQ(TLIBCDListCount(results.get()), 1);
}

TEST_F(ConfCheck, NeedsBothLists) {
    const Elements results = Findings({kBefore});
    const Strings ports = PortList({"80"});
    EXPECT_EQ(TAVOConfPortConflictCheck(nullptr, TAVO_PROTO_TCP, results.get()), -1);
    EXPECT_EQ(ErrorState(), "0xD00 port_check.h");
    TLIBCErrSetEx(0, nullptr, 0);
    EXPECT_EQ(TAVOConfPortConflictCheck(ports.get(), TAVO_PROTO_TCP, nullptr), -1);
    EXPECT_EQ(ErrorState(), "0xD00 port_check.h");
    EXPECT_EQ(TAVOConfPortConflictCheck(nullptr, TAVO_PROTO_TCP, nullptr), -1);
    EXPECT_EQ(TAVOConfPortConflictCheck(nullptr, 0, nullptr), -1);
    EXPECT_THAT(Messages(), ElementsAre(kNoPorts, "ppResultList is undefined", kNoPorts,
                                        "Illegal protocol: 0"));
    EXPECT_THAT(Describe<Result>(results.get()), ElementsAre("7 udp free"));
}

TEST_F(ConfCheck, FailsWithoutTheDeclaredPorts) {
    const Failing failing("ServiceConfListFetch");
    const Elements results = Findings({kBefore});
    EXPECT_EQ(TAVOConfPortConflictCheck(PortList({"80"}).get(), TAVO_PROTO_TCP, results.get()), -1);
    EXPECT_THAT(Messages(), ElementsAre(kFetchFailed));
    EXPECT_THAT(Describe<Result>(results.get()), ElementsAre("7 udp free"));
}

TEST_F(ConfCheck, KeepsWhatItAppendedBeforeAFailure) {
    const Strings ports = PortList({"80", "81"});
    std::set<Lines> ends;  // the last two lines of each failure
    std::set<int> kept;
    ForEachFailingAllocation([&](FailingAllocation &fail) {
        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        const Elements results = Findings({kBefore});
        const int result = fail.During(
            [&] { return TAVOConfPortConflictCheck(ports.get(), TAVO_PROTO_TCP, results.get()); });
        const int count = TLIBCDListCount(results.get());
        EXPECT_EQ(Describe<Result>(results.get()).front(), "7 udp free");
        if (result == 0) {
            EXPECT_EQ(count, 4);
            return;
        }
        EXPECT_EQ(result, -1);
        EXPECT_EQ(TLIBCErrGet(), 0x200U);
        kept.insert(count);
        const Lines messages = Messages();
        ends.emplace(messages.end() - std::min<std::ptrdiff_t>(2, std::ssize(messages)),
                     messages.end());
    });
    EXPECT_THAT(kept, ElementsAre(1, 2, 3));
    const std::string no_list = "Failed to alloc pResultList, Out of memory.[0x0200]";
    const std::string no_record = "Failed to alloc pResult, Out of memory.[0x0200]";
    const std::string no_copy = "Failed to allocate PTAVO_CONF_PORT_CONFLICT_RESULT";
    const std::string nobody = "Failed to append no conflict result";
    EXPECT_THAT(ends, UnorderedElementsAre(ElementsAre(no_list, kFetchFailed),
                                           ElementsAre("Failed to SysConfListFetch", kFetchFailed),
                                           ElementsAre(kFetchFailed, kFetchFailed),
                                           ElementsAre(no_record, kFetchFailed),
                                           ElementsAre("Failed to filter result list"),
                                           ElementsAre(no_copy, "Failed to filter result list"),
                                           ElementsAre(nobody), ElementsAre(no_record, nobody),
                                           ElementsAre(no_copy, nobody)));
}

TEST_F(ConfCheck, TakesAMillionPorts) {
    constexpr int kPorts = 1000000;
    TLIBCSzList *ports = TLIBCSzListAlloc(kPorts);
    for (int i = 0; i < kPorts; ++i) {
        TLIBCSzListPush(&ports, std::to_string(i % 65535 + 1).c_str());
    }
    const Strings owned(ports);
    const Elements results = NewResults();
    EXPECT_EQ(TAVOConfPortConflictCheck(ports, TAVO_PROTO_UDP, results.get()), 0);
    EXPECT_EQ(TLIBCDListCount(results.get()), kPorts);
}

// The check as it reads: a walk of what is declared for every port and protocol.
Elements CheckByWalking(const TLIBCSzList *ports, uint16_t protocol) {
    Elements results = NewResults();
    const Elements declared(ServiceConfListFetch());
    for (const std::string &text : Items(ports)) {
        const uint16_t port = ToUPort(text.c_str());
        for (const auto one : std::initializer_list<uint16_t>{1, 2}) {
            if (port != 0 && (protocol & one) != 0 &&
                ConfResultListFilter(declared.get(), port, one, results.get()) == 0) {
                ConfNotConflictResultAppend(results.get(), port, one);
            }
        }
    }
    return results;
}

class AnyConfCheck : public DeclaredPortsTest {};

TEST_F(AnyConfCheck, FindsWhatAWalkForEveryPortFinds) {
    std::mt19937 random(20);
    const auto below = [&](unsigned int limit) {
        return static_cast<unsigned int>(random() % limit);
    };
    const auto any_port = [&] { return std::to_string(below(40)); };
    for (int round = 0; round < 200; ++round) {
        std::vector<OfferedService> services;
        for (unsigned int i = below(8); i > 0; --i) {
            OfferedService service = {"s" + std::to_string(i), below(5), {}};
            for (unsigned int port = below(6); port > 0; --port) {
                service.ports.push_back(any_port() + (below(3) == 0 ? "-" + any_port() : ""));
            }
            services.push_back(service);
        }
        Settings("syslogport=" + any_port() + "\nsmsport=" + any_port() + "\n");
        Lines asked;
        for (unsigned int port = below(30); port > 0; --port) {
            asked.push_back(below(20) == 0 ? "x" : any_port());
        }
        const auto protocol = static_cast<uint16_t>(1 + below(3));
        const OfferedServices offered(services);
        const Strings ports = PortList(asked);
        const Elements expected = CheckByWalking(ports.get(), protocol);
        const Elements results = NewResults();
        ASSERT_EQ(TAVOConfPortConflictCheck(ports.get(), protocol, results.get()), 0);
        ASSERT_EQ(Describe<Result>(results.get()), Describe<Result>(expected.get())) << round;
        log_.Clear();
    }
}

// ---- The check into a new list ----

TEST_F(ConfCheck, FillsANewList) {
    const Elements results(
        TAVOConfPortConflictResultListAllocAndCheck(PortList({"443", "0"}).get(), TAVO_PROTO_BOTH));
    EXPECT_THAT(Describe<Result>(results.get()), ElementsAre("443 tcp web", "443 udp web3"));
    EXPECT_THAT(Messages(), ElementsAre("Illegal port: 0"));
}

TEST_F(ConfCheck, FillsNoListOnFailure) {
    EXPECT_EQ(TAVOConfPortConflictResultListAllocAndCheck(nullptr, 0), nullptr);
    EXPECT_EQ(ErrorState(), "0xD00 port_check.h");
    const Strings ports = PortList({"80"});
    EXPECT_EQ(TAVOConfPortConflictResultListAllocAndCheck(ports.get(), 0), nullptr);
    EXPECT_THAT(Messages(), ElementsAre(kNoPorts, "Illegal protocol: 0", kCheckFailed));
    log_.Clear();
    TLIBCErrSetEx(0, nullptr, 0);
    const Failing failing("TAVOConfPortConflictResultListAlloc");
    EXPECT_EQ(TAVOConfPortConflictResultListAllocAndCheck(ports.get(), TAVO_PROTO_TCP), nullptr);
    EXPECT_EQ(ErrorState(), "0x200 port_check.h");
    EXPECT_THAT(Messages(), ElementsAre("Failed to alloc TAVOConfPortConflictResultListAlloc, "
                                        "Out of memory.[0x0200]"));
}

TEST_F(ConfCheck, FillsNoListWithoutMemory) {
    const Strings ports = PortList({"80", "81"});
    ForEachFailingAllocation([&](FailingAllocation &fail) {
        log_.Clear();
        const Elements results(fail.During([&] {
            return TAVOConfPortConflictResultListAllocAndCheck(ports.get(), TAVO_PROTO_TCP);
        }));
        if (results != nullptr) {
            EXPECT_EQ(TLIBCDListCount(results.get()), 3);
            return;
        }
        EXPECT_TRUE(Messages().back() == kCheckFailed || Messages().size() == 1);
    });
}

}  // namespace
}  // namespace tavo::test

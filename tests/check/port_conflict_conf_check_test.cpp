#include <gmock/gmock.h>
#include <syslog.h>

#include <algorithm>
#include <random>
#include <set>

#include "conf_check_test.h"
#include "failing_allocation.h"

namespace tavo::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class ConfCheck : public ConfCheckTest {
  protected:
    // Returns the records that a check appends to a list that contains one.
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
        EXPECT_EQ(ErrorState(), "0xD00 port_conflict_conf_check.cpp");
        EXPECT_THAT(Messages(), ElementsAre("Illegal protocol: " + std::to_string(protocol)));
    }
    EXPECT_EQ(TLIBCDListCount(results.get()), 1);
}

TEST_F(ConfCheck, NeedsBothLists) {
    const Elements results = Findings({kBefore});
    const Strings ports = PortList({"80"});
    EXPECT_EQ(TAVOConfPortConflictCheck(nullptr, TAVO_PROTO_TCP, results.get()), -1);
    EXPECT_EQ(ErrorState(), "0xD00 port_conflict_conf_check.cpp");
    TLIBCErrSetEx(0, nullptr, 0);
    EXPECT_EQ(TAVOConfPortConflictCheck(ports.get(), TAVO_PROTO_TCP, nullptr), -1);
    EXPECT_EQ(ErrorState(), "0xD00 port_conflict_conf_check.cpp");
    EXPECT_EQ(TAVOConfPortConflictCheck(nullptr, TAVO_PROTO_TCP, nullptr), -1);
    EXPECT_EQ(TAVOConfPortConflictCheck(nullptr, 0, nullptr), -1);
    EXPECT_THAT(Messages(), ElementsAre(kNoPorts, "ppResultList is undefined", kNoPorts,
                                        "Illegal protocol: 0"));
    EXPECT_THAT(Describe<Result>(results.get()), ElementsAre("7 udp free"));
}

TEST_F(ConfCheck, FailsWhereTheSettingsCannotBeRead) {
    MakeUnreadable(kSettings);
    const Elements results = Findings({kBefore});
    EXPECT_EQ(TAVOConfPortConflictCheck(PortList({"80"}).get(), TAVO_PROTO_TCP, results.get()), -1);
    EXPECT_EQ(ErrorState(), "0x900 port_conflict_conf_check.cpp");
    EXPECT_EQ(Messages(), UnreadableSettingsLines());
    EXPECT_THAT(Describe<Result>(results.get()), ElementsAre("7 udp free"));
}

TEST_F(ConfCheck, TakesSettingsThatAreNotThereForEmpty) {
    std::filesystem::remove(kSettings);
    EXPECT_THAT(Check({"514", "80"}, TAVO_PROTO_TCP),
                ElementsAre("514 tcp free", "80 tcp web", "80 tcp proxy"));
    EXPECT_EQ(Messages().size(), 6U);
    Settings("");
    log_.Clear();
    EXPECT_THAT(Check({"514"}, TAVO_PROTO_TCP), ElementsAre("514 tcp free"));
    EXPECT_EQ(Messages(), Lines(3, "Failed on parse port: "));
}

TEST_F(ConfCheck, KeepsWhatItAppendedBeforeAFailure) {
    const Strings ports = PortList({"80", "81"});
    std::set<Lines> lines;  // the log lines of each failure
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
        lines.insert(Messages());
    });
    EXPECT_THAT(kept, ElementsAre(1, 2, 3));
    const std::string no_copy = "Failed to allocate PTAVO_CONF_PORT_CONFLICT_RESULT";
    const std::string filter = "Failed to filter result list";
    const std::string nobody = "Failed to append no conflict result";
    EXPECT_THAT(lines,
                UnorderedElementsAre(
                    ElementsAre(filter), ElementsAre(kNoRecord, kFetchFailed, kFetchFailed),
                    ElementsAre(kNoRecord, filter), ElementsAre(no_copy, kNoRecord, filter),
                    ElementsAre(kNoRecord, nobody), ElementsAre(no_copy, kNoRecord, nobody)));
}

TEST_F(ConfCheck, SaysWhenMemoryRunsOutForAPortOfTheSystem) {
    const Strings ports = PortList({"514"});
    std::set<Lines> lines;
    ForEachFailingAllocation([&](FailingAllocation &fail) {
        log_.Clear();
        const Elements results = NewResults();
        fail.During(
            [&] { return TAVOConfPortConflictCheck(ports.get(), TAVO_PROTO_TCP, results.get()); });
        lines.insert(Messages());
    });
    EXPECT_THAT(lines,
                Contains(ElementsAre(kNoRecord, "Failed to SysConfListFetch", kFetchFailed)));
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

// A simple implementation of the check: it searches a list of all declared ports for each port and
// protocol.
Elements CheckByWalking(const TLIBCSzList *ports, uint16_t protocol) {
    Elements results = NewResults();
    const Elements declared(ServiceConfListFetch());
    for (const std::string &text : Items(ports)) {
        const uint16_t port = ToUPort(text.c_str());
        if (port == 0) {
            syslog(LOG_ERR, "judge.cpp:1 Illegal port: %s", text.c_str());
            continue;
        }
        for (const auto one : std::initializer_list<uint16_t>{1, 2}) {
            if ((protocol & one) != 0 &&
                ConfResultListFilter(declared.get(), port, one, results.get()) == 0) {
                ConfNotConflictResultAppend(results.get(), port, one);
            }
        }
    }
    return results;
}

// Checks random ports against random declarations. The records and log lines must be those of the
// simple implementation.
class AnyConfCheck : public DeclaredPortsTest {
  protected:
    unsigned int Below(unsigned int limit) { return static_cast<unsigned int>(random_() % limit); }

    std::string AnyPort() { return std::to_string(Below(40)); }

    // Returns a port, a range, or sometimes a wide, a reversed or an invalid range.
    std::string AnyDeclaration() {
        switch (Below(12)) {
            case 0:
                return Below(2) == 0 ? "0-65535" : AnyPort() + "-65535";
            case 1:
                return std::vector<std::string>{"x", "", "-1", "65577", "7-x"}[Below(5)];
            case 2:
            case 3:
            case 4:
                return AnyPort() + "-" + AnyPort();
            default:
                return AnyPort();
        }
    }

    std::vector<OfferedService> AnyServices() {
        std::vector<OfferedService> services;
        for (unsigned int i = Below(6); i > 0; --i) {
            OfferedService service = {"s" + std::to_string(i), Below(5), {}};
            for (unsigned int port = Below(5); port > 0; --port) {
                service.ports.push_back(AnyDeclaration());
            }
            services.push_back(service);
        }
        return services;
    }

    Lines AnyQuestion() {
        static const Lines kOdd = {"x", "", "0", "65535", "65536", "-1", "080"};
        Lines asked;
        for (unsigned int port = Below(30); port > 0; --port) {
            asked.push_back(Below(6) == 0 ? kOdd[Below(7)] : AnyPort());
        }
        return asked;
    }

  private:
    std::mt19937 random_{20};
};

TEST_F(AnyConfCheck, AnswersAsTheWalkForEveryPortDoes) {
    for (int round = 0; round < 200; ++round) {
        const OfferedServices offered(AnyServices());
        Settings((Below(4) == 0 ? "" : "syslogport=" + AnyPort() + "\n") + "smsport=" + AnyPort() +
                 "\n");
        const auto protocol = static_cast<uint16_t>(1 + Below(3));
        const Strings ports = PortList(AnyQuestion());
        log_.Clear();
        const Elements expected = CheckByWalking(ports.get(), protocol);
        const Lines lines = Messages();
        log_.Clear();
        const Elements results = NewResults();
        ASSERT_EQ(TAVOConfPortConflictCheck(ports.get(), protocol, results.get()), 0);
        ASSERT_EQ(Describe<Result>(results.get()), Describe<Result>(expected.get())) << round;
        ASSERT_EQ(Messages(), lines) << round;
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
    EXPECT_EQ(ErrorState(), "0xD00 port_conflict_conf_check.cpp");
    const Strings ports = PortList({"80"});
    EXPECT_EQ(TAVOConfPortConflictResultListAllocAndCheck(ports.get(), 0), nullptr);
    EXPECT_THAT(Messages(), ElementsAre(kNoPorts, "Illegal protocol: 0", kCheckFailed));
    log_.Clear();
    TLIBCErrSetEx(0, nullptr, 0);
    const Failing failing("TAVOConfPortConflictResultListAlloc");
    EXPECT_EQ(TAVOConfPortConflictResultListAllocAndCheck(ports.get(), TAVO_PROTO_TCP), nullptr);
    EXPECT_EQ(ErrorState(), "0x200 port_conflict_conf_check.cpp");
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

#include <gmock/gmock.h>

#include <filesystem>
#include <set>
#include <utility>

#include "conf_check_test.h"
#include "failing_allocation.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr char kNoList[] = "Failed to alloc pResultList, Out of memory.[0x0200]";
constexpr char kNoCopy[] = "Failed to allocate PTAVO_CONF_PORT_CONFLICT_RESULT";

class DeclaredPorts : public DeclaredPortsTest {
  protected:
    // The records of one of the three lists; "null" if there is no list.
    static Lines Fetch(TLIBCDList *(*fetch)()) {
        const Elements list(fetch());
        return list == nullptr ? Lines{"null"}
                               : Describe<TAVO_CONF_PORT_CONFLICT_RESULT>(list.get());
    }

    // Calls `fetch` with each allocation failing in turn. It must return `count` records or null.
    // Returns the different sets of log lines.
    std::set<Lines> FetchWithoutMemory(TLIBCDList *(*fetch)(), int count) {
        std::set<Lines> lines;
        EXPECT_GT(ForEachFailingAllocation([&](FailingAllocation &fail) {
                      log_.Clear();
                      TLIBCErrSetEx(0, nullptr, 0);
                      const Elements list(fail.During(fetch));
                      if (list == nullptr) {
                          EXPECT_EQ(ErrorState(), "0x200 port_conflict_conf_helper.cpp");
                      } else {
                          EXPECT_EQ(TLIBCDListCount(list.get()), count);
                      }
                      lines.insert(Messages());
                  }),
                  3 * count);
        return lines;
    }
};

// ---- Ports of the system ----

class SystemPorts : public DeclaredPorts {};

TEST_F(SystemPorts, AreFive) {
    EXPECT_THAT(Fetch(SysConfListFetch),
                ElementsAre("514 tcp tavo-syslog", "5000 tcp tavo-sms", "5005 tcp tavo-webdav",
                            "5006 tcp tavo-webdav-ssl", "514 udp tavo-syslog"));
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(SystemPorts, AreZeroWhereTheSettingsLackThem) {
    Settings("runwebdav=\"yes\"\n");
    EXPECT_THAT(Fetch(SysConfListFetch),
                ElementsAre("0 tcp tavo-syslog", "0 tcp tavo-sms", "5005 tcp tavo-webdav",
                            "5006 tcp tavo-webdav-ssl", "0 udp tavo-syslog"));
    EXPECT_EQ(Messages(), Lines(3, "Failed on parse port: "));
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_F(SystemPorts, AreZeroWhereTheSettingsCannotBeRead) {
    const auto expect_lines = [this](const std::string &code) {
        EXPECT_THAT(Fetch(SysConfListFetch),
                    ElementsAre("0 tcp tavo-syslog", "0 tcp tavo-sms", "5005 tcp tavo-webdav",
                                "5006 tcp tavo-webdav-ssl", "0 udp tavo-syslog"));
        const std::string end = " from /etc/tavoinfo.conf, errno=" + code;
        EXPECT_THAT(Messages(),
                    ElementsAre("Failed to get syslogport" + end,
                                "Failed on parse port: ", "Failed to get smsport" + end,
                                "Failed on parse port: ", "Failed to get syslogport" + end,
                                "Failed on parse port: "));
    };
    std::filesystem::remove(kSettings);
    expect_lines("0x700");
    log_.Clear();
    MakeUnreadable(kSettings);
    expect_lines("0x900");
}

TEST_F(SystemPorts, AreReadAsAnyPortIs) {
    const struct {
        std::string value;
        std::string port;
        Lines lines;
    } kCases[] = {
        {"0", "0", {}},
        {"-1", "65535", {}},
        {"65536", "0", {}},
        {"80x", "80", {}},
        {" 80", "80", {}},
        {std::string(1022, '0') + "80", "8", {}},  // truncated to the buffer
        {"x", "0", {2, "Failed on parse port: x"}},
        {"", "0", {2, "Failed on parse port: "}},
    };
    for (const auto &[value, port, lines] : kCases) {
        log_.Clear();
        Settings("smsport=\"5000\"\nsyslogport=\"" + value + "\"\n");
        const Lines ports = Fetch(SysConfListFetch);
        ASSERT_EQ(ports.size(), 5U);
        EXPECT_EQ(ports.front(), port + " tcp tavo-syslog") << value;
        EXPECT_EQ(ports.back(), port + " udp tavo-syslog") << value;
        EXPECT_EQ(Messages(), lines) << value;
    }
}

TEST_F(SystemPorts, AreNoneWithoutMemory) {
    EXPECT_THAT(FetchWithoutMemory(SysConfListFetch, 5),
                UnorderedElementsAre(ElementsAre(kNoList), ElementsAre(kNoRecord),
                                     ElementsAre(kNoCopy, kNoRecord), IsEmpty()));
}

// ---- Ports of the services ----

class ServicePorts : public DeclaredPorts {};

TEST_F(ServicePorts, ComeFromTheCatalogueInItsOrder) {
    WriteFile(std::string(kPackageServices) + "/web.sc",
              "[web]\ntitle=T\ndesc=D\ndst.ports=\"8000:8002,80/tcp\"\nsrc.ports=\"7/udp\"\n"
              "[names]\ntitle=T\ndesc=D\ndst.ports=\"53/udp\"\n");
    const Elements list(PkgConfListFetch());
    Lines names;
    Lines ports;
    for (const auto *node = TLIBCDListFirst(list.get()); node; node = TLIBCDListNext(node)) {
        const auto &record =
            *static_cast<TAVO_CONF_PORT_CONFLICT_RESULT *>(TLIBCDListElement(node));
        ports.push_back(Describe(record));
        if (names.empty() || names.back() != record.szService) {
            names.emplace_back(record.szService);
        }
    }
    TAVO_FW_SERVICE *services = nullptr;
    ASSERT_EQ(TAVOFwServiceEnum(&services), 14);
    EXPECT_THAT(names, ElementsAreArray(Names(Services(services).get())));
    ports.resize(5);
    EXPECT_THAT(ports, ElementsAre("80 tcp web", "8000 tcp web", "8001 tcp web", "8002 tcp web",
                                   "53 udp names"));
}

TEST_F(ServicePorts, AreTcpForExactlyTcpOnly) {
    const OfferedServices offered({{"none", 0, {"1"}},
                                   {"tcp", TAVO_PROTO_TCP, {"2"}},
                                   {"udp", TAVO_PROTO_UDP, {"3"}},
                                   {"both", TAVO_PROTO_BOTH, {"4"}},
                                   {"more", 5, {"5"}}});
    EXPECT_THAT(Fetch(PkgConfListFetch),
                ElementsAre("1 udp none", "2 tcp tcp", "3 udp udp", "4 udp both", "5 udp more"));
    EXPECT_EQ(offered.Lent(), 0);
}

TEST_F(ServicePorts, AreReadAsPortsAndRanges) {
    const struct {
        const char *ports;
        Lines expected;
        Lines lines;
    } kCases[] = {
        {"80", {"80"}, {}},
        {"8000-8002", {"8000", "8001", "8002"}, {}},
        {"80-80", {"80"}, {}},
        {"65533-65535", {"65533", "65534", "65535"}, {}},
        {"65535", {"65535"}, {}},
        {"0", {"0"}, {}},
        {" 80 - 81", {"80"}, {}},
        {"80-", {"80"}, {}},
        {"80x", {"80"}, {}},
        {"80:82", {"80"}, {}},
        {"80,82", {"80"}, {}},
        {"80-81-99", {"80", "81"}, {}},
        {"65537-65538", {"1", "2"}, {}},
        {"-2--1", {"65534", "65535"}, {}},
        {"8002-8000", {}, {"Illegal port range: 8002~8000"}},
        {"80-65536", {}, {"Illegal port range: 80~0"}},
        {"x", {}, {"Failed to fetch port from service: web"}},
        {"", {}, {"Failed to fetch port from service: web"}},
        {"-", {}, {"Failed to fetch port from service: web"}},
        {":80", {}, {"Failed to fetch port from service: web"}},
    };
    for (const auto &[ports, expected, lines] : kCases) {
        log_.Clear();
        const OfferedServices offered({{"web", TAVO_PROTO_TCP, {ports, "9"}}});
        Lines all;
        for (const std::string &port : expected) {
            all.push_back(port + " tcp web");
        }
        all.emplace_back("9 tcp web");
        EXPECT_EQ(Fetch(PkgConfListFetch), all) << ports;
        EXPECT_EQ(Messages(), lines) << ports;
        EXPECT_EQ(TLIBCErrGet(), 0U) << ports;
    }
}

TEST_F(ServicePorts, MayBeAllThereAre) {
    const OfferedServices offered({{"all", TAVO_PROTO_TCP, {"0-65535"}}});
    const Lines ports = Fetch(PkgConfListFetch);
    ASSERT_EQ(ports.size(), 65536U);
    EXPECT_EQ(ports.front(), "0 tcp all");
    EXPECT_EQ(ports.back(), "65535 tcp all");
}

TEST_F(ServicePorts, AreNoneOfAServiceWithoutDestinationPorts) {
    const OfferedServices offered({{"source", TAVO_PROTO_TCP, {"80"}}, {"web", 1, {"443"}}});
    std::swap(offered.List()->pDstPortList, offered.List()->pSrcPortList);
    EXPECT_THAT(Fetch(PkgConfListFetch), ElementsAre("443 tcp web"));
}

TEST_F(ServicePorts, AreNoneWithoutServices) {
    const OfferedServices offered({});
    EXPECT_THAT(Fetch(PkgConfListFetch), IsEmpty());
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ServicePorts, AreUnknownWithoutTheCatalogue) {
    const OfferedServices offered({{"web", TAVO_PROTO_TCP, {"80"}}}, -1);
    EXPECT_THAT(Fetch(PkgConfListFetch), ElementsAre("null"));
    EXPECT_EQ(ErrorState(), "0x123 catalogue.cpp");
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(offered.Lent(), 0);
}

TEST_F(ServicePorts, AreNoneWithoutMemory) {
    const OfferedServices offered({{"web", TAVO_PROTO_TCP, {"80", "443-444"}}});
    EXPECT_THAT(FetchWithoutMemory(PkgConfListFetch, 3),
                UnorderedElementsAre(ElementsAre(kNoList), ElementsAre(kNoRecord),
                                     ElementsAre(kNoCopy, kNoRecord), IsEmpty()));
    EXPECT_EQ(offered.Lent(), 0);
}

// ---- Both ----

class AllPorts : public DeclaredPorts {};

TEST_F(AllPorts, AreThoseOfTheSystemAndThenOfTheServices) {
    const OfferedServices offered({{"web", TAVO_PROTO_TCP, {"5005"}}, {"log", 3, {"514"}}});
    EXPECT_THAT(Fetch(ServiceConfListFetch),
                ElementsAre("514 tcp tavo-syslog", "5000 tcp tavo-sms", "5005 tcp tavo-webdav",
                            "5006 tcp tavo-webdav-ssl", "514 udp tavo-syslog", "5005 tcp web",
                            "514 udp log"));
}

TEST_F(AllPorts, AreUnknownWithoutEitherList) {
    {
        const Failing failing("SysConfListFetch");
        EXPECT_THAT(Fetch(ServiceConfListFetch), ElementsAre("null"));
    }
    const Failing failing("PkgConfListFetch");
    EXPECT_THAT(Fetch(ServiceConfListFetch), ElementsAre("null"));
    EXPECT_THAT(Messages(),
                ElementsAre("Failed to SysConfListFetch", "Failed to ServiceConfListFetch"));
    EXPECT_EQ(TLIBCErrGet(), 0U) << "the one that failed has set its own";
}

TEST_F(AllPorts, SayWhoseListOrRecordDoesNotFitIntoMemory) {
    const struct {
        const char *function;
        int nth;
        Lines lines;
    } kCases[] = {
        {"TAVOConfPortConflictResultListAlloc", 1, {kNoList}},
        {"TAVOConfPortConflictResultListAlloc", 2, {kNoList, "Failed to SysConfListFetch"}},
        {"TAVOConfPortConflictResultListAlloc", 3, {kNoList, "Failed to ServiceConfListFetch"}},
        {"TAVOConfPortConflictResultAlloc", 1, {kNoList, "Failed to SysConfListFetch"}},
        {"TAVOConfPortConflictResultAlloc", 7, {kNoRecord, "Failed to ServiceConfListFetch"}},
    };
    for (const auto &[function, nth, lines] : kCases) {
        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        const OfferedServices offered({{"web", TAVO_PROTO_TCP, {"80"}}});
        const Failing failing(function, nth);
        EXPECT_THAT(Fetch(ServiceConfListFetch), ElementsAre("null"));
        EXPECT_EQ(Messages(), lines) << function << " " << nth;
        EXPECT_EQ(ErrorState(), "0x200 port_conflict_conf_helper.cpp");
        EXPECT_EQ(offered.Lent(), 0);
    }
}

TEST_F(AllPorts, AreAllOrNoneWithoutMemory) {
    const OfferedServices offered({{"web", TAVO_PROTO_TCP, {"80"}}});
    for (const Lines &lines : FetchWithoutMemory(ServiceConfListFetch, 6)) {
        SCOPED_TRACE(testing::PrintToString(lines));
        EXPECT_TRUE(lines.empty() || lines.back() == kNoRecord || lines.back() == kNoList ||
                    lines.back() == "Failed to SysConfListFetch" ||
                    lines.back() == "Failed to ServiceConfListFetch");
    }
    EXPECT_EQ(offered.Lent(), 0);
}

}  // namespace
}  // namespace tavo::test

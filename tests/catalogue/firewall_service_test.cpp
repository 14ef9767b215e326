// Tests how one service is created, with rows and sections that the current table and files do not
// contain.
#include <gmock/gmock.h>

#include <cstring>
#include <set>

#include "catalogue/firewall_service.h"
#include "catalogue_test.h"
#include "failing_allocation.h"

namespace {

// If not 0, the number of files that the reader claims to have read.
int g_claimed_files = 0;

}  // namespace

int tavo::ReadServiceFiles(TAVO_SERVICE_CONF **list, int folders, ReadingReport * /*report*/) {
    return g_claimed_files > 0 ? g_claimed_files : TAVOServiceConfEnum(list, folders);
}

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

OwnedServices ServiceFromRow(const TAVO_FW_SERVICE_REG &row) {
    OwnedServices made;
    const bool good = tavo::ServiceFromRow(row, made).IsGood();
    EXPECT_EQ(made != nullptr, good);
    return made;
}

OwnedServices ServiceFromSection(const TAVO_SERVICE_CONF_SECTION &section, bool supported) {
    OwnedServices made;
    const bool good = tavo::ServiceFromSection(section, supported, made).IsGood();
    EXPECT_EQ(made != nullptr, good);
    return made;
}

// ---- Rows ----

int Store(TLIBCSzList **list, const std::vector<const char *> &ports) {
    *list = TLIBCSzListAlloc(1);
    for (const char *port : ports) {
        TLIBCSzListPush(list, port);
    }
    return 0;
}

int TwoPorts(TLIBCSzList **list) {
    return Store(list, {"5", "6-7"});
}

int OnePortAndAnswerOne(TLIBCSzList **list) {
    Store(list, {"5"});
    return 1;
}

int EmptyList(TLIBCSzList **list) {
    return Store(list, {});
}

int NoList(TLIBCSzList ** /*list*/) {
    return 0;
}

int Failure(TLIBCSzList ** /*list*/) {
    return -22;
}

class ServiceOfRow : public CatalogueTest {
  protected:
    ServiceOfRow() { row_.szName = "row"; }

    void SetSrc(const char *ports, TAVO_FW_PORT_PROVIDER provider) {
        row_.blHasSrcPorts = 1;
        row_.nSrcProtocol = 2;
        row_.szSrcPorts = ports;
        row_.pfnSrcPorts = provider;
    }

    void SetDst(const char *ports, TAVO_FW_PORT_PROVIDER provider) {
        row_.blHasDstPorts = 1;
        row_.nDstProtocol = 1;
        row_.szDstPorts = ports;
        row_.pfnDstPorts = provider;
    }

    TAVO_FW_SERVICE_REG row_ = {};
};

TEST_F(ServiceOfRow, TakesPortsOfBothSides) {
    SetSrc("1,2", nullptr);
    SetDst(nullptr, TwoPorts);
    const auto service = ServiceFromRow(row_);
    ASSERT_NE(service, nullptr);
    EXPECT_EQ(service->nSrcProtocol, 2U);
    EXPECT_EQ(Join(service->pSrcPortList), "1,2");
    EXPECT_EQ(service->nDstProtocol, 1U);
    EXPECT_EQ(Join(service->pDstPortList), "5,6-7");
    EXPECT_EQ(service->pNext, nullptr);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ServiceOfRow, LooksAtNoPortsThatTheRowDoesNotHave) {
    SetSrc("1", nullptr);
    SetDst("x", nullptr);
    row_.blHasSrcPorts = 0;
    row_.blHasDstPorts = 0;
    const auto service = ServiceFromRow(row_);
    ASSERT_NE(service, nullptr);
    EXPECT_EQ(service->nSrcProtocol, 0U);
    EXPECT_EQ(service->pSrcPortList, nullptr);
    EXPECT_EQ(service->nDstProtocol, 0U);
    EXPECT_EQ(service->pDstPortList, nullptr);
}

TEST_F(ServiceOfRow, PrefersFixedPortsToTheProvider) {
    SetDst("80", Failure);
    EXPECT_EQ(Join(ServiceFromRow(row_)->pDstPortList), "80");
}

TEST_F(ServiceOfRow, TakesOnlyANegativeAnswerForAFailure) {
    SetDst(nullptr, OnePortAndAnswerOne);
    EXPECT_EQ(Join(ServiceFromRow(row_)->pDstPortList), "5");
}

TEST_F(ServiceOfRow, TakesSupportFromTheRowWithoutAKey) {
    EXPECT_EQ(ServiceFromRow(row_)->blSupported, 0U);
    row_.blSupportDefault = 1;
    EXPECT_EQ(ServiceFromRow(row_)->blSupported, 1U);
    row_.szSupportKey = "absent";
    EXPECT_EQ(ServiceFromRow(row_)->blSupported, 0U);
    row_.blSupportDefault = 0;
    row_.szSupportKey = "supportups";
    EXPECT_EQ(ServiceFromRow(row_)->blSupported, 1U);
    EXPECT_EQ(ServiceFromRow(row_)->blPortForward, 0U);
    row_.blPortForward = 1;
    EXPECT_EQ(ServiceFromRow(row_)->blPortForward, 1U);
}

TEST_F(ServiceOfRow, CutsTextsToFitAndTakesReferencesOnly) {
    const std::string name(300, 'n');
    row_.szName = name.c_str();
    memset(&row_.strTitle, 't', sizeof(row_.strTitle));
    memset(&row_.strDesc, 'd', sizeof(row_.strDesc));
    const auto service = ServiceFromRow(row_);
    EXPECT_EQ(service->szName, std::string(255, 'n'));
    EXPECT_EQ(Describe(service->strTitle), std::string(255, 't') + "|" + std::string(63, 't') +
                                               "|" + std::string(127, 't') + "||");
    EXPECT_EQ(Describe(service->strDesc), std::string(255, 'd') + "|" + std::string(63, 'd') + "|" +
                                              std::string(127, 'd') + "||");
}

TEST_F(ServiceOfRow, PassesOverEmptyPiecesOfFixedPorts) {
    SetDst(",80,,443,", nullptr);
    EXPECT_EQ(Join(ServiceFromRow(row_)->pDstPortList), "80,443");
    SetDst(",", nullptr);
    EXPECT_THAT(Items(ServiceFromRow(row_)->pDstPortList), IsEmpty());
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ServiceOfRow, FailsForFixedPortsThatAreNoNumbers) {
    const std::pair<const char *, const char *> cases[] = {
        {"23,x", "x"}, {"80-90", "80-90"}, {"80, 90", " 90"},
        {"-1", "-1"},  {"8o", "8o"},       {" ", " "},
    };
    for (const auto &[ports, bad] : cases) {
        log_.Clear();
        SetDst(ports, nullptr);
        EXPECT_EQ(ServiceFromRow(row_), nullptr) << ports;
        EXPECT_THAT(Messages(), ElementsAre("illegal ports number, port=" + std::string(bad),
                                            "Failed to parse dst ports in firewall services: row"));
    }
    EXPECT_EQ(TLIBCErrGet(), 0xD00U);
}

TEST_F(ServiceOfRow, ReportsWhichSideFails) {
    SetDst("80", nullptr);
    SetSrc("x", nullptr);
    EXPECT_EQ(ServiceFromRow(row_), nullptr);
    SetSrc("", nullptr);
    EXPECT_EQ(ServiceFromRow(row_), nullptr);
    SetSrc(nullptr, nullptr);
    EXPECT_EQ(ServiceFromRow(row_), nullptr);
    SetSrc(nullptr, Failure);
    EXPECT_EQ(ServiceFromRow(row_), nullptr);
    SetSrc("1", nullptr);
    SetDst("", nullptr);
    EXPECT_EQ(ServiceFromRow(row_), nullptr);
    SetDst(nullptr, nullptr);
    EXPECT_EQ(ServiceFromRow(row_), nullptr);
    SetDst(nullptr, Failure);
    EXPECT_EQ(ServiceFromRow(row_), nullptr);
    EXPECT_THAT(Messages(),
                ElementsAre("illegal ports number, port=x",
                            "Failed to parse src ports in firewall services: row", "Bad parameters",
                            "Failed to parse src ports in firewall services: row",
                            "No specified src ports in firewall services: row",
                            "Failed to enum src ports in firewall services: row", "Bad parameters",
                            "Failed to parse dst ports in firewall services: row",
                            "No specified dst ports in firewall services: row",
                            "Failed to enum dst ports in firewall services: row"));
    EXPECT_EQ(TLIBCErrGet(), 0xD00U);
}

TEST_F(ServiceOfRow, FailsInSilenceForAProviderWithoutPorts) {
    for (const TAVO_FW_PORT_PROVIDER provider : {NoList, EmptyList}) {
        SetDst(nullptr, provider);
        EXPECT_EQ(ServiceFromRow(row_), nullptr);
    }
    row_.blHasDstPorts = 0;
    SetSrc(nullptr, EmptyList);
    EXPECT_EQ(ServiceFromRow(row_), nullptr);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ServiceOfRow, ReportsEveryFailedAllocation) {
    SetDst("80,443", nullptr);
    std::set<std::vector<std::string>> lines;
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        const auto service = fail.During([&] { return ServiceFromRow(row_); });
        EXPECT_EQ(service == nullptr, fail.Hit());
        lines.insert(Messages());
    });
    EXPECT_GT(allocations, 3);
    const std::string parse = "Failed to parse dst ports in firewall services: row";
    EXPECT_THAT(
        lines,
        testing::UnorderedElementsAre(
            ElementsAre("Failed to allocate for service, errno=0x200"),
            ElementsAre("Failed to allocate for ports number, errno=0x200", parse),
            ElementsAre("Failed to allocate for ports number, errno=Cannot allocate memory", parse),
            ElementsAre(parse), IsEmpty()));
}

// ---- Sections ----

class ServiceOfSection : public LibraryTest {
  protected:
    ServiceOfSection() { strcpy(section_.szName, "web"); }

    static TAVO_SERVICE_CONF_PORT Port(uint32_t type, uint32_t protocol, uint32_t start,
                                       uint32_t end, TAVO_SERVICE_CONF_PORT *next = nullptr) {
        return {TAVO_PORT_DIRECTION_DST, type, protocol, start, end, next};
    }

    TAVO_SERVICE_CONF_SECTION section_ = {};
};

TEST_F(ServiceOfSection, KeepsTheOrderOfThePorts) {
    auto third = Port(TAVO_PORT_TYPE_SINGLE, 1, 3, 9);
    auto second = Port(TAVO_PORT_TYPE_RANGE, 1, 20, 10, &third);
    section_.pDstPorts = &second;
    auto source = Port(TAVO_PORT_TYPE_RANGE, 2, 0, 4294967295U);
    section_.pSrcPorts = &source;
    const auto service = ServiceFromSection(section_, true);
    ASSERT_NE(service, nullptr);
    EXPECT_EQ(Join(service->pDstPortList), "20-10,3");
    EXPECT_EQ(Join(service->pSrcPortList), "0--1");
    EXPECT_EQ(service->nDstProtocol, 1U);
    EXPECT_EQ(service->nSrcProtocol, 2U);
    EXPECT_EQ(service->blSupported, 1U);
    EXPECT_EQ(service->pNext, nullptr);
}

TEST_F(ServiceOfSection, HasRoomForTheLongestNumbers) {
    auto port = Port(TAVO_PORT_TYPE_RANGE, 1, 0x80000000U, 0x80000000U);
    section_.pDstPorts = &port;
    EXPECT_EQ(Join(ServiceFromSection(section_, true)->pDstPortList), "-2147483648--2147483648");
}

TEST_F(ServiceOfSection, TakesTheProtocolOfTheLastPort) {
    auto last = Port(TAVO_PORT_TYPE_SINGLE, 2, 2, 0);
    auto first = Port(TAVO_PORT_TYPE_SINGLE, 1, 1, 0, &last);
    section_.pDstPorts = &first;
    EXPECT_EQ(ServiceFromSection(section_, true)->nDstProtocol, 2U);
    last.nProtocol = 7;
    EXPECT_EQ(ServiceFromSection(section_, true)->nDstProtocol, 0U);
}

TEST_F(ServiceOfSection, PassesOverPortsOfOtherTypesButForTheirProtocol) {
    auto last = Port(2, 3, 5, 6);
    auto first = Port(TAVO_PORT_TYPE_SINGLE, 1, 1, 0, &last);
    section_.pDstPorts = &first;
    const auto service = ServiceFromSection(section_, false);
    ASSERT_NE(service, nullptr);
    EXPECT_EQ(Join(service->pDstPortList), "1");
    EXPECT_EQ(service->nDstProtocol, 3U);
    EXPECT_EQ(service->blSupported, 0U);
}

TEST_F(ServiceOfSection, FailsWithoutDestinationPorts) {
    auto source = Port(TAVO_PORT_TYPE_SINGLE, 1, 80, 0);
    section_.pSrcPorts = &source;
    TLIBCErrSetEx(0x123, "caller.cpp", 1);
    EXPECT_EQ(ServiceFromSection(section_, true), nullptr);
    EXPECT_THAT(Messages(),
                ElementsAre("Failed to parse section [web] dst ports for firewall services, "
                            "tavoerr=[0x0123 caller.cpp:N]"));
}

TEST_F(ServiceOfSection, AcceptsTextsWithoutTerminator) {
    auto port = Port(TAVO_PORT_TYPE_SINGLE, 1, 80, 0);
    memset(&section_, 'x', sizeof(section_));
    section_.pSrcPorts = nullptr;
    section_.pDstPorts = &port;
    const auto service = ServiceFromSection(section_, true);
    ASSERT_NE(service, nullptr);
    const std::string reference =
        std::string(255, 'x') + "|" + std::string(63, 'x') + "|" + std::string(127, 'x') + "|";
    EXPECT_EQ(service->szName, std::string(255, 'x'));
    EXPECT_EQ(Describe(service->strTitle), reference + std::string(127, 'x') + "|");
    EXPECT_EQ(Describe(service->strDesc),
              reference + std::string(127, 'x') + "|" + std::string(127, 'x'));
}

TEST_F(ServiceOfSection, ReportsEveryFailedAllocation) {
    auto source = Port(TAVO_PORT_TYPE_SINGLE, 1, 80, 0);
    auto port = Port(TAVO_PORT_TYPE_SINGLE, 1, 80, 0);
    section_.pSrcPorts = &source;
    section_.pDstPorts = &port;
    std::set<std::vector<std::string>> lines;
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        const auto service = fail.During([&] { return ServiceFromSection(section_, true); });
        EXPECT_EQ(service == nullptr, fail.Hit());
        EXPECT_EQ(TLIBCErrGet(), fail.Hit() ? 0x200U : 0U);
        lines.insert(Messages());
    });
    EXPECT_GT(allocations, 5);
    const std::string list = "Failed to allocate for ports number, tavoerr=[0x0200 sz_list.cpp:N]";
    const std::string where = " ports for firewall services, tavoerr=[0x0200 sz_list.cpp:N]";
    EXPECT_THAT(lines, testing::UnorderedElementsAre(
                           ElementsAre("Failed to allocate for service, "
                                       "tavoerr=[0x0200 firewall_service_enum.cpp:N]"),
                           ElementsAre(list, "Failed to parse section [web] src" + where),
                           ElementsAre("Failed to parse section [web] src" + where),
                           ElementsAre(list, "Failed to parse section [web] dst" + where),
                           ElementsAre("Failed to parse section [web] dst" + where), IsEmpty()));
}

// ---- The walk ----

class ServiceWalk : public CatalogueTest {};

TEST_F(ServiceWalk, GoesOnWithoutFilesWhenTheirReaderGivesNone) {
    g_claimed_files = 3;
    TLIBCErrSetEx(0x123, "caller.cpp", 1);
    TAVO_FW_SERVICE *list = nullptr;
    EXPECT_EQ(TAVOFwServiceEnum(&list), 12);
    g_claimed_files = 0;
    const Services services(list);
    EXPECT_EQ(Names(list).size(), 12U);
    EXPECT_THAT(Messages(), ElementsAre("Bad parameters, tavoerr=[0x0123 caller.cpp:N]"));
}

}  // namespace
}  // namespace tavo::test

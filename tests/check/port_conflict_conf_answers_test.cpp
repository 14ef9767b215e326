// The functions that evaluate a result list: the ports in conflict, and yes or no answers.
#include <gmock/gmock.h>

#include <functional>

#include "asking.h"
#include "conf_check_test.h"
#include "failing_allocation.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr char kNoCollection[] =
    "Failed to alloc *ppsdCheckResultCollection, Out of memory.[0x0200]";

constexpr char kNoConflictPort[] = "Failed to alloc pConflictPortList, Out of memory.[0x0200]";

// ---- The ports in conflict ----

class ConflictPorts : public LibraryTest {
  protected:
    // Lists the conflict ports of `findings`, after the entries that are already in the list.
    static Lines List(const std::vector<Result> &findings, int protocol, const Lines &before = {}) {
        const Strings ports = PortList(before);
        EXPECT_EQ(TAVOConfListConflictPorts(Findings(findings).get(),
                                            static_cast<uint16_t>(protocol), ports.get()),
                  0);
        return Items(ports.get());
    }

    char web_[4] = "web";
    const std::vector<Result> findings_ = {
        {443, 1, web_, 1}, {80, 1, nullptr, 0}, {80, 2, web_, 1}, {443, 2, web_, 1},
        {80, 1, web_, 1},  {443, 1, web_, 1},   {9, 3, web_, 1},  {65535, 2, web_, 1}};
};

TEST_F(ConflictPorts, AreListedOnceInTheirOrder) {
    EXPECT_THAT(List(findings_, TAVO_PROTO_BOTH), ElementsAre("443", "80", "65535"));
    EXPECT_THAT(List(findings_, TAVO_PROTO_TCP), ElementsAre("443", "80"));
    EXPECT_THAT(List(findings_, TAVO_PROTO_UDP), ElementsAre("80", "443", "65535"));
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ConflictPorts, AreThoseOfTheProtocolBitsAlone) {
    EXPECT_THAT(List(findings_, 0), IsEmpty());
    EXPECT_THAT(List(findings_, 4), IsEmpty());
    EXPECT_THAT(List(findings_, 0xFFFF), ElementsAre("443", "80", "65535"));
    EXPECT_THAT(List(findings_, 5), ElementsAre("443", "80"));
}

TEST_F(ConflictPorts, AreThoseWhoseFlagIsExactlyOne) {
    EXPECT_THAT(List({{80, 1, web_, 2}, {81, 1, web_, 0}, {82, 1, nullptr, 1}}, 1),
                ElementsAre("82"));
}

TEST_F(ConflictPorts, AreNotListedAgainByTheSameName) {
    EXPECT_THAT(List(findings_, TAVO_PROTO_BOTH, {"80", "80", "22"}),
                ElementsAre("80", "80", "22", "443", "65535"));
    EXPECT_THAT(List(findings_, TAVO_PROTO_BOTH, {"443", "80", "65535"}),
                ElementsAre("443", "80", "65535"));
    const Lines other_names = {"080", "80 ", " 80", "+80", "80x", "65616", "-65456", "", "x"};
    Lines expected = other_names;
    expected.insert(expected.end(), {"443", "80", "65535"});
    EXPECT_THAT(List(findings_, TAVO_PROTO_BOTH, other_names), ElementsAreArray(expected));
}

TEST_F(ConflictPorts, MayIncludePortZero) {
    EXPECT_THAT(List({{0, 1, web_, 1}}, 1, {"", "x"}), ElementsAre("", "x", "0"));
    EXPECT_THAT(List({{0, 1, web_, 1}}, 1, {"0"}), ElementsAre("0"));
}

TEST_F(ConflictPorts, NeedBothLists) {
    const Elements results = Findings(findings_);
    const Strings ports = PortList({"80"});
    EXPECT_EQ(TAVOConfListConflictPorts(nullptr, TAVO_PROTO_TCP, ports.get()), -1);
    EXPECT_EQ(ErrorState(), "0xD00 port_conflict_conf_check.cpp");
    TLIBCErrSetEx(0, nullptr, 0);
    EXPECT_EQ(TAVOConfListConflictPorts(results.get(), TAVO_PROTO_TCP, nullptr), -1);
    EXPECT_EQ(ErrorState(), "0xD00 port_conflict_conf_check.cpp");
    EXPECT_EQ(TAVOConfListConflictPorts(nullptr, TAVO_PROTO_TCP, nullptr), -1);
    EXPECT_THAT(Messages(),
                ElementsAre("pResultList is undefined", "pConflictPortList is undefined",
                            "pResultList is undefined"));
    EXPECT_THAT(Items(ports.get()), ElementsAre("80"));
}

TEST_F(ConflictPorts, StayListedWhenMemoryRunsOutForTheNext) {
    const Elements results = Findings(findings_);
    const Lines all = {"22", "443", "80", "65535"};
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        const Strings ports = PortList({"22"});
        const int result = fail.During(
            [&] { return TAVOConfListConflictPorts(results.get(), TAVO_PROTO_BOTH, ports.get()); });
        const Lines listed = Items(ports.get());
        EXPECT_EQ(result, listed == all ? 0 : -1);
        EXPECT_EQ(ErrorState(), listed == all ? "0x0 " : "0x200 port_conflict_conf_check.cpp");
        EXPECT_EQ(listed, Lines(all.begin(), all.begin() + std::ssize(listed)));
        EXPECT_EQ(Messages(), listed == all ? Lines{} : Lines{kNoConflictPort});
    });
    EXPECT_GE(allocations, 3);
}

// ---- Looking up one port in a result list ----

TEST_F(ConflictPorts, AreVerifiedOneByOne) {
    const Elements results = Findings({{80, 1, nullptr, 0},
                                       {80, 1, web_, 1},
                                       {80, 2, nullptr, 0},
                                       {81, 1, nullptr, 0},
                                       {82, 2, web_, 1},
                                       {83, 1, web_, 2},
                                       {84, 3, web_, 1}});
    constexpr int kNotListed = -2;
    const struct {
        uint16_t port;
        uint16_t protocol;
        int expected;
    } kCases[] = {
        {80, 1, 1},          {80, 2, 0},          {80, 3, 1},          {80, 0, kNotListed},
        {80, 4, kNotListed}, {80, 0xFFFF, 1},     {81, 1, 0},          {81, 2, kNotListed},
        {81, 3, 0},          {82, 1, kNotListed}, {82, 2, 1},          {82, 3, 1},
        {83, 1, 0},          {84, 3, kNotListed}, {85, 3, kNotListed}, {0, 3, kNotListed},
    };
    for (const auto &[port, protocol, expected] : kCases) {
        EXPECT_EQ(TAVOConfVerifyConflictPort(results.get(), port, protocol), expected)
            << PortAndProtocol(port, protocol);
    }
    EXPECT_EQ(TAVOConfVerifyConflictPort(NewResults().get(), 80, 3), kNotListed);
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_F(ConflictPorts, CannotBeVerifiedWithoutAList) {
    EXPECT_EQ(TAVOConfVerifyConflictPort(nullptr, 80, TAVO_PROTO_TCP), -1);
    EXPECT_EQ(ErrorState(), "0xD00 port_conflict_conf_check.cpp");
    EXPECT_THAT(Messages(), ElementsAre("pResultList is undefined"));
}

// ---- Yes or no ----

class ConfAnswer : public ConfCheckTest {};

TEST_F(ConfAnswer, ReportsWhetherAnyPortIsDeclared) {
    const struct {
        Lines ports;
        uint16_t protocol;
        int expected;
    } kCases[] = {
        {{"9", "80"}, 1, 1}, {{"9", "80"}, 2, 0}, {{"9", "80"}, 3, 1}, {{"9"}, 3, 0},
        {{"53"}, 1, 0},      {{"53"}, 2, 1},      {{"514"}, 1, 1},     {{"514"}, 2, 1},
        {{"5005"}, 1, 1},    {{"5005"}, 2, 0},    {{"5006"}, 1, 1},    {{"5006"}, 2, 0},
        {{}, 3, 0},          {{"x", "0"}, 3, 0},  {{"x", "80"}, 3, 1},
    };
    for (const auto &[ports, protocol, expected] : kCases) {
        EXPECT_EQ(TAVOConfIsConflictPorts(PortList(ports).get(), protocol), expected)
            << testing::PrintToString(ports) << " " << protocol;
    }
}

TEST_F(ConfAnswer, ReportsWhetherOnePortIsDeclared) {
    EXPECT_EQ(TAVOConfIsConflictPort(80, TAVO_PROTO_TCP), 1);
    EXPECT_EQ(TAVOConfIsConflictPort(80, TAVO_PROTO_UDP), 0);
    EXPECT_EQ(TAVOConfIsConflictPort(65535, TAVO_PROTO_BOTH), 0);
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(TAVOConfIsConflictPort(0, TAVO_PROTO_BOTH), 0);
    EXPECT_THAT(Messages(), ElementsAre("Illegal port: 0"));
}

TEST_F(ConfAnswer, ReportsWhetherAPortOfARangeIsDeclared) {
    const struct {
        uint16_t first;
        uint16_t last;
        uint16_t protocol;
        int expected;
    } kCases[] = {
        {80, 80, 1, 1},   {80, 80, 2, 0},   {70, 80, 1, 1},      {80, 90, 1, 1},
        {70, 79, 3, 0},   {81, 90, 3, 0},   {8002, 8003, 1, 1},  {8003, 8004, 1, 0},
        {1, 65534, 1, 1}, {1, 65534, 2, 1}, {6000, 65534, 2, 0}, {65534, 65534, 3, 0},
    };
    for (const auto &[first, last, protocol, expected] : kCases) {
        EXPECT_EQ(TAVOConfIsConflictPortRange(first, last, protocol), expected)
            << first << " " << last << " " << protocol;
    }
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(TAVOConfIsConflictPortRange(0, 9, TAVO_PROTO_BOTH), 0);
    EXPECT_THAT(Messages(), ElementsAre("Illegal port: 0"));
}

TEST_F(ConfAnswer, SaysNoOfARangeThatRunsBackwards) {
    EXPECT_EQ(TAVOConfIsConflictPortRange(80, 79, TAVO_PROTO_TCP), 0);
    EXPECT_EQ(ErrorState(), "0xD00 port_conflict_conf_check.cpp");
    EXPECT_EQ(TAVOConfIsConflictPortRange(65535, 0, 0), 0);
    EXPECT_THAT(Messages(),
                ElementsAre("Illegal port range: 80~79", "Illegal port range: 65535~0"));
    for (const CapturedLog::Line &line : log_.Lines()) {
        EXPECT_THAT(line.text, testing::StartsWith("port_conflict_conf_check.cpp:"));
    }
}

TEST_F(ConfAnswer, SaysNoOfWhatItRefuses) {
    EXPECT_EQ(TAVOConfIsConflictPorts(nullptr, TAVO_PROTO_TCP), 0);
    EXPECT_EQ(ErrorState(), "0xD00 port_conflict_conf_check.cpp");
    EXPECT_EQ(TAVOConfIsConflictPort(80, 0), 0);
    EXPECT_EQ(TAVOConfIsConflictPortRange(80, 81, 4), 0);
    EXPECT_THAT(Messages(), ElementsAre(kNoPorts, kCheckFailed, "Illegal protocol: 0", kCheckFailed,
                                        "Illegal protocol: 4", kCheckFailed));
}

TEST_F(ConfAnswer, SaysNoWhenAStepFails) {
    const Strings ports = PortList({"80"});
    const auto any = [&] { return TAVOConfIsConflictPorts(ports.get(), TAVO_PROTO_TCP); };
    const auto one = [] { return TAVOConfIsConflictPort(80, TAVO_PROTO_TCP); };
    const auto range = [] { return TAVOConfIsConflictPortRange(80, 81, TAVO_PROTO_TCP); };
    const struct {
        const char *function;
        int nth;
        std::function<int()> ask;
        Lines lines;
        std::string error;
    } kCases[] = {
        {"TAVOConfPortConflictResultListAlloc",
         1,
         any,
         {kNoCollection},
         "0x200 port_conflict_conf_check.cpp"},
        {"TLIBCSzListAlloc", 1, any, {kNoCollection}, "0x200 port_conflict_conf_check.cpp"},
        {"TAVOConfListConflictPorts", 1, any, {"Failed to TAVOConfListConflictPorts"}, "0x0 "},
        {"TLIBCSzListPush",
         1,
         any,
         {kNoConflictPort, "Failed to TAVOConfListConflictPorts"},
         "0x200 port_conflict_conf_check.cpp"},
        {"TLIBCSzListAlloc", 1, one, {kNoCollection}, "0x200 port_conflict_conf_check.cpp"},
        {"TLIBCSzListPush", 1, one, {kNoCollection}, "0x200 port_conflict_conf_check.cpp"},
        {"TLIBCSzListAlloc", 1, range, {kNoCollection}, "0x200 port_conflict_conf_check.cpp"},
        {"TLIBCSzListPush", 2, range, {kNoCollection}, "0x200 port_conflict_conf_check.cpp"},
    };
    for (const auto &[function, nth, ask, lines, error] : kCases) {
        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        const Failing failing(function, nth);
        EXPECT_EQ(ask(), 0) << function;
        EXPECT_EQ(Messages(), lines) << function;
        EXPECT_EQ(ErrorState(), error) << function;
    }
}

TEST_F(ConfAnswer, SaysNoWhenItIsUnknownAndWhy) {
    MakeUnreadable(kSettings);
    const Strings ports = PortList({"80"});
    EXPECT_EQ(TAVOConfIsConflictPorts(ports.get(), TAVO_PROTO_TCP), 0);
    EXPECT_EQ(TLIBCErrGet(), 0x900U);
    Lines lines = UnreadableSettingsLines();
    lines.emplace_back(kCheckFailed);
    EXPECT_EQ(Messages(), lines);
}

TEST_F(ConfAnswer, SaysNoWithoutMemoryAndWhy) {
    const Strings ports = PortList({"9", "80"});
    const std::function<int()> questions[] = {
        [&] { return TAVOConfIsConflictPorts(ports.get(), TAVO_PROTO_TCP); },
        [] { return TAVOConfIsConflictPort(80, TAVO_PROTO_TCP); },
        [] { return TAVOConfIsConflictPortRange(79, 80, TAVO_PROTO_TCP); },
    };
    for (const auto &question : questions) {
        const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
            log_.Clear();
            TLIBCErrSetEx(0, nullptr, 0);
            if (fail.During(question) == 0) {
                EXPECT_EQ(TLIBCErrGet(), 0x200U);
                EXPECT_THAT(Messages().back(),
                            testing::AnyOf(kNoCollection, kCheckFailed,
                                           "Failed to TAVOConfListConflictPorts"));
            }
        });
        EXPECT_GT(allocations, 10);
    }
}

// ---- The range that never ends ----

TEST_F(ConfAnswer, NeverReturnsFromARangeThatEndsAt65535) {
    for (const auto first : std::initializer_list<uint16_t>{1, 80, 65535}) {
        const Asking asking([&] { TAVOConfIsConflictPortRange(first, 65535, TAVO_PROTO_TCP); });
        EXPECT_THAT(asking.LookAsleep(), testing::StartsWith("S for "));
    }
}

}  // namespace
}  // namespace tavo::test

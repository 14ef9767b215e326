// The question as a whole: arguments, the order of the sources, and the reserved port.
#include <gmock/gmock.h>

#include "conflict_test.h"
#include "failing_allocation.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PortConflict : public ConflictTest {};

TEST_F(PortConflict, RefusesNullArguments) {
    EXPECT_EQ(TLIBIsPortConflict(nullptr, "80", "tcp", 1, &conflicts_), -1);
    EXPECT_EQ(TLIBIsPortConflict("", nullptr, "tcp", 1, &conflicts_), -1);
    EXPECT_EQ(TLIBIsPortConflict("", "80", nullptr, 1, &conflicts_), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_is_port_conflict.cpp");
    TLIBCErrSetEx(0, nullptr, 0);
    EXPECT_EQ(TLIBIsPortConflict("", "80", "tcp", 1, nullptr), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_is_port_conflict.cpp");
    EXPECT_THAT(Messages(), ElementsAre("Invalid Argument!!", "Invalid Argument!!",
                                        "Invalid Argument!!", "Invalid Argument!!"));
}

TEST_F(PortConflict, TakesFlagsFrom1To31) {
    for (const int flags : {0, 32, -1, 33, 1 << 30}) {
        TLIBCErrSetEx(0, nullptr, 0);
        EXPECT_EQ(Ask("80", "tcp", flags), -1) << flags;
        EXPECT_EQ(ErrorState(), "0xD00 service_is_port_conflict.cpp");
    }
    EXPECT_THAT(Messages(), testing::Each("Invalid Argument!!"));
    for (int flags = 1; flags <= 31; ++flags) {
        EXPECT_EQ(Ask("9", "tcp", flags), 0) << flags;
    }
}

TEST_F(PortConflict, AsksNobodyByDefault) {
    std::filesystem::remove(kSettings);
    Rules("[1]\n");
    EXPECT_EQ(Ask("23,x", "sctp", TAVO_PORT_CHECK_DEFAULT), 0);
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(conflicts_, nullptr);
}

TEST_F(PortConflict, CountsPort412AsTakenWhateverIsAsked) {
    for (int flags = 1; flags <= 31; ++flags) {
        EXPECT_EQ(Ask("412", "tcp", flags), 1) << flags;
    }
    EXPECT_EQ(Ask("80 412", "tcp", 1), 1) << "after a blank";
    EXPECT_EQ(Ask("80,412,443", "udp", 1), 1) << "after a comma";
    EXPECT_EQ(conflicts_, nullptr) << "it is not listed";
}

TEST_F(PortConflict, CountsPort412AsTakenByThatNameOnly) {
    EXPECT_EQ(Ask("400:420", "tcp", 15), 0);
    EXPECT_EQ(Ask("0412", "tcp", 15), 0);
    EXPECT_EQ(Ask("412:412", "tcp", 15), 0);
}

TEST_F(PortConflict, ReportsAFailureEvenOfPort412) {
    Rules("[1]\ns_port=\"1\"\n");
    EXPECT_EQ(Ask("412", "tcp", TAVO_PORT_CHECK_PORT_FORWARD), -1);
}

TEST_F(PortConflict, CollectsTheConflictsOfEverySource) {
    Rules(Rule("7000", "7001"));
    Service("web", "7002,7003/tcp");
    Settings("ftpport=\"7004\"\n");
    EXPECT_EQ(Ask("7000:7003", "tcp", 6), 1);
    EXPECT_THAT(Conflicts(), ElementsAre("src 7002 protocol 3", "src 7003 protocol 3",
                                         "src 7001 protocol 3", "src 7000 protocol 3"));
}

TEST_F(PortConflict, MergesWhatRulesAndServicesFoundIntoTheListOfTheSettings) {
    Rules(Rule("7000", "7001"));
    Service("web", "7003/tcp");
    Settings("ftpport=\"7005\"\n");
    EXPECT_EQ(Ask("7000:7010", "tcp", 14), 1);
    EXPECT_THAT(Conflicts(),
                ElementsAre("src 7000:7001 protocol 0", "src 7003 with end 7003 protocol 0",
                            "src 7005 with end 7005 protocol 0"));
}

TEST_F(PortConflict, AsksTheSourcesInTheOrderOfTheirBits) {
    std::filesystem::remove(kSettings);
    Rules("[1]\ns_port=\"1\"\n");
    EXPECT_EQ(Ask("80", "tcp", 30), -1);
    EXPECT_THAT(Messages(), IsEmpty()) << "the settings were not asked any more";
    std::filesystem::remove(kRules);
    EXPECT_EQ(Ask("0", "tcp", 30), -1);
    EXPECT_EQ(Messages().back(), "Failed to GetAllNonSkipServicePort()")
        << "the sockets were not asked any more";
}

TEST_F(PortConflict, KeepsWhatWasFoundBeforeAFailure) {
    HandOver(1, 0);
    Rules(Rule("7000", "7001"));
    std::filesystem::remove(kSettings);
    EXPECT_EQ(Ask("7000", "tcp", 10), -1);
    EXPECT_THAT(Conflicts(), ElementsAre("src 7000 protocol 3", "dst 1 protocol 1"));
}

TEST_F(PortConflict, RefusesAProtocolTextThatIsTooLong) {
    EXPECT_EQ(Ask("80", std::string(1023, 'x'), 1), 0);
    EXPECT_EQ(Ask("80", std::string(1024, 'x'), 1), -1);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PortConflict, NamesTheStepThatRanOutOfMemory) {
    const auto ask = [this] { return Ask("80", "tcp", 1, "skip"); };
    std::vector<std::string> said;
    for (int nth = 1;; ++nth) {
        FailingAllocation fail(nth, FailingAllocation::Mode::kOnlyNth);
        log_.Clear();
        const int result = fail.During(ask);
        if (!fail.Hit()) {
            break;
        }
        EXPECT_EQ(result, -1);
        EXPECT_EQ(TLIBCErrGet(), 0x200u);
        ASSERT_EQ(Messages().size(), 1u);
        if (said.empty() || said.back() != Messages().front()) {
            said.push_back(Messages().front());
        }
    }
    EXPECT_THAT(said, ElementsAre("Failed to TLIBCSzListAlloc[0x0200 sz_list.cpp:N]",
                                  "Failed to skiped services into list!"));
}

TEST_F(PortConflict, SurvivesEveryFailingAllocation) {
    Rules(Rule("7000", "7001"));
    Service("web", "7002,7003:7005/tcp");
    Settings("ftpport=\"7004\"\n");
    const int allocations = ForEachFailingAllocation([](FailingAllocation &fail) {
        TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
        const int result = fail.During([&] {
            return TLIBIsPortConflict("telnet", "7000:7010,23", "tcp,udp", 31, &conflicts);
        });
        EXPECT_TRUE(result == 1 || (result == -1 && fail.Hit())) << result;
        TAVOServiceConfPortsFree(conflicts);
    });
    EXPECT_GT(allocations, 100);
}

}  // namespace
}  // namespace tavo::test

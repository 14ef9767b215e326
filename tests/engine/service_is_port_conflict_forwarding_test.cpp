// The rules of the port-forwarding library as a source.
#include <gmock/gmock.h>

#include "conflict_test.h"
#include "failing_allocation.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ForwardingRules : public ConflictTest {
  protected:
    int AskRules(const std::string &ports, const std::string &protocols = "tcp",
                 const std::string &skip = "") {
        return Ask(ports, protocols, TAVO_PORT_CHECK_PORT_FORWARD, skip);
    }
};

TEST_F(ForwardingRules, CollideOnBothSides) {
    Rules(Rule("80", "8080"));
    EXPECT_EQ(AskRules("80"), 1) << "the appliance's side";
    EXPECT_EQ(AskRules("8080"), 1) << "the router's side";
    EXPECT_EQ(AskRules("81"), 0);
    EXPECT_THAT(Conflicts(), ElementsAre("src 8080 protocol 3", "src 80 protocol 3"));
}

TEST_F(ForwardingRules, ListThePortsOfTheApplianceBeforeThoseOfTheRouter) {
    Rules(Rule("80", "80"));
    EXPECT_EQ(AskRules("80"), 1);
    EXPECT_THAT(Conflicts(), ElementsAre("src 80 protocol 3", "src 80 protocol 3"));
}

TEST_F(ForwardingRules, AreReadToTheLast) {
    Rules(Rule("80", "8080") + "[2]\nprotocol name=tcp\ns_port=90\nr_port=27015-27030\n");
    EXPECT_EQ(AskRules("80,27020:27040"), 1);
    EXPECT_THAT(Conflicts(), ElementsAre("src 27020:27030 protocol 3", "src 80 protocol 3"));
}

TEST_F(ForwardingRules, CollideOnAnyProtocol) {
    Rules(Rule("80", "8080"));
    EXPECT_EQ(AskRules("80", "udp"), 1);
    EXPECT_EQ(AskRules("80", ""), 1);
    EXPECT_EQ(AskRules("80", "sctp"), 1);
}

TEST_F(ForwardingRules, OfASkippedServiceAreLeftOut) {
    Rules(Rule("80", "8080", "service_id=\"web\"\n"));
    EXPECT_EQ(AskRules("80", "tcp", "mail, web"), 0);
    EXPECT_EQ(AskRules("80", "tcp", "WEB,we"), 1) << "names are compared whole and by case";
}

TEST_F(ForwardingRules, OfASkippedServiceNeedNotBeWhole) {
    Rules("[1]\nservice_id=\"web\"\n");
    EXPECT_EQ(AskRules("80", "tcp", "web"), 0);
    EXPECT_EQ(AskRules("80", "tcp"), -1);
}

TEST_F(ForwardingRules, WithoutAFileAreNone) {
    EXPECT_EQ(AskRules("80"), 0);
    EXPECT_EQ(ErrorState(), "0x0 ");
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ForwardingRules, OfAFileWithoutSectionsAreNone) {
    Rules("");
    EXPECT_EQ(AskRules("80"), 0);
    Rules("# no rule yet\n");
    EXPECT_EQ(AskRules("80"), 0);
}

TEST_F(ForwardingRules, MustHaveTheirKeys) {
    for (const char *rule : {"[1]\ns_port=1\nr_port=1\n", "[1]\nprotocol name=tcp\nr_port=1\n",
                             "[1]\nprotocol name=tcp\ns_port=1\n"}) {
        Rules(rule);
        TLIBCErrSetEx(0, nullptr, 0);
        EXPECT_EQ(AskRules("80"), -1) << rule;
        EXPECT_EQ(ErrorState(), "0xD00 service_is_port_conflict.cpp");
    }
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ForwardingRules, MayHaveEmptyKeys) {
    Rules("[1]\nprotocol name=\ns_port=\nr_port=\n");
    EXPECT_EQ(AskRules("80"), 0);
}

TEST_F(ForwardingRules, MayNotBeEmpty) {
    Rules("[1]\n");
    EXPECT_EQ(AskRules("80"), -1);
    EXPECT_THAT(Messages(), ElementsAre("Section not found or failed to get section(1) from "
                                        "/usr/tavo/etc/portforward/rule.conf"));
    EXPECT_EQ(ErrorState(), "0xD00 service_is_port_conflict.cpp");
}

TEST_F(ForwardingRules, AreCheckedInFileOrderUpToAFailure) {
    Rules(Rule("80", "8080") + "[2]\nprotocol name=tcp\ns_port=x\nr_port=1\n" +
          "[3]\nprotocol name=tcp\ns_port=80\nr_port=80\n");
    EXPECT_EQ(AskRules("80"), -1);
    EXPECT_THAT(Conflicts(), ElementsAre("src 80 protocol 3")) << "of the first rule only";
    EXPECT_THAT(Messages(), ElementsAre("illegal ports number, port=x, tavoerr=[0x0D00 "
                                        "service_conf_ports_get.cpp:N]"));
}

TEST_F(ForwardingRules, MayHoldNothingButPortsOnTheRouterSideToo) {
    Rules(Rule("80", "8080:8090"));
    EXPECT_EQ(AskRules("1"), -1) << "ranges are written with a hyphen";
}

TEST_F(ForwardingRules, RefuseAQueryWithBlanks) {
    Rules(Rule("80", "8080"));
    EXPECT_EQ(AskRules("80 443"), -1);
    std::filesystem::remove(kRules);
    EXPECT_EQ(AskRules("80 443"), 0) << "nobody walks it";
}

TEST_F(ForwardingRules, ThatCannotBeReadAreAnError) {
    std::filesystem::create_directory(kRules);
    EXPECT_EQ(AskRules("80"), -1);
    EXPECT_THAT(
        Messages(),
        ElementsAre(testing::StartsWith("Failed to TLIBCFileEnumSection[0x0900 file_text.cpp:N]")));
    std::filesystem::remove(kRules);
}

TEST_F(ForwardingRules, MayBeBinary) {
    Rules(std::string("[\xFF\x01]\n\0\xFE=\0\n", 10));
    EXPECT_EQ(AskRules("80"), -1) << "a section without a usable key";
}

TEST_F(ForwardingRules, OfALargeFileAreReadInOneGo) {
    std::string rules;
    for (int i = 0; i < 200000; ++i) {
        rules += "[" + std::to_string(i) +
                 "]\nprotocol name=tcp\ns_port=" + std::to_string(i % 60000) + "\nr_port=1\n\n";
    }
    Rules(rules);
    EXPECT_EQ(AskRules("60001"), 0);
    EXPECT_EQ(AskRules("59999"), 1);
    EXPECT_EQ(Conflicts().size(), 3u);
}

TEST_F(ForwardingRules, NameTheStepThatRanOutOfMemory) {
    Rules(Rule("80", "8080"));
    std::vector<std::string> said;
    for (int nth = 1;; ++nth) {
        FailingAllocation fail(nth, FailingAllocation::Mode::kOnlyNth);
        log_.Clear();
        const int result = fail.During([this] { return AskRules("1"); });
        if (!fail.Hit()) {
            EXPECT_EQ(result, 0);
            break;
        }
        if (result == -1 && !Messages().empty() &&
            (said.empty() || said.back() != Messages().back())) {
            said.push_back(Messages().back());
            EXPECT_EQ(TLIBCErrGet(), 0x200u);
        }
    }
    EXPECT_THAT(
        said, testing::IsSupersetOf({"Failed to alloc memory",
                                     "Failed to TLIBCSzListAlloc[0x0200 sz_list.cpp:N]",
                                     "Section not found or failed to get section(1) from "
                                     "/usr/tavo/etc/portforward/rule.conf",
                                     "strdup fail for 80[0x0200 service_is_port_conflict.cpp:N]"}));
}

}  // namespace
}  // namespace tavo::test

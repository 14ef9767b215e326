// Many questions in one call: each conflict is reported with its question, source, declarer, place
// and range, and an unreadable source has a separate record.
#include "engine/conflicts.h"

#include <arpa/inet.h>

#include <array>
#include <initializer_list>
#include <sstream>

#include "base/system_files.h"
#include "conflict_test.h"
#include "failing_allocation.h"
#include "held_socket.h"

namespace tavo::test {
namespace {

constexpr int kRuleSource = TAVO_PORT_CHECK_PORT_FORWARD;
constexpr int kServiceSource = TAVO_PORT_CHECK_FW_SERVICE;
constexpr int kSettingSource = TAVO_PORT_CHECK_SYS_KEY;
constexpr int kSocketSource = TAVO_PORT_CHECK_RUNTIME;
constexpr int kEverySource = kRuleSource | kServiceSource | kSettingSource | kSocketSource;

// A question with its own copies of the data.
struct Question {
    std::vector<Range> ports;
    int sources = kEverySource;
    std::uint32_t protocols = TAVO_PROTO_TCP;
    std::vector<const char *> skipped = {};
};

std::string Text(const char *text) {
    return text == nullptr ? "-" : text;
}

class Conflicts : public ConflictTest {
  protected:
    bool Find(const std::vector<Question> &questions) {
        std::vector<PortQuestion> asked;
        for (const Question &question : questions) {
            asked.push_back(
                {question.ports, question.protocols, question.skipped, question.sources});
        }
        found_ = std::make_unique<PortConflicts>();
        return found_->Find(asked);
    }

    // Each conflict as "QUESTION SOURCE LOW-HIGH/PROTOCOLS NAME TITLE FILE ENTRY".
    std::vector<std::string> Taken() const {
        std::vector<std::string> texts;
        for (const TakenPorts &taken : found_->Taken()) {
            std::ostringstream text;
            text << taken.question << ' ' << taken.source << ' ' << taken.range.low << '-'
                 << taken.range.high << '/' << taken.protocols << ' ' << Place(taken.declarer);
            texts.push_back(text.str());
        }
        return texts;
    }

    // Each failure as "QUESTION SOURCE KIND CODE NAME TITLE FILE ENTRY KEY TEXT".
    std::vector<std::string> Failures() const {
        std::vector<std::string> texts;
        for (const SourceFailure &failure : found_->Failures()) {
            std::ostringstream text;
            text << failure.question << ' ' << failure.source << ' '
                 << static_cast<int>(failure.kind) << ' ' << std::hex << failure.code << ' '
                 << Place(failure.declarer) << ' ' << Text(failure.key) << ' '
                 << Text(failure.text);
            texts.push_back(text.str());
        }
        return texts;
    }

    const std::string kPackage = "/usr/local/etc/services.d/";

  private:
    static std::string Place(const PortDeclarer &declarer) {
        return Text(declarer.name) + ' ' + Text(declarer.title) + ' ' + Text(declarer.file) + ' ' +
               Text(declarer.entry);
    }

    std::unique_ptr<PortConflicts> found_;
};

using Texts = std::vector<std::string>;

TEST_F(Conflicts, FindNothingWithoutAQuestion) {
    EXPECT_TRUE(Find({}));
    EXPECT_EQ(Taken(), Texts());
    EXPECT_EQ(Failures(), Texts());
}

TEST_F(Conflicts, NameRuleSettingServiceAndSocket) {
    Rules(
        "[1]\nservice_id=web\nservice name=Web station\nprotocol name=tcp\ns_port=7000\n"
        "r_port=7005-7010\n");
    Settings("WebDavPort=7002\n");
    Service("chat", "7003:7004/tcp");
    const HeldSocket held(AF_INET, SOCK_STREAM, 7001);
    ASSERT_TRUE(Find({{{{7000, 7008}}}}));
    EXPECT_EQ(Taken(), Texts({"0 2 7000-7000/3 web Web station " + std::string(kRules) + " 1",
                              "0 2 7005-7008/3 web Web station " + std::string(kRules) + " 1",
                              "0 4 7003-7004/1 chat - " + kPackage + "chat.sc chat",
                              "0 8 7002-7002/3 webdav_http - /etc/tavoinfo.conf WebDavPort",
                              "0 16 7001-7001/1 - - - -"}));
    EXPECT_EQ(Failures(), Texts());
}

TEST_F(Conflicts, SayWhichQuestionEachBelongsTo) {
    Service("a", "7000:7010/tcp");
    Service("b", "7005/udp");
    ASSERT_TRUE(Find({{{{7000, 7000}, {7002, 7003}}, kServiceSource},
                      {{{7005, 7005}}, kServiceSource, TAVO_PROTO_BOTH},
                      {{{7005, 7005}}, kServiceSource, TAVO_PROTO_UDP, {"b"}},
                      {{{6990, 7020}}, kServiceSource, TAVO_PROTO_TCP},
                      {{{7005, 7005}}, kRuleSource}}));
    Texts taken = Taken();
    std::sort(taken.begin(), taken.end());
    EXPECT_EQ(taken, Texts({"0 4 7000-7000/1 a - " + kPackage + "a.sc a",
                            "0 4 7002-7003/1 a - " + kPackage + "a.sc a",
                            "1 4 7005-7005/1 a - " + kPackage + "a.sc a",
                            "1 4 7005-7005/2 b - " + kPackage + "b.sc b",
                            "3 4 7000-7010/1 a - " + kPackage + "a.sc a"}));
}

// Adjacent ports of a question are one range of a declaration.
TEST_F(Conflicts, JoinNeighbouringPortsOfAQuestion) {
    Service("a", "7000:7010/tcp");
    ASSERT_TRUE(Find({{{{7001, 7001}, {7000, 7000}, {7001, 7002}}, kServiceSource}}));
    EXPECT_EQ(Taken(), Texts({"0 4 7000-7002/1 a - " + kPackage + "a.sc a"}));
}

TEST_F(Conflicts, TakeTheReservedPortNamedByItself) {
    ASSERT_TRUE(Find({{{{412, 412}}, kRuleSource}, {{{411, 413}}, kRuleSource}}));
    EXPECT_EQ(Taken(), Texts({"0 1 412-412/1 - - - -"}));
}

TEST_F(Conflicts, GiveEveryRowOfHeldPorts) {
    std::vector<std::unique_ptr<HeldSocket>> held;
    for (const int port : {7001, 7002, 7004, 7010}) {
        held.push_back(std::make_unique<HeldSocket>(AF_INET, SOCK_STREAM, port));
    }
    ASSERT_TRUE(Find({{{{7000, 7009}}, kSocketSource}, {{{7010, 7010}}, kSocketSource}}));
    EXPECT_EQ(Taken(), Texts({"0 16 7001-7002/1 - - - -", "0 16 7004-7004/1 - - - -",
                              "1 16 7010-7010/1 - - - -"}));
}

TEST_F(Conflicts, LeaveOutSocketsAtPortsOfASkippedService) {
    Service("a", "7000:7001/tcp");
    const HeldSocket own(AF_INET, SOCK_STREAM, 7000);
    const HeldSocket other(AF_INET, SOCK_STREAM, 7002);
    ASSERT_TRUE(Find(
        {{{{7000, 7002}}, kSocketSource, TAVO_PROTO_TCP, {"a"}}, {{{7000, 7002}}, kSocketSource}}));
    EXPECT_EQ(Taken(), Texts({"0 16 7002-7002/1 - - - -", "1 16 7000-7000/1 - - - -",
                              "1 16 7002-7002/1 - - - -"}));
}

// A name means the first service of that name: those of files in reading order, then the
// built-in ones.
TEST_F(Conflicts, SkipOnlyTheFirstServiceOfAName) {
    WriteFile("/usr/local/etc/services.d/1.sc",
              "[x]\ntitle=T\ndesc=D\ndst.ports=7000/tcp\n"
              "[afp]\ntitle=T\ndesc=D\ndst.ports=7003:7002,7005/tcp\n");
    WriteFile("/usr/local/etc/services.d/2.sc", "[x]\ntitle=T\ndesc=D\ndst.ports=7001/tcp\n");
    std::vector<std::unique_ptr<HeldSocket>> held;
    for (const int port : {548, 7000, 7001, 7002, 7003, 7004, 7005}) {
        held.push_back(std::make_unique<HeldSocket>(AF_INET, SOCK_STREAM, port));
    }
    ASSERT_TRUE(Find({{{{548, 548}, {7000, 7005}}, kSocketSource, TAVO_PROTO_TCP, {"x", "afp"}}}));
    EXPECT_EQ(Taken(), Texts({"0 16 548-548/1 - - - -", "0 16 7001-7001/1 - - - -",
                              "0 16 7004-7004/1 - - - -"}));
}

TEST_F(Conflicts, NameBuiltInServicesWithoutAFile) {
    ASSERT_TRUE(Find({{{{23, 23}}, kServiceSource}}));
    EXPECT_EQ(Taken(), Texts({"0 4 23-23/1 telnet - - -"}));
}

// ---- Unreadable sources

TEST_F(Conflicts, ReportABuiltInServiceThatIsLeftOutUnlessItIsSkipped) {
    const std::string settings = "/etc/nfs/tavo_nfs_conf";
    std::filesystem::rename(settings, settings + ".away");
    const bool found = Find({{{{7000, 7000}}, kServiceSource},
                             {{{7000, 7000}}, kServiceSource, TAVO_PROTO_TCP, {"nfs"}}});
    std::filesystem::rename(settings + ".away", settings);
    ASSERT_TRUE(found);
    const Texts failures = Failures();
    ASSERT_EQ(failures.size(), 1U);
    EXPECT_EQ(failures[0].find("0 4 3 "), 0U) << failures[0];
    EXPECT_NE(failures[0].find(" nfs - - - - -"), std::string::npos) << failures[0];
}

TEST_F(Conflicts, ReportARuleThatLacksAKeyAndGoOn) {
    Rules(
        "[1]\nservice_id=a\nprotocol name=tcp\ns_port=1\n[2]\nprotocol name=tcp\n"
        "s_port=7000\nr_port=1\n");
    ASSERT_TRUE(Find(
        {{{{7000, 7000}}, kRuleSource}, {{{7000, 7000}}, kRuleSource, TAVO_PROTO_TCP, {"a"}}}));
    EXPECT_EQ(Failures(), Texts({"0 2 1 d00 a - " + std::string(kRules) + " 1 r_port -"}));
    EXPECT_EQ(Taken().size(), 2U);
}

TEST_F(Conflicts, ReportAnEmptyRuleAndGoOn) {
    Rules("[1]\n[2]\nprotocol name=tcp\ns_port=7000\nr_port=1\n");
    ASSERT_TRUE(Find({{{{7000, 7000}}, kRuleSource}}));
    EXPECT_EQ(Failures(), Texts({"0 2 1 d00 - - " + std::string(kRules) + " 1 protocol name -"}));
    EXPECT_EQ(Taken(), Texts({"0 2 7000-7000/3 - - " + std::string(kRules) + " 2"}));
}

TEST_F(Conflicts, ReportARuleWithBadPorts) {
    Rules(Rule("80,1:2", "80"));
    ASSERT_TRUE(Find({{{{7000, 7000}}, kRuleSource}}));
    EXPECT_EQ(Failures(), Texts({"0 2 2 d00 - - " + std::string(kRules) + " 1 s_port 80,1:2"}));
}

TEST_F(Conflicts, ReportRulesThatCannotBeRead) {
    std::filesystem::create_directory(kRules);
    ASSERT_TRUE(Find({{{{7000, 7000}}, kRuleSource}, {{{7000, 7000}}, kServiceSource}}));
    EXPECT_EQ(Failures(), Texts({"0 2 0 900 - - " + std::string(kRules) + " - - -"}));
}

// The file may exist if its path is a link loop.
TEST_F(Conflicts, ReportRulesThatAreALinkToItself) {
    std::filesystem::create_symlink(kRules, kRules);
    ASSERT_TRUE(Find({{{{7000, 7000}}, kRuleSource}}));
    ASSERT_EQ(Failures().size(), 1U);
}

TEST_F(Conflicts, ReportEachSettingThatIsNoPort) {
    Settings("ftpport=7000\nftphighport=x\nWebDavPort=x\n");
    ASSERT_TRUE(Find({{{{7000, 7000}}, kSettingSource},
                      {{{7001, 7001}}, kSettingSource, TAVO_PROTO_TCP, {"ftp"}}}));
    EXPECT_EQ(Taken(), Texts({"0 8 7000-7000/3 ftp - /etc/tavoinfo.conf ftpport"}));
    const Texts failures = Failures();
    ASSERT_EQ(failures.size(), 3U);
    EXPECT_NE(failures[0].find("0 8 0 "), std::string::npos);
    EXPECT_NE(failures[0].find(" ftp - /etc/tavoinfo.conf ftphighport"), std::string::npos);
    EXPECT_NE(failures[1].find("0 8 0 "), std::string::npos);
    EXPECT_NE(failures[2].find("1 8 0 "), std::string::npos);
    EXPECT_NE(failures[2].find(" webdav_http - /etc/tavoinfo.conf WebDavPort"), std::string::npos);
}

TEST_F(Conflicts, ReportThatSocketsHaveNoAnswerForPortZeroAlone) {
    ASSERT_TRUE(Find({{{{0, 0}, {7000, 7000}}, kSocketSource}, {{{0, 5}}, kSocketSource}}));
    EXPECT_EQ(Failures(), Texts({"0 16 4 d00 - - - - - -"}));
}

// When out of memory, the call fails or returns all records; no port is reported as free.
TEST_F(Conflicts, MissNothingWhicheverAllocationFails) {
    Rules(Rule("7000", "7001", "service_id=x\n"));
    Settings("WebDavPort=7002\n");
    Service("a", "7003/tcp");
    const HeldSocket held(AF_INET, SOCK_STREAM, 7004);
    const std::vector<Range> ports = {{7000, 7004}};
    const PortQuestion question = {ports, TAVO_PROTO_TCP, {}, kEverySource};
    int complete = 0;
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        PortConflicts found;
        const bool good = fail.During([&] { return found.Find({&question, 1}); });
        if (good) {
            EXPECT_TRUE(found.Taken().size() == 5 || !found.Failures().empty());
            complete += found.Taken().size() == 5 ? 1 : 0;
        } else {
            EXPECT_EQ(TLIBCErrGet(), 0x200U);
        }
    });
    EXPECT_GT(allocations, 20);
    EXPECT_GT(complete, 0);
}

}  // namespace
}  // namespace tavo::test

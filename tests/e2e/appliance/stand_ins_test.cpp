// Tests of the stand-ins for the programs that the library runs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "run_program.h"
#include "temporary_folder.h"

namespace {

using tavo::test::ProgramResult;
using tavo::test::ReadFile;
using tavo::test::RunProgram;
using tavo::test::WriteFile;

constexpr const char *kPlugin = "/usr/tavo/lib/plugins/port_config/portforward";

// The input of a plugin: records, each terminated by a NUL.
std::string Records(const std::vector<std::string> &records) {
    std::string text;
    for (const std::string &record : records) {
        text += record + '\0';
    }
    return text;
}

TEST(StandIns, RecordTheirCalls) {
    EXPECT_EQ(RunProgram({"/usr/tavo/bin/tavofirewall", "--reload"}).status, 0);
    EXPECT_EQ(RunProgram({"/usr/tavo/bin/tavofirewall", "--remove-serv-rec", "media"}).status, 0);
    EXPECT_EQ(RunProgram({"/usr/tavo/sbin/tavoroutertool", "--update", "/tmp/a", "/b"}).status, 0);
    EXPECT_EQ(ReadFile("/run/calls/tavofirewall"),
              "tavofirewall --reload\ntavofirewall --remove-serv-rec media\n");
    EXPECT_EQ(ReadFile("/run/calls/tavoroutertool"), "tavoroutertool --update /tmp/a /b\n");
}

TEST(StandIns, RecordTheOrderOfAllCalls) {
    RunProgram({"tavofirewall", "--reload"});
    RunProgram({"systemctl", "reload", "tavorelayd"});
    RunProgram({kPlugin, "port_config/update"}, Records({"NOTIFY_FW=1"}));
    EXPECT_EQ(ReadFile("/run/calls/all"),
              "tavofirewall --reload\nsystemctl reload tavorelayd\n"
              "portforward port_config/update\n< NOTIFY_FW=1\n");
}

TEST(StandIns, KeepEveryArgumentApart) {
    RunProgram({"tavofirewall", "two words", "", "two\nlines", "it's", "--"});
    RunProgram({"tavofirewall"});
    EXPECT_EQ(ReadFile("/run/calls/tavofirewall"),
              "tavofirewall two\\ words '' $'two\\nlines' it\\'s --\ntavofirewall\n");
}

TEST(StandIns, EndWithTheStatusThatIsAskedFor) {
    WriteFile("/run/exit-status/tavofirewall", "3\n");
    EXPECT_EQ(RunProgram({"tavofirewall"}).status, 3);
    EXPECT_EQ(RunProgram({"tavofirewall"}).status, 3);
    EXPECT_EQ(RunProgram({"tavoroutertool"}).status, 0);
    EXPECT_EQ(ReadFile("/run/calls/tavofirewall"), "tavofirewall\ntavofirewall\n");
}

TEST(StandIns, EndWithOneStatusAfterTheOther) {
    WriteFile("/run/exit-status/tavofirewall", "1\n2\n0\n");
    EXPECT_EQ(RunProgram({"tavofirewall"}).status, 1);
    EXPECT_EQ(RunProgram({"tavofirewall"}).status, 2);
    EXPECT_EQ(RunProgram({"tavofirewall"}).status, 0);
    EXPECT_EQ(RunProgram({"tavofirewall"}).status, 0);
}

TEST(StandIns, SayNothing) {
    const ProgramResult result = RunProgram({"tavofirewall", "--reload"});
    EXPECT_EQ(result.out + result.err, "");
}

TEST(Plugin, RecordsItsArguments) {
    const std::string arguments =
        Records({"OLD_PORT_CONFIG_CONTENT=[a]\nb=\"c\"", "NOTIFY_PF=1", "EMPTY="});
    EXPECT_EQ(RunProgram({kPlugin, "port_config/remove"}, arguments).status, 0);
    EXPECT_EQ(ReadFile("/run/calls/portforward"),
              "portforward port_config/remove\n"
              "< $'OLD_PORT_CONFIG_CONTENT=[a]\\nb=\"c\"'\n< NOTIFY_PF=1\n< EMPTY=\n");
}

TEST(Plugin, ShowsThatALastNulIsMissing) {
    RunProgram({kPlugin, "port_config/remove"}, Records({"A=1"}) + "B=2");
    EXPECT_EQ(ReadFile("/run/calls/portforward"),
              "portforward port_config/remove\n< A=1\n< B=2 (its NUL is missing)\n");
}

TEST(Plugin, EndsWithTheStatusThatIsAskedFor) {
    WriteFile("/run/exit-status/portforward", "9");
    EXPECT_EQ(RunProgram({kPlugin, "port_config/update"}).status, 9);
}

TEST(Systemctl, IsTheStandInByEveryName) {
    for (const char *name : {"systemctl", "/bin/systemctl"}) {
        EXPECT_EQ(RunProgram({name, "reload", "tavorelayd"}).status, 0);
    }
    EXPECT_EQ(ReadFile("/run/calls/systemctl"),
              "systemctl reload tavorelayd\nsystemctl reload tavorelayd\n");
}

TEST(Systemctl, KnowsNoActiveUnitAtFirst) {
    EXPECT_EQ(RunProgram({"systemctl", "is-active", "--quiet", "tavorelayd"}).status, 3);
}

TEST(Systemctl, KnowsTheActiveUnitsOfItsList) {
    WriteFile("/run/active-units", "tavorelayd\nother.service\n");
    for (const char *unit : {"tavorelayd", "tavorelayd.service", "other", "other.service"}) {
        const ProgramResult result = RunProgram({"systemctl", "is-active", "--quiet", unit});
        EXPECT_EQ(result.status, 0) << unit;
        EXPECT_EQ(result.out, "") << unit;
    }
    EXPECT_EQ(RunProgram({"systemctl", "is-active", "--quiet", "relay"}).status, 3);
    EXPECT_EQ(RunProgram({"systemctl", "is-active", "other"}).out, "active\n");
    EXPECT_EQ(RunProgram({"systemctl", "is-active", "relay"}).out, "inactive\n");
}

TEST(Systemctl, EndsWithTheStatusThatIsAskedFor) {
    WriteFile("/run/exit-status/systemctl", "1");
    EXPECT_EQ(RunProgram({"systemctl", "reload", "tavorelayd"}).status, 1);
}

}  // namespace

// servicetool check PORTS: each source of taken ports, alone and in combination, and the output if
// a source cannot be read.
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "json_value.h"
#include "port_world.h"
#include "ports/port_query.h"
#include "servicetool_run.h"

namespace tavo::test {

using namespace tool;

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class CheckCommand : public ServiceFolders {};

// ---- Verdicts

TEST_F(CheckCommand, SaysThatAPortIsFree) {
    ExpectRun(ServiceTool({"check", "8081/tcp"}), 0, "8081/tcp is free\n");
    ExpectRun(ServiceTool({"check", "8081", "9000:9100,7000/udp"}), 0,
              "8081/tcp,udp is free\n9000:9100,7000/udp is free\n");
}

TEST_F(CheckCommand, NamesWhoHoldsATakenPort) {
    WriteFile(kPackage + "web.sc", Section("web", "8080/tcp"));
    ExpectRun(ServiceTool({"check", "8080/tcp"}), 1,
              "PORT  PROTO  SOURCE   DECLARED BY\n"
              "8080  tcp    service  web (package/web.sc)\n"
              "8080/tcp is taken\n");
}

TEST_F(CheckCommand, FindsNoRulesOnAnApplianceWithoutPortForwarding) {
    WriteFile(kRules, Rule("1", "web", "80", "8080"));
    ExpectRun(ServiceToolPreloading(NO_FORWARDING, {"check", "8080/tcp"}), 0, "8080/tcp is free\n");
}

TEST_F(CheckCommand, AnswersFromAllSourcesAtOnceInTheirOrder) {
    WriteFile(kSystem + "web.sc", Section("web", "8080/tcp"));
    WriteFile(kRules, Rule("1", "web", "80", "8080"));
    WriteFile(kSettings, "WebDavPort=8080\n");
    const HeldPort held(Family::kV4, Protocol::kTcp, 8080);
    ExpectRun(ServiceTool({"check", "8080/tcp", "8081/tcp"}), 1,
              "PORT  PROTO    SOURCE   DECLARED BY\n"
              "8080  tcp,udp  forward  web (rule 1)\n"
              "8080  tcp      service  web (system/web.sc)\n"
              "8080  tcp,udp  setting  webdav_http (WebDavPort)\n"
              "8080  tcp      socket   in use now\n"
              "8080/tcp is taken\n"
              "8081/tcp is free\n");
}

TEST_F(CheckCommand, LeavesTheHeaderOut) {
    ExpectRun(ServiceTool({"check", "--no-legend", "23/tcp"}), 1,
              "23  tcp  service  telnet (built-in)\n23/tcp is taken\n");
}

TEST_F(CheckCommand, ShowsOnceWhatSeveralQuestionsFind) {
    ExpectRun(ServiceTool({"check", "--no-legend", "23/tcp", "23", "22:23/tcp"}), 1,
              "23  tcp  service  telnet (built-in)\n"
              "22  tcp  service  ssh (built-in)\n"
              "23/tcp is taken\n23/tcp,udp is taken\n22:23/tcp is taken\n");
}

TEST_F(CheckCommand, ShortensALongQuestion) {
    std::string ports = "10001";
    for (int port = 10002; port < 12000; ++port) {
        ports += "," + std::to_string(port);
    }
    const ProgramResult result = ServiceTool({"check", ports + "/tcp", "--source", "setting"});
    EXPECT_THAT(result.out,
                testing::AllOf(StartsWith("10001,10002,"), HasSubstr(".../tcp is free\n")));
    EXPECT_LT(result.out.size(), 200U);
}

TEST_F(CheckCommand, PrintsJson) {
    WriteFile(kSystem + "web.sc", Section("web", "8080:8090/tcp"));
    WriteFile(kRules, Rule("7", "", "8085", "1"));
    const ProgramResult result =
        ServiceTool({"check", "--json", "--source", "forward,service", "8085", "23/tcp", "9/tcp"});
    EXPECT_THAT(result.err, IsEmpty());
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(Json::Parse(result.out), Json::Parse(R"({"schema": 1, "ok": false, "results": [
        {"query": "8085/tcp,udp", "verdict": "taken", "conflicts": [
            {"start": 8085, "end": 8085, "protocols": ["tcp", "udp"], "source": "forward",
             "declared_by": [{"name": null, "file": ")" +
                                                   kRules + R"(", "entry": "7"}],
             "exact": true},
            {"start": 8085, "end": 8085, "protocols": ["tcp"], "source": "service",
             "declared_by": [{"name": "web", "file": ")" +
                                                   kSystem + R"(web.sc", "entry": "web"}],
             "exact": true}], "failed_sources": []},
        {"query": "23/tcp", "verdict": "taken", "conflicts": [
            {"start": 23, "end": 23, "protocols": ["tcp"], "source": "service",
             "declared_by": [{"name": "telnet", "file": null, "entry": null}], "exact": true}],
         "failed_sources": []},
        {"query": "9/tcp", "verdict": "free", "conflicts": [], "failed_sources": []}],
        "diagnostics": []})"));
}

// ---- Firewall services

TEST_F(CheckCommand, MindsTheProtocolOfServices) {
    WriteFile(kSystem + "a.sc", Section("a", "7000/udp"));
    EXPECT_EQ(ServiceTool({"check", "7000/tcp"}).status, 0);
    ExpectRun(ServiceTool({"check", "--no-legend", "7000"}), 1,
              "7000  udp  service  a (system/a.sc)\n7000/tcp,udp is taken\n");
}

TEST_F(CheckCommand, ShowsEachServiceWithTheRangeThatItTakes) {
    WriteFile(kSystem + "a.sc", Section("a", "7000:7010/tcp") + Section("b", "7000:7010"));
    WriteFile(kPackage + "c.sc", Section("c", "7005:7020/tcp"));
    ExpectRun(ServiceTool({"check", "--no-legend", "7003:7015,7020/tcp"}), 1,
              "7003:7010  tcp  service  a (system/a.sc), b (system/a.sc)\n"
              "7005:7015  tcp  service  c (package/c.sc)\n"
              "7020       tcp  service  c (package/c.sc)\n"
              "7003:7015,7020/tcp is taken\n");
}

TEST_F(CheckCommand, SkipsServicesByName) {
    WriteFile(kSystem + "a.sc", Section("a", "7000/tcp") + Section("b", "7000/tcp"));
    ExpectRun(ServiceTool({"check", "7000/tcp", "--skip", "a,b"}), 0, "7000/tcp is free\n");
    ExpectRun(ServiceTool({"check", "--no-legend", "7000/tcp", "--skip", "a"}), 1,
              "7000  tcp  service  b (system/a.sc)\n7000/tcp is taken\n");
}

TEST_F(CheckCommand, EscapesNamesFromFiles) {
    WriteFile(kPackage + "a\x1b[31m.sc", Section("a", "7000/tcp"));
    WriteFile(kRules, "[\x1b[1m]\nservice name=x\ty\nprotocol name=\ns_port=7000\nr_port=1\n");
    EXPECT_EQ(ServiceTool({"check", "--no-legend", "7000/tcp"}).out,
              "7000  tcp,udp  forward  rule \\x1b[1m, x\\ty\n"
              "7000  tcp      service  a (package/a\\x1b[31m.sc)\n"
              "7000/tcp is taken\n");
}

// ---- Forwarding rules

TEST_F(CheckCommand, TakesPortsOfRulesForBothProtocolsOnBothSides) {
    WriteFile(kRules, Rule("1", "game", "27015-27030", "3000,4000"));
    ExpectRun(ServiceTool({"check", "--no-legend", "27020:27040/udp", "4000/tcp"}), 1,
              "27020:27030  tcp,udp  forward  game (rule 1)\n"
              "4000         tcp,udp  forward  game (rule 1)\n"
              "27020:27040/udp is taken\n4000/tcp is taken\n");
    EXPECT_EQ(ServiceTool({"check", "4000/tcp", "--skip", "game"}).status, 0);
}

TEST_F(CheckCommand, CallsARuleWithoutAServiceByItsTitle) {
    WriteFile(kRules,
              "[a]\nservice name=Game server\nprotocol name=udp\ns_port=1\nr_port=2\n"
              "[b]\nprotocol name=udp\ns_port=2\nr_port=2\n");
    EXPECT_EQ(ServiceTool({"check", "--no-legend", "2/tcp"}).out,
              "2  tcp,udp  forward  rule a, Game server, rule b\n2/tcp is taken\n");
}

TEST_F(CheckCommand, ShowsTheFirstOfManyHolders) {
    std::string rules;
    for (int i = 1; i <= 8; ++i) {
        rules += Rule(std::to_string(i), "", "7000", "1");
    }
    WriteFile(kRules, rules);
    EXPECT_EQ(ServiceTool({"check", "--no-legend", "7000/tcp"}).out,
              "7000  tcp,udp  forward  rule 1, rule 2, rule 3, rule 4, rule 5 and 3 more\n"
              "7000/tcp is taken\n");
    const Json document = Json::Parse(ServiceTool({"check", "--json", "7000/tcp"}).out);
    EXPECT_EQ(document["results"][0]["conflicts"][0]["declared_by"].size(), 8U);
}

// ---- Settings

TEST_F(CheckCommand, NamesTheSettingAndTheWordThatSkipsIt) {
    const std::tuple<std::string, std::string, std::string> settings[] = {
        {"ftp", "ftpport", "7001"},
        {"webdav_http", "WebDavPort", "7002"},
        {"webdavs_https", "secure_WebDavPort", "7003"},
        {"syslog_server", "syslogport", "7004"},
    };
    std::string text;
    for (const auto &[word, key, port] : settings) {
        text += key + "=" + port + "\n";
    }
    WriteFile(kSettings, text);
    for (const auto &[word, key, port] : settings) {
        const std::string row = port + "  tcp,udp  setting  " + word + " (" + key + ")\n";
        ExpectRun(ServiceTool({"check", "--no-legend", port + "/udp"}), 1,
                  row + port + "/udp is taken\n");
        EXPECT_EQ(ServiceTool({"check", port, "--source", "setting", "--skip", word}).status, 0);
    }
}

TEST_F(CheckCommand, FindsSettingsInARangeAndNotThePassivePortsOfFtp) {
    WriteFile(kSettings,
              "ftpport=21\nftplowport=7100\nftphighport=7200\nWebDavPort=7050\n"
              "syslogport=7050\n");
    ExpectRun(ServiceTool({"check", "--no-legend", "7000:7300", "--source", "setting"}), 1,
              "7050  tcp,udp  setting  syslog_server (syslogport), webdav_http (WebDavPort)\n"
              "7000:7300/tcp,udp is taken\n");
}

// ---- Sockets

TEST_F(CheckCommand, SeesSocketsOfBothProtocolsAndFamilies) {
    const HeldPort tcp4(Family::kV4, Protocol::kTcp, 7001);
    const HeldPort udp4(Family::kV4, Protocol::kUdp, 7002);
    const HeldPort tcp6(Family::kV6, Protocol::kTcp, 7003);
    const HeldPort udp6(Family::kV6, Protocol::kUdp, 7004);
    ExpectRun(ServiceTool({"check", "--no-legend", "6990:7010"}), 1,
              "7001  tcp  socket  in use now\n"
              "7002  udp  socket  in use now\n"
              "7003  tcp  socket  in use now\n"
              "7004  udp  socket  in use now\n"
              "6990:7010/tcp,udp is taken\n");
    EXPECT_EQ(ServiceTool({"check", "7001,7003/udp", "7002,7004/tcp"}).status, 0);
}

TEST_F(CheckCommand, FindsSocketsWhereverTheyAreInARange) {
    std::vector<std::unique_ptr<HeldPort>> held;
    for (const std::uint32_t port : {1U, 2U, 3U, 100U, 5000U, 40000U, 65534U, 65535U}) {
        held.push_back(std::make_unique<HeldPort>(Family::kV4, Protocol::kTcp, port));
    }
    held.push_back(std::make_unique<HeldPort>(Family::kV6, Protocol::kUdp, 5000));
    EXPECT_EQ(ServiceTool({"check", "--no-legend", "1:65535", "--source", "socket"}).out,
              "1:3          tcp      socket  in use now\n"
              "100          tcp      socket  in use now\n"
              "5000         tcp,udp  socket  in use now\n"
              "40000        tcp      socket  in use now\n"
              "65534:65535  tcp      socket  in use now\n"
              "1:65535/tcp,udp is taken\n");
    EXPECT_EQ(ServiceTool({"check", "--no-legend", "90:110,4000,4990:5010,39999/tcp"}).out,
              "100   tcp  socket  in use now\n"
              "5000  tcp  socket  in use now\n"
              "90:110,4000,4990:5010,39999/tcp is taken\n");
}

TEST_F(CheckCommand, NamesEachOfVeryManySockets) {
    std::vector<std::unique_ptr<HeldPort>> held;
    std::string rows;
    for (std::uint32_t port = 10001; port < 10801; port += 2) {
        held.push_back(std::make_unique<HeldPort>(Family::kV4, Protocol::kTcp, port));
        rows += std::to_string(port) + "  tcp  socket  in use now\n";
    }
    ExpectRun(ServiceTool({"check", "--no-legend", "10000:10800/tcp", "--source", "socket"}), 1,
              rows + "10000:10800/tcp is taken\n");
    const Json document =
        Json::Parse(ServiceTool({"check", "--json", "10000:10800/tcp", "--source", "socket"}).out);
    EXPECT_EQ(document["results"][0]["conflicts"].size(), 400U);
    EXPECT_EQ(document["results"][0]["conflicts"][7]["start"], 10015);
    EXPECT_EQ(document["results"][0]["conflicts"][7]["end"], 10015);
    EXPECT_EQ(document["results"][0]["conflicts"][7]["exact"], true);
}

TEST_F(CheckCommand, NamesNoPortBetweenThoseThatAreAskedFor) {
    std::vector<std::unique_ptr<HeldPort>> held;
    std::string ports;
    for (std::uint32_t port = 10000; port < 11200; port += 4) {
        held.push_back(std::make_unique<HeldPort>(Family::kV4, Protocol::kTcp, port));
        ports += (ports.empty() ? "" : ",") + std::to_string(port) + ':' + std::to_string(port + 1);
    }
    const Json document =
        Json::Parse(ServiceTool({"check", "--json", ports + "/tcp", "--source", "socket"}).out);
    int next = 10000;
    for (const Json &conflict : document["results"][0]["conflicts"].Elements()) {
        EXPECT_EQ(conflict["exact"], true);
        EXPECT_EQ(conflict["start"], next);
        EXPECT_EQ(conflict["end"], next);
        next += 4;
    }
    EXPECT_EQ(next, 11200);
}

TEST_F(CheckCommand, FindsSocketsAmongVeryManyRanges) {
    const HeldPort first(Family::kV4, Protocol::kTcp, 10000);
    const HeldPort between(Family::kV4, Protocol::kTcp, 10101);
    const HeldPort last(Family::kV4, Protocol::kTcp, 10998);
    std::string ports = "10000";
    for (std::uint32_t port = 10002; port < 11000; port += 2) {
        ports += ',' + std::to_string(port);
    }
    EXPECT_THAT(ServiceTool({"check", "--no-legend", ports, "--source", "socket"}).out,
                StartsWith("10000  tcp  socket  in use now\n"
                           "10998  tcp  socket  in use now\n"
                           "10000,10002,"));
}

TEST_F(CheckCommand, SeesSocketsWhereThereIsOnlyIpv6) {
    const WithoutIpv4 only_ipv6;
    const HeldPort held(Family::kV6, Protocol::kTcp, 7001);
    ExpectRun(ServiceTool({"check", "--no-legend", "7001", "7002"}), 1,
              "7001  tcp  socket  in use now\n7001/tcp,udp is taken\n7002/tcp,udp is free\n");
}

TEST_F(CheckCommand, LeavesOutSocketsAtPortsOfASkippedService) {
    WriteFile(kSystem + "a.sc", Section("a", "7000:7001/tcp"));
    const HeldPort own(Family::kV4, Protocol::kTcp, 7000);
    const HeldPort other(Family::kV4, Protocol::kUdp, 7001);
    EXPECT_EQ(ServiceTool({"check", "7000:7001/tcp", "--skip", "a"}).status, 0);
    ExpectRun(ServiceTool({"check", "--no-legend", "7000:7001", "--skip", "a"}), 1,
              "7001  udp  socket  in use now\n7000:7001/tcp,udp is taken\n");
}

// ---- The reserved port

TEST_F(CheckCommand, TakesTheReservedPortNamedByItself) {
    for (const char *source : {"forward", "service", "setting", "socket"}) {
        ExpectRun(ServiceTool({"check", "412/tcp", "--source", source}), 1,
                  "PORT  PROTO  SOURCE    DECLARED BY\n"
                  "412   tcp    reserved  always taken\n"
                  "412/tcp is taken\n");
    }
    ExpectRun(ServiceTool({"check", "--no-legend", "80,412"}), 1,
              "412  tcp,udp  reserved  always taken\n80,412/tcp,udp is taken\n");
    ExpectRun(ServiceTool({"check", "411:413"}), 0, "411:413/tcp,udp is free\n");
}

TEST_F(CheckCommand, ReportsWhoElseHoldsTheReservedPort) {
    WriteFile(kSystem + "a.sc", Section("a", "412/tcp"));
    EXPECT_EQ(ServiceTool({"check", "--no-legend", "412/tcp"}).out,
              "412  tcp  reserved  always taken\n412  tcp  service   a (system/a.sc)\n"
              "412/tcp is taken\n");
}

// ---- Sources

TEST_F(CheckCommand, AsksTheSourcesThatAreNamed) {
    WriteFile(kSystem + "a.sc", Section("a", "7000/tcp"));
    WriteFile(kRules, Rule("1", "a", "7000", "7000"));
    WriteFile(kSettings, "WebDavPort=7000\n");
    const HeldPort held(Family::kV4, Protocol::kTcp, 7000);
    const std::pair<const char *, const char *> cases[] = {
        {"forward", "7000  tcp,udp  forward  a (rule 1)\n"},
        {"service", "7000  tcp  service  a (system/a.sc)\n"},
        {"setting", "7000  tcp,udp  setting  webdav_http (WebDavPort)\n"},
        {"socket", "7000  tcp  socket  in use now\n"},
        {"socket,forward",
         "7000  tcp,udp  forward  a (rule 1)\n7000  tcp      socket   in use now\n"},
    };
    for (const auto &[sources, rows] : cases) {
        ExpectRun(ServiceTool({"check", "--no-legend", "7000/tcp", "--source", sources}), 1,
                  rows + std::string("7000/tcp is taken\n"));
    }
}

// ---- Usage

TEST_F(CheckCommand, RefusesABadQuestionBeforeItAsksAny) {
    WriteFile(kRules, "[1]\n");
    ExpectRun(
        ServiceTool({"check", "23/tcp", "80,1000-2000/tcp"}), 2, "",
        "servicetool: error: \"80,1000-2000/tcp\", column 4: \"1000-2000\" is not a port number "
        "[usage]\n    fix: write 1000:2000\n");
    const Json document = Json::Parse(ServiceTool({"check", "--json", "0"}).out);
    EXPECT_EQ(document["ok"], false);
    EXPECT_THAT(document["results"], IsEmpty());
    EXPECT_EQ(document["diagnostics"][0]["rule"], "usage");
}

TEST_F(CheckCommand, RefusesANameToSkipThatCannotBeAskedFor) {
    const ProgramResult result = ServiceTool({"check", "80", "--skip", "a b"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("--skip: name \"a b\" contains a space [usage]"));
}

// ---- Unknown answers

TEST_F(CheckCommand, CannotTellWithoutTheSettings) {
    std::filesystem::remove(kSettings);
    ExpectRun(ServiceTool({"check", "8081", "--source", "setting,socket,forward"}), 3,
              "8081/tcp,udp: cannot tell (setting)\n",
              kSettings +
                  ": error: the settings cannot be read for ports: no such file or directory "
                  "[unreadable]\n");
    EXPECT_EQ(ServiceTool({"check", "8081", "--source", "socket,forward"}).status, 0);
}

TEST_F(CheckCommand, NamesTheSettingThatIsNoPort) {
    WriteFile(kSettings, "ftpport=21\nWebDavPort=\"x\"\n[section]\nWebDavPort=80\n");
    ExpectRun(ServiceTool({"check", "8081/tcp", "9000/tcp"}), 3,
              "8081/tcp: cannot tell (setting)\n9000/tcp: cannot tell (setting)\n",
              kSettings +
                  ":2:13: error: \"x\" is not a port number for WebDavPort [bad-setting]\n"
                  "    WebDavPort=\"x\"\n"
                  "                ^\n"
                  "    fix: name a port from 1 to 65535, or remove the key\n");
    EXPECT_EQ(ServiceTool({"check", "8081/tcp", "--skip", "webdav_http"}).status, 0);
}

TEST_F(CheckCommand, NamesThePassivePortOfFtpThatIsNone) {
    WriteFile(kSettings, "ftpport=21\nftphighport=x\n");
    const ProgramResult result = ServiceTool({"check", "8081/tcp"});
    EXPECT_EQ(result.out, "8081/tcp: cannot tell (service, setting)\n");
    EXPECT_THAT(result.err, HasSubstr(kSettings + ":2:13: error: \"x\" is not a port number for "
                                                  "ftphighport [bad-setting]\n"));
    EXPECT_THAT(
        result.err,
        HasSubstr(kSettings +
                  ": error: built-in service ftp is left out: "
                  "ftpport, ftplowport or ftphighport does not name a port [bad-service]\n"));
    EXPECT_EQ(result.status, 3);
}

TEST_F(CheckCommand, ReportsWhatIsTakenAlthoughASourceFails) {
    WriteFile(kSettings, "WebDavPort=x\n");
    const ProgramResult result = ServiceTool({"check", "23/tcp", "--no-legend"});
    EXPECT_EQ(result.out, "23  tcp  service  telnet (built-in)\n23/tcp is taken\n");
    EXPECT_THAT(result.err, HasSubstr("[bad-setting]"));
    EXPECT_EQ(result.status, 3);
    const Json document = Json::Parse(ServiceTool({"check", "23/tcp", "--json"}).out);
    EXPECT_EQ(document["results"][0]["verdict"], "taken");
    EXPECT_THAT(document["results"][0]["failed_sources"].Elements(), ElementsAre("setting"));
    EXPECT_EQ(document["diagnostics"][0]["line"], 1);
}

TEST_F(CheckCommand, SaysUnknownInJson) {
    WriteFile(kSettings, "WebDavPort=x\n");
    const Json document = Json::Parse(ServiceTool({"check", "8081/tcp", "--json"}).out);
    EXPECT_EQ(document["ok"], false);
    EXPECT_EQ(document["results"][0]["verdict"], "unknown");
    EXPECT_THAT(document["results"][0]["conflicts"], IsEmpty());
}

TEST_F(CheckCommand, NamesTheRuleThatLacksAKey) {
    WriteFile(kRules,
              Rule("1", "a", "80", "80") + "[2]\nservice_id=b\nprotocol name=tcp\ns_port=1\n");
    ExpectRun(ServiceTool({"check", "8081/tcp"}), 3, "8081/tcp: cannot tell (forward)\n",
              kRules +
                  ":6:2: error: rule [2] is not read: it lacks \"r_port\" [bad-rule]\n"
                  "    [2]\n     ^\n"
                  "    fix: add the key, or remove the rule\n");
    EXPECT_EQ(ServiceTool({"check", "8081/tcp", "--skip", "b"}).status, 0);
}

TEST_F(CheckCommand, NamesTheRuleWithBadPorts) {
    WriteFile(kRules, Rule("1", "a", "80,1:2", "80"));
    ExpectRun(
        ServiceTool({"check", "8081/tcp"}), 3, "8081/tcp: cannot tell (forward)\n",
        kRules +
            ":4:9: error: rule [1] is not read: \"80,1:2\" is not a list of ports [bad-rule]\n"
            "    s_port=\"80,1:2\"\n"
            "            ^\n"
            "    fix: write PORT or START-END, with commas between\n");
}

TEST_F(CheckCommand, CannotTellWhereTheRulesAreNoFile) {
    std::filesystem::create_directory(kRules);
    ExpectRun(ServiceTool({"check", "8081/tcp"}), 3, "8081/tcp: cannot tell (forward)\n",
              kRules + ": error: is a folder [unreadable]\n");
}

TEST_F(CheckCommand, CannotTellWhereTheWayToTheRulesIsBarred) {
    const std::string folder = std::filesystem::path(kRules).parent_path();
    std::filesystem::remove_all(folder);
    std::filesystem::create_symlink("portforward", folder);
    const ProgramResult result = ServiceTool({"check", "8081/tcp"});
    EXPECT_EQ(result.out, "8081/tcp: cannot tell (forward)\n");
    EXPECT_THAT(result.err, StartsWith(kRules + ": error: too many levels of symbolic links"));
    EXPECT_EQ(result.status, 3);
}

TEST_F(CheckCommand, TakesRulesThatAreNotThereForNone) {
    EXPECT_EQ(ServiceTool({"check", "8081/tcp", "--source", "forward"}).status, 0);
    std::filesystem::create_symlink("nothing", kRules);
    ExpectRun(
        ServiceTool({"check", "8081/tcp", "--source", "forward"}), 0, "8081/tcp is free\n",
        kRules + ": warning: is a dangling symbolic link, so there are no rules [unreadable]\n");
}

TEST_F(CheckCommand, NamesTheRulesOfAFileOfAnySize) {
    WriteFile(kRules, Rule("1", "x", "7000", "7000") + std::string(std::size_t{17} << 20, '\n'));
    ExpectRun(ServiceTool({"check", "--no-legend", "7000/tcp"}), 1,
              "7000  tcp,udp  forward  x (rule 1)\n7000/tcp is taken\n");
}

// The valid rules are still compared.
TEST_F(CheckCommand, NamesATakenPortBesideABadRule) {
    WriteFile(kRules,
              "[1]\nservice_id=a\nprotocol name=tcp\ns_port=1\n" + Rule("2", "b", "7000", "1"));
    const ProgramResult result =
        ServiceTool({"check", "--no-legend", "7000/tcp", "--source", "forward"});
    EXPECT_EQ(result.out, "7000  tcp,udp  forward  b (rule 2)\n7000/tcp is taken\n");
    EXPECT_THAT(result.err, HasSubstr("rule [1] is not read: it lacks \"r_port\" [bad-rule]\n"));
    EXPECT_EQ(result.status, 3);
}

TEST_F(CheckCommand, WarnsOfLinesThatMeanNothing) {
    WriteFile(kRules, "s_port=8081\n# a comment\n" + Rule("1", "x", "1", "1"));
    WriteFile(kSettings, "WebDavPort=1\nWebDavPort 8081\n\x01\xFF\n");
    ExpectRun(ServiceTool({"check", "8081/tcp", "8082/tcp"}), 0,
              "8081/tcp is free\n8082/tcp is free\n",
              kRules +
                  ":1:1: warning: the line is not read: it is not a comment, section or key of a "
                  "section [stray-line]\n    s_port=8081\n    ^\n" +
                  kSettings +
                  ":2:1: warning: 2 lines are not read: none is a comment, section or key "
                  "[stray-line]\n    WebDavPort 8081\n    ^\n");
}

TEST_F(CheckCommand, CannotTellWhileAServiceFileOrFolderCannotBeRead) {
    std::filesystem::create_symlink("/dev/null", kPackage + "a.sc");
    ExpectRun(ServiceTool({"check", "8081/tcp"}), 3, "8081/tcp: cannot tell (service)\n",
              kPackage + "a.sc: error: is a device [unreadable]\n");
    std::filesystem::remove_all(kPackage);
    WriteFile("/usr/local/etc/services.d", "no folder");
    ExpectRun(ServiceTool({"check", "8081/tcp"}), 3, "8081/tcp: cannot tell (service)\n",
              "/usr/local/etc/services.d: error: not a directory [unreadable]\n");
}

#ifndef TAVO_SANITIZED  // which needs terabytes of address space
// There are more services than fit into memory. The ones that are left out may declare the port.
TEST_F(CheckCommand, CallsNoPortFreeWhereMemoryEndsAmongTheServices) {
    constexpr int kFiles = 20;
    constexpr int kServicesOfFile = 1000;
    for (int file = 0; file < kFiles; ++file) {
        std::string text;
        for (int i = 0; i < kServicesOfFile; ++i) {
            const std::string port = std::to_string(10000 + file * kServicesOfFile + i);
            text += Section("s" + port, port + "/tcp");
        }
        WriteFile(kPackage + std::to_string(file) + ".sc", text);
    }
    for (int mebibytes = 16; mebibytes <= 256; mebibytes += 20) {
        const ProgramResult result =
            RunProgram({"prlimit", "--as=" + std::to_string(mebibytes << 20), SERVICETOOL, "check",
                        "29999/tcp", "--source", "service"});
        EXPECT_THAT(result.out, Not(HasSubstr("is free"))) << mebibytes;
        EXPECT_THAT(result.status, testing::AnyOf(1, 3, 127)) << mebibytes << result.err;
    }
}
#endif

TEST_F(CheckCommand, WarnsOfServicesThatDeclareNothing) {
    WriteFile(kPackage + "a.sc", Section("good", "7000/tcp") + Section("bad", "7001,x/tcp"));
    const ProgramResult result = ServiceTool({"check", "7001/tcp"});
    EXPECT_EQ(result.out, "7001/tcp is free\n");
    EXPECT_THAT(result.err, StartsWith(kPackage + "a.sc:8:17: warning: section [bad] is left out: "
                                                  "\"x\" is not a port number [port-syntax]\n"));
    EXPECT_EQ(result.status, 0);
}

TEST_F(CheckCommand, CannotTellWhereABuiltInServiceHasBadPorts) {
    WriteFile(kNfsSettings, "nfs_custom_port_enable=yes\nstatd_port=abc\nnlm_port=1\n");
    ExpectRun(ServiceTool({"check", "8081"}), 3, "8081/tcp,udp: cannot tell (service)\n",
              "servicetool: error: firewall service nfs has \"abc\" for a port [bad-service]\n"
              "    fix: correct its settings\n");
    EXPECT_EQ(ServiceTool({"check", "8081", "--skip", "nfs"}).status, 0);
}

TEST_F(CheckCommand, CannotTellWhereTheLibraryLeavesOutABuiltInService) {
    std::filesystem::remove(kNfsSettings);
    ExpectRun(ServiceTool({"check", "8081"}), 3, "8081/tcp,udp: cannot tell (service)\n",
              kNfsSettings +
                  ": error: built-in service nfs is left out: no such file or directory "
                  "[unreadable]\n");
    EXPECT_EQ(ServiceTool({"check", "8081", "--skip", "nfs"}).status, 0);
}

// The check does not bind a port, so it needs no free one.
TEST_F(CheckCommand, AnswersWhereTheKernelHasNoPortLeftToGive) {
    PortRange kernel{};
    ASSERT_EQ(ReadEphemeralPorts(kEphemeralPorts, kernel), "");
    const HeldPort over_ipv4(Family::kV4, Protocol::kTcp, 8000);
    const HeldPort over_ipv6(Family::kV6, Protocol::kTcp, 8000);
    std::ofstream(kEphemeralPorts) << "8000 8000\n";
    const ProgramResult free = ServiceTool({"check", "8081/tcp"});
    const ProgramResult taken = ServiceTool({"check", "--no-legend", "8000/tcp"});
    std::ofstream(kEphemeralPorts) << kernel.first << ' ' << kernel.last << '\n';
    ExpectRun(free, 0, "8081/tcp is free\n");
    ExpectRun(taken, 1, "8000  tcp  socket  in use now\n8000/tcp is taken\n");
}

// If the networking library cannot read a socket table, it returns no sockets.
TEST_F(CheckCommand, CannotTellWhereNoSocketIsSeenAtAll) {
    const HeldPort held(Family::kV4, Protocol::kTcp, 8081);
    const ProgramResult result = ServiceToolPreloading(BLIND_NET, {"check", "8081/tcp"});
    ExpectRun(result, 3, "8081/tcp: cannot tell (socket)\n",
              "servicetool: error: the ports that sockets hold are unknown [failed]\n");
}

TEST_F(CheckCommand, ShowsTheLogOnRequest) {
    std::filesystem::remove(kSettings);
    const ProgramResult result = ServiceTool({"check", "-v", "8081", "--source", "setting"});
    EXPECT_THAT(result.err, HasSubstr("Failed to get [ftpport] info from [/etc/tavoinfo.conf]."));
    EXPECT_THAT(ServiceTool({"check", "8081", "--source", "setting"}).err, Not(HasSubstr("log: ")));
}

// ---- An appliance with its own files

TEST(CheckInTheAppliance, AnswersAsItIs) {
    const ProgramResult result = ServiceTool({"check", "8080/tcp", "8081/tcp"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.out, HasSubstr("\n8080  tcp,udp  forward  web_http (rule 1, Web station)\n"
                                      "8080/tcp is taken\n8081/tcp is free\n"));
    EXPECT_THAT(result.err, StartsWith(kPackage + "photo-frame.sc:4:2: warning: "));
}

}  // namespace
}  // namespace tavo::test

// servicetool check --file: the ports of service files, section by section.
#include <gmock/gmock.h>

#include <filesystem>
#include <string>
#include <vector>

#include "json_value.h"
#include "port_world.h"
#include "servicetool_run.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr char kFile[] = "/tmp/new.sc";

class CheckFileCommand : public ServiceFolders {
  protected:
    // Writes a file with this text and checks it.
    static ProgramResult Check(const std::string &text, std::vector<std::string> options = {}) {
        WriteFile(kFile, text);
        options.insert(options.begin(), {"check", "--no-legend", "--file", kFile});
        return ServiceTool(options);
    }
};

TEST_F(CheckFileCommand, AnswersForEachSection) {
    WriteFile(kPackage + "old.sc", Section("old", "7000:7010/tcp"));
    const HeldPort held(Family::kV6, Protocol::kUdp, 7100);
    WriteFile(kFile, Section("a", "7005,7020:7030/tcp") + Section("b", "7100/udp") +
                         Section("c", "7200/tcp,udp"));
    ExpectRun(ServiceTool({"check", "--file", kFile}), 1,
              "SECTION  PORT  PROTO  SOURCE   DECLARED BY\n"
              "a        7005  tcp    service  old (package/old.sc)\n"
              "b        7100  udp    socket   in use now\n"
              "/tmp/new.sc: [a] 7005,7020:7030/tcp is taken\n"
              "/tmp/new.sc: [b] 7100/udp is taken\n"
              "/tmp/new.sc: [c] 7200/tcp,udp is free\n");
}

TEST_F(CheckFileCommand, SucceedsWhereEverythingIsFree) {
    ExpectRun(Check(Section("a", "7000/tcp")), 0, "/tmp/new.sc: [a] 7000/tcp is free\n");
}

TEST_F(CheckFileCommand, AsksOnlyWhomAnInstallAsks) {
    WriteFile(kRules, Rule("1", "x", "7000", "7000"));
    WriteFile(kSettings, "syslogport=7001\n");
    ExpectRun(Check(Section("a", "7000:7001/tcp")), 1,
              "a  7001  tcp,udp  setting  syslog_server (syslogport)\n"
              "/tmp/new.sc: [a] 7000:7001/tcp is taken\n");
    ExpectRun(Check(Section("a", "7000:7001/tcp"), {"--source", "forward"}), 1,
              "a  7000  tcp,udp  forward  x (rule 1)\n"
              "/tmp/new.sc: [a] 7000:7001/tcp is taken\n");
}

TEST_F(CheckFileCommand, DoesNotCollideWithItself) {
    const std::string text = Section("a", "7000/tcp") + Section("b", "7001/tcp");
    WriteFile(kPackage + "new.sc", text);
    const HeldPort held(Family::kV4, Protocol::kTcp, 7000);
    EXPECT_EQ(Check(text).status, 0);
    // A section skips only itself, not the other sections.
    ExpectRun(Check(Section("a", "7001/tcp")), 1,
              "a  7001  tcp  service  b (package/new.sc)\n/tmp/new.sc: [a] 7001/tcp is taken\n");
    EXPECT_EQ(Check(Section("a", "7001/tcp"), {"--skip", "b"}).status, 0);
}

TEST_F(CheckFileCommand, ReadsStandardInput) {
    ExpectRun(ServiceTool({"check", "--file", "-"}, Section("a", "23/tcp")), 1,
              "SECTION  PORT  PROTO  SOURCE   DECLARED BY\n"
              "a        23    tcp    service  telnet (built-in)\n"
              "<stdin>: [a] 23/tcp is taken\n");
}

TEST_F(CheckFileCommand, GivesTheWorstStatusOfSeveralFiles) {
    WriteFile("/tmp/free.sc", Section("a", "7000/tcp"));
    WriteFile("/tmp/taken.sc", Section("a", "23/tcp"));
    const ProgramResult result =
        ServiceTool({"check", "--file", "/tmp/taken.sc", "--file", "/tmp/free.sc"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.out, HasSubstr("/tmp/free.sc: [a] 7000/tcp is free\n"));
    EXPECT_EQ(ServiceTool({"check", "--file", "/tmp/free.sc", "/tmp/missing.sc"}).status, 3);
}

TEST_F(CheckFileCommand, PrintsJson) {
    WriteFile(kPackage + "old.sc", Section("old", "7005/tcp"));
    WriteFile(kFile, Section("a", "7005,7006/tcp") + Section("b", "7200"));
    const ProgramResult result = ServiceTool({"check", "--json", "--file", kFile});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(Json::Parse(result.out), Json::Parse(R"({"schema": 1, "ok": false, "results": [
        {"file": "/tmp/new.sc", "verdict": "taken", "sections": [
            {"name": "a", "query": "7005,7006/tcp", "verdict": "taken", "failed_sources": []},
            {"name": "b", "query": "7200/tcp,udp", "verdict": "free", "failed_sources": []}],
         "conflicts": [
            {"section": "a", "start": 7005, "end": 7005, "protocols": ["tcp"],
             "source": "service", "declared_by": [{"name": "old", "file": ")" +
                                                   kPackage +
                                                   R"(old.sc", "entry": "old"}],
             "exact": true}]}], "diagnostics": []})"));
}

TEST_F(CheckFileCommand, TakesTheReservedPortNamedByItself) {
    ExpectRun(Check(Section("a", "412/tcp")), 1,
              "a  412  tcp  reserved  always taken\n/tmp/new.sc: [a] 412/tcp is taken\n");
    EXPECT_EQ(Check(Section("a", "411:413/tcp")).status, 0);
}

// ---- Lint first

TEST_F(CheckFileCommand, IsInvalidWhereLintFindsAnError) {
    ExpectRun(Check(Section("a", "23/tcp") + Section("b", "x")), 1, "/tmp/new.sc: 1 error\n",
              "/tmp/new.sc:8:12: error: \"x\" is not a port number [port-syntax]\n"
              "    dst.ports=\"x\"\n"
              "               ^\n");
    const Json document = Json::Parse(ServiceTool({"check", "--json", "--file", kFile}).out);
    EXPECT_EQ(document["results"], Json::Parse(R"([{"file": "/tmp/new.sc", "verdict": "invalid",
        "sections": [], "conflicts": []}])"));
    EXPECT_EQ(document["diagnostics"][0]["rule"], "port-syntax");
}

TEST_F(CheckFileCommand, ReportsWarningsOfLint) {
    const ProgramResult result = Check(Section("a", "7010:7000/tcp"));
    EXPECT_EQ(result.out, "/tmp/new.sc: [a] 7000:7010/tcp is free\n");
    EXPECT_THAT(result.err,
                HasSubstr(": warning: the range starts above its end [reversed-range]"));
    EXPECT_EQ(result.status, 0);
}

TEST_F(CheckFileCommand, SaysWhyAFileCannotBeRead) {
    ExpectRun(ServiceTool({"check", "--file", "/tmp/missing.sc"}), 3, "",
              "/tmp/missing.sc: error: no such file or directory [unreadable]\n");
}

// ---- Compared with the answer of an install

TEST_F(CheckFileCommand, WarnsThatAnInstallCannotCheckAFileWithGlobal) {
    const std::string warning =
        "/tmp/new.sc:1:2: warning: section [global] has no dst.ports, so an install cannot check "
        "the file and reports no conflict [install-check]\n    [global]\n     ^\n";
    ExpectRun(Check("[global]\nversion=1\n" + Section("a", "7000/tcp")), 0,
              "/tmp/new.sc: [a] 7000/tcp is free\n", warning);
    ExpectRun(Check("[global]\nversion=1\n" + Section("a", "23/tcp")), 1,
              "a  23  tcp  service  telnet (built-in)\n/tmp/new.sc: [a] 23/tcp is taken\n",
              warning);
}

TEST_F(CheckFileCommand, WarnsThatAnInstallAsksForNoSocketsWithoutAProtocol) {
    const HeldPort held(Family::kV4, Protocol::kTcp, 7000);
    ExpectRun(Check(Section("a", "7000")), 1,
              "a  7000  tcp  socket  in use now\n/tmp/new.sc: [a] 7000/tcp,udp is taken\n",
              "/tmp/new.sc: warning: an install reports no conflict: where dst.ports names no "
              "protocol, it does not check sockets [install-check]\n"
              "    fix: name the protocols, as in 80/tcp,udp\n");
    EXPECT_THAT(Check(Section("a", "7000/tcp,udp")).err, IsEmpty());
}

// The library cuts the name in its record of the section.
TEST_F(CheckFileCommand, KnowsTheProtocolsOfASectionWithALongName) {
    const HeldPort held(Family::kV4, Protocol::kTcp, 7000);
    const ProgramResult result = Check(Section(std::string(300, 'a'), "7000/tcp"));
    EXPECT_THAT(result.out, HasSubstr("[" + std::string(255, 'a') + "] 7000/tcp is taken\n"));
    EXPECT_THAT(result.err, Not(HasSubstr("[install-check]")));
}

// The answer of an install for a section that it cannot compare is unknown.
TEST_F(CheckFileCommand, DoesNotBlameTheProtocolWhereASourceFails) {
    WriteFile(kSettings, "WebDavPort=x\n");
    EXPECT_THAT(Check(Section("b", "23/tcp")).err, Not(HasSubstr("[install-check]")));
}

// An install reports the conflict before it reads [global].
TEST_F(CheckFileCommand, SaysNothingOfAGlobalAfterAConflict) {
    EXPECT_THAT(Check(Section("a", "23/tcp") + "[global]\nversion=1\n").err, IsEmpty());
    EXPECT_THAT(Check(Section("a", "7000/tcp") + "[global]\nversion=1\n").err,
                HasSubstr("[install-check]"));
}

// [global] is not a service, but an install checks its ports.
TEST_F(CheckFileCommand, AnswersForThePortsOfGlobal) {
    const ProgramResult result =
        Check(Section("a", "7000/tcp") + "[global]\nversion=1\ndst.ports=23/tcp\n");
    EXPECT_EQ(result.out,
              "global  23  tcp  service  telnet (built-in)\n"
              "/tmp/new.sc: [global] 23/tcp is taken\n"
              "/tmp/new.sc: [a] 7000/tcp is free\n");
    EXPECT_THAT(result.err, Not(HasSubstr("[install-check]")));
    EXPECT_EQ(result.status, 1);
    const Json file =
        Json::Parse(ServiceTool({"check", "--json", "--file", kFile}).out)["results"][0];
    EXPECT_EQ(file["verdict"], "taken");
    EXPECT_EQ(file["sections"][0]["name"], "global");
    EXPECT_EQ(file["conflicts"][0]["section"], "global");
}

TEST_F(CheckFileCommand, PassesOverPortsOfGlobalThatAreNone) {
    const ProgramResult result =
        Check("[global]\nversion=1\ndst.ports=x/tcp\n" + Section("a", "7000/tcp"));
    EXPECT_EQ(result.out, "/tmp/new.sc: [a] 7000/tcp is free\n");
    EXPECT_EQ(result.status, 0);
}

TEST_F(CheckFileCommand, DoesNotSpeakOfAnInstallWhereItAsksSomethingElse) {
    const std::string text = "[global]\nversion=1\n" + Section("a", "7000/tcp");
    EXPECT_THAT(Check(text, {"--skip", "x"}).err, IsEmpty());
    EXPECT_THAT(Check(text, {"--source", "service,setting"}).err, IsEmpty());
}

// ---- Unknown answers

// The library ignores what it cannot check and reports the file as free.
TEST_F(CheckFileCommand, CannotTellWhereACheckFails) {
    WriteFile(kSettings, "WebDavPort=x\n");
    const ProgramResult result = Check(Section("a", "7000/tcp") + Section("b", "23/tcp"));
    EXPECT_EQ(result.out,
              "b  23  tcp  service  telnet (built-in)\n"
              "/tmp/new.sc: [a] 7000/tcp: cannot tell (setting)\n"
              "/tmp/new.sc: [b] 23/tcp is taken\n");
    EXPECT_THAT(result.err, StartsWith(kSettings + ":1:12: error: \"x\" is not a port number"));
    EXPECT_EQ(result.status, 3);
    const Json sections = Json::Parse(
        ServiceTool({"check", "--json", "--file", kFile}).out)["results"][0]["sections"];
    EXPECT_EQ(sections[0]["verdict"], "unknown");
    EXPECT_THAT(sections[0]["failed_sources"].Elements(), ElementsAre("setting"));
}

TEST_F(CheckFileCommand, CannotAskSocketsForPortZero) {
    for (const char *ports : {"0/tcp", "0,7000/tcp"}) {
        const ProgramResult result = Check(Section("a", ports));
        EXPECT_EQ(result.out,
                  std::string("/tmp/new.sc: [a] ") + ports + ": cannot tell (socket)\n");
        EXPECT_THAT(result.err, HasSubstr("sockets cannot be checked for port 0 [port-zero]"));
        EXPECT_EQ(result.status, 3);
    }
}

// ---- An appliance with its own files

TEST(CheckFileInTheAppliance, LetsItsOwnFilesKeepTheirPorts) {
    for (const auto &entry : std::filesystem::directory_iterator(kSystem)) {
        const ProgramResult result = ServiceTool({"check", "--file", entry.path()});
        EXPECT_EQ(result.status, 0) << result.out << result.err;
    }
}

}  // namespace
}  // namespace tavo::test

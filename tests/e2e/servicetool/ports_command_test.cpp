// servicetool ports: all uses of ports, with real sockets, and the conflicts between them.
#include <gmock/gmock.h>
#include <sys/prctl.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "held_socket.h"
#include "holding_program.h"
#include "json_value.h"
#include "port_world.h"
#include "servicetool_run.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// The process name and program of this test, as the process table shows them.
const std::string kOwnName = program_invocation_short_name;
const std::string kOwnProgram = std::filesystem::read_symlink("/proc/self/exe");
const std::string kOwnPid = std::to_string(getpid());
const std::string kOwnListener = kOwnPid + ' ' + kOwnName + " LISTEN " + kOwnProgram;

class PortsCommand : public ServiceFolders {};

// The lines of a table for ports from `first` to `last`, with one space between columns.
std::vector<std::string> Rows(const std::string &table, int first = 7000, int last = 9000) {
    std::vector<std::string> rows;
    std::istringstream lines(table);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string row;
        int port = -1;
        for (std::string word; words >> word;) {
            if (row == "tcp" || row == "udp") {
                port = std::stoi(word);
            }
            row += (row.empty() ? "" : " ") + word;
        }
        if (first <= port && port <= last) {
            rows.push_back(row);
        }
    }
    return rows;
}

// The output of `ports --conflicts` for the ports of the test.
std::vector<std::string> Conflicts() {
    const ProgramResult result = ServiceTool({"ports", "--conflicts"});
    EXPECT_THAT(result.err, IsEmpty());
    const std::vector<std::string> rows = Rows(result.out);
    EXPECT_EQ(result.status, rows.empty() ? 0 : 1) << result.out;
    return rows;
}

// ---- The table

TEST_F(PortsCommand, ListsEveryClaimByPortProtocolAndSourceAndMarksThoseInConflict) {
    WriteFile(kSystem + "web.sc", Section("web", "8080/tcp"));
    WriteFile(kPackage + "chat.sc", Section("chat", "8070:8090"));
    WriteFile(kRules, Rule("1", "web", "8080", "8081"));
    WriteFile(kSettings, "WebDavPort=8080\nsmsport=8000\n");
    const HeldPort tcp(Family::kV4, Protocol::kTcp, 8080);
    const HeldPort udp(Family::kV6, Protocol::kUdp, 8085);
    const ProgramResult result = ServiceTool({"ports"});
    EXPECT_THAT(result.err, IsEmpty());
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, testing::ContainsRegex("^PROTO +PORT +SOURCE +SERVICE +PID "
                                                   "+PROGRAM +STATE +WHERE\n"));
    EXPECT_THAT(
        Rows(result.out),
        ElementsAre(
            "tcp 8000 setting tavo-sms - - - smsport",
            "tcp 8070:8090 ! service chat - - - package/chat.sc",
            "udp 8070:8090 ! service chat - - - package/chat.sc",
            "tcp 8080 ! forward web - - - rule 1", "tcp 8080 ! service web - - - system/web.sc",
            "tcp 8080 ! setting webdav_http - - - WebDavPort",
            "tcp 8080 ! socket - " + kOwnListener, "udp 8080 ! forward web - - - rule 1",
            "udp 8080 ! setting webdav_http - - - WebDavPort", "tcp 8081 forward web - - - rule 1",
            "udp 8081 forward web - - - rule 1",
            "udp 8085 ! socket - " + kOwnPid + " " + kOwnName + " UNCONNECTED " + kOwnProgram));
}

TEST_F(PortsCommand, ReportsTheServicesOfTheSystemItselfOnce) {
    WriteFile(kSettings, "syslogport=8514\n");
    const std::string out = ServiceTool({"ports", "--no-legend"}).out;
    EXPECT_THAT(Rows(out), ElementsAre("tcp 8514 setting syslog_server - - - syslogport",
                                       "udp 8514 setting syslog_server - - - syslogport"));
    EXPECT_THAT(Rows(out, 5000, 5010),
                ElementsAre("tcp 5005 service tavo-webdav - - - built-in",
                            "tcp 5006 service tavo-webdav-ssl - - - built-in"));
    EXPECT_THAT(out, Not(HasSubstr("PROTO")));
}

TEST_F(PortsCommand, ListsOnlyTheKindThatIsAskedFor) {
    WriteFile(kSystem + "web.sc", Section("web", "8080/tcp"));
    const HeldPort held(Family::kV4, Protocol::kTcp, 8080);
    const std::string declared = ServiceTool({"ports", "--declared"}).out;
    EXPECT_THAT(declared, testing::ContainsRegex("^PROTO +PORT +SOURCE +SERVICE +WHERE\n"));
    EXPECT_THAT(Rows(declared), ElementsAre("tcp 8080 service web system/web.sc"));
    const std::string from_processes = ServiceTool({"ports", "--held"}).out;
    EXPECT_THAT(from_processes,
                testing::ContainsRegex("^PROTO +PORT +PID +USER +STATE +PROGRAM\n"));
    EXPECT_THAT(Rows(from_processes, 0, 65535),
                ElementsAre("tcp 8080 " + kOwnPid + " root LISTEN " + kOwnProgram));
    EXPECT_EQ(ServiceTool({"ports", "--held", "--declared"}).out, ServiceTool({"ports"}).out);
}

TEST_F(PortsCommand, FitsItsTableToAnOrdinaryTerminal) {
    const TemporaryFolder folder;
    WriteFile(kPackage + "chat.sc", Section("chat", "30000:30100"));
    auto held = std::make_unique<HeldSocket>(AF_INET, SOCK_DGRAM, 30000);
    const HoldingProgram program(folder / "packages/chat/in/a/deep/folder/chatd",
                                 held->Descriptor());
    held.reset();
    for (const char *kind : {"--verbose", "--held", "--declared"}) {
        const std::string shown = ServiceToolOnTerminal({"ports", kind});
        EXPECT_THAT(shown, HasSubstr("30000"));
        std::istringstream lines(shown);
        for (std::string line; std::getline(lines, line);) {
            EXPECT_LE(line.size(), 80U) << line;
        }
    }
}

TEST_F(PortsCommand, LeavesTheStateOutOfANarrowTable) {
    const std::string narrow = ServiceToolOnTerminal({"ports"}, 99);
    EXPECT_THAT(narrow, testing::ContainsRegex("SERVICE +PID +PROGRAM +WHERE\n"));
    EXPECT_EQ(ServiceToolOnTerminal({"ports"}, 100), ServiceTool({"ports"}).out);
}

TEST_F(PortsCommand, ListsNothingWhereNothingIsHeld) {
    ExpectRun(ServiceTool({"ports", "--held"}), 0, "");
}

TEST_F(PortsCommand, NeverPrintsWhatATerminalActsOn) {
    WriteFile(kRules,
              "[1]\nservice_id=\"a\"\nservice name=\"\x1b[31mred\"\nprotocol name=\"tcp\"\n"
              "s_port=\"8080\"\nr_port=\"8080\"\n");
    const std::string out = ServiceTool({"ports", "--declared"}).out;
    EXPECT_THAT(out, Not(HasSubstr("\x1b")));
    EXPECT_THAT(out, testing::ContainsRegex("a +rule 1, \\\\x1b\\[31mred\n"));
}

TEST_F(PortsCommand, PrintsJson) {
    WriteFile(kSystem + "web.sc", Section("web", "8080/tcp"));
    const HeldPort held(Family::kV4, Protocol::kTcp, 8080);
    const Json document = Json::Parse(ServiceTool({"ports", "--json"}).out);
    std::vector<Json> found;
    for (const Json &row : document["results"].Elements()) {
        if (row["start"] == 8080) {
            found.push_back(row);
        }
    }
    EXPECT_EQ(found, Json::Parse(R"([
        {"protocol": "tcp", "start": 8080, "end": 8080, "source": "service", "service": "web",
         "file": ")" + kSystem + R"(web.sc", "entry": "web", "pid": null, "program": null,
         "process": null, "user": null, "state": null, "conflict": true},
        {"protocol": "tcp", "start": 8080, "end": 8080, "source": "socket", "service": null,
         "file": null, "entry": null, "pid": )" +
                                 kOwnPid + R"(, "program": ")" + kOwnProgram +
                                 R"(", "process": ")" + kOwnName +
                                 R"(", "user": "root", "state": "LISTEN", "conflict": true}])")
                         .Elements());
    const Json alone = Json::Parse(ServiceTool({"ports", "--json", "--held"}).out)["results"];
    ASSERT_EQ(alone.size(), 1U);
    EXPECT_EQ(alone[0]["conflict"], nullptr);
}

// ---- Conflicts

TEST_F(PortsCommand, FindsTwoServicesThatDeclareAPort) {
    WriteFile(kSystem + "a.sc", Section("a", "7000:7010/tcp"));
    WriteFile(kPackage + "b.sc", Section("b", "7005/tcp") + Section("c", "7010:7020/udp,tcp"));
    EXPECT_THAT(Conflicts(), ElementsAre("tcp 7005 ! service a - - - system/a.sc",
                                         "tcp 7005 ! service b - - - package/b.sc",
                                         "tcp 7010 ! service a - - - system/a.sc",
                                         "tcp 7010 ! service c - - - package/b.sc"));
}

TEST_F(PortsCommand, FindsServicesAgainstSettingsOfOthers) {
    WriteFile(kSystem + "a.sc", Section("b", "7001/tcp"));
    WriteFile(kSettings, "ftpport=7001\n");
    EXPECT_THAT(Conflicts(), ElementsAre("tcp 7001 ! service b - - - system/a.sc",
                                         "tcp 7001 ! service ftp - - - built-in",
                                         "tcp 7001 ! setting ftp - - - ftpport"));
}

TEST_F(PortsCommand, FindsNoConflictWithRulesButListsThemBesideOne) {
    WriteFile(kSystem + "a.sc", Section("a", "7000/udp,tcp"));
    WriteFile(kRules, Rule("1", "other", "7000", "7000") + Rule("2", "another", "7001", "7000"));
    const HeldPort held(Family::kV4, Protocol::kTcp, 7001);
    EXPECT_THAT(Conflicts(), IsEmpty());
    WriteFile(kPackage + "b.sc", Section("b", "7000/udp"));
    EXPECT_THAT(Conflicts(), ElementsAre("udp 7000 ! forward another - - - rule 2",
                                         "udp 7000 ! forward other - - - rule 1",
                                         "udp 7000 ! service a - - - system/a.sc",
                                         "udp 7000 ! service b - - - package/b.sc"));
}

TEST_F(PortsCommand, FindsNoConflictOfAServiceWithItself) {
    WriteFile(kSystem + "a.sc", Section("a", "7000/tcp") + Section("b", "7001/udp"));
    WriteFile(kPackage + "a.sc", Section("a", "7000"));
    WriteFile(kRules, Rule("1", "a", "7000", "7000") + Rule("2", "", "7001", "7001"));
    WriteFile(kSettings, "ftpport=7002\nWebDavPort=5005\nsecure_WebDavPort=5006\n");
    ExpectRun(ServiceTool({"ports", "--conflicts"}), 0, "");
}

TEST_F(PortsCommand, FindsNoConflictBetweenProtocols) {
    WriteFile(kSystem + "a.sc", Section("a", "7000/tcp") + Section("b", "7000/udp"));
    const HeldPort held(Family::kV4, Protocol::kTcp, 7001);
    WriteFile(kSystem + "c.sc", Section("c", "7001/udp"));
    EXPECT_THAT(Conflicts(), IsEmpty());
}

TEST_F(PortsCommand, FindsAPortThatAnothersProgramHolds) {
    WriteFile(kSystem + "a.sc", Section("a", "7000:7010/tcp"));
    const HeldPort held(Family::kV4, Protocol::kTcp, 7003);
    EXPECT_THAT(Conflicts(), ElementsAre("tcp 7003 ! service a - - - system/a.sc",
                                         "tcp 7003 ! socket - " + kOwnListener));
}

TEST_F(PortsCommand, FindsNoConflictWhereTheServicesProgramHoldsThePort) {
    WriteFile(kSystem + "a.sc", Section(kOwnName, "7000:7010/tcp"));
    const HeldPort declared(Family::kV4, Protocol::kTcp, 7003);
    const HeldPort undeclared(Family::kV4, Protocol::kTcp, 7011);
    EXPECT_THAT(Conflicts(), IsEmpty());
    EXPECT_THAT(Rows(ServiceTool({"ports"}).out, 7003, 7011),
                ElementsAre("tcp 7003 socket " + kOwnName + " " + kOwnListener,
                            "tcp 7011 socket - " + kOwnListener));
}

TEST_F(PortsCommand, FindsAnothersProgramBesideTheServices) {
    WriteFile(kSystem + "a.sc", Section(kOwnName, "7000/tcp"));
    const HeldSocket shared(AF_INET, SOCK_STREAM, 7000);
    const TemporaryFolder folder;
    const HoldingProgram stranger(folder / "stranger", shared.Descriptor());
    EXPECT_THAT(Conflicts(), testing::UnorderedElementsAre(
                                 "tcp 7000 ! service " + kOwnName + " - - - system/a.sc",
                                 "tcp 7000 ! socket " + kOwnName + ' ' + kOwnListener,
                                 "tcp 7000 ! socket - " + std::to_string(stranger.Pid()) +
                                     " stranger LISTEN " + (folder / "stranger")));
}

// A socket bound to a port that does not listen: it is connected to `peer`.
class OutgoingSocket {
  public:
    OutgoingSocket(int type, int port, int peer)
        : socket_(socket(AF_INET, type | SOCK_CLOEXEC, 0)) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const auto *at = reinterpret_cast<const sockaddr *>(&address);
        address.sin_port = htons(static_cast<in_port_t>(port));
        const bool bound = bind(socket_, at, sizeof(address)) == 0;
        address.sin_port = htons(static_cast<in_port_t>(peer));
        if (!bound || connect(socket_, at, sizeof(address)) != 0) {
            throw std::runtime_error("no connection");
        }
    }
    ~OutgoingSocket() { close(socket_); }
    OutgoingSocket(const OutgoingSocket &) = delete;
    OutgoingSocket &operator=(const OutgoingSocket &) = delete;

  private:
    int socket_;
};

TEST_F(PortsCommand, FindsNoConflictOfAConnectionToSomebodyElse) {
    WriteFile(kSystem + "a.sc", Section("a", "7000:7010"));
    const HeldPort tcp_peer(Family::kV4, Protocol::kTcp, 7100);
    const HeldPort udp_peer(Family::kV4, Protocol::kUdp, 7100);
    const OutgoingSocket tcp(SOCK_STREAM, 7001, 7100);
    const OutgoingSocket udp(SOCK_DGRAM, 7002, 7100);
    EXPECT_THAT(Conflicts(), IsEmpty());
    EXPECT_THAT(
        Rows(ServiceTool({"ports"}).out, 7001, 7002),
        ElementsAre("tcp 7001 socket - " + kOwnPid + ' ' + kOwnName + " ESTABLISHED " + kOwnProgram,
                    "udp 7002 socket - " + kOwnPid + ' ' + kOwnName + " CONNECTED " + kOwnProgram));
}

TEST_F(PortsCommand, ComparesOnlyDeclarationsWhereOnlyTheyAreAskedFor) {
    WriteFile(kSystem + "a.sc", Section("a", "7000/tcp"));
    const HeldPort held(Family::kV4, Protocol::kTcp, 7000);
    ExpectRun(ServiceTool({"ports", "--conflicts", "--declared"}), 0, "");
    const ProgramResult result = ServiceTool({"ports", "--conflicts", "--held"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(Rows(result.out),
                ElementsAre("tcp 7000 ! " + kOwnPid + " root LISTEN " + kOwnProgram));
}

TEST_F(PortsCommand, CountsConflictsOfDeclarationsAlsoWhereItListsOnlyWhatIsHeld) {
    WriteFile(kSystem + "a.sc", Section("a", "7000/tcp") + Section("b", "7000/tcp"));
    ExpectRun(ServiceTool({"ports", "--conflicts", "--held"}), 1, "");
}

// The ports of the results, by protocol, each with the services that they name.
std::map<std::pair<std::string, int>, std::set<std::string>> ServicesByPort(
    const std::vector<std::string> &options) {
    std::vector<std::string> arguments = {"ports", "--json", "--declared"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    const Json document = Json::Parse(ServiceTool(arguments).out);
    std::map<std::pair<std::string, int>, std::set<std::string>> services;
    for (const Json &row : document["results"].Elements()) {
        for (int port = row["start"].Number(); port <= row["end"].Number(); ++port) {
            services[{row["protocol"].Text(), port}].insert(row["service"].Text());
        }
    }
    return services;
}

TEST_F(PortsCommand, FindsThePortsThatAnObviousSearchFinds) {
    std::mt19937 random(7);
    for (int round = 0; round < 10; ++round) {
        std::string sections;
        for (int i = 0; i < 12; ++i) {
            const unsigned first = 7000 + static_cast<unsigned>(random() % 100);
            const unsigned last = first + 1 + static_cast<unsigned>(random() % 20);
            const char *const protocols[] = {"/tcp", "/udp", ""};
            sections += Section(
                "s" + std::to_string(i),
                std::to_string(first) + ":" + std::to_string(last) + protocols[random() % 3]);
        }
        WriteFile(kSystem + "random.sc", sections);
        auto expected = ServicesByPort({});
        std::erase_if(expected, [](const auto &entry) { return entry.second.size() < 2; });
        EXPECT_FALSE(expected.empty());
        EXPECT_EQ(ServicesByPort({"--conflicts"}), expected) << sections;
    }
}

// ---- Unknown answers

TEST_F(PortsCommand, ReportsASourceThatFailsAndTheRest) {
    WriteFile(kSystem + "a.sc", Section("a", "7000/tcp") + Section("b", "7000/tcp"));
    WriteFile(kRules, "[1]\n");
    const ProgramResult declared = ServiceTool({"ports", "--declared"});
    EXPECT_EQ(declared.status, 3);
    EXPECT_THAT(declared.err, HasSubstr("[bad-rule]"));
    EXPECT_EQ(Rows(declared.out).size(), 2U);
    const ProgramResult conflicts = ServiceTool({"ports", "--conflicts"});
    EXPECT_EQ(conflicts.status, 3) << "there may be more conflicts than those that were found";
    EXPECT_EQ(Rows(conflicts.out).size(), 2U);
    EXPECT_EQ(ServiceTool({"ports", "--held"}).status, 0);
}

// Makes this process unreadable for other processes for the lifetime of the object.
class Undumpable {
  public:
    Undumpable() { prctl(PR_SET_DUMPABLE, 0); }
    ~Undumpable() { prctl(PR_SET_DUMPABLE, 1); }
    Undumpable(const Undumpable &) = delete;
    Undumpable &operator=(const Undumpable &) = delete;
};

ProgramResult WithoutRights(const std::vector<std::string> &arguments) {
    std::vector<std::string> command = {"setpriv", "--bounding-set=-all", "--inh-caps=-all",
                                        SERVICETOOL};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return RunProgram(command);
}

TEST_F(PortsCommand, SaysThatAHolderIsUnknown) {
    WriteFile(kSystem + "a.sc", Section("a", "7000/tcp"));
    const HeldPort declared(Family::kV4, Protocol::kTcp, 7000);
    const HeldPort undeclared(Family::kV4, Protocol::kTcp, 7001);
    const Undumpable self;
    const ProgramResult all = WithoutRights({"ports"});
    EXPECT_EQ(all.status, 0);
    EXPECT_THAT(Rows(all.out), ElementsAre("tcp 7000 service a - - - system/a.sc",
                                           "tcp 7000 socket - - unknown LISTEN -",
                                           "tcp 7001 socket - - unknown LISTEN -"));
    ExpectRun(WithoutRights({"ports", "--conflicts"}), 3, "",
              "servicetool: error: it is unknown who holds 7000/tcp, which is declared "
              "[unknown-holder]\n");
}

// Changes to a working folder with a path too long to be read from a link, for the lifetime of the
// object.
class DeepFolder {
  public:
    DeepFolder() {
        std::filesystem::current_path(folder_.Path());
        for (int depth = 0; depth < 20; ++depth) {
            const std::string name(250, 'd');
            if (mkdir(name.c_str(), 0755) != 0 || chdir(name.c_str()) != 0) {
                throw std::runtime_error("no deep folder");
            }
        }
    }
    ~DeepFolder() { std::filesystem::current_path("/"); }
    DeepFolder(const DeepFolder &) = delete;
    DeepFolder &operator=(const DeepFolder &) = delete;

  private:
    const TemporaryFolder folder_;
};

TEST_F(PortsCommand, SaysThatItIsUnknownWhatAProgramIsThatCannotBeRead) {
    WriteFile(kSystem + "a.sc", Section(kOwnName, "7000/tcp"));
    const HeldSocket shared(AF_INET, SOCK_STREAM, 7000);
    const DeepFolder folder;
    const HoldingProgram hidden("./hidden", shared.Descriptor());
    EXPECT_THAT(Rows(ServiceTool({"ports"}).out),
                testing::IsSupersetOf(
                    {"tcp 7000 socket " + kOwnName + ' ' + kOwnListener,
                     "tcp 7000 socket - " + std::to_string(hidden.Pid()) + " hidden LISTEN -"}));
    ExpectRun(ServiceTool({"ports", "--conflicts"}), 3, "",
              "servicetool: error: it is unknown who holds 7000/tcp, which is declared "
              "[unknown-holder]\n");
}

TEST_F(PortsCommand, MindsNoUnknownHolderBesideAConflictOrOnAPortThatNobodyDeclares) {
    WriteFile(kSystem + "a.sc", Section("a", "7000/tcp"));
    const HeldPort undeclared(Family::kV4, Protocol::kTcp, 7001);
    const Undumpable self;
    ExpectRun(WithoutRights({"ports", "--conflicts"}), 0, "");
    const HeldPort declared(Family::kV4, Protocol::kTcp, 7000);
    WriteFile(kSystem + "b.sc", Section("b", "7005/tcp") + Section("c", "7005/tcp"));
    const ProgramResult result = WithoutRights({"ports", "--conflicts"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, IsEmpty());
    EXPECT_EQ(Rows(result.out).size(), 2U);
}

// ---- The picture for the terminal

TEST_F(PortsCommand, DrawsAPictureOfEachProtocol) {
    WriteFile(kSystem + "a.sc", Section("a", "65472:65535/tcp"));
    const HeldPort held(Family::kV4, Protocol::kUdp, 64000);
    const std::string out = ServiceTool({"ports", "--map"}).out;
    std::istringstream stream(out);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    ASSERT_EQ(lines.size(), 35U) << out;
    EXPECT_EQ(lines[0], "tcp");
    EXPECT_EQ(lines[16], "61440 " + std::string(63, '.') + "d");
    EXPECT_EQ(lines[17], "udp");
    EXPECT_EQ(lines[33], "61440 " + std::string(40, '.') + "h" + std::string(23, '.'));
    EXPECT_EQ(lines[34],
              "64 ports a sign: . free, d declared, h held, B both among them, ! in conflict");
    EXPECT_EQ(ServiceTool({"ports", "--map", "--no-legend"}).out,
              out.substr(0, out.rfind("64 ports")));
}

TEST_F(PortsCommand, DrawsOnlyWhatIsAskedFor) {
    WriteFile(kSystem + "a.sc", Section("a", "65535/tcp") + Section("b", "64000/tcp"));
    const HeldPort held(Family::kV4, Protocol::kTcp, 64000);
    EXPECT_THAT(ServiceTool({"ports", "--map", "--conflicts"}).out,
                HasSubstr("61440 " + std::string(40, '.') + "!" + std::string(23, '.') + "\nudp"));
    EXPECT_THAT(ServiceTool({"ports", "--map", "--declared"}).out,
                HasSubstr("61440 " + std::string(40, '.') + "d" + std::string(22, '.') + "d\n"));
}

TEST_F(PortsCommand, FitsThePictureToTheTerminal) {
    const std::vector<std::string> environment = {"TERM=dumb"};
    const std::string wide = ServiceToolOnTerminal({"ports", "--map"}, 140, environment, 40);
    EXPECT_THAT(wide, HasSubstr("61440 " + std::string(128, '.')));
    EXPECT_THAT(wide, HasSubstr("32 ports a sign:"));
    EXPECT_THAT(ServiceToolOnTerminal({"ports", "--map"}, 40, environment, 50),
                HasSubstr("128 ports a sign:"));
    const std::string low = ServiceToolOnTerminal({"ports", "--map"}, 80, environment, 24);
    EXPECT_THAT(low, HasSubstr("57344 " + std::string(64, '.')));
    EXPECT_LT(std::count(low.begin(), low.end(), '\n'), 24);
}

TEST_F(PortsCommand, SaysWhatItsLegendIs) {
    EXPECT_THAT(ServiceTool({"ports", "--help"}).out, HasSubstr("Print no header and no legend"));
}

TEST_F(PortsCommand, ColoursThePictureOnATerminalOnly) {
    EXPECT_THAT(ServiceToolOnTerminal({"ports", "--map"}), HasSubstr("\x1b[34md"));
    EXPECT_THAT(ServiceTool({"ports", "--map"}).out, Not(HasSubstr("\x1b")));
    for (const std::string setting : {"NO_COLOR=1", "TERM=dumb"}) {
        EXPECT_THAT(ServiceToolOnTerminal({"ports", "--map"}, 80, {"TERM=xterm", setting}),
                    Not(HasSubstr("\x1b")));
    }
}

}  // namespace
}  // namespace tavo::test

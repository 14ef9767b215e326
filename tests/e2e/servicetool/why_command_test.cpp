// servicetool why: the declarers and holders of a port, with real programs that hold it.
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "held_socket.h"
#include "holding_program.h"
#include "json_value.h"
#include "patterns.h"
#include "port_world.h"
#include "servicetool_run.h"

namespace tavo::test {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const std::string kNobodyListens = ", but nobody listens\n";
const std::string kUndeclared =
    "whether a service declares it is unknown because the settings cannot be read\n";
const std::string kListening = ", which listens on it; no service file declares it\n";

// A port held only by the named program, not by the test itself.
class HeldBy {
  public:
    HeldBy(const std::string &program, int family, int type, int port, uid_t user = 0) {
        const HeldSocket socket(family, type, port);
        program_.emplace(program, socket.Descriptor(), user);
    }

    pid_t Pid() const { return program_->Pid(); }
    std::string PidText() const { return program_->PidText(); }

  private:
    std::optional<HoldingProgram> program_;
};

HeldBy TcpHeldBy(const std::string &program, int port, uid_t user = 0) {
    return {program, AF_INET, SOCK_STREAM, port, user};
}

class WhyCommand : public ServiceFolders {
  protected:
    void SetUp() override {
        std::filesystem::permissions(folder_.Path(), std::filesystem::perms{0755});
    }

    void TearDown() override { prctl(PR_SET_DUMPABLE, 1); }

    // The path of a program of that name, executable by every user, in a folder that belongs to no
    // package.
    std::string Program(const std::string &name) const { return folder_ / name; }

    TemporaryFolder folder_;
};

// Runs servicetool why and puts one bar between the cells of a table, whatever their widths.
ProgramResult Why(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "why");
    ProgramResult result = ServiceTool(arguments);
    result.out = ReplaceMatches(result.out, "  +", "|");
    return result;
}

Json ResultOf(const ProgramResult &result) {
    EXPECT_THAT(result.err, IsEmpty());
    return Json::Parse(result.out)["results"][0];
}

Json WhyJson(const std::string &target) {
    return ResultOf(ServiceTool({"why", "--json", target}));
}

// Runs servicetool through another program that executes it, such as setpriv or a shell.
ProgramResult WhyUnder(std::vector<std::string> words, const std::vector<std::string> &arguments) {
    words.insert(words.end(), {SERVICETOOL, "why", "--no-legend"});
    words.insert(words.end(), arguments.begin(), arguments.end());
    return RunProgram(words);
}

// Drops the capabilities to inspect processes that have them.
const std::vector<std::string> kWithoutRights = {"setpriv", "--bounding-set=-all",
                                                 "--inh-caps=-all", "--"};

// The same as another user, who may not be able to enter the folders of the build.
ProgramResult WhyAs(uid_t user, const std::vector<std::string> &arguments) {
    const ServiceToolForEveryone program;
    std::vector<std::string> words = {"setpriv", "--reuid=" + std::to_string(user), "--"};
    for (const auto &part :
         {program.Command(), std::vector<std::string>{"why", "--no-legend"}, arguments}) {
        words.insert(words.end(), part.begin(), part.end());
    }
    return RunProgram(words);
}

// Whether other users than root exist here.
bool CanRunAsOthers() {
    return RunProgram({"setpriv", "--reuid=4242", "--", "true"}).status == 0;
}

// With `folder` mounted in place of /proc/net.
ProgramResult WhyWithSocketTables(const std::string &folder,
                                  const std::vector<std::string> &ports) {
    return WhyUnder({"sh", "-c", "mount --bind " + folder + " /proc/$$/net && exec \"$@\"", "sh"},
                    ports);
}

// With a preloaded library that hides something from it.
ProgramResult WhyWithout(const std::string &library, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "why");
    return ServiceToolPreloading(library, std::move(arguments));
}

// ---- Verdicts

TEST_F(WhyCommand, SaysThatNobodyHasAPort) {
    ExpectRun(Why({"8081"}), 0,
              "8081/tcp is free: nobody declares it and nobody listens\n"
              "8081/udp is free: nobody declares it and nobody listens\n");
}

TEST_F(WhyCommand, NamesTheServiceThatOnlyDeclaresAPort) {
    WriteFile(kPackage + "web.sc", Section("example-web", "8080/tcp"));
    ExpectRun(ServiceTool({"why", "8080/tcp"}), 1,
              "PORT  PROTO  SOURCE   NAME         PID  USER  STATE  WHERE\n"
              "8080  tcp    service  example-web  -    -     -      package/web.sc\n"
              "8080/tcp is declared by 'example-web' in package/web.sc, but nobody listens\n");
}

TEST_F(WhyCommand, NamesTheProcessThatOnlyHoldsAPort) {
    const HeldBy held = TcpHeldBy(Program("nginx"), 8080);
    ExpectRun(Why({"8080/tcp"}), 1,
              "PORT|PROTO|SOURCE|NAME|PID|USER|STATE|WHERE\n8080|tcp|socket|nginx|" +
                  std::to_string(held.Pid()) + "|root|LISTEN|" + Program("nginx") +
                  "\n8080/tcp is held by nginx " + held.PidText() + kListening);
}

TEST_F(WhyCommand, ReportsThatTheProgramOfTheServiceHoldsItsPort) {
    WriteFile(kPackage + "web.sc", Section("example-web", "8080/tcp"));
    const HeldBy held = TcpHeldBy(Program("example-web"), 8080);
    EXPECT_THAT(
        Why({"8080/tcp"}).out,
        HasSubstr("8080/tcp is taken: example-web " + held.PidText() +
                  " listens on it and 'example-web' in package/web.sc declares it; by name, "
                  "that is the same service\n"));
    EXPECT_EQ(WhyJson("8080/tcp")["same_service"], true);
}

TEST_F(WhyCommand, ReportsThatAnotherProgramHoldsThePortOfAService) {
    WriteFile(kPackage + "web.sc", Section("example-web", "8080/tcp"));
    const HeldBy held = TcpHeldBy(Program("nginx"), 8080);
    ExpectRun(Why({"--no-legend", "8080/tcp"}), 1,
              "8080|tcp|service|example-web|-|-|-|package/web.sc\n8080|tcp|socket|nginx|" +
                  std::to_string(held.Pid()) + "|root|LISTEN|" + Program("nginx") +
                  "\n8080/tcp is taken: nginx " + held.PidText() +
                  " listens on it and 'example-web' in package/web.sc declares it; the program is "
                  "not known to belong to that service\n");
    EXPECT_EQ(WhyJson("8080/tcp")["same_service"], false);
}

TEST_F(WhyCommand, ReportsWhichOfSeveralProgramsBelongsToNoneOfSeveralServices) {
    WriteFile(kSystem + "a.sc", Section("a", "8080/udp") + Section("b", "8000:8090/udp"));
    WriteFile(kPackage + "c.sc", Section("c", "8080/udp"));
    const std::string services =
        "'a' in system/a.sc, 'b' in system/a.sc and 'c' in package/c.sc declare it; ";
    std::optional<HeldBy> own(std::in_place, Program("a"), AF_INET, SOCK_DGRAM, 8080);
    EXPECT_THAT(Why({"8080/udp"}).out, HasSubstr(" listens on it, and " + services +
                                                 "by name, that is one of these services\n"));
    const HeldBy other(Program("other"), AF_INET6, SOCK_DGRAM, 8080);
    EXPECT_THAT(Why({"8080/udp"}).out,
                HasSubstr("a " + own->PidText() + " and other " + other.PidText() +
                          " listen on it, and " + services + "other " + other.PidText() +
                          " is not known to belong to any of these services\n"));
    EXPECT_EQ(WhyJson("8080/udp")["same_service"], false);
    own.reset();
    EXPECT_THAT(
        Why({"8080/udp"}).out,
        HasSubstr(services + "the program is not known to belong to any of these services\n"));
    own.emplace(Program("more"), AF_INET, SOCK_DGRAM, 8080);
    EXPECT_THAT(Why({"8080/udp"}).out,
                HasSubstr(services +
                          "none of these programs is known to belong to any of these services\n"));
}

// ---- Declarers

TEST_F(WhyCommand, KnowsEveryKindOfDeclaration) {
    WriteFile(kSettings, "WebDavPort=5005\nsyslogport=7000\nsmsport=7001\n");
    ExpectRun(
        Why({"--no-legend", "23/tcp", "5005/tcp", "7000/tcp", "7001/tcp"}), 1,
        "23|tcp|service|telnet|-|-|-|built-in\n"
        "5005|tcp|service|tavo-webdav|-|-|-|built-in\n"
        "5005|tcp|setting|webdav_http|-|-|-|WebDavPort in /etc/tavoinfo.conf\n"
        "7000|tcp|setting|syslog_server|-|-|-|syslogport in /etc/tavoinfo.conf\n"
        "7001|tcp|setting|tavo-sms|-|-|-|smsport in /etc/tavoinfo.conf\n"
        "23/tcp is declared by built-in 'telnet'" +
            kNobodyListens +
            "5005/tcp is declared by built-in 'tavo-webdav' (also 'webdav_http', WebDavPort in "
            "/etc/tavoinfo.conf)" +
            kNobodyListens +
            "7000/tcp is declared by 'syslog_server' (syslogport in /etc/tavoinfo.conf)" +
            kNobodyListens + "7001/tcp is declared by 'tavo-sms' (smsport in /etc/tavoinfo.conf)" +
            kNobodyListens);
}

TEST_F(WhyCommand, KnowsTheRulesThatNameAPort) {
    WriteFile(kRules, Rule("1", "web", "80", "8080") + Rule("7", "", "8080", "1"));
    ExpectRun(Why({"--no-legend", "8080/udp"}), 1,
              "8080|udp|forward|-|-|-|-|rule 7\n8080|udp|forward|web|-|-|-|rule 1\n"
              "8080/udp is named by forwarding rule 7 (tcp, 1 of the router to 8080) and "
              "forwarding rule 1 for 'web' (tcp, 8080 of the router to 80); no process holds it\n");
    WriteFile(kRules, Rule("1", "web", "80", "8080"));
    WriteFile(kPackage + "web.sc", Section("web", "8080/tcp"));
    EXPECT_THAT(Why({"8080/tcp"}).out,
                HasSubstr("8080/tcp is declared by 'web' in package/web.sc and named by forwarding "
                          "rule 1 for 'web', but nobody listens\n"));
    const HeldBy held(Program("web"), AF_INET, SOCK_DGRAM, 8080);
    EXPECT_THAT(Why({"8080/udp"}).out,
                HasSubstr("8080/udp is taken: web " + held.PidText() +
                          " listens on it and forwarding rule 1 for 'web' names it\n"));
}

TEST_F(WhyCommand, NamesAServiceThatIsDeclaredInSeveralPlacesOnce) {
    WriteFile(kSettings, "ftpport=21\n");
    WriteFile(kSystem + "a.sc", Section("web", "8080/tcp"));
    WriteFile(kPackage + "b.sc", Section("web", "8080/tcp"));
    const std::string out = Why({"--no-legend", "21/tcp", "8080/tcp"}).out;
    EXPECT_THAT(out, HasSubstr("21/tcp is declared by built-in 'ftp' (also ftpport in "
                               "/etc/tavoinfo.conf)" +
                               kNobodyListens));
    EXPECT_THAT(out, HasSubstr("8080/tcp is declared by 'web' in package/b.sc (also system/a.sc)" +
                               kNobodyListens));
    const HeldBy held = TcpHeldBy(Program("webd"), 8080);
    EXPECT_THAT(Why({"8080/tcp"}).out, HasSubstr("(also system/a.sc) declares it; by name, that "
                                                 "is the same service\n"));
}

TEST_F(WhyCommand, TakesNoPortFromASettingThatIsNone) {
    for (const std::string value : {"abc", "70000", "-5", "8080,8081", "4464x"}) {
        WriteFile(kSettings, "smsport=" + value + '\n');
        const ProgramResult result = Why({"--no-legend", "4464/tcp", "8080/tcp"});
        EXPECT_EQ(result.out, "4464/tcp: " + kUndeclared + "8080/tcp: " + kUndeclared) << value;
        EXPECT_THAT(result.err, HasSubstr('"' + value +
                                          "\" is not a port number for smsport "
                                          "[bad-setting]\n"));
        EXPECT_EQ(result.status, 3);
    }
    EXPECT_EQ(
        Json::Parse(ServiceTool({"why", "--json", "8080/tcp"}).out)["results"][0]["failed_sources"],
        Json::Array({"setting"}));
    EXPECT_EQ(ServiceTool({"ports", "--declared"}).status, 3);
    WriteFile(kSettings, "smsport=abc\n");
    EXPECT_THAT(ServiceTool({"why", "-v", "8080/tcp"}).err,
                ContainsRegex("Failed on parse port: abc\n" + kSettings + ":1:9: error: \"abc\""))
        << "after the log line about it";
    WriteFile(kSettings, "WebDavPort=x\nsmsport=y\n");
    EXPECT_EQ(
        Json::Parse(ServiceTool({"why", "--json", "8080/tcp"}).out)["results"][0]["failed_sources"],
        Json::Array({"setting"}));
    WriteFile(kSettings, "smsport=\n");
    EXPECT_EQ(Why({"8080/tcp"}).status, 0);
}

TEST_F(WhyCommand, SaysThatTheReservedPortIsAlwaysTaken) {
    ExpectRun(Why({"--no-legend", "412/tcp"}), 1,
              "412|tcp|reserved|-|-|-|-|always taken\n"
              "412/tcp is taken: the system keeps it for itself\n");
    const HeldBy held = TcpHeldBy(Program("chat"), 412);
    EXPECT_THAT(Why({"412/tcp"}).out,
                HasSubstr("412/tcp is taken: the system keeps it for itself and chat " +
                          held.PidText() + " listens on it\n"));
    EXPECT_EQ(WhyJson("412/tcp")["reserved"], true);
    EXPECT_EQ(WhyJson("411/tcp")["reserved"], false);
}

// ---- Holders

TEST_F(WhyCommand, SeesBothProtocolsOverBothFamilies) {
    const HeldBy tcp6(Program("a"), AF_INET6, SOCK_STREAM, 8080);
    const HeldBy udp4(Program("b"), AF_INET, SOCK_DGRAM, 8080);
    const HeldBy udp6(Program("c"), AF_INET6, SOCK_DGRAM, 8080);
    const Json tcp = WhyJson("8080/tcp")["held_by"];
    ASSERT_EQ(tcp.size(), 1U);
    EXPECT_EQ(tcp[0]["pid"], tcp6.Pid());
    EXPECT_EQ(tcp[0]["state"], "LISTEN");
    const Json udp = WhyJson("8080/udp")["held_by"];
    ASSERT_EQ(udp.size(), 2U);
    EXPECT_EQ(udp[0]["process"], "b");
    EXPECT_EQ(udp[1]["process"], "c");
    EXPECT_EQ(udp[1]["state"], "UNCONNECTED");
}

// A connection to the listener, with a local port that the kernel chose.
class Connection {
  public:
    explicit Connection(int port, int type = SOCK_STREAM) : descriptor_(socket(AF_INET, type, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<in_port_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto *generic = reinterpret_cast<sockaddr *>(&address);
        socklen_t size = sizeof(address);
        EXPECT_EQ(connect(descriptor_, generic, size), 0);
        EXPECT_EQ(getsockname(descriptor_, generic, &size), 0);
        port_ = ntohs(address.sin_port);
        EXPECT_EQ(fcntl(descriptor_, F_SETFD, FD_CLOEXEC), 0);
    }
    ~Connection() { Close(); }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    void Close() {
        if (descriptor_ >= 0) {
            close(std::exchange(descriptor_, -1));
        }
    }
    int Descriptor() const { return descriptor_; }
    std::string Port() const { return std::to_string(port_); }

  private:
    int descriptor_;
    int port_ = 0;
};

TEST_F(WhyCommand, ReportsConnectionsFromListeners) {
    const HeldSocket listener(AF_INET, SOCK_STREAM, 8091);
    const Connection tcp(8091);
    const Connection udp(9000, SOCK_DGRAM);
    const std::string self = "servicetool_why_test (pid " + std::to_string(getpid()) + ')';
    EXPECT_THAT(
        Why({tcp.Port() + "/tcp"}).out,
        HasSubstr("|ESTABLISHED|" + std::filesystem::read_symlink("/proc/self/exe").string() +
                  '\n' + tcp.Port() + "/tcp is held by " + self +
                  ", which uses it for a connection; no service file declares it\n"));
    EXPECT_EQ(WhyJson(udp.Port() + "/udp")["held_by"][0]["state"], "CONNECTED");
    WriteFile(kPackage + "web.sc", Section("web", tcp.Port() + "/tcp"));
    EXPECT_THAT(Why({tcp.Port() + "/tcp"}).out,
                HasSubstr("is taken: " + self + " uses it for a connection and 'web'"));
}

TEST_F(WhyCommand, NamesWhoListensBeforeWhoIsConnected) {
    const HeldSocket listener(AF_INET, SOCK_STREAM, 8092);
    const Connection client(8092);
    const int accepted = accept4(listener.Descriptor(), nullptr, nullptr, SOCK_CLOEXEC);
    const HoldingProgram worker(Program("worker"), accepted);
    close(accepted);
    const std::string self = "servicetool_why_test (pid " + std::to_string(getpid()) + ')';
    const ProgramResult result = Why({"--no-legend", "8092/tcp"});
    EXPECT_THAT(result.out, ContainsRegex("LISTEN[^\n]*\n(.*\n)*8092\\|tcp\\|socket\\|worker\\|" +
                                          std::to_string(worker.Pid()) + "\\|root\\|ESTABLISHED"));
    EXPECT_THAT(result.out, HasSubstr("8092/tcp is held by " + self + kListening));
}

TEST_F(WhyCommand, LeavesOutWhatTheKernelAloneIsStillClosing) {
    const HeldSocket listener(AF_INET, SOCK_STREAM, 8093);
    Connection client(8093);
    const std::string port = client.Port();
    client.Close();
    close(accept(listener.Descriptor(), nullptr, nullptr));
    EXPECT_THAT(ReadFile("/proc/net/tcp"), HasSubstr(" 06 "));
    EXPECT_EQ(Why({port + "/tcp"}).status, 0);
}

TEST_F(WhyCommand, NamesTheUserOrItsNumber) {
    if (!CanRunAsOthers()) {
        GTEST_SKIP() << "nobody is here but root";
    }
    const HeldBy http = TcpHeldBy(Program("a"), 8001, 1023);
    const HeldBy stranger = TcpHeldBy(Program("b"), 8002, 4242);
    EXPECT_EQ(WhyJson("8001/tcp")["held_by"][0]["user"], "http");
    EXPECT_EQ(WhyJson("8002/tcp")["held_by"][0]["user"], "4242");
}

TEST_F(WhyCommand, KnowsTheUnitOfAProcess) {
    WriteFile(kSystem + "a.sc", Section("a", "8080/tcp"));
    const HeldBy held = TcpHeldBy(Program("worker"), 8080);
    EXPECT_EQ(WhyJson("8080/tcp")["same_service"], false);
    EXPECT_EQ(WhyJson("8080/tcp")["held_by"][0]["unit"], nullptr);
    const std::string groups =
        folder_.Write("cgroup", "2:cpu:/\n0::/system.slice/a.service/workers\n1:x:/b.service\n");
    const std::string place = "/proc/" + std::to_string(held.Pid()) + "/cgroup";
    ASSERT_EQ(mount(groups.c_str(), place.c_str(), nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(WhyJson("8080/tcp")["held_by"][0]["unit"], "a");
    EXPECT_EQ(WhyJson("8080/tcp")["same_service"], true);
}

TEST_F(WhyCommand, EscapesTheNamesOfPrograms) {
    const std::pair<std::string, std::string> names[] = {
        {"web server (old)", "web server (old)"},
        {"two\nlines \x1b[31m", "two\\nlines \\x1b[31m"},
        {"a\xFFz", "a\\xffz"},
    };
    for (const auto &[name, shown] : names) {
        const HeldBy held = TcpHeldBy(Program(name), 8080);
        const ProgramResult result = ServiceTool({"why", "8080/tcp"});
        EXPECT_THAT(result.out, HasSubstr(Program(shown) + "\n8080/tcp is held by " + shown + ' ' +
                                          held.PidText() + ", which listens"));
    }
    const HeldBy held = TcpHeldBy(Program("a\xFF\n\"z"), 8080);
    EXPECT_EQ(WhyJson("8080/tcp")["held_by"][0]["program"], Program("a\\xff\n\"z"));
    EXPECT_EQ(WhyJson("8080/tcp")["sentence"].Text() + '\n',
              "8080/tcp is held by a\\xff\n\"z " + held.PidText() + kListening);
}

TEST_F(WhyCommand, CallsAProgramThatWasReplacedByItsName) {
    WriteFile(kPackage + "a.sc", Section("web", "8080/tcp"));
    const HeldBy held = TcpHeldBy(Program("web"), 8080);
    std::filesystem::remove(Program("web"));
    const Json result = WhyJson("8080/tcp");
    EXPECT_EQ(result["held_by"][0]["program"], Program("web") + " (deleted)");
    EXPECT_EQ(result["held_by"][0]["process"], "web");
    EXPECT_EQ(result["same_service"], true);
}

TEST_F(WhyCommand, ShowsTheFirstOfManyProcesses) {
    const HeldSocket socket(AF_INET, SOCK_STREAM, 8080);
    std::vector<std::unique_ptr<HoldingProgram>> workers;
    for (int i = 0; i < 12; ++i) {
        workers.push_back(std::make_unique<HoldingProgram>(Program("worker"), socket.Descriptor()));
    }
    const ProgramResult result = Why({"--no-legend", "8080/tcp"});
    EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 12);
    EXPECT_THAT(result.out, HasSubstr("8080|tcp|socket|and 3 more|-|-|-|-\n8080/tcp is held by "));
    EXPECT_THAT(result.out,
                HasSubstr(") and 10 more, which listen on it; no service file declares it\n"));
    EXPECT_EQ(WhyJson("8080/tcp")["held_by"].size(), 13U);
}

// ---- Unknown answers

TEST_F(WhyCommand, SaysThatAHolderIsUnknown) {
    WriteFile(kPackage + "a.sc", Section("a", "8081/tcp"));
    WriteFile(kRules, Rule("1", "", "8082", "8082"));
    ASSERT_EQ(prctl(PR_SET_DUMPABLE, 0), 0);  // cannot be inspected without more rights
    std::vector<std::unique_ptr<HeldSocket>> held;
    for (const int port : {8080, 8081, 8082}) {
        held.push_back(std::make_unique<HeldSocket>(AF_INET, SOCK_STREAM, port));
    }
    const std::string unknown = "its holder is unknown: it is the kernel or not visible here\n";
    ExpectRun(WhyUnder(kWithoutRights, {"8080/tcp"}), 3,
              "8080  tcp  socket  unknown  -  -  LISTEN  -\n8080/tcp is held, but its holder is "
              "unknown: it is the kernel or not visible here\n");
    ProgramResult result = WhyUnder(kWithoutRights, {"8081/tcp"});
    EXPECT_THAT(result.out, HasSubstr("8081/tcp is declared by 'a' in package/a.sc; " + unknown));
    EXPECT_EQ(result.status, 1);
    result = WhyUnder(kWithoutRights, {"8082/tcp"});
    EXPECT_THAT(result.out,
                HasSubstr("8082/tcp is named by forwarding rule 1 (tcp, 8082 of the router to "
                          "8082); " +
                          unknown));
    EXPECT_EQ(result.status, 1);
    result = WhyUnder(kWithoutRights, {"8083/tcp"});
    EXPECT_EQ(result.status, 0);
    result = WhyUnder(kWithoutRights, {"--json", "8080/tcp"});
    EXPECT_EQ(ResultOf(result), Json::Parse(R"({
        "port": 8080, "protocol": "tcp", "verdict": "unknown",
        "sentence": "8080/tcp is held, but its holder is unknown: it is the kernel or not visible here",
        "reserved": false, "declared_by": [], "forwarded_by": [],
        "held_by": [{"pid": null, "program": null, "process": null, "user": null, "unit": null,
                     "state": "LISTEN"}],
        "same_service": null, "failed_sources": []})"));
}

TEST_F(WhyCommand, AdvisesToAskAsRoot) {
    if (!CanRunAsOthers()) {
        GTEST_SKIP() << "nobody is here but root";
    }
    const HeldSocket held(AF_INET, SOCK_STREAM, 8080);
    const ProgramResult result = WhyAs(65534, {"8080/tcp"});
    EXPECT_THAT(result.out,
                HasSubstr("8080/tcp is held, but its holder is unknown: ask as root\n"));
    EXPECT_EQ(result.status, 3);
}

TEST_F(WhyCommand, DoesNotTakeAnUnknownHolderForTheService) {
    if (!CanRunAsOthers()) {
        GTEST_SKIP() << "nobody is here but root";
    }
    WriteFile(kPackage + "a.sc", Section("a", "8080/udp"));
    const HeldBy own(Program("a"), AF_INET6, SOCK_DGRAM, 8080, 1023);
    constexpr uid_t kHttp = 1023;
    const std::vector<std::string> question = {"--json", "8080/udp"};
    EXPECT_EQ(ResultOf(WhyAs(kHttp, question))["same_service"], true);
    const HeldSocket unknown(AF_INET, SOCK_DGRAM, 8080);
    const Json result = ResultOf(WhyAs(kHttp, question));
    EXPECT_EQ(result["held_by"][0]["pid"], nullptr);
    EXPECT_EQ(result["held_by"][1]["pid"], own.Pid());
    EXPECT_EQ(result["same_service"], nullptr);
    EXPECT_EQ(result["sentence"], "8080/udp is taken: a " + own.PidText() +
                                      " listens on it and 'a' in package/a.sc declares it; "
                                      "a process that cannot be inspected also holds it");
    std::filesystem::remove(kPackage + "a.sc");
    EXPECT_EQ(ResultOf(WhyAs(kHttp, question))["sentence"],
              "8080/udp is held by a " + own.PidText() +
                  ", which listens on it; no service file declares it; a process that cannot be "
                  "inspected "
                  "also holds it");
    const HeldSocket reserved(AF_INET, SOCK_STREAM, 412);
    EXPECT_EQ(ResultOf(WhyAs(kHttp, {"--json", "412/tcp"}))["sentence"],
              "412/tcp is taken: the system keeps it for itself; its holder is unknown: ask "
              "as root");
}

TEST_F(WhyCommand, CannotTellWithoutTheTablesOfSockets) {
    WriteFile(kPackage + "a.sc", Section("a", "8081/tcp"));
    const TemporaryFolder tables;
    tables.Write("tcp", "header\n");
    ExpectRun(
        WhyWithSocketTables(tables.Path(), {"8080/tcp"}), 3,
        "8080/tcp: whether somebody holds it is unknown because the sockets cannot be "
        "read\n",
        "servicetool: error: the holders of ports are unknown: /proc/net/udp: no such file or "
        "directory [unreadable]\n");
    std::filesystem::create_directory(tables / "udp");
    const ProgramResult result = WhyWithSocketTables(tables.Path(), {"8081/tcp"});
    EXPECT_THAT(result.out,
                HasSubstr("8081/tcp is declared by 'a' in package/a.sc; whether somebody holds it "
                          "is unknown because the sockets cannot be read\n"));
    EXPECT_THAT(result.err, HasSubstr("/proc/net/udp: cannot be read [unreadable]\n"));
    EXPECT_EQ(result.status, 1);
}

// Like a TCP socket that is bound but does not listen yet.
TEST_F(WhyCommand, FindsASocketThatIsInNoTable) {
    WriteFile(kPackage + "a.sc", Section("a", "8081/tcp"));
    const TemporaryFolder tables;
    tables.Write("tcp", "header\n");
    tables.Write("udp", "header\n");
    const HeldSocket one(AF_INET, SOCK_STREAM, 8080);
    const HeldSocket other(AF_INET6, SOCK_STREAM, 8081);
    const std::string nameless =
        " is unknown: the kernel does not report the owner of the socket\n";
    ExpectRun(
        WhyWithSocketTables(tables.Path(), {"8080/tcp"}), 3,
        "8080  tcp  socket  unknown  -  -  -  -\n8080/tcp is in use, but its holder" + nameless);
    const ProgramResult declared = WhyWithSocketTables(tables.Path(), {"8081/tcp"});
    EXPECT_THAT(declared.out,
                HasSubstr("8081/tcp is declared by 'a' in package/a.sc; its holder" + nameless));
    EXPECT_EQ(declared.status, 1);
    const Json result =
        ResultOf(WhyWithSocketTables(tables.Path(), {"8080/tcp", "8080/udp", "--json"}));
    EXPECT_EQ(result["verdict"], "unknown");
    EXPECT_EQ(result["held_by"][0]["state"], nullptr);
    EXPECT_EQ(result["held_by"][0]["pid"], nullptr);
    EXPECT_EQ(WhyWithSocketTables(tables.Path(), {"8080/udp", "8082"}).status, 0);
}

TEST_F(WhyCommand, KnowsOfASocketThatIsBoundOnly) {
    const int bound = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(8080);
    ASSERT_EQ(bind(bound, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    if (ServiceTool({"check", "8080/tcp"}).status == 0) {
        close(bound);
        GTEST_SKIP() << "the kernel keeps such a socket to itself";
    }
    const ProgramResult result = Why({"--no-legend", "8080"});
    EXPECT_THAT(result.out, HasSubstr("8080/tcp is in use, but its holder is unknown"));
    EXPECT_THAT(result.out, HasSubstr("8080/udp is free"));
    EXPECT_EQ(result.status, 3);
    close(bound);
}

TEST_F(WhyCommand, CallsNothingFreeWhereTheLibraryIsBlind) {
    WriteFile(kPackage + "a.sc", Section("a", "8081/tcp"));
    const HeldBy held = TcpHeldBy(Program("nginx"), 8082);
    const ProgramResult result = WhyWithout(BLIND_NET, {"--no-legend", "8080/tcp", "8081/tcp"});
    const Json taken =
        Json::Parse(WhyWithout(BLIND_NET, {"--json", "8082/tcp", "8083/tcp"}).out)["results"];
    const std::string unread =
        "whether somebody holds it is unknown because the sockets cannot be read\n";
    EXPECT_THAT(result.out, HasSubstr("8080/tcp: " + unread +
                                      "8081/tcp is declared by 'a' in "
                                      "package/a.sc; " +
                                      unread));
    EXPECT_THAT(result.err, HasSubstr("the ports that sockets hold are unknown"));
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(taken[0]["failed_sources"], Json::Array({}));
    EXPECT_EQ(taken[1]["failed_sources"], Json::Array({"socket"}));
}

TEST_F(WhyCommand, ReportsWhatTheSourcesThatFailLeaveOpen) {
    WriteFile(kSettings, "WebDavPort=x\n");
    WriteFile(kRules, Rule("1", "web", "80", "8080"));
    WriteFile(kPackage + "a.sc", Section("a", "8081/tcp"));
    const HeldBy forwarded = TcpHeldBy(Program("web"), 8080);
    EXPECT_THAT(Why({"8080/tcp"}).out, HasSubstr(" names it; " + kUndeclared));
    EXPECT_THAT(Why({"8081/tcp"}).out,
                HasSubstr("nobody listens; whether others declare it is unknown because the "
                          "settings cannot be read\n"));
    WriteFile(kRules, Rule("1", "web", "80", "x"));
    const std::string unread =
        " is unknown because the settings and the forwarding rules "
        "cannot be read\n";
    EXPECT_THAT(
        Why({"8082/tcp"}).out,
        HasSubstr("8082/tcp: whether a service declares it and whether a rule names it" + unread));
    ASSERT_EQ(prctl(PR_SET_DUMPABLE, 0), 0);
    const HeldSocket unknown(AF_INET, SOCK_STREAM, 8083);
    EXPECT_THAT(WhyUnder(kWithoutRights, {"8083/tcp"}).out,
                HasSubstr("its holder is unknown: it is the kernel or not visible here; whether a "
                          "service declares it and whether a rule names it" +
                          unread));
}

TEST_F(WhyCommand, NeedsNoTablesOfIpv6) {
    const TemporaryFolder tables;
    tables.Write("tcp", "header\n");
    tables.Write("udp", "header\n");
    ExpectRun(WhyWithSocketTables(tables.Path(), {"8080/tcp"}), 0,
              "8080/tcp is free: nobody declares it and nobody listens\n");
}

TEST_F(WhyCommand, CannotTellWhatNobodySaysWhileASourceFails) {
    WriteFile(kSettings, "WebDavPort=x\n");
    const HeldBy held = TcpHeldBy(Program("nginx"), 8081);
    const ProgramResult result = Why({"--no-legend", "8080/tcp"});
    EXPECT_EQ(result.out, "8080/tcp: " + kUndeclared);
    EXPECT_THAT(result.err, HasSubstr("\"x\" is not a port number for WebDavPort [bad-setting]\n"));
    EXPECT_EQ(result.status, 3);
    const ProgramResult taken = Why({"8081/tcp"});
    EXPECT_THAT(taken.out, HasSubstr("8081/tcp is held by nginx " + held.PidText() +
                                     ", which listens on it; " + kUndeclared));
    EXPECT_EQ(taken.status, 1);
    const Json document = WhyJson("8080/tcp");
    EXPECT_EQ(document["verdict"], "unknown");
    EXPECT_EQ(document["failed_sources"], Json::Array({"setting"}));
}

TEST_F(WhyCommand, TakesAProcessWithoutAProgramForNeitherStrangerNorKin) {
    WriteFile(kPackage + "a.sc", Section("web", "8080/tcp"));
    const HeldBy held = TcpHeldBy(Program("web"), 8080);
    const Json result = ResultOf(WhyWithout(BLIND_PROGRAMS, {"--json", "8080/tcp"}));
    EXPECT_EQ(result["held_by"][0]["program"], nullptr);
    EXPECT_EQ(result["held_by"][0]["process"], "web");
    EXPECT_EQ(result["same_service"], nullptr);
    EXPECT_EQ(result["sentence"], "8080/tcp is taken: web " + held.PidText() +
                                      " listens on it and 'web' in package/a.sc declares it; "
                                      "whether that is the same service is unknown");
}

// ---- The command line

TEST_F(WhyCommand, CountsTheWorstOfSeveralPortsAndAnswersEachOnce) {
    WriteFile(kPackage + "a.sc", Section("a", "8080/udp"));
    ExpectRun(Why({"--no-legend", "8081/tcp", "8080", "8080/udp"}), 1,
              "8080|udp|service|a|-|-|-|package/a.sc\n"
              "8081/tcp is free: nobody declares it and nobody listens\n"
              "8080/tcp is free: nobody declares it and nobody listens\n"
              "8080/udp is declared by 'a' in package/a.sc" +
                  kNobodyListens);
    ASSERT_EQ(prctl(PR_SET_DUMPABLE, 0), 0);
    const HeldSocket held(AF_INET, SOCK_STREAM, 8082);
    EXPECT_EQ(WhyUnder(kWithoutRights, {"8082/tcp", "8080/udp"}).status, 3);
}

TEST_F(WhyCommand, AnswersForAPortAsIfItWereAskedForAlone) {
    WriteFile(kPackage + "a.sc", Section("a", "8080:8081/tcp") + Section("b", "8080/tcp") +
                                     Section("c", "8080,8080:8081/tcp"));
    const std::string alone = Why({"--no-legend", "8080/tcp"}).out;
    EXPECT_THAT(alone, HasSubstr("'a' in package/a.sc, 'b' in package/a.sc and 'c' in "
                                 "package/a.sc" +
                                 kNobodyListens));
    const Json results = Json::Parse(
        ServiceTool({"why", "--json", "8082/tcp", "8081/tcp", "8080/tcp"}).out)["results"];
    EXPECT_EQ(results[0]["verdict"], "free");
    EXPECT_EQ(results[1]["declared_by"].size(), 2U);
    EXPECT_EQ(results[2], WhyJson("8080/tcp"));
}

TEST_F(WhyCommand, PrintsJson) {
    WriteFile(kPackage + "web.sc", Section("web", "8080/tcp"));
    WriteFile(kRules, Rule("7", "", "8080", "1"));
    const HeldBy held = TcpHeldBy(Program("webd"), 8080);
    const ProgramResult result = ServiceTool({"why", "--json", "8080/tcp", "23/tcp"});
    EXPECT_EQ(result.status, 1);
    const Json document = Json::Parse(result.out);
    EXPECT_EQ(document["ok"], false);
    const std::string sentence =
        "8080/tcp is taken: webd " + held.PidText() +
        " listens on it, 'web' in package/web.sc declares it and forwarding rule 7 names it; by "
        "name, that is the same service";
    EXPECT_EQ(document["results"][0], Json::Parse(R"({
        "port": 8080, "protocol": "tcp", "verdict": "taken", "reserved": false,
        "sentence": )" + Json(sentence).Dump() + R"(,
        "declared_by": [{"source": "service", "name": "web", "file": ")" +
                                                  kPackage +
                                                  R"(web.sc", "entry": "web"}],
        "forwarded_by": [{"source": "forward", "name": null, "file": ")" +
                                                  kRules +
                                                  R"(", "entry": "7"}],
        "held_by": [{"pid": )" + std::to_string(held.Pid()) +
                                                  R"(, "program": )" +
                                                  Json(Program("webd")).Dump() +
                                                  R"(, "process": "webd", "user": "root",
                     "unit": null, "state": "LISTEN"}],
        "same_service": true, "failed_sources": []})"));
    EXPECT_EQ(document["results"][1]["declared_by"],
              Json::Parse(R"([{"source": "service", "name": "telnet", "file": null,
                               "entry": null}])"));
}

TEST_F(WhyCommand, HasAManualThatExplainsEveryKeyOfJson) {
    const HeldBy held = TcpHeldBy(Program("a"), 23);
    const std::string page = ReadFile(SERVICETOOL_SOURCE "/man/servicetool.1");
    const std::string result = WhyJson("23/tcp").Dump();
    for (const Groups &key : AllMatches(result, "\"([a-z_]+)\":")) {
        EXPECT_TRUE(HasMatch(page, "\n\\.It Cm [^\n]*\\b" + key[1])) << key[1];
    }
}

TEST_F(WhyCommand, RefusesWhatIsNotOnePort) {
    const std::pair<const char *, const char *> cases[] = {
        {"0", "\"0\", column 1: no service can be reached at port 0 [usage]"},
        {"65536/tcp", "\"65536/tcp\", column 1: port 65536 is above 65535 [usage]"},
        {"80:90",
         "\"80:90\", column 1: only one port can be given at a time [usage]\n    fix: "
         "name ports one by one, or use servicetool check\n"},
        {"80,81/tcp", "\"80,81/tcp\", column 1: only one port can be given at a time"},
        {"80/sctp", "\"80/sctp\", column 4: \"sctp\" is not a protocol [usage]"},
    };
    for (const auto &[port, problem] : cases) {
        const ProgramResult result = Why({"23/tcp", port});
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, HasSubstr(problem));
        EXPECT_EQ(result.status, 2);
    }
    EXPECT_EQ(Why({}).status, 2);
    EXPECT_EQ(Why({"80:80/tcp"}).status, 0);
}

TEST_F(WhyCommand, ShowsTheLogOnRequest) {
    const TemporaryFolder tables;
    const std::string line = "Failed to access File: /proc/net/tcp (Not Exist)";
    EXPECT_THAT(WhyWithSocketTables(tables.Path(), {"8080", "-v"}).err, HasSubstr(line));
    EXPECT_THAT(WhyWithSocketTables(tables.Path(), {"8080"}).err, Not(HasSubstr(line)));
}

}  // namespace
}  // namespace tavo::test

// servicetool lint: its output, its exit status, and files that are not service files.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>

#include "json_value.h"
#include "servicetool_run.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

constexpr char kReversedRange[] = "src.ports=2:1\n";
constexpr char kBadPorts[] = "src.ports=\"1,70000\"\n";

TEST(LintCommand, PrintsEachFindingWithItsLineAndAVerdict) {
    TemporaryFolder folder;
    const std::string path =
        folder.Write("web.sc", GoodServiceAnd("Port_forward=yes\n" + std::string(kBadPorts)));
    const ProgramResult result = ServiceTool({"lint", path});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, path + ": 1 error, 1 warning\n");
    EXPECT_EQ(result.err,
              path +
                  ":5:1: warning: key \"Port_forward\" is unknown in the section of a service and "
                  "is not read [unknown-key]\n"
                  "    Port_forward=yes\n"
                  "    ^\n"
                  "    fix: write port_forward\n" +
                  path +
                  ":6:14: error: port 70000 is above 65535 [port-range]\n"
                  "    src.ports=\"1,70000\"\n"
                  "                 ^\n");
}

TEST(LintCommand, SucceedsForAGoodFile) {
    const ProgramResult result = ServiceTool({"lint", "-"}, GoodServiceAnd(""));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "<stdin>: ok\n");
    EXPECT_THAT(result.err, IsEmpty());
}

TEST(LintCommand, SucceedsWithWarningsUnlessStrict) {
    const std::string text = GoodServiceAnd(kReversedRange);
    const ProgramResult result = ServiceTool({"lint", "-"}, text);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "<stdin>: 1 warning\n");
    EXPECT_THAT(result.err, StartsWith("<stdin>:5:11: warning: "));
    EXPECT_EQ(ServiceTool({"lint", "--strict", "-"}, text).status, 1);
    EXPECT_EQ(ServiceTool({"lint", "--strict", "-"}, GoodServiceAnd("")).status, 0);
}

TEST(LintCommand, GivesTheWorstStatusOfSeveralFiles) {
    TemporaryFolder folder;
    const std::string good = folder.Write("good.sc", GoodServiceAnd(""));
    const std::string bad = folder.Write("bad.sc", GoodServiceAnd(kBadPorts));
    const std::string missing = folder / "missing.sc";
    EXPECT_EQ(ServiceTool({"lint", bad, good}).status, 1);
    EXPECT_EQ(ServiceTool({"lint", good, missing, bad}).status, 3);
    EXPECT_EQ(ServiceTool({"lint", missing, bad, good}).out, bad + ": 1 error\n" + good + ": ok\n");
}

TEST(LintCommand, PrintsJson) {
    TemporaryFolder folder;
    const std::string bad = folder.Write("bad.sc", GoodServiceAnd(kBadPorts));
    const ProgramResult result = ServiceTool({"lint", "--json", bad, folder / "missing"});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, IsEmpty());
    EXPECT_EQ(Json::Parse(result.out), Json::Parse(R"({"schema": 1, "ok": false,
        "results": [{"file": ")" + bad + R"(", "services": 1, "readable_services": 0,
                     "errors": 1, "warnings": 0}],
        "diagnostics": [
            {"file": ")" + bad + R"(", "line": 5, "column": 14, "severity": "error",
             "rule": "port-range", "message": "port 70000 is above 65535", "fix": null},
            {"file": ")" + (folder / "missing") + R"(", "line": null, "column": null,
             "severity": "error", "rule": "unreadable", "message": "no such file or directory",
             "fix": null}]})"));
}

TEST(LintCommand, IsNotOkInJsonWhereStrictFails) {
    const std::string text = GoodServiceAnd(kReversedRange);
    EXPECT_EQ(Json::Parse(ServiceTool({"lint", "--json", "-"}, text).out)["ok"], true);
    EXPECT_EQ(Json::Parse(ServiceTool({"lint", "--json", "--strict", "-"}, text).out)["ok"], false);
}

// ---- Unreadable files

TEST(LintUnreadable, SaysWhatIsInTheWay) {
    TemporaryFolder folder;
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    ASSERT_EQ(symlink("pipe", (folder / "link").c_str()), 0);
    ASSERT_EQ(symlink("nothing", (folder / "dangling").c_str()), 0);
    ASSERT_EQ(symlink("loop", (folder / "loop").c_str()), 0);
    folder.Write("file", "");
    const int socket_fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{AF_UNIX, {}};
    (folder / "socket").copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(socket_fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    close(socket_fd);
    const std::pair<std::string, std::string> cases[] = {
        {folder / "missing", "no such file or directory"},
        {folder.Path(), "is a folder"},
        {folder / "pipe", "is a pipe"},
        {folder / "link", "is a pipe"},
        {folder / "socket", "is a socket"},
        {"/dev/zero", "is a device"},
        {folder / "dangling", "is a dangling symbolic link"},
        {folder / "loop", "too many levels of symbolic links"},
        {folder / "file/x", "not a directory"},
        {std::string(5000, 'x'), "file name too long"},
    };
    for (const auto &[path, problem] : cases) {
        const ProgramResult result = ServiceTool({"lint", path});
        EXPECT_EQ(result.status, 3) << path;
        EXPECT_THAT(result.out, IsEmpty());
        EXPECT_EQ(result.err, path + ": error: " + problem + " [unreadable]\n");
    }
}

TEST(LintUnreadable, SaysWhenPermissionIsMissing) {
    TemporaryFolder folder;
    const std::string path = folder.Write("secret.sc", GoodServiceAnd(""));
    ASSERT_EQ(chmod(path.c_str(), 0), 0);
    const ServiceToolForEveryone program;
    std::vector<std::string> command = program.Command();
    command.insert(command.end(), {"lint", path});
    if (geteuid() == 0) {  // permissions do not restrict root
        command.insert(command.begin(), {"setpriv", "--reuid=65534", "--clear-groups"});
    }
    const ProgramResult result = RunProgram(command);
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.err, path + ": error: permission denied [unreadable]\n");
}

TEST(LintUnreadable, FolderAsStandardInputIsReported) {
    const ProgramResult result = RunProgram({"sh", "-c", "exec '" SERVICETOOL "' lint - < /"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.err, "<stdin>: error: is a folder [unreadable]\n");
}

TEST(LintUnreadable, NeverEndingInputIsGivenUp) {
    const ProgramResult result =
        RunProgram({"sh", "-c", "exec '" SERVICETOOL "' lint - < /dev/zero"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.err, "<stdin>: error: is larger than 16 MiB [unreadable]\n");
}

TEST(LintUnreadable, HugeFileIsRefusedWithoutReadingItAll) {
    TemporaryFolder folder;
    const std::string path = folder.Write("huge.sc", GoodServiceAnd(""));
    ASSERT_EQ(truncate(path.c_str(), 200 << 20), 0);
    const ProgramResult result = ServiceTool({"lint", path});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.err, path + ": error: is larger than 16 MiB [unreadable]\n");
}

TEST(LintCommand, ReadsAFileThatIsJustNotTooLarge) {
    TemporaryFolder folder;
    const std::string path = folder.Write("large.sc", GoodServiceAnd("# "));
    ASSERT_EQ(truncate(path.c_str(), 16 << 20), 0);
    const ProgramResult result = ServiceTool({"lint", path});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, path + ": 1 warning\n");
    EXPECT_THAT(result.err, HasSubstr("[nul-byte]\n    # \\x00"));
}

// ---- Texts from files

TEST(LintCommand, NeverPrintsControlBytesOrBrokenUtf8) {
    TemporaryFolder folder;
    std::string text = GoodServiceAnd("");
    for (int c = 1; c < 256; ++c) {
        const std::string byte(1, static_cast<char>(c));
        text += byte + "\n" + byte + "=x" + byte + "y\n[a" + byte + "b]\ntitle=" + byte + "x\n";
    }
    const std::string path = folder.Write("web\x1b[31m\n.sc", text);
    for (const std::string option : {"--strict", "--json", "-v"}) {
        const ProgramResult result = ServiceTool({"lint", option, path});
        for (const std::string &output : {result.out, result.err}) {
            EXPECT_EQ(
                std::count_if(output.begin(), output.end(),
                              [](unsigned char c) { return (c < 0x20 && c != '\n') || c >= 0x7F; }),
                0)
                << option;
        }
        EXPECT_THAT(result.out + result.err,
                    HasSubstr(option == "--json" ? "web\\u001b[31m\\n.sc" : "web\\x1b[31m\\n.sc:"));
    }
}

TEST(LintCommand, KeepsJsonValidForEveryByte) {
    const std::string text = GoodServiceAnd("\xFF\x80=1\n\xC3\xBC\x1b=1\n");
    const Json document = Json::Parse(ServiceTool({"lint", "--json", "-"}, text).out);
    ASSERT_THAT(document["diagnostics"], SizeIs(2));
    EXPECT_THAT(document["diagnostics"][0]["message"].Text(),
                StartsWith("key \"\\xff\\x80\" is unknown"));
    EXPECT_THAT(document["diagnostics"][1]["message"].Text(),
                StartsWith("key \"\xC3\xBC\x1b\" is unknown"));
}

TEST(LintCommand, ShortensAnEndlessLine) {
    const ProgramResult result =
        ServiceTool({"lint", "-"}, GoodServiceAnd("x" + std::string(5 << 20, 'y') + "=1\n"));
    EXPECT_LT(result.err.size(), 500U);
    EXPECT_THAT(result.err, HasSubstr("...\n    ^\n"));
}

// ---- Terminals

TEST(LintTerminal, ColoursFindings) {
    TemporaryFolder folder;
    const std::string path = folder.Write("a.sc", GoodServiceAnd(kBadPorts));
    EXPECT_THAT(ServiceToolOnTerminal({"lint", path}), HasSubstr("\x1b[1;31merror:\x1b[0m port"));
}

TEST(LintTerminal, IsNotColouredWhereNobodyWantsIt) {
    TemporaryFolder folder;
    const std::string path = folder.Write("a.sc", GoodServiceAnd(kBadPorts));
    for (const std::vector<std::string> &environment :
         {std::vector<std::string>{"TERM=dumb"}, {"TERM=xterm", "NO_COLOR=1"}}) {
        const std::string shown = ServiceToolOnTerminal({"lint", path}, 80, environment);
        EXPECT_THAT(shown, AllOf(HasSubstr(": error: port"), Not(HasSubstr("\x1b"))));
    }
}

TEST(LintTerminal, ColoursWhereNoColorIsEmpty) {
    TemporaryFolder folder;
    const std::string path = folder.Write("a.sc", GoodServiceAnd(kBadPorts));
    EXPECT_THAT(ServiceToolOnTerminal({"lint", path}, 80, {"TERM=xterm", "NO_COLOR="}),
                HasSubstr("\x1b["));
}

TEST(LintTerminal, ShowsTheVerdictAfterTheFindingsOfItsFile) {
    TemporaryFolder folder;
    const std::string a = folder.Write("a.sc", GoodServiceAnd(""));
    const std::string b = folder.Write("b.sc", GoodServiceAnd(kReversedRange));
    const std::string shown = ServiceToolOnTerminal({"lint", a, b}, 80, {"TERM=dumb"});
    EXPECT_THAT(shown, StartsWith(a + ": ok\n" + b + ":5:11: warning"));
    EXPECT_THAT(shown, testing::EndsWith(b + ": 1 warning\n"));
}

TEST(LintTerminal, CutsTheSourceLineToItsWidth) {
    TemporaryFolder folder;
    const std::string path =
        folder.Write("a.sc", GoodServiceAnd("Key=" + std::string(150, 'x') + "\n"));
    const std::vector<std::string> environment = {"TERM=dumb"};
    EXPECT_THAT(ServiceToolOnTerminal({"lint", path}, 40, environment),
                HasSubstr("\n    Key=" + std::string(29, 'x') + "...\n    ^\n"));
    EXPECT_THAT(ServiceToolOnTerminal({"lint", path}, 50, environment),
                HasSubstr("\n    Key=" + std::string(39, 'x') + "...\n    ^\n"));
    EXPECT_THAT(ServiceTool({"lint", path}).err,
                HasSubstr("\n    Key=" + std::string(69, 'x') + "...\n    ^\n"));
}

// ---- The library's log

TEST(LintVerbose, AddsWhatTheLibraryLogs) {
    const std::string text = GoodServiceAnd("src.ports=\"1,7\x1bx\"\n");
    EXPECT_THAT(ServiceTool({"lint", "-"}, text).err, Not(HasSubstr("log: ")));
    for (const std::string option : {"-v", "--verbose"}) {
        EXPECT_THAT(ServiceTool({"lint", option, "-"}, text).err,
                    testing::ContainsRegex("^log: service_conf_ports_get.cpp:[0-9]+ illegal ports "
                                           "number, port=7\\\\x1bx, tavoerr=.*\n"));
    }
}

}  // namespace
}  // namespace tavo::test

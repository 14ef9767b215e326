// Behaviour common to all commands: help, invalid usage, JSON on failure, failed output.
#include <gmock/gmock.h>

#include "json_value.h"
#include "servicetool_run.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

TEST(ServiceToolHelp, NamesTheCommandsAndGivesExamples) {
    const ProgramResult result = ServiceTool({"--help"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out,
                AllOf(HasSubstr("Usage: servicetool"), HasSubstr("\n  list "),
                      HasSubstr("\n  show "), HasSubstr("\n  lint "), HasSubstr("\n  services "),
                      HasSubstr("\n  check "), HasSubstr("\n  suggest "), HasSubstr("\n  why "),
                      HasSubstr("\n  ports "), HasSubstr("\nExamples:\n  servicetool ")));
    EXPECT_THAT(result.err, IsEmpty());
}

TEST(ServiceToolHelp, IsThereForEachCommandWithExamples) {
    for (const std::string command :
         {"list", "show", "lint", "services", "check", "suggest", "why", "ports"}) {
        for (const std::string option : {"--help", "-h"}) {
            const ProgramResult result = ServiceTool({command, option});
            EXPECT_EQ(result.status, 0);
            EXPECT_THAT(result.out, AllOf(HasSubstr("Usage: servicetool " + command),
                                          HasSubstr("\nExamples:\n  servicetool " + command)));
        }
    }
}

TEST(ServiceToolVersion, IsThatOfTheProject) {
    const ProgramResult result = ServiceTool({"--version"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "servicetool " SERVICETOOL_VERSION "\n");
}

struct WrongUsage {
    std::vector<std::string> arguments;
    std::string error;
};

TEST(ServiceToolUsage, WrongIsReportedInOneLineWithWhereToLook) {
    const WrongUsage cases[] = {
        {{}, "a command is missing [usage]\n    fix: see servicetool --help\n"},
        {{"lsit"}, "unknown command \"lsit\" [usage]\n    fix: see servicetool --help\n"},
        {{"--nope"}, "unknown option --nope [usage]\n    fix: see servicetool --help\n"},
        {{"list", "--nope"},
         "unknown option --nope [usage]\n    fix: see servicetool list --help\n"},
        {{"list", "ftp"},
         "unexpected argument \"ftp\" [usage]\n    fix: see servicetool list --help\n"},
        {{"list", "--", "-x"},
         "unexpected argument \"-x\" [usage]\n    fix: see servicetool list --help\n"},
        {{"show"}, "NAME|FILE is required [usage]\n    fix: see servicetool show --help\n"},
        {{"show", "a", "b"},
         "unexpected argument \"b\" [usage]\n    fix: see servicetool show --help\n"},
        {{"show", ""}, "a name is empty [usage]\n    fix: see servicetool show --help\n"},
        {{"lint"}, "FILE is required [usage]\n    fix: see servicetool lint --help\n"},
        {{"lint", "a", ""}, "a name is empty [usage]\n    fix: see servicetool lint --help\n"},
        {{"lint", "-", "a", "-"},
         "standard input is named twice [usage]\n    fix: see servicetool lint --help\n"},
        {{"lint", "--nope"},
         "unknown option --nope [usage]\n    fix: see servicetool lint --help\n"},
        {{"show", "--near"},
         "unknown option --near [usage]\n    fix: see servicetool show --help\n"},
        {{"80", "list"}, "unknown command \"80\" [usage]\n    fix: see servicetool --help\n"},
        {{"--js", "list"}, "unknown option --js [usage]\n    fix: see servicetool --help\n"},
        {{"list", "--js"}, "unknown option --js [usage]\n    fix: see servicetool list --help\n"},
        {{"list", "--sys=x"},
         "unknown option --sys=x [usage]\n    fix: see servicetool list --help\n"},
        {{"list", "--version"},
         "unknown option --version [usage]\n    fix: see servicetool list --help\n"},
        {{"list", "-5"},
         "unexpected argument \"-5\" [usage]\n    fix: see servicetool list --help\n"},
        {{"show", "-web"}, "unknown option -web [usage]\n    fix: see servicetool show --help\n"},
        {{"lint", "--strict=x", "a"},
         "--strict takes no value [usage]\n    fix: see servicetool lint --help\n"},
        {{"lint", "--strict=true", "a"},
         "--strict takes no value [usage]\n    fix: see servicetool lint --help\n"},
        {{"--verbose=no", "list"},
         "--verbose takes no value [usage]\n    fix: see servicetool --help\n"},
        {{"services", ""}, "a name is empty [usage]\n    fix: see servicetool services --help\n"},
        {{"services", "--supported=true"},
         "--supported takes no value [usage]\n    fix: see servicetool services --help\n"},
        {{"\x1b[2J"}, "unknown command \"\\x1b[2J\" [usage]\n    fix: see servicetool --help\n"},
    };
    for (const auto &[arguments, error] : cases) {
        const ProgramResult result = ServiceTool(arguments);
        EXPECT_EQ(result.status, 2) << error;
        EXPECT_THAT(result.out, IsEmpty());
        EXPECT_EQ(result.err, "servicetool: error: " + error);
    }
}

struct WrongWords {
    std::vector<std::string> words;
    std::string message;
    std::string fix;
};

void ExpectWrong(const std::string &command, const std::vector<WrongWords> &cases) {
    for (const auto &[words, message, fix] : cases) {
        std::vector<std::string> arguments = {command};
        arguments.insert(arguments.end(), words.begin(), words.end());
        const ProgramResult result = ServiceTool(arguments);
        EXPECT_EQ(result.status, 2) << message;
        EXPECT_THAT(result.out, IsEmpty());
        EXPECT_EQ(result.err,
                  "servicetool: error: " + message + " [usage]\n    fix: " + fix + "\n");
    }
}

TEST(ServiceToolUsage, OfCheckIsPortsOrFilesAndKnownSources) {
    const std::string help = "see servicetool check --help";
    const std::string sources = "write forward, service, setting or socket";
    ExpectWrong("check",
                {
                    {{}, "PORTS or --file is required", help},
                    {{"--skip", "a"}, "PORTS or --file is required", help},
                    {{"80", "--file", "x"}, "PORTS and --file exclude each other", help},
                    {{"80", "--source", "nosuch"}, "unknown source \"nosuch\"", sources},
                    {{"80", "--source", "socket,Socket"}, "unknown source \"Socket\"", sources},
                    {{"80", "--source", "socket,"}, "a name is empty", help},
                    {{"80", "--skip", "a,,b"}, "a name is empty", help},
                    {{"80", "--skip="}, "a name is empty", help},
                    {{"--file", ""}, "a name is empty", help},
                    {{""}, "a name is empty", help},
                    {{"--file", "-", "--file", "-"}, "standard input is named twice", help},
                });
}

TEST(ServiceToolUsage, OfSuggestIsNumbersInTheirRange) {
    const std::string help = "see servicetool suggest --help";
    std::vector<WrongWords> cases = {
        {{"1", "2"}, "unexpected argument \"2\"", help},
        {{"--proto", ""}, "--proto takes tcp, udp or tcp,udp", help},
        {{"--block=x"}, "--block takes no value", help},
    };
    for (const std::string count : {"0", "1001", "1x", "", "-5", "+5", "99999999999999999999"}) {
        cases.push_back({{count}, "COUNT is a number from 1 to 1000, not \"" + count + "\"", help});
    }
    for (const std::string port : {"0", "65536", "ssh", ""}) {
        cases.push_back({{"--near=" + port},
                         "--near takes a port from 1 to 65535, not \"" + port + "\"",
                         help});
    }
    ExpectWrong("suggest", cases);
}

TEST(ServiceToolUsage, OptionThatLacksItsValueIsNamed) {
    ExpectWrong(
        "check",
        {
            {{"80", "--skip"}, "--skip needs a value", "see servicetool check --help"},
            {{"--file", "--"}, "--file needs a value", "see servicetool check --help"},
            {{"80", "--source", "-v"}, "--source needs a value", "see servicetool check --help"},
            {{"80", "--skip", "-web"}, "--skip needs a value", "write --skip=-web"},
        });
    ExpectWrong(
        "suggest",
        {{{"--near"}, "--near needs a value", "see servicetool suggest --help"},
         {{"--nea", "--json=x"}, "unknown option --nea", "see servicetool suggest --help"}});
    ExpectWrong("install",
                {{{"--as", "--dry-run"}, "--as needs a value", "see servicetool install --help"},
                 {{"--as", "-vx", "-y"}, "--as needs a value", "write --as=-vx"}});
    ExpectWrong("list",
                {{{"--near"}, "unknown option --near", "see servicetool list --help"},
                 {{"--near", "-x"}, "unknown option --near", "see servicetool list --help"},
                 {{"--near", "5"}, "unknown option --near", "see servicetool list --help"}});
}

TEST(ServiceToolUsage, FileThatLooksLikeAnOptionGetsItsFix) {
    TemporaryFolder folder;
    for (const std::string name : {"-dash.sc", "-vdash.sc", "--dash.sc"}) {
        folder.Write(name, GoodServiceAnd(""));
        for (const std::string command : {"lint", "show"}) {
            const ProgramResult result =
                RunProgram({"sh", "-c", "cd \"$1\" && shift && exec \"$@\"", "sh", folder.Path(),
                            SERVICETOOL, command, name});
            EXPECT_EQ(result.status, 2);
            EXPECT_EQ(result.err, "servicetool: error: unknown option " + name +
                                      " [usage]\n    fix: write -- " + name + "\n");
        }
    }
}

TEST(ServiceToolJson, IsOneDocumentForWrongUsageToo) {
    for (const std::vector<std::string> &arguments : {std::vector<std::string>{"--json"},
                                                      {"lint", "--json"},
                                                      {"--json", "nope"},
                                                      {"list", "--nope", "--json"}}) {
        const ProgramResult result = ServiceTool(arguments);
        EXPECT_EQ(result.status, 2);
        EXPECT_THAT(result.err, IsEmpty());
        const Json document = Json::Parse(result.out);
        EXPECT_EQ(document["schema"], 1);
        EXPECT_EQ(document["ok"], false);
        EXPECT_THAT(document["results"], IsEmpty());
        ASSERT_THAT(document["diagnostics"], SizeIs(1));
        const Json &diagnostic = document["diagnostics"][0];
        EXPECT_EQ(diagnostic["rule"], "usage");
        EXPECT_EQ(diagnostic["severity"], "error");
        EXPECT_EQ(diagnostic["file"], nullptr);
        EXPECT_EQ(diagnostic["line"], nullptr);
        EXPECT_EQ(diagnostic["column"], nullptr);
    }
}

TEST(ServiceToolJson, IsNoOptionAfterTheEndOfOptions) {
    const ProgramResult result = ServiceTool({"lint", "--", "--json"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.err, "--json: error: no such file or directory [unreadable]\n");
}

TEST(ServiceToolJson, HasItsKeysInAFixedOrder) {
    EXPECT_EQ(ServiceTool({"lint", "--json", "-"}, GoodServiceAnd("")).out,
              "{\"schema\":1,\"ok\":true,\"results\":[\n"
              "{\"file\":\"<stdin>\",\"services\":1,\"readable_services\":1,\"errors\":0,"
              "\"warnings\":0}],\"diagnostics\":[]}\n");
}

TEST(ServiceToolOptions, MayBeBeforeOrAfterTheCommand) {
    for (const std::vector<std::string> &arguments :
         {std::vector<std::string>{"--json", "lint", "-"},
          {"lint", "--json", "-"},
          {"lint", "-", "--json"},
          {"lint", "--json", "--", "-"}}) {
        EXPECT_TRUE(Json::Parse(ServiceTool(arguments, GoodServiceAnd("")).out)["ok"]);
    }
}

TEST(ServiceToolOptions, EndAtTwoHyphens) {
    TemporaryFolder folder;
    folder.Write("-v", GoodServiceAnd(""));
    folder.Write("--", GoodServiceAnd(""));
    const ProgramResult result = RunProgram(
        {"sh", "-c", "cd \"$1\" && exec \"$2\" lint -- -v --", "sh", folder.Path(), SERVICETOOL});
    EXPECT_EQ(result.out, "-v: ok\n--: ok\n");
    EXPECT_EQ(result.status, 0);
}

TEST(ServiceToolOptions, TakeValuesThatLookLikeOptions) {
    for (const std::vector<std::string> &file :
         {std::vector<std::string>{"--file=-x.sc"}, {"--file", "--", "-x.sc"}}) {
        std::vector<std::string> arguments = {"check"};
        arguments.insert(arguments.end(), file.begin(), file.end());
        const ProgramResult result = ServiceTool(arguments);
        EXPECT_EQ(result.status, 3);
        EXPECT_EQ(result.err, "-x.sc: error: no such file or directory [unreadable]\n");
    }
}

TEST(ServiceToolOptions, TakeSeveralFilesUntilTheNextOption) {
    const ProgramResult result =
        ServiceTool({"check", "--file", "a,b", "[c,d]", "--no-legend", "--file=++"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.err,
              "a,b: error: no such file or directory [unreadable]\n"
              "[c,d]: error: no such file or directory [unreadable]\n"
              "++: error: no such file or directory [unreadable]\n");
}

TEST(ServiceToolOperands, AreTakenAsTheyAre) {
    TemporaryFolder folder;
    for (const char *name : {"[a,b]", "++", "list", "\1x", "a b"}) {
        folder.Write(name, GoodServiceAnd(""));
    }
    const ProgramResult result =
        RunProgram({"sh", "-c", "cd \"$1\" && shift && exec \"$@\"", "sh", folder.Path(),
                    SERVICETOOL, "lint", "[a,b]", "++", "list", "\1x", "a b"});
    EXPECT_EQ(result.out, "[a,b]: ok\n++: ok\nlist: ok\n\\x01x: ok\na b: ok\n");
}

TEST(ServiceToolHelp, GoesBeforeWhatIsWrongWithTheLine) {
    for (const std::vector<std::string> &arguments : {std::vector<std::string>{"show", "--help"},
                                                      {"--help", "show"},
                                                      {"show", "a", "b", "-vh"},
                                                      {"show", "--nope", "--json=1", "--help"}}) {
        const ProgramResult result = ServiceTool(arguments);
        EXPECT_EQ(result.status, 0);
        EXPECT_THAT(result.out, HasSubstr("Usage: servicetool show [OPTIONS] NAME|FILE\n"));
        EXPECT_THAT(result.err, IsEmpty());
    }
    // Letters after an unknown option letter are not read as options.
    EXPECT_EQ(ServiceTool({"lint", "-dash"}).status, 2);
}

TEST(ServiceToolOutput, ThatCannotBeWrittenIsAFailure) {
    for (const std::string command : {"list", "list --json", "--help", "--version"}) {
        const ProgramResult result =
            RunProgram({"sh", "-c", "exec '" SERVICETOOL "' " + command + " > /dev/full"});
        EXPECT_EQ(result.status, 3) << command;
        EXPECT_THAT(result.err, testing::EndsWith("servicetool: error: standard output: no space "
                                                  "left on device [failed]\n"))
            << command;
    }
}

#ifndef TAVO_SANITIZED  // which needs more memory than the test allows
TEST(ServiceToolMemory, ThatRunsOutIsAFailureAndStillOneDocument) {
    const std::string input(15 << 20, '\n');
    const ProgramResult text =
        RunProgram({"sh", "-c", "ulimit -v 30000; exec '" SERVICETOOL "' lint -"}, input);
    EXPECT_EQ(text.status, 3);
    EXPECT_EQ(text.err, "servicetool: error: out of memory [failed]\n");
    const ProgramResult document =
        RunProgram({"sh", "-c", "ulimit -v 30000; exec '" SERVICETOOL "' lint --json -"}, input);
    EXPECT_EQ(document.status, 3);
    EXPECT_EQ(Json::Parse(document.out)["diagnostics"][0]["rule"], "failed");
}
#endif

}  // namespace
}  // namespace tavo::test

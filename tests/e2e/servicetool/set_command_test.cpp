// servicetool set: writing a section and notifying the listeners.
#include <gmock/gmock.h>

#include <chrono>
#include <optional>
#include <thread>

#include "appliance.h"
#include "change_world.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

const std::string kName = "notes.sc";

const std::string kRouterTool = "/usr/tavo/sbin/tavoroutertool";
const std::string kRouterFix =
    "    fix: it is notified only when a change is made: change the section back and then again\n";

const std::string kBefore =
    "# kept\n[global]\nversion=1\n\n[notes]\ntitle=\"T\"\ndesc=\"D\"\ndesc_extra=\"E\"\n"
    "dst.ports=\"8765,8770:8772/tcp\"\n\n[other]\ntitle=O\ndesc=O\ndst.ports=8800\n";

const std::string kRetitled =
    "# kept\n[global]\nversion=1\n\n[notes]\ntitle=\"New\"\ndesc=\"D\"\ndesc_extra=\"E\"\n"
    "dst.ports=\"8765,8770:8772/tcp\"\nport_forward=\"no\"\n\n[other]\ntitle=O\ndesc=O\n"
    "dst.ports=8800\n";

const std::string kRetitleDiff = "--- a" + kPath + "\n+++ b" + kPath +
                                 "\n@@ -3,10 +3,11 @@\n version=1\n \n [notes]\n-title=\"T\"\n"
                                 "+title=\"New\"\n desc=\"D\"\n desc_extra=\"E\"\n"
                                 " dst.ports=\"8765,8770:8772/tcp\"\n+port_forward=\"no\"\n \n"
                                 " [other]\n title=O\n";

const std::string kRetitlePlan =
    kPath + ": change section [notes]\nwill notify: " + kSectionListeners + kRetitleDiff;

const std::vector<std::string> kRetitle = {"set", kName, "notes", "--title", "New"};
const std::vector<std::string> kNew = {"set",    "new.sc", "web",         "--title",  "W",
                                       "--desc", "D",      "--dst-ports", "18080/tcp"};

std::vector<std::string> With(std::vector<std::string> words,
                              const std::vector<std::string> &more) {
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

// A port list longer than the library writes; each port takes six bytes.
std::string LongPorts() {
    std::string ports = "20000";
    for (int port = 20002; port < 20400; port += 2) {
        ports += ',' + std::to_string(port);
    }
    return ports;
}

std::string RouterCall(const std::string &path) {
    return "tavoroutertool --update /tmp/" + path.substr(path.rfind('/') + 1) + ' ' + path + '\n';
}

class SetCommand : public ChangeWorld {
  protected:
    void SetUp() override {
        ChangeWorld::SetUp();
        WriteFile(kPath, kBefore);
    }

    static void ExpectNothingDone() {
        EXPECT_EQ(ReadFile(kPath), kBefore);
        EXPECT_EQ(Calls(), "");
    }
};

// ---- Changes

TEST_F(SetCommand, ChangesWhatIsGivenAndKeepsTheRest) {
    ExpectRun(ServiceTool(kRetitle), 0,
              kRetitlePlan + kPath + ": changed\nnotified: " + kSectionListeners);
    EXPECT_EQ(ReadFile(kPath), kRetitled);
    EXPECT_EQ(Calls(), RouterCall(kPath) + "tavofirewall --reload\n" + kRelayCalls);
}

TEST_F(SetCommand, ShowsTheSameChangeInADryRunAndMakesNone) {
    ExpectRun(ServiceTool(With(kRetitle, {"--dry-run"})), 0, kRetitlePlan + kDryRun);
    ExpectNothingDone();
}

TEST_F(SetCommand, LeavesFirewallAndRelayDaemonAloneWhenAskedTo) {
    ExpectRun(ServiceTool(With(kRetitle, {"--no-restart"})), 0,
              kPath + ": change section [notes]\nwill notify: router tool\n" + kRetitleDiff +
                  kPath + ": changed\nnotified: router tool\n");
    EXPECT_EQ(ReadFile(kPath), kRetitled);
    EXPECT_EQ(Calls(), RouterCall(kPath));
}

TEST_F(SetCommand, NotifiesNobodyOfAChangeThatIsNone) {
    WriteFile(kPath, kRetitled);
    ExpectRun(ServiceTool(kRetitle), 0, kPath + ": already up to date; nothing changed\n");
    EXPECT_EQ(ReadFile(kPath), kRetitled);
    EXPECT_EQ(Calls(), "");
}

TEST_F(SetCommand, AddsASection) {
    const ProgramResult result =
        ServiceTool({"set", kName, "web", "--title", "W", "--desc", "D", "--dst-ports",
                     "18090,18080:18082/udp", "--src-ports", "1024:2000/tcp", "--title-key",
                     "texts:web:title", "--desc-key", "web:desc", "--port-forward"});
    EXPECT_THAT(result.out, StartsWith(kPath + ": add section [web]\n"));
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(ReadFile(kPath),
              kBefore +
                  "\n[web]\nport_forward=\"yes\"\ndesc=\"D\"\ndesc_key=\"web:desc\"\n"
                  "title=\"W\"\ntitle_key=\"texts:web:title\"\n"
                  "dst.ports=\"18090,18080:18082/udp\"\nsrc.ports=\"1024:2000/tcp\"\n");
}

TEST_F(SetCommand, MakesAFileForPackagesUnlessAskedForTheSystem) {
    const std::string text =
        "[web]\nport_forward=\"no\"\ndesc=\"D\"\ntitle=\"W\"\ndst.ports=\"18080/tcp\"\n";
    const ProgramResult result = ServiceTool(kNew);
    EXPECT_THAT(result.out,
                StartsWith(kPackage + "new.sc: create it with section [web]\nwill notify: " +
                           kSectionListeners + "--- /dev/null\n+++ b" + kPackage +
                           "new.sc\n@@ -0,0 +1,5 @@\n+[web]\n"));
    EXPECT_THAT(result.out, HasSubstr(kPackage + "new.sc: created\n"));
    EXPECT_EQ(ReadFile(kPackage + "new.sc"), text);
    std::filesystem::remove(kPackage + "new.sc");
    EXPECT_EQ(ServiceTool(With(kNew, {"--system"})).status, 0);
    EXPECT_EQ(ReadFile(kSystem + "new.sc"), text);
    EXPECT_THAT(Entries(kPackage), ElementsAre(kName));
}

TEST_F(SetCommand, KeepsReferencesAndPortForwardingThatAreNotGiven) {
    const std::string before =
        "[a]\ntitle=\"T\"\ntitle_key=\"s:t:k\"\ndesc=\"D\"\n"
        "port_forward=\"yes\"\ndst.ports=\"8700/tcp\"\n"
        "src.ports=\"1024/tcp\"\n";
    WriteFile(kPackage + "a.sc", before);
    EXPECT_EQ(ServiceTool({"set", "a.sc", "a", "--title", "T"}).status, 0);
    EXPECT_EQ(ReadFile(kPackage + "a.sc"), before);
    EXPECT_EQ(ServiceTool({"set", "a.sc", "a", "--no-port-forward", "--title-key", "u:v"}).status,
              0);
    EXPECT_EQ(ReadFile(kPackage + "a.sc"),
              "[a]\ntitle=\"T\"\ntitle_key=\"u:v\"\ndesc=\"D\"\nport_forward=\"no\"\n"
              "dst.ports=\"8700/tcp\"\nsrc.ports=\"1024/tcp\"\n");
}

TEST_F(SetCommand, RepairsASectionOfAFileThatIsBrokenElsewhere) {
    WriteFile(kPath, "[a]\ntitle=T\n[b]\ntitle=T\ndesc=D\ndst.ports=8765/tcp\n");
    const ProgramResult result = ServiceTool({"set", kName, "b", "--title", "Z"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.err, StartsWith(kPath + ":1:2: warning: section [a] is left out"));
    EXPECT_EQ(
        ServiceTool({"set", kName, "a", "--title", "T", "--desc", "D", "--dst-ports", "1"}).status,
        0);
    EXPECT_EQ(ServiceTool({"lint", "--strict", kPath}).status, 0);
}

// ---- Rejected changes

TEST_F(SetCommand, RefusesPortsThatOthersHave) {
    WriteFile(kSystem + "web.sc", Section("w", "18080/tcp"));
    ExpectRun(ServiceTool(kNew), 1,
              "SECTION  PORT   PROTO  SOURCE   DECLARED BY\n"
              "web      18080  tcp    service  w (system/web.sc)\n" +
                  kPackage + "new.sc: [web] 18080/tcp is taken\n",
              kPackage +
                  "new.sc: error: its ports are taken, so nothing was changed [taken]\n"
                  "    fix: ask servicetool suggest for ports that are free\n");
    EXPECT_THAT(Entries(kPackage), ElementsAre(kName));
    ExpectNothingDone();
}

TEST_F(SetCommand, LetsASectionKeepThePortsOfItsOwnProgram) {
    const HeldPort own(Family::kV4, Protocol::kTcp, 8765);
    EXPECT_EQ(ServiceTool(kRetitle).status, 0);
    EXPECT_EQ(ReadFile(kPath), kRetitled);
}

TEST_F(SetCommand, FailsWhereItIsUnknownWhoHasThePorts) {
    std::filesystem::remove(kSettings);
    const ProgramResult result = ServiceTool(kRetitle);
    EXPECT_EQ(result.out, kPath + ": [notes] 8765,8770:8772/tcp: cannot tell (service, setting)\n");
    EXPECT_THAT(result.err, HasSubstr(kPath + ": error: it is unknown whether its ports are "
                                              "free, so nothing was changed [unknown]\n"));
    EXPECT_EQ(result.status, 3);
    ExpectNothingDone();
}

TEST_F(SetCommand, RefusesACommandLineThatIsWrong) {
    struct Case {
        std::vector<std::string> arguments;
        std::string error;
    };
    const std::string long_name(256, 'a');
    const std::string name_rule =
        R"( contains characters other than letters, digits, "-", "." and "_")";
    const Case cases[] = {
        {{"a/b", "notes"}, R"(file name "a/b" is a path)"},
        {{"..", "notes"}, R"(file name ".." is not a file name)"},
        {{"", "notes"}, R"(file name "" is not a file name)"},
        {{"a\nb", "notes"}, R"(file name "a\nb" contains a control byte)"},
        {{std::string(229, 'a'), "notes"}, "is longer than 228 bytes"},
        {{kName, ""}, R"(section name "" is empty)"},
        {{kName, "global"}, R"(section name "global" is reserved)"},
        {{kName, " a"}, R"(section name " a")" + name_rule},
        {{kName, "a]"}, R"(section name "a]")" + name_rule},
        {{kName, "a\nb"}, R"(section name "a\nb")" + name_rule},
        {{kName, long_name}, "is longer than 255 bytes"},
        {{kName, "x"}, "section [x] is new, so it needs --title, --desc and --dst-ports"},
        {{kName, "notes", "--title", ""}, "--title is empty"},
        {{kName, "notes", "--title", std::string(128, 'a')},
         "--title takes one line of at most 127 bytes"},
        {{kName, "notes", "--desc", "a\nb"}, "--desc takes one line of at most 127 bytes"},
        {{kName, "notes", "--title-key", "key"},
         R"(--title-key takes SOURCE:SECTION:KEY or SECTION:KEY, not "key")"},
        {{kName, "notes", "--title-key", "texts:web:"}, R"(not "texts:web:")"},
        {{kName, "notes", "--desc-key", ":b"}, R"(not ":b")"},
        {{kName, "notes", "--src-ports", LongPorts() + "/udp"},
         "is longer than 1023 bytes, the limit for ports in a service file"},
        {{kName, "notes", "--desc-key", ":b:c"},
         R"(--desc-key takes SOURCE:SECTION:KEY or SECTION:KEY, not ":b:c")"},
        {{kName, "notes", "--dst-ports", "80,70000/tcp"},
         R"("80,70000/tcp", column 4: port 70000 is above 65535)"},
        {{kName, "notes", "--src-ports", "1/xyz"}, R"("1/xyz", column 3: "xyz" is not a protocol)"},
        {{kName, "notes", "--port-forward", "--no-port-forward"},
         "--port-forward and --no-port-forward exclude each other"},
        {{kName, "notes", "--system", "--package"}, "--system and --package exclude each other"},
    };
    for (const Case &one : cases) {
        const ProgramResult result = ServiceTool(With({"set"}, one.arguments));
        EXPECT_EQ(result.status, 2) << one.error;
        EXPECT_THAT(result.err, testing::AllOf(StartsWith("servicetool: error: "),
                                               HasSubstr(one.error + " [usage]\n")));
        EXPECT_THAT(result.out, IsEmpty());
    }
    ExpectNothingDone();
}

TEST_F(SetCommand, AsksForTheFolderOfAFileThatIsInBoth) {
    WriteFile(kSystem + kName, kBefore);
    ExpectRun(ServiceTool(kRetitle), 2, "",
              "servicetool: error: \"notes.sc\" is installed in both folders [usage]\n"
              "    fix: add --system or --package\n");
    EXPECT_EQ(ServiceTool(With(kRetitle, {"--system"})).status, 0);
    EXPECT_EQ(ReadFile(kSystem + kName), kRetitled);
    EXPECT_EQ(ReadFile(kPath), kBefore);
}

// ---- Failures

TEST_F(SetCommand, SaysWhoWasNotNotified) {
    WriteFile("/run/exit-status/tavoroutertool", "1\n");
    ExpectRun(ServiceTool(kRetitle), 3,
              kRetitlePlan + kPath + ": changed\nnotified: firewall, relay daemon\n",
              "servicetool: warning: could not notify the router tool: " + kRouterTool +
                  " ended with status 1 [not-told]\n" + kRouterFix);
    EXPECT_EQ(ReadFile(kPath), kRetitled);
}

TEST_F(SetCommand, ChangesNothingWhereTheFileCannotBeCopied) {
    std::filesystem::create_directories("/tmp/" + kName + "/full");
    ExpectRun(ServiceTool(kRetitle), 3, kRetitlePlan,
              kPath +
                  ": error: folder /tmp/notes.sc has the name of a copy and is not empty; the file "
                  "is unchanged [failed]\n");
    ExpectNothingDone();
    std::filesystem::remove_all("/tmp/" + kName);
}

TEST_F(SetCommand, SeesThatTheFileWasNotWritten) {
    const MountedFolder folder(kPackage, "size=64k");
    WriteFile(kPath, kBefore);
    folder.MakeReadOnly();
    ExpectRun(
        ServiceTool(kRetitle), 3, kRetitlePlan + "notified: " + kSectionListeners,
        kPath + ": error: the folder: read-only file system; the file is unchanged [failed]\n");
    EXPECT_EQ(ReadFile(kPath), kBefore);
    const Json result = Json::Parse(ServiceTool(With(kRetitle, {"--json"})).out);
    EXPECT_EQ(result["results"][0]["changed"], false);
    EXPECT_EQ(result["results"][0]["told"], Json::Array({"router", "firewall", "relay"}));
}

TEST_F(SetCommand, SeesThatTheDiskIsFullWhateverElseIsLogged) {
    const MountedFolder folder(kPackage, "size=8k");
    WriteFile(kPath, kBefore);
    WriteFile(kPackage + "broken.sc", "[a]\n" + std::string(4000, '#') + '\n');
    const ProgramResult result = ServiceTool(kRetitle);
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, HasSubstr(kPath + ": error: the folder: no space left on device; "
                                              "the file is unchanged [failed]\n"));
    EXPECT_THAT(Entries(kPackage), ElementsAre("broken.sc", kName));
    EXPECT_EQ(ReadFile(kPath), kBefore);
}

TEST_F(SetCommand, MakesNoFileWhereTheFolderCannotBeMade) {
    std::filesystem::remove_all(kPackage);
    std::filesystem::create_symlink("/nowhere", kPackage.substr(0, kPackage.size() - 1));
    const ProgramResult result = ServiceTool(kNew);
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, HasSubstr(": error: /bin/mkdir: cannot create directory "));
    EXPECT_THAT(result.err, HasSubstr("; no file was created [failed]\n"));
    EXPECT_EQ(Calls(), "");
    std::filesystem::remove(kPackage.substr(0, kPackage.size() - 1));
    std::filesystem::create_directory(kPackage);
}

TEST_F(SetCommand, SaysThatTheFirewallToolFailed) {
    WriteFile("/run/exit-status/tavofirewall", "3\n");
    ExpectRun(
        ServiceTool(kRetitle), 3,
        kRetitlePlan + kPath + ": changed\nnotified: router tool, relay daemon\n",
        "servicetool: warning: could not notify the firewall: /usr/tavo/bin/tavofirewall ended "
        "with status 3 [not-told]\n    fix: write servicetool restart\n");
    EXPECT_EQ(ReadFile(kPath), kRetitled);
}

TEST_F(SetCommand, SaysThatTheRelayDaemonWasNotReloaded) {
    WriteFile("/run/exit-status/systemctl", "0\n1\n");
    const Json result = Json::Parse(ServiceTool(With(kRetitle, {"--json"})).out);
    EXPECT_EQ(result["ok"], false);
    EXPECT_EQ(result["results"][0]["changed"], true);
    EXPECT_EQ(result["results"][0]["told"], Json::Array({"router", "firewall"}));
    EXPECT_EQ(result["results"][0]["not_told"], Json::Array({"relay"}));
}

TEST_F(SetCommand, NamesTheFirewallToolIfTheRouterToolHasFailedToo) {
    WriteFile("/run/exit-status/tavoroutertool", "1\n");
    const ReplacedTool firewall(kFirewallTool);
    EXPECT_EQ(ServiceTool(kRetitle).err,
              "servicetool: warning: could not notify the router tool: " + kRouterTool +
                  " ended with status 1 [not-told]\n" + kRouterFix +
                  "servicetool: warning: could not notify the firewall: " + kFirewallTool +
                  " is missing [not-told]\n    fix: write servicetool restart\n"
                  "servicetool: warning: could not notify the relay daemon: " +
                  kFirewallTool +
                  " is missing [not-told]\n    fix: write servicetool restart "
                  "--relay\n");
}

TEST_F(SetCommand, WritesTheLinesAboutTheChangeToTheSystemLog) {
    WriteFile("/run/exit-status/tavoroutertool", "1\n");
    ServiceTool(kRetitle);
    EXPECT_THAT(SystemLogWith("--udpate"),
                testing::ContainsRegex("servicetool\\[[0-9]+\\]: [a-z_]+\\.cpp:[0-9]+ " +
                                       kRouterTool + " --udpate [^ ]+ " + kPath + " failed!"));
}

TEST_F(SetCommand, NamesARouterToolThatIsMissing) {
    const ReplacedTool router(kRouterTool);
    EXPECT_EQ(ServiceTool(kRetitle).err,
              "servicetool: warning: could not notify the router tool: " + kRouterTool +
                  " is missing [not-told]\n" + kRouterFix);
}

TEST_F(SetCommand, NamesAProgramThatIsMissing) {
    const ReplacedTool cp("/bin/cp");
    EXPECT_EQ(ServiceTool(kRetitle).err,
              kPath + ": error: /bin/cp is missing; the file is unchanged [failed]\n");
}

TEST_F(SetCommand, SaysWhatAProgramSaysOfItsFailure) {
    const std::string words = "cp: error writing '/tmp/notes.sc': No space left on device";
    const ReplacedTool cp("/bin/cp", "echo \"" + words + "\" >&2\nexit 1");
    EXPECT_EQ(ServiceTool(kRetitle).err,
              kPath + ": error: " + words + "; the file is unchanged [failed]\n");
}

TEST_F(SetCommand, SaysThatNothingWasChangedWhereItCannotBeWorkedOut) {
    if (ThisProgramLiesInTmp()) {
        GTEST_SKIP() << "/tmp is to be another disk";
    }
    const MountedFolder folder("/tmp", "size=64k");
    folder.MakeReadOnly();
    ExpectRun(ServiceTool(kRetitle), 3, "",
              kName +
                  ": error: a folder in /tmp: Read-only file system, so nothing was changed "
                  "[failed]\n");
    const Json document = Json::Parse(ServiceTool(With(kRetitle, {"--json"})).out);
    EXPECT_EQ(document["results"], Json::Parse(R"([{"operation": "set", "file": "notes.sc",
        "path": null, "section": "notes", "dry_run": false, "changed": false, "diff": null,
        "conflicts": [], "told": [], "not_told": []}])"));
    ExpectNothingDone();
}

TEST_F(SetCommand, HasOneResultWhereTheFileCannotBeRead) {
    std::filesystem::remove(kPath);
    std::filesystem::create_directory(kPath);
    const Json document = Json::Parse(ServiceTool(With(kRetitle, {"--json"})).out);
    EXPECT_EQ(document["results"].size(), 1U);
    EXPECT_EQ(document["diagnostics"][0]["rule"], "unreadable");
    EXPECT_THAT(document["diagnostics"][0]["message"].Text(),
                testing::EndsWith(", so nothing was changed"));
}

TEST_F(SetCommand, SaysHowToCleanUpALinkThatLeadsNowhere) {
    std::filesystem::remove(kPath);
    std::filesystem::create_symlink("/nowhere", kPath);
    ExpectRun(ServiceTool(kRetitle), 3, "",
              kPath +
                  ": error: is a dangling symbolic link, so nothing was changed [unreadable]\n"
                  "    fix: remove the dangling link\n");
}

TEST_F(SetCommand, ChangesNothingWhereThePortsThatAreThereTakeTooMuch) {
    const std::string before = Section("notes", LongPorts() + "/udp");
    WriteFile(kPath, before);
    const ProgramResult result = ServiceTool(kRetitle);
    EXPECT_THAT(result.err, HasSubstr("the ports take more than 1023 bytes, the limit in a service "
                                      "file, so nothing was changed [failed]\n"));
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(ReadFile(kPath), before);
    EXPECT_EQ(Calls(), "");
}

TEST_F(SetCommand, WarnsOfTheNameOfANewFile) {
    std::vector<std::string> words = With(kNew, {"--dry-run"});
    words[1] = "new";
    EXPECT_EQ(ServiceTool(words).err,
              "new: warning: the name of a service file ends in .sc [file-name]\n"
              "    fix: write new.sc\n");
}

// ---- Concurrent changes

TEST_F(SetCommand, WaitsForAnotherChange) {
    std::optional<Lock> other(std::in_place);
    std::thread ends([&other] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        WriteFile(kPath, kBefore + "# more\n");
        other.reset();
    });
    EXPECT_EQ(ServiceTool(kRetitle).status, 0);
    ends.join();
    EXPECT_EQ(ReadFile(kPath), kRetitled + "# more\n");
}

TEST_F(SetCommand, GivesUpWhereAnotherChangeDoesNotEnd) {
    const Lock other;
    EXPECT_EQ(ServiceTool(With(kRetitle, {"--dry-run"})).status, 0);
    ExpectRun(ServiceToolPreloading(FAST_CLOCK, kRetitle), 3, "",
              kName +
                  ": error: another change is in progress, so nothing was changed [busy]\n"
                  "    fix: wait until it ends, and try again\n");
    ExpectNothingDone();
}

bool CanRunAsOthers() {
    return RunProgram({"setpriv", "--reuid=65534", "--", "true"}).status == 0;
}

TEST_F(SetCommand, IsNotDelayedByTheLocksOfAnotherUser) {
    if (!CanRunAsOthers()) {
        GTEST_SKIP() << "nobody is here but root";
    }
    EXPECT_EQ(ServiceTool(With(kRetitle, {"--no-restart"})).status, 0);
    WriteFile(kPath, kBefore);
    const LockingUser other(
        {"/", "/run", "/tmp", "/usr/tavo/etc", "/usr/local/etc", kSystem, kPackage, kLockFolder});
    ExpectRun(ServiceTool(With(kRetitle, {"--no-restart"})), 0,
              kPath + ": change section [notes]\nwill notify: router tool\n" + kRetitleDiff +
                  kPath + ": changed\nnotified: router tool\n");
}

TEST_F(SetCommand, LocksAFileOfItsOwn) {
    EXPECT_EQ(ServiceTool(kRetitle).status, 0);
    struct stat status {};
    ASSERT_EQ(lstat(kLockFolder.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, S_IFDIR | 0700U);
    ASSERT_EQ(lstat(kLockFile.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, S_IFREG | 0600U);

    // Permissions for other users are removed first.
    ASSERT_EQ(chmod(kLockFolder.c_str(), 0777), 0);
    ASSERT_EQ(chmod(kLockFile.c_str(), 0666), 0);
    WriteFile(kPath, kBefore);
    EXPECT_EQ(ServiceTool(kRetitle).status, 0);
    ASSERT_EQ(lstat(kLockFolder.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, S_IFDIR | 0700U);
    ASSERT_EQ(lstat(kLockFile.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, S_IFREG | 0600U);
}

TEST_F(SetCommand, ChangesNothingWithoutALock) {
    const auto expect_refusal = [](const std::string &problem) {
        ExpectRun(ServiceTool(kRetitle), 3, "",
                  kName + ": error: the lock for changes: " + problem +
                      ", so nothing was changed [failed]\n");
        EXPECT_EQ(ReadFile(kPath), kBefore);
    };
    std::filesystem::create_directory("elsewhere");
    std::filesystem::create_symlink(kHome + "elsewhere", kLockFolder);
    expect_refusal(kLockFolder + ": not a directory");
    std::filesystem::remove(kLockFolder);
    std::filesystem::create_directory(kLockFolder);
    std::filesystem::create_symlink(kPath, kLockFile);
    expect_refusal(kLockFile + ": too many levels of symbolic links");
    std::filesystem::remove(kLockFile);
    ASSERT_EQ(mkfifo(kLockFile.c_str(), 0600), 0);
    expect_refusal(kLockFile + ": is not a file of this user");
    std::filesystem::remove(kLockFile);
    if (chown(kLockFolder.c_str(), 65534, 65534) == 0) {
        expect_refusal(kLockFolder + ": belongs to another user");
    }
    std::filesystem::remove(kLockFolder);
    ExpectNothingDone();
}

TEST_F(SetCommand, SaysThatPermissionIsMissing) {
    if (!CanRunAsOthers()) {
        GTEST_SKIP() << "nobody is here but root";
    }
    const ServiceToolForEveryone program;
    std::vector<std::string> words = {"setpriv", "--reuid=65534", "--clear-groups", "--"};
    words = With(With(words, program.Command()), kRetitle);
    for (const char *when : {"before any change", "after one"}) {
        ExpectRun(RunProgram(words), 3, "",
                  kName + ": error: the lock for changes: " + kLockFolder +
                      ": permission denied, so nothing was changed [failed]\n"
                      "    fix: run it as root\n");
        EXPECT_EQ(ReadFile(kPath), kBefore) << when;
        std::filesystem::create_directory(kLockFolder);
        chmod(kLockFolder.c_str(), 0700);
    }
    std::filesystem::remove(kLockFolder);
}

// ---- Unreadable files

// The change would make the file larger than the largest file that is read.
TEST_F(SetCommand, ChangesNothingThatItCouldNotReadBack) {
    const std::string before = kBefore + '#' + std::string((16 << 20) - kBefore.size() - 5, 'x');
    WriteFile(kPath, before + '\n');
    ExpectRun(ServiceTool(
                  {"set", kName, "web", "--title", "W", "--desc", "D", "--dst-ports", "18080/tcp"}),
              3, "",
              kName +
                  ": error: the change cannot be computed: is larger than 16 MiB, so nothing was "
                  "changed [failed]\n");
    EXPECT_EQ(std::filesystem::file_size(kPath), before.size() + 1);
    EXPECT_EQ(Calls(), "");
}

// A second file of that name would always hide the first one.
TEST_F(SetCommand, MakesNoSecondFileWhereTheFirstCannotBeSeen) {
    std::filesystem::rename(kPath, kSystem + kName);
    const std::string path = kSystem + kName;
    for (const char *error : {"EIO", "ENOMEM", "EACCES"}) {
        const ProgramResult result =
            RunProgram({"strace",      "-qq",
                        "-o",          "/dev/null",
                        "-P",          path,
                        "-e",          "trace=%file",
                        "-e",          std::string("inject=newfstatat:error=") + error,
                        SERVICETOOL,   "set",
                        kName,         "web",
                        "--title",     "W",
                        "--desc",      "D",
                        "--dst-ports", "18080/tcp"},
                       "", {"ASAN_OPTIONS=detect_leaks=0"});
        EXPECT_THAT(result.err, StartsWith(path + ": error: ")) << error;
        EXPECT_THAT(result.err, HasSubstr(", so nothing was changed [unreadable]")) << error;
        EXPECT_EQ(result.status, 3) << error;
        EXPECT_THAT(Entries(kPackage), IsEmpty()) << error;
        EXPECT_EQ(ReadFile(path), kBefore) << error;
    }
}

TEST_F(SetCommand, SaysThatSomebodyElseChangedTheFile) {
    const ReplacedTool router(kRouterTool, "echo >> \"$3\"");
    const ProgramResult result = ServiceTool(kRetitle);
    ExpectRun(result, 3, kRetitlePlan + "notified: " + kSectionListeners,
              kPath +
                  ": error: it was changed by another program in the meantime [failed]\n"
                  "    fix: check it, and repeat the change\n");
}

// ---- Output

TEST_F(SetCommand, PrintsJson) {
    const ProgramResult result = ServiceTool(With(kRetitle, {"--json"}));
    EXPECT_EQ(Json::Parse(result.out),
              Json::Parse(R"({"schema": 1, "ok": true, "diagnostics": [], "results": [
        {"operation": "set", "file": "notes.sc", "path": ")" +
                          kPath + R"(", "section": "notes",
         "dry_run": false, "changed": true, "diff": )" +
                          Json(kRetitleDiff).Dump() + R"(,
         "conflicts": [], "told": ["router", "firewall", "relay"], "not_told": []}]})"));
    EXPECT_EQ(result.status, 0);
}

TEST_F(SetCommand, PrintsConflictsInJson) {
    WriteFile(kSystem + "web.sc", Section("w", "18080/tcp"));
    const Json document = Json::Parse(ServiceTool(With(kNew, {"--json", "--dry-run"})).out);
    const Json result = document["results"][0];
    EXPECT_EQ(document["ok"], false);
    EXPECT_EQ(document["diagnostics"][0]["rule"], "taken");
    EXPECT_EQ(result["dry_run"], true);
    EXPECT_EQ(result["changed"], false);
    EXPECT_EQ(result["conflicts"], Json::Parse(R"([{"section": "web", "start": 18080,
        "end": 18080, "protocols": ["tcp"], "source": "service", "declared_by": [{"name": "w",
        "file": ")" + kSystem + R"(web.sc", "entry": "w"}], "exact": true}])"));
    EXPECT_THAT(result["told"], IsEmpty());
    EXPECT_THAT(result["not_told"], IsEmpty());
}

TEST_F(SetCommand, ColoursTheDiffOnATerminalOnly) {
    const std::string shown = ServiceToolOnTerminal(With(kRetitle, {"--dry-run"}));
    EXPECT_THAT(shown, HasSubstr("\n\x1b[31m-title=\"T\"\x1b[0m\n\x1b[32m+title=\"New\"\x1b[0m\n"));
    EXPECT_THAT(shown, HasSubstr("\n\x1b[36m@@ -3,10 +3,11 @@\x1b[0m\n"));
}

TEST_F(SetCommand, EscapesWhatTheFileHolds) {
    WriteFile(kPath, "[notes]\ntitle=\"\x1b[1m\"\ndesc=D\ndst.ports=8765");
    const ProgramResult result = ServiceTool(With(kRetitle, {"--dry-run"}));
    EXPECT_THAT(result.out, HasSubstr("\n-title=\"\\x1b[1m\"\n"));
    EXPECT_THAT(result.out, HasSubstr("\n-dst.ports=8765\n\\ No newline at end of file\n"));
}

TEST_F(SetCommand, ShowsTheLogWhenAskedTo) {
    WriteFile("/run/exit-status/tavoroutertool", "1\n");
    EXPECT_THAT(ServiceTool(With(kRetitle, {"-v"})).err,
                testing::ContainsRegex("log: [a-z_]+.cpp:[0-9]+ /usr/tavo/sbin/tavoroutertool "
                                       "--udpate /tmp/notes.sc " +
                                       kPath + " failed!\\[0x"));
}

TEST_F(SetCommand, KeepsTheOutputOfProgramsOutOfJson) {
    const ReplacedTool router(kRouterTool, "echo chatter\necho complaint >&2");
    const ProgramResult result = ServiceTool(With(kRetitle, {"--json"}));
    EXPECT_TRUE(Json::IsValid(result.out)) << result.out;
    EXPECT_EQ(result.err, "");
}

TEST_F(SetCommand, TakesNoWordOfAProgramForTheLibrarys) {
    const ReplacedTool router(kRouterTool,
                              "echo 'servicetool: a.cpp:1 FAILED to notify tavorelayd'\n"
                              "printf 'a.cpp:1 FAILED to notify tavorelayd'\nexit 1");
    const ProgramResult result = ServiceTool(kRetitle);
    ExpectRun(result, 3, kRetitlePlan + kPath + ": changed\nnotified: firewall, relay daemon\n",
              "servicetool: warning: could not notify the router tool: " + kRouterTool +
                  " ended with status 1 [not-told]\n" + kRouterFix);
}

}  // namespace
}  // namespace tavo::test

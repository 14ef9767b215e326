// servicetool remove: removing an installed service file.
#include <gmock/gmock.h>

#include "change_world.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

const std::string kNotesAndWiki = Section("notes", "8765/tcp") + Section("wiki", "8766/tcp");
const std::string kRemovePlan = kPath + ": remove with [notes] and [wiki]\n" + kPlan + "--- a" +
                                kPath +
                                "\n+++ /dev/null\n@@ -1,8 +0,0 @@\n"
                                "-[notes]\n-title=\"T\"\n-desc=\"D\"\n-dst.ports=\"8765/tcp\"\n"
                                "-[wiki]\n-title=\"T\"\n-desc=\"D\"\n-dst.ports=\"8766/tcp\"\n";

class RemoveCommand : public ChangeWorld {
  protected:
    void SetUp() override {
        ChangeWorld::SetUp();
        WriteFile(kPath, kNotesAndWiki);
    }
};

TEST_F(RemoveCommand, RemovesTheFileAndReportsIt) {
    WriteFile(kPackage + "other.sc", kNotesAndWiki);
    ExpectRun(ServiceTool({"remove", "notes.sc"}), 0,
              kRemovePlan + kPath + ": removed\n" + kNotified);
    EXPECT_THAT(Entries(kPackage), ElementsAre("other.sc"));
    EXPECT_EQ(Calls(),
              "portforward port_config/remove\n< $'PORT_CONFIG_CONTENT=" + InShell(kNotesAndWiki) +
                  "'\n< NOTIFY_PF=1\n< NOTIFY_FW=1\n" + kRelayCalls);
}

TEST_F(RemoveCommand, DoesNothingInADryRunButShowsAll) {
    ExpectRun(ServiceTool({"remove", "--dry-run", "notes.sc"}), 0, kRemovePlan + kDryRun);
    EXPECT_EQ(ReadFile(kPath), kNotesAndWiki);
    EXPECT_EQ(Calls(), "");
}

TEST_F(RemoveCommand, RefusesWhatIsNotInstalled) {
    ExpectRun(ServiceTool({"remove", "notes"}), 1, "",
              "notes: error: is not installed in /usr/tavo/etc/services.d nor in "
              "/usr/local/etc/services.d, so nothing was changed [not-found]\n"
              "    fix: write notes.sc\n");
    EXPECT_THAT(ServiceTool({"remove", "Notes.SC"}).err, HasSubstr("fix: write notes.sc\n"));
    EXPECT_EQ(ServiceTool({"remove", "--system", "notes.sc"}).status, 1);
    EXPECT_EQ(ServiceTool({"remove", "../services.d/notes.sc"}).status, 2);
    EXPECT_EQ(ServiceTool({"remove", ""}).status, 2);
    EXPECT_EQ(ServiceTool({"remove", "--system", "--package", "notes.sc"}).status, 2);
    EXPECT_EQ(ReadFile(kPath), kNotesAndWiki);
    EXPECT_EQ(Calls(), "");
}

TEST_F(RemoveCommand, AsksWhichOneWhereBothFoldersHaveTheName) {
    WriteFile(kSystem + "notes.sc", kNotesAndWiki);
    EXPECT_EQ(ServiceTool({"remove", "notes.sc"}).status, 2);
    EXPECT_EQ(ServiceTool({"remove", "--package", "notes.sc"}).status, 0);
    EXPECT_THAT(Entries(kPackage), IsEmpty());
    EXPECT_EQ(ReadFile(kSystem + "notes.sc"), kNotesAndWiki);
}

TEST_F(RemoveCommand, RemovesAFileThatIsBroken) {
    WriteFile(kPath, "broken\n");
    const ProgramResult result = ServiceTool({"remove", "notes.sc"});
    EXPECT_THAT(result.out, HasSubstr(": remove; no service in it can be read\n"));
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(Entries(kPackage), IsEmpty());
}

TEST_F(RemoveCommand, RemovesALinkAndNotItsTarget) {
    WriteFile("target.sc", kNotesAndWiki);
    std::filesystem::remove(kPath);
    std::filesystem::create_symlink(kHome + "target.sc", kPath);
    const ProgramResult result = ServiceTool({"remove", "notes.sc"});
    EXPECT_THAT(result.out, StartsWith(kPath + ": remove with [notes] and [wiki] (the link, not " +
                                       kHome + "target.sc)\n"));
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(Entries(kPackage), IsEmpty());
    EXPECT_EQ(ReadFile("target.sc"), kNotesAndWiki);
}

TEST_F(RemoveCommand, ReportsWhatToDoWithALinkToNothing) {
    std::filesystem::remove(kPath);
    std::filesystem::create_symlink("nothing", kPath);
    ExpectRun(ServiceTool({"remove", "notes.sc"}), 3, "",
              kPath +
                  ": error: is a dangling symbolic link, so nothing was changed [unreadable]\n"
                  "    fix: remove the dangling link\n");
}

// Without its copy, the library would continue and send the plugins an empty notification.
TEST_F(RemoveCommand, RemovesNothingWhereTheContentCannotBeKept) {
    if (ThisProgramLiesInTmp()) {
        GTEST_SKIP() << "/tmp is to be another disk";
    }
    const MountedFolder temporary("/tmp", "size=4k");
    const auto expect_refusal = [](const std::string &reason) {
        const ProgramResult result = ServiceTool({"remove", "notes.sc"});
        EXPECT_THAT(result.err, StartsWith(kPath + ": error: no copy can be made for the plugins"));
        EXPECT_THAT(result.err, HasSubstr(reason + ", so nothing was changed [failed]\n"
                                                   "    fix: make sure that /tmp is writable\n"));
        EXPECT_EQ(result.status, 3);
        EXPECT_EQ(ReadFile(kPath), kNotesAndWiki);
        EXPECT_EQ(Calls(), "");
    };
    WriteFile("/tmp/large", std::string(4096, 'x'));
    expect_refusal("No space left on device");
    temporary.MakeReadOnly();
    expect_refusal("Read-only file system");
}

TEST_F(RemoveCommand, SaysThatTheFileStaysWhereItCannotGo) {
    const MountedFolder folder(kPackage, "size=8k");
    WriteFile(kPath, kNotesAndWiki);
    folder.MakeReadOnly();
    const ProgramResult result = ServiceTool({"remove", "notes.sc"});
    EXPECT_THAT(result.err, HasSubstr("; the file is unchanged [failed]"));
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(ReadFile(kPath), kNotesAndWiki);
    EXPECT_EQ(Calls(), "");
}

TEST_F(RemoveCommand, SaysWhoWasNotNotified) {
    WriteFile("/run/exit-status/portforward", "1\n");
    const Json result = Json::Parse(ServiceTool({"remove", "--json", "notes.sc"}).out);
    EXPECT_EQ(result["ok"], false);
    EXPECT_EQ(result["diagnostics"][0]["rule"], "not-told");
    EXPECT_EQ(result["results"][0]["operation"], "remove");
    EXPECT_EQ(result["results"][0]["changed"], true);
    EXPECT_EQ(result["results"][0]["told"], Json::Array({}));
    EXPECT_EQ(result["results"][0]["not_told"], Json::Array({"plugins", "relay"}));
    EXPECT_THAT(Entries(kPackage), IsEmpty());
}

// The relay daemon is still reloaded, but the plugins do not know which ports are free now.
TEST_F(RemoveCommand, SaysThatThePluginsWereNotGivenTheFile) {
    const ReplacedTool copy("/bin/cp", "rm -f \"$3\"; mkfifo \"$3\"");
    const Json result = Json::Parse(ServiceTool({"remove", "--json", "notes.sc"}).out);
    EXPECT_EQ(result["ok"], false);
    EXPECT_EQ(result["results"][0]["changed"], true);
    EXPECT_EQ(result["results"][0]["told"], Json::Array({"relay"}));
    EXPECT_EQ(result["results"][0]["not_told"], Json::Array({"plugins"}));
    EXPECT_THAT(result["diagnostics"][0]["message"].Text(),
                testing::ContainsRegex("^could not notify the plugins: "
                                       "/tmp/servicetool.remove.notes.sc.[0-9]+: illegal seek$"));
    for (const std::string &name : InTmp()) {
        std::filesystem::remove("/tmp/" + name);
    }
}

}  // namespace
}  // namespace tavo::test

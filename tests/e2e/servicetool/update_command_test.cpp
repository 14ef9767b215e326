// servicetool update: replacing an installed service file with another version.
#include <fcntl.h>
#include <gmock/gmock.h>

#include "change_world.h"

namespace tavo::test {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const std::string kNew = Section("notes", "8766/tcp");

std::string UpdateDiff(const std::string &path) {
    return "--- a" + path + "\n+++ b" + path +
           "\n@@ -1,4 +1,4 @@\n [notes]\n title=\"T\"\n desc=\"D\"\n-dst.ports=\"8765/tcp\"\n"
           "+dst.ports=\"8766/tcp\"\n";
}

std::string CallsFor(const std::string &before, const std::string &after) {
    return "portforward port_config/update\n< $'OLD_PORT_CONFIG_CONTENT=" + InShell(before) +
           "'\n< $'NEW_PORT_CONFIG_CONTENT=" + InShell(after) +
           "'\n< NOTIFY_PF=1\n< NOTIFY_FW=1\n" + kRelayCalls;
}

class UpdateCommand : public ChangeWorld {
  protected:
    void SetUp() override {
        ChangeWorld::SetUp();
        WriteFile(kPath, kText);
        WriteFile("notes.sc", kNew);
    }

    static void ExpectNothingDone() {
        EXPECT_EQ(ReadFile(kPath), kText);
        EXPECT_EQ(Calls(), "");
    }
};

TEST_F(UpdateCommand, ReplacesTheFileAndNotifiesOfBothTexts) {
    chmod("notes.sc", 0600);
    ExpectRun(ServiceTool({"update", "notes.sc"}), 0,
              kPath + ": replace by notes.sc\n" + kPlan + UpdateDiff(kPath) + kPath +
                  ": changed\n" + kNotified);
    EXPECT_EQ(ReadFile(kPath), kNew);
    struct stat status {};
    ASSERT_EQ(stat(kPath.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, S_IFREG | 0644U);
    EXPECT_EQ(Calls(), CallsFor(kText, kNew));
}

TEST_F(UpdateCommand, DoesNothingInADryRunButShowsAll) {
    ExpectRun(ServiceTool({"update", "--dry-run", "notes.sc"}), 0,
              kPath + ": replace by notes.sc\n" + kPlan + UpdateDiff(kPath) + kDryRun);
    ExpectNothingDone();
}

TEST_F(UpdateCommand, NotifiesNobodyOfWhatIsSoAlready) {
    WriteFile("notes.sc", kText);
    ExpectRun(ServiceTool({"update", "notes.sc"}), 0,
              kPath + ": already up to date; nothing changed\n");
    ExpectNothingDone();
}

TEST_F(UpdateCommand, FindsTheFolderOfTheFile) {
    WriteFile(kSystem + "a.sc", Section("a", "1000"));
    EXPECT_EQ(ServiceTool({"update", "--as", "a.sc", "-"}, Section("a", "1001")).status, 0);
    EXPECT_EQ(ReadFile(kSystem + "a.sc"), Section("a", "1001"));
    EXPECT_FALSE(std::filesystem::exists(kPackage + "a.sc"));
    ExpectRun(ServiceTool({"update", "--package", "--as", "a.sc", "notes.sc"}), 1, "",
              kPackage +
                  "a.sc: error: no file of that name is installed, so nothing was changed "
                  "[not-found]\n    fix: write servicetool install\n");
}

TEST_F(UpdateCommand, AsksWhichOneWhereBothFoldersHaveTheName) {
    WriteFile(kSystem + "notes.sc", kText);
    ExpectRun(ServiceTool({"update", "notes.sc"}), 2, "",
              "servicetool: error: \"notes.sc\" is installed in both folders [usage]\n"
              "    fix: add --system or --package\n");
    ExpectNothingDone();
    EXPECT_EQ(ServiceTool({"update", "--system", "notes.sc"}).status, 0);
    EXPECT_EQ(ReadFile(kSystem + "notes.sc"), kNew);
    EXPECT_EQ(ReadFile(kPath), kText);
}

// The installed file has a section of the name of another service, but not that service.
TEST_F(UpdateCommand, ReplacesOnlyServicesThatAreRead) {
    WriteFile(kPackage + "other.sc", Section("web", "8766/tcp"));
    WriteFile(kPath, kText + "[web]\ntitle=\"T\"\n");
    const ProgramResult taken = ServiceTool({"update", "notes.sc"});
    EXPECT_THAT(taken.out, HasSubstr("notes    8766  tcp    service  web (package/other.sc)\n"));
    EXPECT_EQ(taken.status, 1);
    WriteFile(kPath, kText + Section("web", "9000/tcp"));
    EXPECT_EQ(ServiceTool({"update", "notes.sc"}).status, 0);
}

TEST_F(UpdateCommand, RefusesAnErrorAndPortsThatAreTaken) {
    WriteFile("notes.sc", Section("notes", "8766/ftp"));
    const ProgramResult broken = ServiceTool({"update", "--force", "notes.sc"});
    EXPECT_THAT(broken.err, HasSubstr(": error: notes.sc has 1 error, so nothing was changed"));
    EXPECT_EQ(broken.status, 1);
    ExpectNothingDone();

    WriteFile("notes.sc", kNew);
    const HeldPort held(Family::kV4, Protocol::kTcp, 8766);
    const ProgramResult taken = ServiceTool({"update", "notes.sc"});
    EXPECT_THAT(taken.out, HasSubstr("notes    8766  tcp    socket  in use now\n"));
    EXPECT_EQ(taken.status, 1);
    ExpectNothingDone();
    EXPECT_EQ(ServiceTool({"update", "--force", "notes.sc"}).status, 0);
    EXPECT_EQ(ReadFile(kPath), kNew);
}

TEST_F(UpdateCommand, DoesNotCollideWithWhatItReplaces) {
    WriteFile(kPath, Section("a", "8001/tcp") + Section("b", "8002/tcp"));
    const std::string swapped = Section("b", "8001/tcp") + Section("c", "8002/tcp");
    WriteFile("notes.sc", swapped);
    const HeldPort held(Family::kV4, Protocol::kTcp, 8001);
    EXPECT_EQ(ServiceTool({"update", "notes.sc"}).status, 0);
    EXPECT_EQ(ReadFile(kPath), swapped);
}

TEST_F(UpdateCommand, ReplacesAFileWithoutAReadableService) {
    WriteFile(kPath, "broken\n");
    EXPECT_EQ(ServiceTool({"update", "notes.sc"}).status, 0);
    EXPECT_EQ(ReadFile(kPath), kNew);
}

TEST_F(UpdateCommand, PutsAFileInThePlaceOfALink) {
    WriteFile("target.sc", kText);
    std::filesystem::remove(kPath);
    std::filesystem::create_symlink(kHome + "target.sc", kPath);
    const ProgramResult result = ServiceTool({"update", "notes.sc"});
    EXPECT_THAT(result.out, StartsWith(kPath + ": replace by notes.sc (the link, not " + kHome +
                                       "target.sc)\n"));
    EXPECT_EQ(result.status, 0);
    EXPECT_FALSE(std::filesystem::is_symlink(kPath));
    EXPECT_EQ(ReadFile(kPath), kNew);
    EXPECT_EQ(ReadFile("target.sc"), kText);
    EXPECT_EQ(Calls(), CallsFor(kText, kNew));
}

// The library's update still succeeds and notifies the listeners although nothing changed.
TEST_F(UpdateCommand, NoticesAnInstallationThatFailed) {
    WriteFile(kPackage + "tmp", "in the way");
    const ProgramResult result = ServiceTool({"update", "notes.sc"});
    EXPECT_THAT(result.err, HasSubstr(kPath + ": error: /bin/mkdir: cannot create directory "));
    EXPECT_THAT(result.err, HasSubstr(kPackage + "tmp"));
    EXPECT_THAT(result.err, HasSubstr("; the file is unchanged [failed]"));
    EXPECT_THAT(result.out, Not(HasSubstr(": changed")));
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(ReadFile(kPath), kText);
    EXPECT_EQ(Calls(), CallsFor(kText, kText));
}

TEST_F(UpdateCommand, KeepsTheOldFileOnAFullDisk) {
    const MountedFolder folder(kPackage, "size=8k");
    WriteFile(kPath, kText);
    WriteFile("notes.sc", kNew + "#" + std::string(9000, 'x') + '\n');
    const Json result = Json::Parse(ServiceTool({"update", "--json", "notes.sc"}).out);
    EXPECT_EQ(result["results"][0]["changed"], false);
    EXPECT_EQ(result["diagnostics"][0]["rule"], "failed");
    EXPECT_THAT(result.Dump(), HasSubstr("left-behind"));
    EXPECT_EQ(ReadFile(kPath), kText);
}

TEST_F(UpdateCommand, SaysWhoWasNotNotified) {
    WriteFile("/run/exit-status/systemctl", "0\n1\n");
    const ProgramResult result = ServiceTool({"update", "notes.sc"});
    EXPECT_THAT(result.out, HasSubstr(kPath + ": changed\nnotified: plugins\n"));
    EXPECT_THAT(
        result.err,
        HasSubstr(
            "could not notify the relay daemon: tavorelayd could not be reloaded [not-told]\n"));
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(ReadFile(kPath), kNew);
}

}  // namespace
}  // namespace tavo::test

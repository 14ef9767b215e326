// servicetool remove-section: removing a service and the firewall's record of it.
#include <gmock/gmock.h>

#include "change_world.h"

namespace tavo::test {
namespace {

using testing::IsEmpty;

const std::string kKept = "[global]\nversion=1\n" + Section("other", "8800/udp");
const std::string kKeptAndNotes = kKept + kText;

const std::string kRemovePlan = kPath +
                                ": remove section [notes]\nwill notify: " + kFirewallAndRelay +
                                "--- a" + kPath + "\n+++ b" + kPath +
                                "\n@@ -4,7 +4,3 @@\n title=\"T\"\n desc=\"D\"\n"
                                " dst.ports=\"8800/udp\"\n-[notes]\n-title=\"T\"\n-desc=\"D\"\n"
                                "-dst.ports=\"8765/tcp\"\n";

const std::vector<std::string> kRemove = {"remove-section", "notes.sc", "notes"};

std::vector<std::string> Remove(const std::string &option) {
    std::vector<std::string> words = kRemove;
    words.push_back(option);
    return words;
}

class RemoveSectionCommand : public ChangeWorld {
  protected:
    void SetUp() override {
        ChangeWorld::SetUp();
        WriteFile(kPath, kKeptAndNotes);
    }
    void TearDown() override {
        ChangeWorld::TearDown();
        EXPECT_THAT(SideCopies(), IsEmpty());
    }

    static std::vector<std::string> SideCopies() {
        std::vector<std::string> paths;
        for (const std::string &folder : {kPackageParent + '/', kSystemParent + '/'}) {
            for (const std::string &name : Entries(folder)) {
                if (name.find(".tmp.") != std::string::npos) {
                    paths.push_back(folder + name);
                }
            }
        }
        return paths;
    }
};

TEST_F(RemoveSectionCommand, RemovesTheSectionAndReportsIt) {
    ExpectRun(ServiceTool(Remove("--dry-run")), 0, kRemovePlan + kDryRun);
    EXPECT_EQ(ReadFile(kPath), kKeptAndNotes);
    EXPECT_EQ(Calls(), "");
    ExpectRun(ServiceTool(kRemove), 0,
              kRemovePlan + kPath + ": changed\nnotified: " + kFirewallAndRelay);
    EXPECT_EQ(ReadFile(kPath), kKept);
    EXPECT_EQ(Calls(),
              "tavofirewall --remove-serv-rec notes\ntavofirewall --reload\n" + kRelayCalls);
}

TEST_F(RemoveSectionCommand, RemovesTheFileWithItsLastService) {
    WriteFile(kPath, "[global]\nversion=1\n" + Section("notes", "8765/tcp"));
    ExpectRun(
        ServiceTool(Remove("--no-restart")), 0,
        kPath + ": remove it with section [notes], its last service\nwill notify: firewall\n--- a" +
            kPath +
            "\n+++ /dev/null\n@@ -1,6 +0,0 @@\n-[global]\n-version=1\n-[notes]\n"
            "-title=\"T\"\n-desc=\"D\"\n-dst.ports=\"8765/tcp\"\n" +
            kPath + ": removed\nnotified: firewall\n");
    EXPECT_THAT(Entries(kPackage), IsEmpty());
    EXPECT_EQ(Calls(), "tavofirewall --remove-serv-rec notes\n");
}

TEST_F(RemoveSectionCommand, RefusesWhatIsNotThere) {
    ExpectRun(ServiceTool({"remove-section", "notes.sc", "web"}), 1, "",
              kPath +
                  ": error: has no section [web], so nothing was changed "
                  "[not-found]\n");
    ExpectRun(
        ServiceTool({"remove-section", "web.sc", "web", "--package"}), 1, "",
        "web.sc: error: is not installed in /usr/local/etc/services.d, so nothing was changed "
        "[not-found]\n");
    EXPECT_EQ(ServiceTool({"remove-section", "notes.sc", "global"}).status, 2);
    EXPECT_EQ(ReadFile(kPath), kKeptAndNotes);
    EXPECT_EQ(Calls(), "");
}

TEST_F(RemoveSectionCommand, PutsAllBackWhereTheFirewallToolIsMissing) {
    const ReplacedTool firewall(kFirewallTool);
    const ProgramResult result = ServiceTool(kRemove);
    ExpectRun(
        result, 3, kRemovePlan,
        kPath + ": error: " + kFirewallTool + " is missing; the file is unchanged [failed]\n");
    EXPECT_EQ(ReadFile(kPath), kKeptAndNotes);
    EXPECT_EQ(Calls(), "");
}

// The file is missing then, although no other program changed it.
TEST_F(RemoveSectionCommand, SaysWhyNothingCouldBePutBack) {
    const ReplacedTool firewall(kFirewallTool);
    const ReplacedTool mv("/bin/mv", "for place; do :; done\nmkdir -p \"$place/other\"\nexit 1");
    const ProgramResult result = ServiceTool(kRemove);
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, testing::HasSubstr(kPath + ": error: " + kFirewallTool +
                                               " is missing; the change could not be undone: "
                                               "/bin/mv ended with status 1 [failed]\n"));
    EXPECT_THAT(result.err, testing::HasSubstr(": warning: is a leftover copy of "
                                               "/usr/local/etc/services.d"));
    ASSERT_EQ(SideCopies().size(), 2U);
    EXPECT_EQ(ReadFile(SideCopies().front() + "/notes.sc"), kKeptAndNotes);
    for (const std::string &copy : SideCopies()) {
        std::filesystem::remove_all(copy);
    }
    std::filesystem::remove_all(kPackage + "other");
}

TEST_F(RemoveSectionCommand, NamesTheCopiesThatStay) {
    const ReplacedTool rm("/bin/rm");
    const ProgramResult result = ServiceTool(Remove("--no-restart"));
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.out.substr(result.out.size() - std::string("notified: firewall\n").size()),
              "notified: firewall\n");
    EXPECT_THAT(result.err,
                testing::ContainsRegex(
                    "/usr/local/etc/services.d.tmp.[0-9]+: warning: is a leftover copy of "
                    "/usr/local/etc/services.d \\[left-behind\\]\n"
                    "    fix: check that /usr/local/etc/services.d is complete, then remove "
                    "the copy\n"));
    for (const std::string &copy : SideCopies()) {
        std::filesystem::remove_all(copy);
    }
}

TEST_F(RemoveSectionCommand, SaysWhatTheFirewallMayHaveReadInBetween) {
    const ReplacedTool once(kFirewallTool, "rm -f " + kFirewallTool);
    const ProgramResult result = ServiceTool(kRemove);
    ExpectRun(
        result, 3, kRemovePlan,
        kPath + ": error: " + kFirewallTool +
            " is missing; the file is unchanged [failed]\n"
            "    fix: write servicetool restart: the firewall may have read the undone change\n");
    EXPECT_EQ(ReadFile(kPath), kKeptAndNotes);
}

TEST_F(RemoveSectionCommand, PrintsJson) {
    const Json document = Json::Parse(ServiceTool(Remove("--json")).out);
    const Json result = document["results"][0];
    EXPECT_EQ(result["operation"], "remove-section");
    EXPECT_EQ(result["section"], "notes");
    EXPECT_EQ(result["changed"], true);
    EXPECT_EQ(result["told"], Json::Parse(R"(["firewall", "relay"])"));
    EXPECT_THAT(document["diagnostics"], IsEmpty());
}

}  // namespace
}  // namespace tavo::test

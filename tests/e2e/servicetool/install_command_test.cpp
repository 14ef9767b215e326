// servicetool install: installing a new service file.
#include <fcntl.h>
#include <gmock/gmock.h>

#include <atomic>
#include <thread>

#include "change_world.h"
#include "patterns.h"

namespace tavo::test {
namespace {

using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

const std::string kPlugin = "/usr/tavo/lib/plugins/port_config/portforward";

// The diff that the plan shows for kText.
std::string InstallDiff(const std::string &path) {
    return "--- /dev/null\n+++ b" + path +
           "\n@@ -0,0 +1,4 @@\n+[notes]\n+title=\"T\"\n+desc=\"D\"\n+dst.ports=\"8765/tcp\"\n";
}

std::string CallsFor(const std::string &text) {
    return "portforward port_config/update\n< OLD_PORT_CONFIG_CONTENT=\n"
           "< $'NEW_PORT_CONFIG_CONTENT=" +
           InShell(text) + "'\n< NOTIFY_PF=1\n< NOTIFY_FW=1\n" + kRelayCalls;
}

class InstallCommand : public ChangeWorld {
  protected:
    void SetUp() override {
        ChangeWorld::SetUp();
        WriteFile("notes.sc", kText);
    }

    static void ExpectNothingDone() {
        EXPECT_THAT(Entries(kPackage), IsEmpty());
        EXPECT_THAT(Entries(kSystem), IsEmpty());
        EXPECT_EQ(Calls(), "");
    }

    static Json Result(const std::vector<std::string> &arguments) {
        return Json::Parse(ServiceTool(arguments).out)["results"][0];
    }
};

TEST_F(InstallCommand, PutsAFileIntoTheFolderOfPackagesAndReportsIt) {
    chmod("notes.sc", 0640);
    ExpectRun(ServiceTool({"install", "notes.sc"}), 0,
              kPath + ": install notes.sc\n" + kPlan + InstallDiff(kPath) + kPath +
                  ": installed\n" + kNotified);
    EXPECT_EQ(ReadFile(kPath), kText);
    struct stat status {};
    ASSERT_EQ(stat(kPath.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, S_IFREG | 0644U);
    EXPECT_EQ(Calls(), CallsFor(kText));
}

TEST_F(InstallCommand, DoesNothingInADryRunButShowsAll) {
    ExpectRun(ServiceTool({"install", "--dry-run", "notes.sc"}), 0,
              kPath + ": install notes.sc\n" + kPlan + InstallDiff(kPath) + kDryRun);
    ExpectNothingDone();
}

TEST_F(InstallCommand, TakesTheFolderAndTheNameThatAreAskedFor) {
    EXPECT_EQ(ServiceTool({"install", "--system", "--as", "a.sc", kHome + "notes.sc"}).status, 0);
    EXPECT_EQ(ReadFile(kSystem + "a.sc"), kText);
    EXPECT_THAT(Entries(kPackage), IsEmpty());
}

TEST_F(InstallCommand, TakesAFileWhoseNameLooksLikeAnOption) {
    WriteFile("-r.sc", kText);
    EXPECT_EQ(ServiceTool({"install", "--", "-r.sc"}).status, 0);
    EXPECT_EQ(ReadFile(kPackage + "-r.sc"), kText);
    EXPECT_THAT(ServiceTool({"install", "-r.sc"}).err, HasSubstr("fix: write -- -r.sc"));
}

TEST_F(InstallCommand, ReadsStandardInputUnderAName) {
    const mode_t mask = umask(077);
    ExpectRun(ServiceTool({"install", "--as", "notes.sc", "-"}, kText), 0,
              kPath + ": install <stdin>\n" + kPlan + InstallDiff(kPath) + kPath + ": installed\n" +
                  kNotified);
    umask(mask);
    EXPECT_EQ(ReadFile(kPath), kText);
    EXPECT_EQ(std::filesystem::status(kPath).permissions(), std::filesystem::perms(0644));
    EXPECT_EQ(Calls(), CallsFor(kText));
    ExpectRun(ServiceTool({"install", "-"}, kText), 2, "",
              "servicetool: error: standard input has no name [usage]\n    fix: write --as NAME\n");
}

TEST_F(InstallCommand, RefusesANameThatIsInstalled) {
    WriteFile(kPath, Section("old", "1"));
    ExpectRun(ServiceTool({"install", "--force", "notes.sc"}), 1, "",
              kPath +
                  ": error: a file of that name is already installed, so nothing was changed "
                  "[installed]\n    fix: write servicetool update\n");
    EXPECT_EQ(ReadFile(kPath), Section("old", "1"));
    EXPECT_EQ(Calls(), "");
    // The same name in the other folder is a different file.
    EXPECT_EQ(ServiceTool({"install", "--system", "notes.sc"}).status, 0);
}

TEST_F(InstallCommand, RefusesAFileWithAnErrorWhateverIsAskedFor) {
    WriteFile("notes.sc", Section("notes", "70000"));
    ExpectRun(ServiceTool({"install", "--force", "notes.sc"}), 1, "",
              "notes.sc:4:12: error: port 70000 is above 65535 [port-range]\n"
              "    dst.ports=\"70000\"\n"
              "               ^\n" +
                  kPath + ": error: notes.sc has 1 error, so nothing was changed [invalid]\n");
    ExpectNothingDone();
}

TEST_F(InstallCommand, ShowsWarningsAndGoesOn) {
    WriteFile("notes.sc", kText + "color=red\n");
    const ProgramResult result = ServiceTool({"install", "notes.sc"});
    EXPECT_THAT(result.err, StartsWith("notes.sc:5:1: warning: "));
    EXPECT_EQ(result.status, 0);
}

TEST_F(InstallCommand, RefusesPortsThatAreTakenUnlessForced) {
    WriteFile(kSystem + "old.sc", Section("old", "8765/tcp"));
    const std::string conflict =
        "SECTION  PORT  PROTO  SOURCE   DECLARED BY\n"
        "notes    8765  tcp    service  old (system/old.sc)\n" +
        kPath + ": [notes] 8765/tcp is taken\n";
    ExpectRun(ServiceTool({"install", "notes.sc"}), 1, conflict,
              kPath +
                  ": error: its ports are taken, so nothing was changed [taken]\n"
                  "    fix: ask servicetool suggest for ports that are free\n");
    EXPECT_THAT(Entries(kPackage), IsEmpty());
    EXPECT_EQ(Calls(), "");

    ExpectRun(ServiceTool({"install", "--force", "notes.sc"}), 0,
              conflict + kPath + ": install notes.sc\n" + kPlan + InstallDiff(kPath) + kPath +
                  ": installed\n" + kNotified);
    EXPECT_EQ(ReadFile(kPath), kText);
    EXPECT_EQ(Calls(), CallsFor(kText));
}

TEST_F(InstallCommand, AsksForEverySectionAsCheckDoes) {
    WriteFile("notes.sc", "[global]\ndst.ports=\"23\"\n" + kText);
    WriteFile(kRules, Rule("1", "x", "8765", "8765"));
    ExpectRun(ServiceTool({"install", "--dry-run", "notes.sc"}), 1,
              "SECTION  PORT  PROTO  SOURCE   DECLARED BY\n"
              "global   23    tcp    service  telnet (built-in)\n" +
                  kPath + ": [global] 23/tcp,udp is taken\n",
              "notes.sc:2:1: warning: key \"dst.ports\" is unknown in [global] and is not read "
              "[unknown-key]\n    dst.ports=\"23\"\n    ^\n"
              "    fix: move it to the section of a service\n" +
                  kPath +
                  ": error: its ports are taken, so nothing was changed [taken]\n"
                  "    fix: ask servicetool suggest for ports that are free\n");
}

TEST_F(InstallCommand, RefusesPortsThatMayBeTakenUnlessForced) {
    std::filesystem::remove(kSettings);
    std::filesystem::create_directory(kSettings);
    const ProgramResult refused = ServiceTool({"install", "notes.sc"});
    EXPECT_THAT(refused.out,
                HasSubstr(kPath + ": [notes] 8765/tcp: cannot tell (service, setting)\n"));
    EXPECT_THAT(refused.err,
                HasSubstr(kPath + ": error: it is unknown whether its ports are free, so "
                                  "nothing was changed [unknown]\n"
                                  "    fix: add --force to go on anyway\n"));
    EXPECT_EQ(refused.status, 3);
    ExpectNothingDone();
    EXPECT_EQ(ServiceTool({"install", "--force", "notes.sc"}).status, 0);
    EXPECT_EQ(ReadFile(kPath), kText);
    std::filesystem::remove(kSettings);
}

TEST_F(InstallCommand, TakesPlainNamesOnly) {
    for (const std::string &name :
         {std::string("."), std::string(".."), std::string("a/b"), std::string("/"),
          std::string("a\nb"), std::string(229, 'x'), std::string()}) {
        const ProgramResult result = ServiceTool({"install", "--as=" + name, "notes.sc"});
        EXPECT_EQ(result.status, 2) << name;
        EXPECT_THAT(result.err, HasSubstr("[usage]")) << name;
    }
    EXPECT_EQ(ServiceTool({"install", "--system", "--package", "notes.sc"}).status, 2);
    EXPECT_EQ(ServiceTool({"install", ""}).status, 2);
    EXPECT_EQ(ServiceTool({"install"}).status, 2);
    ExpectNothingDone();
    EXPECT_EQ(ServiceTool({"install", "--as", std::string(228, 'x'), "notes.sc"}).status, 0);
}

TEST_F(InstallCommand, TakesRegularFilesOnly) {
    ASSERT_EQ(mkfifo("pipe.sc", 0600), 0);
    std::filesystem::create_directory("folder.sc");
    std::filesystem::create_symlink("nothing", "link.sc");
    for (const std::string name : {"pipe.sc", "folder.sc", "link.sc", "missing.sc"}) {
        const ProgramResult result = ServiceTool({"install", name});
        EXPECT_THAT(result.err, StartsWith(name + ": error: ")) << name;
        EXPECT_THAT(result.err,
                    HasSubstr("[unreadable]\n"
                              "    fix: name a file that can be read, or - for standard input\n"))
            << name;
        EXPECT_EQ(result.status, 3) << name;
    }
    ExpectNothingDone();
}

// ---- Sources

TEST_F(InstallCommand, InstallsTheTextThatItChecked) {
    const std::string unchecked = Section("notes", "99999/tcp") + "# not fit to install\n";
    std::atomic<bool> ends = false;
    std::thread swapper([&] {
        for (bool good = false; !ends; good = !good) {
            WriteFile("next.sc", good ? kText : unchecked);
            std::filesystem::rename("next.sc", "notes.sc");
        }
    });
    int installed = 0;
    for (int run = 0; run < 60; ++run) {
        const ProgramResult result = ServiceTool({"install", "notes.sc"});
        EXPECT_THAT(result.status, testing::AnyOf(0, 1)) << result.err;
        if (std::filesystem::exists(kPath)) {
            EXPECT_EQ(ReadFile(kPath), kText);
            EXPECT_EQ(result.status, 0);
            std::filesystem::remove(kPath);
            ++installed;
        }
    }
    ends = true;
    swapper.join();
    EXPECT_GT(installed, 0);
    EXPECT_THAT(Calls(), Not(HasSubstr("not fit to install")));
}

// Otherwise the owner of the source could change the installed file later.
TEST_F(InstallCommand, GivesTheFileToRootWhateverTheSourceIs) {
    const auto expect_own = [](const std::vector<std::string> &arguments, const std::string &mask) {
        std::vector<std::string> words = {"sh", "-c", "umask " + mask + "; exec \"$@\"", "sh",
                                          SERVICETOOL};
        words.insert(words.end(), arguments.begin(), arguments.end());
        const ProgramResult result = RunProgram(words, kText);
        EXPECT_EQ(result.status, 0) << result.err;
        struct stat status {};
        EXPECT_EQ(lstat(kPath.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode, S_IFREG | 0644U);
        EXPECT_EQ(status.st_uid, geteuid());
        EXPECT_EQ(status.st_gid, getegid());
        EXPECT_EQ(ReadFile(kPath), kText);
        std::filesystem::remove(kPath);
    };
    // Only root can change the owner of a file.
    if (chown("notes.sc", 65534, 65534) == 0) {
        chmod("notes.sc", 04666);
    }
    WriteFile("other.txt", kText);
    chmod("other.txt", 0600);
    for (const std::string mask : {"0", "077", "0777"}) {
        expect_own({"install", "notes.sc"}, mask);
        expect_own({"install", "--as", "notes.sc", "other.txt"}, mask);
        expect_own({"install", "--as", "notes.sc", "-"}, mask);
    }
}

TEST_F(InstallCommand, NamesTheSourceThatWasGiven) {
    const ReplacedTool copy("/bin/cp", "echo \"cp: cannot open '$3'\" >&2; exit 1");
    const ProgramResult result = ServiceTool({"install", "-v", "notes.sc"});
    EXPECT_THAT(result.err, HasSubstr(kPath + ": error: cp: cannot open 'notes.sc'; no file"));
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(std::filesystem::remove_all(kPackage + "tmp"), 2U);  // folder and failed copy
}

TEST_F(InstallCommand, SaysWhatFailedAndThatNothingChanged) {
    WriteFile(kPackage + "tmp", "in the way");
    const ProgramResult result = ServiceTool({"install", "notes.sc"});
    EXPECT_THAT(result.err, HasSubstr(kPath + ": error: /bin/mkdir: cannot create directory "));
    EXPECT_THAT(result.err, HasSubstr(kPackage + "tmp"));
    EXPECT_THAT(result.err, HasSubstr("; no file was created [failed]"));
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(Entries(kPackage), ElementsAre("tmp"));
    EXPECT_EQ(Calls(), "");
}

TEST_F(InstallCommand, LeavesNoFileOnAFullOrReadOnlyDisk) {
    WriteFile("notes.sc", kText + "#" + std::string(9000, 'x') + '\n');
    const MountedFolder folder(kPackage, "size=4k");
    const ProgramResult full = ServiceTool({"install", "notes.sc"});
    EXPECT_THAT(full.err, HasSubstr("; no file was created [failed]"));
    EXPECT_EQ(full.status, 3);
    EXPECT_THAT(full.err,
                ContainsRegex(kPackage + "tmp/notes\\.sc\\.[A-Za-z0-9]{6}: warning: could not be "
                                         "installed and was not removed \\[left-behind\\]\n"
                                         "    fix: remove it\n"));
    EXPECT_FALSE(std::filesystem::exists(kPath));
    EXPECT_THAT(ServiceTool({"install", "--as", "b.sc", "notes.sc"}).err, Not(HasSubstr("/notes")));
    folder.MakeReadOnly();
    const ProgramResult read_only = ServiceTool({"install", "notes.sc"});
    EXPECT_THAT(read_only.err, HasSubstr("; no file was created [failed]"));
    EXPECT_EQ(read_only.status, 3);
    EXPECT_EQ(Calls(), "");
}

// The library reads files with any name, so these names are a problem only for people.
TEST_F(InstallCommand, WarnsOfANameThatPeopleWouldNotKnow) {
    const auto warning = [](const std::string &name) {
        return ServiceTool({"install", "--dry-run", "--as", name, "notes.sc"}).err;
    };
    EXPECT_EQ(warning("notes.text"),
              "notes.text: warning: the name of a service file ends in .sc [file-name]\n"
              "    fix: write --as notes.text.sc\n");
    EXPECT_EQ(warning(".notes.sc"),
              ".notes.sc: warning: a file whose name starts with a dot is hidden [file-name]\n"
              "    fix: write --as notes.sc\n");
    EXPECT_THAT(warning(".sc"), HasSubstr("fix: write --as sc.sc\n"));
    EXPECT_THAT(warning("..."), HasSubstr("fix: write --as mypackage.sc\n"));
    EXPECT_EQ(warning("a.sc"), "");
    EXPECT_EQ(ServiceTool({"install", "--as", ".notes", "notes.sc"}).status, 0);
    EXPECT_THAT(ServiceTool({"list"}).out, HasSubstr("notes"));
}

TEST_F(InstallCommand, LeavesNothingWhenItsReaderHangsUp) {
    RunProgram({"sh", "-c",
                "{ sleep 0.2; '" SERVICETOOL "' install --as notes.sc - < notes.sc; } | true"});
    EXPECT_THAT(InTmp(), IsEmpty());
    ExpectNothingDone();
}

TEST_F(InstallCommand, SaysWhatWasDoneWhereItsOutputCannotBeWritten) {
    for (const std::string option : {"install --as a.sc", "update --json --as a.sc"}) {
        const ProgramResult result =
            RunProgram({"sh", "-c", "exec '" SERVICETOOL "' " + option + " notes.sc > /dev/full"});
        const std::string done = option == "install --as a.sc" ? "installed" : "changed";
        EXPECT_EQ(result.err, "servicetool: error: standard output: no space left on device; " +
                                  kPackage + "a.sc: " + done + "; " +
                                  kNotified.substr(0, kNotified.size() - 1) + " [failed]\n");
        EXPECT_EQ(result.status, 3);
        WriteFile("notes.sc", Section("notes", "8766/tcp"));
    }
}

TEST_F(InstallCommand, SaysWhoWasNotNotified) {
    WriteFile("/run/exit-status/portforward", "1\n");
    const ProgramResult result = ServiceTool({"install", "notes.sc"});
    EXPECT_EQ(result.out, kPath + ": install notes.sc\n" + kPlan + InstallDiff(kPath) + kPath +
                              ": installed\n");
    const std::string reason = kPlugin + " ended with status 1 [not-told]\n";
    EXPECT_EQ(result.err, "servicetool: warning: could not notify the plugins: " + reason +
                              "    fix: remove the file and install it again\n"
                              "servicetool: warning: could not notify the relay daemon: " +
                              reason + "    fix: write servicetool restart --relay\n");
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(ReadFile(kPath), kText);
}

TEST_F(InstallCommand, NamesEachPluginThatFailed) {
    const std::string second = "/usr/tavo/lib/plugins/port_config/second";
    WriteFile(second, "#!/bin/sh\necho '" + second + ": no route' >&2\nexit 4\n");
    std::filesystem::permissions(second, std::filesystem::perms::owner_all);
    WriteFile("/run/exit-status/portforward", "1\n");
    EXPECT_THAT(ServiceTool({"install", "notes.sc"}).err,
                HasSubstr("could not notify the plugins: " + kPlugin + " ended with status 1; " +
                          second + ": no route [not-told]\n"));
    std::filesystem::remove(second);
}

// A failed plugin is reported no matter which file in memory cannot be created: that of the plan,
// that of the output of programs, or the input of the plugin.
TEST_F(InstallCommand, SaysWhoWasNotNotifiedWhereNoOutputCanBeKept) {
    int installed = 0;
    int refused = 0;
    for (const char *when : {"1", "2", "3", "1+", "2+", "3+"}) {
        SCOPED_TRACE(when);
        WriteFile("/run/exit-status/portforward", "1\n");
        const ProgramResult result =
            RunProgram({"strace", "-qq", "-o", "trace", "-e", "trace=memfd_create", "-e",
                        std::string("inject=memfd_create:error=ENFILE:when=") + when, SERVICETOOL,
                        "install", "--json", "notes.sc"},
                       "", {"ASAN_OPTIONS=detect_leaks=0"});
        refused += ReadFile("trace").find("(INJECTED)") != std::string::npos ? 1 : 0;
        EXPECT_EQ(result.status, 3);
        const Json document = Json::Parse(result.out);
        if (document["results"][0]["changed"] == true) {
            ++installed;
            EXPECT_EQ(document["results"][0]["not_told"], Json::Array({"plugins", "relay"}));
            EXPECT_THAT(document["diagnostics"][0]["message"].Text(),
                        StartsWith("could not notify the plugins: " + kPlugin));
            std::filesystem::remove(kPath);
        }
    }
    EXPECT_GE(installed, 2);
    EXPECT_GE(refused, 2);
}

TEST_F(InstallCommand, ShowsTheLinesOfTheLibraryWhenAsked) {
    WriteFile(kSystem + "old.sc", Section("old", "8765/tcp"));
    EXPECT_THAT(ServiceTool({"install", "-v", "--force", "notes.sc"}).err,
                HasSubstr("/notes.sc conf file port conflict with existed conf file setting\n"));
}

TEST_F(InstallCommand, HasEveryKeyOfItsResultInTheManual) {
    const std::string page = ReadFile(SERVICETOOL_SOURCE "/man/servicetool.1");
    const Json result = Result({"install", "--json", "--dry-run", "notes.sc"});
    for (const std::string &key : result.Keys()) {
        EXPECT_TRUE(HasMatch(page, "\n\\.It Cm ([a-z_ ,]* )?" + key + "\\b")) << key;
    }
}

TEST_F(InstallCommand, GivesOneResultAsJson) {
    const Json done = Result({"install", "--json", "notes.sc"});
    EXPECT_EQ(done, Json::Parse(R"({"operation": "install", "file": "notes.sc",
        "path": ")" + kPath + R"(", "section": null, "dry_run": false, "changed": true,
        "diff": )" + Json(InstallDiff(kPath)).Dump() +
                                R"(, "conflicts": [],
        "told": ["plugins", "relay"], "not_told": []})"));

    const Json refused = Result({"install", "--json", "--as", "b.sc", "--dry-run", "notes.sc"});
    EXPECT_EQ(refused["changed"], false);
    EXPECT_EQ(refused["dry_run"], true);
    EXPECT_EQ(refused["told"], Json::Array({}));

    WriteFile("notes.sc", Section("other", "8765/tcp"));
    const Json taken = Result({"install", "--json", "--as", "b.sc", "notes.sc"});
    EXPECT_EQ(taken["conflicts"][0]["section"], "other");
    EXPECT_EQ(taken["conflicts"][0]["declared_by"][0]["name"], "notes");
    EXPECT_EQ(taken["changed"], false);
}

}  // namespace
}  // namespace tavo::test

// servicetool set-ports: changing one port list of a section.
#include <gmock/gmock.h>

#include "change_world.h"

namespace tavo::test {
namespace {

using testing::HasSubstr;

const std::string kNotesAndOther = kText + Section("other", "8800/udp");

class SetPortsCommand : public ChangeWorld {
  protected:
    void SetUp() override {
        ChangeWorld::SetUp();
        WriteFile(kPath, kNotesAndOther);
    }

    static void ExpectNothingDone() {
        EXPECT_EQ(ReadFile(kPath), kNotesAndOther);
        EXPECT_EQ(Calls(), "");
    }
};

std::string Diff(const std::string &line) {
    return "--- a" + kPath + "\n+++ b" + kPath +
           "\n@@ -1,7 +1,7 @@\n [notes]\n title=\"T\"\n desc=\"D\"\n-dst.ports=\"8765/tcp\"\n+" +
           line + "\n [other]\n title=\"T\"\n desc=\"D\"\n";
}

TEST_F(SetPortsCommand, ReplacesThePortsAndReportsIt) {
    const std::string plan =
        kPath + ": set dst.ports of section [notes]\nwill notify: " + kSectionListeners +
        Diff("dst.ports=8766,9000:9010/tcp,udp");
    const std::vector<std::string> arguments = {"set-ports", "notes.sc", "notes", "8766,9000:9010"};
    std::vector<std::string> dry_run = arguments;
    dry_run.emplace_back("--dry-run");
    ExpectRun(ServiceTool(dry_run), 0, plan + kDryRun);
    ExpectNothingDone();
    ExpectRun(ServiceTool(arguments), 0,
              plan + kPath + ": changed\nnotified: " + kSectionListeners);
    EXPECT_EQ(ReadFile(kPath),
              "[notes]\ntitle=\"T\"\ndesc=\"D\"\ndst.ports=8766,9000:9010/tcp,udp\n" +
                  Section("other", "8800/udp"));
    EXPECT_EQ(Calls(), "tavoroutertool --update /tmp/notes.sc " + kPath +
                           "\ntavofirewall --reload\n" + kRelayCalls);
    ExpectRun(ServiceTool(arguments), 0, kPath + ": already up to date; nothing changed\n");
}

TEST_F(SetPortsCommand, SetsSourcePortsWithoutARestart) {
    EXPECT_EQ(
        ServiceTool({"set-ports", "notes.sc", "notes", "1024:1030/udp", "--src", "--no-restart"})
            .status,
        0);
    EXPECT_EQ(ReadFile(kPath), Section("notes", "8765/tcp") + "src.ports=1024:1030/udp\n" +
                                   Section("other", "8800/udp"));
    EXPECT_EQ(Calls(), "tavoroutertool --update /tmp/notes.sc " + kPath + '\n');
}

TEST_F(SetPortsCommand, RefusesPortsThatOthersHave) {
    ExpectRun(ServiceTool({"set-ports", "notes.sc", "notes", "8765,8800"}), 1,
              "SECTION  PORT  PROTO  SOURCE   DECLARED BY\n"
              "notes    8800  udp    service  other (package/notes.sc)\n" +
                  kPath + ": [notes] 8765,8800/tcp,udp is taken\n",
              kPath +
                  ": error: its ports are taken, so nothing was changed [taken]\n"
                  "    fix: ask servicetool suggest for ports that are free\n");
    ExpectNothingDone();
}

TEST_F(SetPortsCommand, RefusesSourcePortsThatOthersHaveAndNamesTheCommandThatDoesNot) {
    ExpectRun(ServiceTool({"set-ports", "notes.sc", "notes", "8800", "--src"}), 1,
              "SECTION  PORT  PROTO  SOURCE   DECLARED BY\n"
              "notes    8800  udp    service  other (package/notes.sc)\n" +
                  kPath + ": [notes] 8800/tcp,udp is taken\n",
              kPath +
                  ": error: its ports are taken, so nothing was changed [taken]\n"
                  "    fix: use servicetool set --src-ports, which does not compare them\n");
    ExpectNothingDone();
    EXPECT_EQ(ServiceTool({"set", "notes.sc", "notes", "--src-ports", "8800"}).status, 0);
}

TEST_F(SetPortsCommand, WritesThroughALinkAndSaysWhere) {
    std::filesystem::rename(kPath, kHome + "target.sc");
    std::filesystem::create_symlink(kHome + "target.sc", kPath);
    const ProgramResult result = ServiceTool({"set-ports", "notes.sc", "notes", "8766/tcp"});
    EXPECT_THAT(result.out, testing::StartsWith(kPath + ": set dst.ports of section [notes] (" +
                                                kHome + "target.sc, where the link leads)\n"));
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(std::filesystem::is_symlink(kPath));
    EXPECT_THAT(ReadFile(kHome + "target.sc"), HasSubstr("dst.ports=8766/tcp\n"));
}

TEST_F(SetPortsCommand, SaysWhatToDoWithASectionThatHasNoKeys) {
    WriteFile(kPath, "[notes]\n" + Section("other", "8800/udp"));
    ExpectRun(ServiceTool({"set-ports", "notes.sc", "notes", "8766"}), 1, "",
              kPath +
                  ": error: section [notes] has no keys, so nothing was changed [not-found]\n"
                  "    fix: write servicetool set, or remove its line by hand\n");
    EXPECT_EQ(ServiceTool({"set", "notes.sc", "notes", "--title", "T", "--desc", "D", "--dst-ports",
                           "8766"})
                  .status,
              0);
    EXPECT_THAT(ServiceTool({"list"}).out, HasSubstr("notes"));
}

TEST_F(SetPortsCommand, RefusesWhatIsNotThere) {
    ExpectRun(ServiceTool({"set-ports", "notes.sc", "web", "1"}), 1, "",
              kPath + ": error: has no section [web], so nothing was changed [not-found]\n");
    ExpectRun(ServiceTool({"set-ports", "notes.sc", "Notes", "1"}), 1, "",
              kPath +
                  ": error: has no section [Notes], so nothing was changed [not-found]\n"
                  "    fix: write notes\n");
    ExpectRun(ServiceTool({"set-ports", "notes", "notes", "1"}), 1, "",
              "notes: error: is not installed in /usr/tavo/etc/services.d nor in "
              "/usr/local/etc/services.d, so nothing was changed [not-found]\n"
              "    fix: write notes.sc\n");
    ExpectRun(ServiceTool({"set-ports", "notes.sc", "notes", "1", "--system"}), 1, "",
              "notes.sc: error: is not installed in /usr/tavo/etc/services.d, so nothing was "
              "changed [not-found]\n");
    ExpectNothingDone();
}

// [global] differs from the name only in case, but it is not a service.
TEST_F(SetPortsCommand, SuggestsOnlyServices) {
    WriteFile(kPath, "[global]\nversion=\"1\"\n" + kNotesAndOther);
    ExpectRun(ServiceTool({"set-ports", "notes.sc", "Global", "1"}), 1, "",
              kPath + ": error: has no section [Global], so nothing was changed [not-found]\n");
    EXPECT_EQ(Calls(), "");
}

TEST_F(SetPortsCommand, RefusesASectionThatTheLibraryWouldNotRead) {
    WriteFile(kPath, "[notes]\ntitle=T\n");
    const ProgramResult result = ServiceTool({"set-ports", "notes.sc", "notes", "8765"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr(kPath + ":1:2: error: section [notes] lacks desc"));
    EXPECT_THAT(result.err, HasSubstr(kPath + ": error: the library would not read section "
                                              "[notes], so nothing was changed [invalid]\n"));
    EXPECT_EQ(ReadFile(kPath), "[notes]\ntitle=T\n");
    EXPECT_EQ(Calls(), "");
}

TEST_F(SetPortsCommand, RefusesPortsThatAreNone) {
    ExpectRun(ServiceTool({"set-ports", "notes.sc", "notes", "80,x/tcp"}), 2, "",
              "servicetool: error: \"80,x/tcp\", column 4: \"x\" is not a port number [usage]\n");
    ExpectNothingDone();
}

// "20000,20002,...": each port except the first takes six bytes.
std::string PortList(int count) {
    std::string ports = "20000";
    for (int i = 1; i < count; ++i) {
        ports += ',' + std::to_string(20000 + 2 * i);
    }
    return ports;
}

TEST_F(SetPortsCommand, RefusesAListThatTheLibraryWouldCut) {
    const std::string longest = PortList(169) + ",1/tcp,udp";  // 1023 bytes
    EXPECT_EQ(ServiceTool({"set-ports", "notes.sc", "notes", longest}).status, 0);
    EXPECT_THAT(ReadFile(kPath), HasSubstr("dst.ports=" + longest + '\n'));
    WriteFile(kPath, kNotesAndOther);
    std::filesystem::remove_all(kCalls + "all");
    for (const std::string &ports : {PortList(169) + ",11/tcp,udp", PortList(180) + "/tcp"}) {
        const ProgramResult result = ServiceTool({"set-ports", "notes.sc", "notes", ports});
        EXPECT_EQ(result.status, 2) << ports;
        EXPECT_THAT(result.err,
                    HasSubstr("is longer than 1023 bytes, the limit for ports in a service file "
                              "[usage]\n    fix: join ports into ranges"));
    }
    ExpectNothingDone();
}

TEST_F(SetPortsCommand, SaysThatNothingWasChangedWhereTheFileCannotBeWritten) {
    const MountedFolder folder(kPackage, "size=64k");
    WriteFile(kPath, kNotesAndOther);
    folder.MakeReadOnly();
    const ProgramResult result = ServiceTool({"set-ports", "notes.sc", "notes", "8766/tcp"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.err, kPath +
                              ": error: the folder: read-only file system; the file is unchanged "
                              "[failed]\n");
    ExpectNothingDone();
}

// The attributes of the folder do not show this error.
TEST_F(SetPortsCommand, SaysWhatKeptTheFileFromBeingWritten) {
    const ProgramResult result =
        RunProgram({"strace", "-qq", "-o", "/dev/null", "-P", kPackage + ".tavo-write/new", "-e",
                    "trace=fsync", "-e", "inject=fsync:error=EIO", SERVICETOOL, "set-ports",
                    "notes.sc", "notes", "8766/tcp"},
                   "", {"ASAN_OPTIONS=detect_leaks=0"});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, HasSubstr(kPath + ": error: the folder: input/output error; the file "
                                              "is unchanged [failed]\n"));
    ExpectNothingDone();
}

}  // namespace
}  // namespace tavo::test

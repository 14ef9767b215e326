// The outcome that the operations report for a failed change: the step, and the error of the system
// or a program. Other tests cover the log lines and the results of the exported functions.
#include <sys/mount.h>

#include <cerrno>

#include "lifecycle/change.h"
#include "service_files_test.h"

namespace tavo::test {
namespace {

constexpr char kFile[] = "/usr/tavo/etc/services.d/web.sc";
constexpr char kText[] = "[web]\ntitle=\"T\"\ndesc=\"D\"\ndst.ports=\"8765/tcp\"\n";

class ChangeOutcomeTest : public LifecycleTest {
  protected:
    ChangeOutcomeTest() {
        WriteFile(kFile, kText);
        TLIBCErrSetEx(0, nullptr, 0);
    }

    void ExpectProgram(Step step, const char *program, int status) const {
        EXPECT_EQ(outcome_.failure.step, step);
        EXPECT_STREQ(outcome_.failure.program, program);
        EXPECT_EQ(outcome_.failure.status, status);
    }

    static TAVO_SERVICE_CONF_SET_PARAM SystemRemoval() {
        TAVO_SERVICE_CONF_SET_PARAM param = Param("web.sc", "web");
        param.nWriteMode = TAVO_WRITE_MODE_REMOVE;
        param.nCheckFlags = TAVO_PORT_CHECK_FW_SERVICE | 1;
        return param;
    }

    const Ports ports_ = MakePorts("8766/tcp");
    ChangeOutcome outcome_;
};

TEST_F(ChangeOutcomeTest, OfAChangeThatIsMadeHasNoFailure) {
    TAVO_SERVICE_CONF_SET_PARAM param = Param("web.sc", "web");
    param.nCheckFlags |= TAVO_PORT_CHECK_PORT_FORWARD;
    EXPECT_EQ(WritePorts(&param, ports_.get(), outcome_), 0);
    EXPECT_FALSE(outcome_.failure.HasFailed());
    EXPECT_EQ(outcome_.notified[Listener::kRouterTool].state, Notified::kYes);
    EXPECT_EQ(outcome_.notified[Listener::kFirewall].state, Notified::kNotReached);
}

TEST_F(ChangeOutcomeTest, HasTheStatusOfTheRouterTool) {
    SetExitStatus("tavoroutertool", "6");
    TAVO_SERVICE_CONF_SET_PARAM param = Param("web.sc", "web");
    param.nCheckFlags |= TAVO_PORT_CHECK_PORT_FORWARD;
    EXPECT_EQ(WritePorts(&param, ports_.get(), outcome_), 0);
    const Notification &router = outcome_.notified[Listener::kRouterTool];
    EXPECT_EQ(router.state, Notified::kFailed);
    EXPECT_EQ(router.failure.step, Step::kUpdateRouter);
    EXPECT_EQ(router.failure.status, 6);
}

TEST_F(ChangeOutcomeTest, NamesASectionThatIsMissing) {
    const TAVO_SERVICE_CONF_SET_PARAM param = Param("web.sc", "mail");
    EXPECT_EQ(WritePorts(&param, ports_.get(), outcome_), -1);
    EXPECT_EQ(outcome_.failure.step, Step::kMissingSection);
}

TEST_F(ChangeOutcomeTest, NamesAProgramThatIsMissing) {
    std::filesystem::rename("/bin/cp", "/bin/cp.old");
    const TAVO_SERVICE_CONF_SET_PARAM param = Param("web.sc", "web");
    EXPECT_EQ(WritePorts(&param, ports_.get(), outcome_), -1);
    ExpectProgram(Step::kCopy, "/bin/cp", -1);
    EXPECT_EQ(outcome_.failure.code, 0x700U);
    outcome_ = {};
    const TAVO_SERVICE_CONF_SET_PARAM removal = SystemRemoval();
    EXPECT_EQ(RemoveSection(&removal, outcome_), -1);
    ExpectProgram(Step::kBackUp, "/bin/cp", -1);
    EXPECT_EQ(outcome_.undo, Undo::kNotNeeded);
    std::filesystem::rename("/bin/cp.old", "/bin/cp");
    EXPECT_EQ(ReadFile(kFile), kText);
}

TEST_F(ChangeOutcomeTest, SaysThatTheStoresWerePutBack) {
    std::filesystem::remove(kFirewallTool);
    const TAVO_SERVICE_CONF_SET_PARAM param = SystemRemoval();
    EXPECT_EQ(RemoveSection(&param, outcome_), -1);
    ExpectProgram(Step::kFirewallRecord, kFirewallTool, -1);
    EXPECT_EQ(outcome_.undo, Undo::kDone);
    EXPECT_EQ(ReadFile(kFile), kText);
}

TEST_F(ChangeOutcomeTest, NamesTheFolderThatCannotBeMade) {
    WriteFile(std::string(kPackageServices) + "/tmp", "in the way");
    EXPECT_EQ(
        InstallFile("web.sc", kFile, TAVO_SERVICE_CONF_DIR_PACKAGE, nullptr, outcome_.failure), -1);
    ExpectProgram(Step::kMakeFolder, "/bin/mkdir", 1);
    EXPECT_EQ(outcome_.failure.path, std::string(kPackageServices) + "/tmp");
}

TEST_F(ChangeOutcomeTest, HasWhatTheSystemRefusedToAWriter) {
    ASSERT_EQ(mount("none", kSystemServices, "tmpfs", 0, nullptr), 0);
    WriteFile(kFile, kText);
    ASSERT_EQ(mount("none", kSystemServices, "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr), 0);
    const TAVO_SERVICE_CONF_SET_PARAM param = Param("web.sc", "web");
    EXPECT_EQ(WritePorts(&param, ports_.get(), outcome_), -1);
    EXPECT_EQ(outcome_.failure.step, Step::kWrite);
    EXPECT_EQ(outcome_.failure.error, EROFS);
    EXPECT_STREQ(outcome_.failure.path, kFile);
    outcome_ = {};
    EXPECT_EQ(SetSectionPorts(1, "web.sc", "web", ports_.get(), outcome_), -1);
    EXPECT_EQ(outcome_.failure.error, EROFS);
    EXPECT_EQ(RemoveFromFile(kFile, "web", outcome_.failure = {}), -1);
    EXPECT_EQ(outcome_.failure.error, EROFS);
    EXPECT_EQ(umount(kSystemServices), 0);
}

// ---- Setting the ports of a section without a conflict check ----

TEST_F(ChangeOutcomeTest, OfSectionPortsNamesTheStepAndThePath) {
    const auto expect_step = [this](const char *file, const char *section, Step step,
                                    const std::string &path) {
        outcome_ = {};
        EXPECT_EQ(SetSectionPorts(1, file, section, ports_.get(), outcome_), -1);
        EXPECT_EQ(outcome_.failure.step, step) << file << ' ' << section;
        EXPECT_EQ(outcome_.failure.path, path);
        EXPECT_EQ(outcome_.notified[Listener::kFirewall].state, Notified::kNotReached);
    };
    expect_step("../web.sc", "web", Step::kCheckArguments, "");
    expect_step("gone.sc", "web", Step::kMissingFile, "/usr/tavo/etc/services.d/gone.sc");
    expect_step("web.sc", "mail", Step::kWrite, kFile);
    std::filesystem::remove_all("/run/tavoserviceconf");
    WriteFile("/run/tavoserviceconf", "no folder");
    expect_step("web.sc", "web", Step::kLock, "/run/tavoserviceconf/system-services.lock");
    EXPECT_EQ(ReadFile(kFile), kText);
}

TEST_F(ChangeOutcomeTest, OfSectionPortsThatAreTooLongSaysSo) {
    std::string ports = "100";
    for (int port = 101; port < 300; ++port) {
        ports += ',' + std::to_string(port);
    }
    EXPECT_EQ(SetSectionPorts(1, "web.sc", "web", MakePorts(ports + "/tcp").get(), outcome_), -1);
    EXPECT_EQ(outcome_.failure.step, Step::kPrintPorts);
}

TEST_F(ChangeOutcomeTest, OfSectionPortsHasTheFailureOfTheFirewallTool) {
    EXPECT_EQ(SetSectionPorts(1, "web.sc", "web", ports_.get(), outcome_), 0);
    EXPECT_FALSE(outcome_.failure.HasFailed());
    EXPECT_EQ(outcome_.notified[Listener::kFirewall].state, Notified::kYes);
    std::filesystem::remove(kFirewallTool);
    EXPECT_EQ(SetSectionPorts(1, "web.sc", "web", ports_.get(), outcome_), -1);
    ExpectProgram(Step::kReload, kFirewallTool, -1);
}

// ---- Side copies ----

TEST_F(ChangeOutcomeTest, OfABackupNamesWhatIsInTheWay) {
    const TAVO_SERVICE_CONF_SET_PARAM param = SystemRemoval();
    const std::string copy = SideCopyOf(kSystemServices);
    std::filesystem::create_directory(copy);
    ASSERT_EQ(mount("none", copy.c_str(), "tmpfs", 0, nullptr), 0);
    EXPECT_EQ(BackUpStores(&param, outcome_.failure), -1);
    ExpectProgram(Step::kRemove, "/bin/rm", 1);
    EXPECT_EQ(outcome_.failure.path, copy);
    EXPECT_EQ(umount(copy.c_str()), 0);
}

TEST_F(ChangeOutcomeTest, OfARestoreNamesTheStoreThatIsMounted) {
    const TAVO_SERVICE_CONF_SET_PARAM param = SystemRemoval();
    ASSERT_EQ(BackUpStores(&param, outcome_.failure), 0);
    ASSERT_EQ(mount("none", kSystemServices, "tmpfs", 0, nullptr), 0);
    EXPECT_EQ(RestoreStores(&param, outcome_.failure), -1);
    EXPECT_EQ(outcome_.failure.step, Step::kRestore);
    EXPECT_EQ(outcome_.failure.error, EBUSY);
    EXPECT_STREQ(outcome_.failure.path, kSystemServices);
    EXPECT_EQ(umount(kSystemServices), 0);
}

TEST_F(ChangeOutcomeTest, OfADeletionNamesTheCopy) {
    const TAVO_SERVICE_CONF_SET_PARAM param = SystemRemoval();
    ASSERT_EQ(BackUpStores(&param, outcome_.failure), 0);
    std::filesystem::remove("/bin/rm");
    EXPECT_EQ(DeleteBackup(&param, outcome_.failure), -1);
    ExpectProgram(Step::kRemove, "/bin/rm", -1);
    EXPECT_EQ(outcome_.failure.path, SideCopyOf(kSystemServices));
}

TEST_F(ChangeOutcomeTest, ForgetsAnAttemptThatWasMadeAgain) {
    const TAVO_SERVICE_CONF_SET_PARAM param = SystemRemoval();
    WriteScript("/bin/cp",
                "[ -e /run/tried ] || { touch /run/tried; exit 1; }\n"
                "exec /usr/bin/cp \"$@\"");
    EXPECT_EQ(BackUpStores(&param, outcome_.failure), 0);
    EXPECT_TRUE(std::filesystem::exists("/run/tried"));
    EXPECT_FALSE(outcome_.failure.HasFailed());
    EXPECT_EQ(DeleteBackup(&param, outcome_.failure), 0);
}

TEST_F(ChangeOutcomeTest, SaysWhyTheStoresCouldNotBePutBack) {
    std::filesystem::remove(kFirewallTool);
    WriteScript("/bin/mv", "mkdir -p \"${@: -1}/other\"\nexit 1");
    const TAVO_SERVICE_CONF_SET_PARAM param = SystemRemoval();
    EXPECT_EQ(RemoveSection(&param, outcome_), -1);
    ExpectProgram(Step::kFirewallRecord, kFirewallTool, -1);
    EXPECT_EQ(outcome_.undo, Undo::kFailed);
    EXPECT_EQ(outcome_.undo_failure.step, Step::kRestore);
    EXPECT_STREQ(outcome_.undo_failure.program, "/bin/mv");
    EXPECT_EQ(outcome_.undo_failure.status, 1);
    EXPECT_EQ(outcome_.undo_failure.path, SideCopyOf(kSystemServices));
    EXPECT_EQ(ReadFile(SideCopyOf(kSystemServices) + "/web.sc"), kText);
}

}  // namespace
}  // namespace tavo::test

// What the operations report of a change that fails: the step, and what the system or a program
// reported. The log lines and results of the exported functions are the business of other tests.
#include <cerrno>

#include "lifecycle/change.h"
#include "lifecycle_test.h"

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

    static TAVO_SERVICE_CONF_SET_PARAM RemovalParam() {
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
    const TAVO_SERVICE_CONF_SET_PARAM removal = RemovalParam();
    EXPECT_EQ(RemoveSection(&removal, outcome_), -1);
    ExpectProgram(Step::kBackUp, "/bin/cp", -1);
    EXPECT_EQ(outcome_.undo, Undo::kNotNeeded);
    std::filesystem::rename("/bin/cp.old", "/bin/cp");
    EXPECT_EQ(ReadFile(kFile), kText);
}

TEST_F(ChangeOutcomeTest, SaysThatTheStoresWerePutBack) {
    std::filesystem::remove(kFirewallTool);
    const TAVO_SERVICE_CONF_SET_PARAM param = RemovalParam();
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

}  // namespace
}  // namespace tavo::test

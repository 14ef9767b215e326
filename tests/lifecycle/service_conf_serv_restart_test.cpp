// Restarting services, running the firewall tool, and passing the text of a file to a plugin.
#include <cerrno>
#include <optional>

#include "failing_allocation.h"
#include "lifecycle_test.h"
#include "stand_ins.h"
#include "tavopluginsdk.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// ---- Restart ----

class ServRestart : public LifecycleTest {};

TEST_F(ServRestart, RefusesFlagsOutOfRangeAndNotifiesNobody) {
    ActivateRelayDaemon();
    for (const int flags : {0, 32, 33, -1}) {
        TLIBCErrSetEx(0, nullptr, 0);
        EXPECT_EQ(TLIBServiceConfServRestart(flags), -1) << flags;
        EXPECT_EQ(ErrorState(), "0xD00 service_conf_serv_restart.cpp") << flags;
    }
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ServRestart, ReloadsWhatTheFlagsSay) {
    ActivateRelayDaemon();
    for (int flags = 1; flags <= 31; ++flags) {
        ForgetCalls();
        std::vector<std::string> expected;
        if ((flags & 1) != 0) {
            expected = {kFirewallReloaded, kRelayAsked, kRelayReloaded};
        } else if ((flags & 2) != 0) {
            expected = {kRelayAsked, kRelayReloaded};
        }
        EXPECT_EQ(TLIBServiceConfServRestart(flags), 0) << flags;
        EXPECT_EQ(Calls(), expected) << flags;
    }
    EXPECT_EQ(TLIBCErrGet(), 0U);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ServRestart, LeavesARelayDaemonAloneThatDoesNotRun) {
    EXPECT_EQ(TLIBServiceConfServRestart(TAVO_RESTART_RELAY), 0);
    EXPECT_THAT(Calls(), ElementsAre(kRelayAsked));
}

TEST_F(ServRestart, LeavesARelayDaemonOfUnknownStateAlone) {
    ActivateRelayDaemon();
    Programs programs;
    programs.Answer("/bin/systemctl", -1);
    EXPECT_EQ(TLIBServiceConfServRestart(TAVO_RESTART_RELAY), 0);
    EXPECT_THAT(programs.Run(), ElementsAre("/bin/systemctl is-active --quiet tavorelayd"));
}

TEST_F(ServRestart, SwallowsThatTheRelayDaemonCannotReload) {
    ActivateRelayDaemon();
    SetExitStatus("systemctl", "0\n1");
    EXPECT_EQ(TLIBServiceConfServRestart(TAVO_RESTART_RELAY), 0);
    EXPECT_THAT(Calls(), ElementsAre(kRelayAsked, kRelayReloaded));
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ServRestart, FailsWithoutAFirewallToolAndLeavesTheRelayDaemonAlone) {
    ActivateRelayDaemon();
    std::filesystem::remove(kFirewallTool);
    EXPECT_EQ(TLIBServiceConfServRestart(TAVO_RESTART_FIREWALL | TAVO_RESTART_RELAY), -1);
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_THAT(Messages(), ElementsAre("Failed to execute [/usr/tavo/bin/tavofirewall --reload], "
                                        "ret:-1"));
    EXPECT_EQ(ErrorState(), "0x700 exec.cpp");
}

// ---- The firewall tool ----

TEST_F(ServRestart, RunsTheFirewallToolWithTheOptionsOfThePlatform) {
    Programs programs;
    EXPECT_EQ(TAVOFwRuleHupWrap(), 0);
    EXPECT_EQ(TLIBFwServRemoveRecWrap("web server"), 0);
    EXPECT_THAT(programs.Run(), ElementsAre("/usr/tavo/bin/tavofirewall --reload",
                                            "/usr/tavo/bin/tavofirewall --remove-serv-rec web "
                                            "server"));
    EXPECT_THAT(programs.Options(), ElementsAre(187, 187));
    EXPECT_THAT(Calls("tavofirewall"),
                ElementsAre(kFirewallReloaded, "tavofirewall --remove-serv-rec web\\ server"));
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ServRestart, DoesNotLookAtHowTheFirewallToolEnds) {
    ActivateRelayDaemon();
    SetExitStatus("tavofirewall", "1");
    EXPECT_EQ(TAVOFwRuleHupWrap(), 0);
    EXPECT_EQ(TLIBFwServRemoveRecWrap("web"), 0);
    EXPECT_EQ(TLIBServiceConfServRestart(TAVO_RESTART_FIREWALL), 0);
    EXPECT_EQ(Calls().back(), kRelayReloaded);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ServRestart, SaysWhatTheFirewallToolAnswered) {
    Programs programs;
    programs.Answer(kFirewallTool, -7);
    EXPECT_EQ(TAVOFwRuleHupWrap(), -1);
    EXPECT_EQ(TLIBFwServRemoveRecWrap("web"), -1);
    EXPECT_EQ(TLIBCErrGet(), 0U);
    EXPECT_THAT(
        Messages(),
        ElementsAre(
            "Failed to execute [/usr/tavo/bin/tavofirewall --reload], ret:-7",
            "Failed to execute [/usr/tavo/bin/tavofirewall --remove-serv-rec web], ret:-7"));
}

TEST_F(ServRestart, RemovesNoRecordWithoutAName) {
    EXPECT_EQ(TLIBFwServRemoveRecWrap(nullptr), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_conf_serv_restart.cpp");
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ServRestart, ReportsEveryFailingAllocation) {
    ActivateRelayDaemon();
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        const int result =
            fail.During([] { return TLIBServiceConfServRestart(TAVO_RESTART_FIREWALL); });
        EXPECT_TRUE(result == 0 || (TLIBCErrGet() == 0x200 && Messages().size() == 1)) << result;
        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        const int removed = fail.During([] { return TLIBFwServRemoveRecWrap("web"); });
        EXPECT_EQ(removed, fail.Hit() ? -1 : 0);
        EXPECT_EQ(TLIBCErrGet(), fail.Hit() ? 0x200U : 0U);
    });
    EXPECT_GT(allocations, 0);
}

// ---- The text of a file as an argument ----

class PluginArgument : public LifecycleTest {
  protected:
    PluginArgument() : handle_(TLIBPluginSDKInit("port_config", "test")) {
        TLIBPluginSetArg(handle_, "KEY", "untouched");
    }
    ~PluginArgument() override { TLIBPluginExit(handle_); }

    int Set(const char *path) { return PluginArgSetFileContent(handle_, "KEY", path); }

    // The argument that a plugin receives.
    std::string Received() {
        ForgetCalls();
        EXPECT_EQ(TLIBPluginAction(5, handle_), 0);
        const std::vector<std::string> call = Calls("portforward");
        return call.size() == 2 ? call[1].substr(2) : "";
    }

    struct Fault {
        const char *function;
        const char *about;
        int error = 0;
    };

    // Expects a failure with these log lines, caused by `path` or by `fault`, and an unchanged
    // argument.
    void ExpectFailure(const char *path, const std::vector<std::string> &messages,
                       std::optional<Fault> fault = {}) {
        {
            std::optional<Failing> failing;
            if (fault) {
                failing.emplace(fault->function, fault->about, fault->error);
            }
            EXPECT_EQ(Set(path), -1);
        }
        EXPECT_EQ(Messages(), messages);
        EXPECT_EQ(Received(), "KEY=untouched");
        log_.Clear();
    }

    static constexpr char kFile[] = "/var/tmp/web.sc";

    TLIBPluginHandle *handle_;
};

TEST_F(PluginArgument, IsSilentlyNoneWithoutAPath) {
    ExpectFailure(nullptr, {});
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_F(PluginArgument, IsTheWholeTextOfAFile) {
    WriteFile(kFile, "a=b \"c\" $d\n");
    EXPECT_EQ(Set(kFile), 0);
    EXPECT_EQ(Received(), R"($'KEY=a=b "c" $d\n')");
    const std::string text(1 << 16, 'x');
    WriteFile(kFile, text);
    EXPECT_EQ(Set(kFile), 0);
    EXPECT_EQ(Received(), "KEY=" + text);
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_F(PluginArgument, IsEmptyForAFileThatIsEmptyOrMissing) {
    WriteFile(kFile, "");
    for (const char *path : {kFile, "/var/tmp/missing", "", "/etc/hosts/under-a-file"}) {
        TLIBPluginSetArg(handle_, "KEY", "untouched");
        EXPECT_EQ(Set(path), 0) << path;
        EXPECT_EQ(Received(), "KEY=") << path;
    }
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PluginArgument, EndsAtTheFirstNulByte) {
    WriteFile(kFile, std::string_view("before\0behind", 13));
    EXPECT_EQ(Set(kFile), 0);
    EXPECT_EQ(Received(), "KEY=before");
}

TEST_F(PluginArgument, IsAsLongAsTheFileWasWhenItWasOpened) {
    WriteFile(kFile, "12345");
    {
        const Before before("read", [] { WriteFile(kFile, "1234567890"); });
        EXPECT_EQ(Set(kFile), 0);
    }
    EXPECT_EQ(Received(), "KEY=12345");
    {
        const Before before("read", [] { WriteFile(kFile, "12"); });
        EXPECT_EQ(Set(kFile), 0);
    }
    EXPECT_EQ(Received(), "KEY=12");
}

TEST_F(PluginArgument, IsReadOnWhereAReadEndsEarly) {
    WriteFile(kFile, "text");
    {
        const ShortReads reads;
        EXPECT_EQ(Set(kFile), 0);
    }
    EXPECT_EQ(Received(), "KEY=text");
    TLIBPluginSetArg(handle_, "KEY", "untouched");
    {
        Failing failing("read", "", EINTR);
        failing.Once();
        EXPECT_EQ(Set(kFile), 0);
    }
    EXPECT_EQ(Received(), "KEY=text");
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PluginArgument, NeedsAFileThatCanBeRead) {
    ExpectFailure("/dev", {"FAILED to lseek to SEEK_END err=Invalid argument"});
    ASSERT_EQ(mkfifo("/var/tmp/pipe", 0600), 0);
    ExpectFailure("/var/tmp/pipe", {"FAILED to lseek to SEEK_END err=Illegal seek"});
}

TEST_F(PluginArgument, SaysWhichStepFailed) {
    WriteFile(kFile, "text");
    ExpectFailure(kFile, {"FAILED to open /var/tmp/web.sc"}, Fault{"open", kFile, EACCES});
    ExpectFailure(kFile, {"FAILED to lseek to SEEK_END err=Input/output error"},
                  Fault{"lseek", "end", EIO});
    ExpectFailure(kFile, {"FAILED to lseek to begining"}, Fault{"lseek", "start", EIO});
    ExpectFailure(kFile,
                  {"FAILED to read content from /var/tmp/web.sc nRead=-1 err=Input/output error"},
                  Fault{"read", "", EIO});
    // The log line is the same for all keys.
    ExpectFailure(kFile, {"FAILED to set OLD_TMP_PORT_CONFIG"}, Fault{"TLIBPluginSetArg", "KEY"});
}

TEST_F(PluginArgument, SaysWhatNoMemoryIsLeftFor) {
    FailingAllocation first(1, FailingAllocation::Mode::kOnlyNth);
    EXPECT_EQ(first.During([&] { return Set("/var/tmp/missing"); }), -1);
    EXPECT_THAT(Messages(),
                ElementsAre("FAILED to malloc sizeof 1 char, err=Cannot allocate memory"));
    log_.Clear();
    WriteFile(kFile, "12345");
    EXPECT_EQ(first.During([&] { return Set(kFile); }), -1);
    EXPECT_THAT(Messages(), ElementsAre("FAILED to malloc 6, err=Cannot allocate memory"));
    EXPECT_EQ(Received(), "KEY=untouched");
}

}  // namespace
}  // namespace tavo::test

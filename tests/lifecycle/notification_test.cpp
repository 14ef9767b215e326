// The outcome that the operations report for each listener. Other tests cover the log lines and the
// results of the exported functions.
#include "lifecycle/notification.h"

#include <dlfcn.h>

#include <cerrno>

#include "lifecycle_test.h"
#include "tavopluginsdk.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kPlugin[] = "/usr/tavo/lib/plugins/port_config/portforward";
constexpr char kOldFile[] = "/var/tmp/old.sc";
constexpr char kNewFile[] = "/var/tmp/new.sc";
constexpr const char *kPipe = "/var/tmp/pipe.sc";

bool no_plugin_library = false;
std::string refused_argument;

// "yes", "not running", "not reached", or "failed at STEP".
std::string StateOf(const Notification &notification) {
    switch (notification.state) {
        case Notified::kYes:
            return "yes";
        case Notified::kNotRunning:
            return "not running";
        case Notified::kNotReached:
            return "not reached";
        default:
            return "failed at " + std::to_string(static_cast<int>(notification.failure.step));
    }
}

std::string FailedAt(Step step) {
    return "failed at " + std::to_string(static_cast<int>(step));
}

class NotificationTest : public LifecycleTest {
  protected:
    NotificationTest() {
        ActivateRelayDaemon();
        WriteFile(kOldFile, "old ports\n");
        WriteFile(kNewFile, "new ports\n");
        notified_.plugins = &plugins_;
    }
    ~NotificationTest() override {
        no_plugin_library = false;
        refused_argument.clear();
    }

    void Update(const char *old_file = kOldFile, const char *new_file = kNewFile) {
        TAVO_SERVICE_CONF_NOTIFY notify = {};
        Fill(notify.szOldConfPath, old_file);
        Fill(notify.szNewConfPath, new_file);
        notify.blNotifyFw = 1;
        notify.blNotifyPf = 1;
        TLIBCErrSetEx(0, nullptr, 0);
        NotifyOfUpdate(notify, notified_);
    }

    void Remove(const char *file = kOldFile) {
        TLIBCErrSetEx(0, nullptr, 0);
        NotifyOfRemoval({file, 1, 1}, notified_);
    }

    // Expects these states from both kinds of plugin notification, each with a new record of
    // states.
    template <typename Prepare>
    void ExpectOfBoth(const std::string &plugins, const std::string &relay, Prepare prepare) {
        for (const auto notify : {&NotificationTest::UpdateOnce, &NotificationTest::RemoveOnce}) {
            Forget();
            prepare();
            (this->*notify)();
            EXPECT_EQ(StateOf(Of(Listener::kPlugins)), plugins);
            EXPECT_EQ(StateOf(Of(Listener::kRelayDaemon)), relay);
            EXPECT_EQ(StateOf(Of(Listener::kFirewall)), "not reached");
            EXPECT_EQ(StateOf(Of(Listener::kRouterTool)), "not reached");
        }
    }
    void UpdateOnce() { Update(); }
    void RemoveOnce() { Remove(); }

    void Forget() {
        for (int i = 0; i < kListenerCount; ++i) {
            notified_[static_cast<Listener>(i)] = {};
        }
        plugins_.Truncate(0);
    }

    const Notification &Of(Listener listener) const { return notified_[listener]; }
    const StepFailure &FailureOf(Listener listener) const { return notified_[listener].failure; }

    // "PATH STATUS" of each plugin that ran.
    std::vector<std::string> Plugins() const {
        std::vector<std::string> plugins;
        for (const PluginResult &plugin : plugins_) {
            plugins.push_back(std::string(plugin.path) + ' ' + std::to_string(plugin.status));
        }
        return plugins;
    }

    GrowingArray<PluginResult> plugins_;
    Notifications notified_;
};

TEST_F(NotificationTest, ReachesThePluginsAndTheRelayDaemon) {
    ExpectOfBoth("yes", "yes", [] {});
    EXPECT_THAT(Plugins(), ElementsAre(std::string(kPlugin) + " 0"));
    EXPECT_FALSE(notified_.plugins_incomplete);
}

TEST_F(NotificationTest, ListsNoPluginsUnlessAskedTo) {
    notified_.plugins = nullptr;
    SetExitStatus("portforward", "1");
    Update();
    EXPECT_EQ(StateOf(Of(Listener::kPlugins)), FailedAt(Step::kRunPlugins));
    EXPECT_STREQ(FailureOf(Listener::kPlugins).path, "");
    EXPECT_EQ(FailureOf(Listener::kPlugins).program, nullptr);
}

TEST_F(NotificationTest, NamesThePluginThatFailed) {
    ExpectOfBoth(FailedAt(Step::kRunPlugins), "not reached",
                 [] { SetExitStatus("portforward", "7"); });
    EXPECT_STREQ(FailureOf(Listener::kPlugins).path, kPlugin);
    EXPECT_EQ(FailureOf(Listener::kPlugins).status, 7);
    EXPECT_EQ(FailureOf(Listener::kRelayDaemon).step, Step::kRunPlugins);
    EXPECT_EQ(FailureOf(Listener::kRelayDaemon).status, 7);
    EXPECT_THAT(Plugins(), ElementsAre(std::string(kPlugin) + " 7"));
}

TEST_F(NotificationTest, ReachesNobodyWithoutThePluginLibrary) {
    no_plugin_library = true;
    ExpectOfBoth(FailedAt(Step::kPreparePlugins), "not reached", [] {});
    EXPECT_THAT(Plugins(), IsEmpty());
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(NotificationTest, HasFailedForPluginsThatWereNotGivenTheFiles) {
    ASSERT_EQ(mkfifo(kPipe, 0600), 0);
    struct {
        const char *old_file;
        const char *new_file;
        const char *failed;
        int error;
    } const cases[] = {
        {kPipe, kNewFile, kPipe, ESPIPE},
        {kOldFile, kPipe, kPipe, ESPIPE},
        {"", kNewFile, "", 0},
        {kOldFile, "", "", 0},
    };
    for (const auto &[old_file, new_file, failed, error] : cases) {
        Forget();
        Update(old_file, new_file);
        EXPECT_EQ(StateOf(Of(Listener::kPlugins)), FailedAt(Step::kPreparePlugins));
        EXPECT_EQ(StateOf(Of(Listener::kRelayDaemon)), "yes");
        EXPECT_STREQ(FailureOf(Listener::kPlugins).path, failed);
        EXPECT_EQ(FailureOf(Listener::kPlugins).error, error);
        EXPECT_THAT(Plugins(), ElementsAre(std::string(kPlugin) + " 0"));
    }
    for (const char *file : {kPipe, static_cast<const char *>(nullptr)}) {
        Forget();
        Remove(file);
        EXPECT_EQ(StateOf(Of(Listener::kPlugins)), FailedAt(Step::kPreparePlugins));
        EXPECT_EQ(StateOf(Of(Listener::kRelayDaemon)), "yes");
    }
}

TEST_F(NotificationTest, HasFailedForPluginsThatDoNotKnowWhoIsToAct) {
    for (const char *argument : {"NOTIFY_PF", "NOTIFY_FW"}) {
        refused_argument = argument;
        ExpectOfBoth(FailedAt(Step::kPreparePlugins), "yes", [] {});
    }
}

TEST_F(NotificationTest, KeepsTheFailuresOfPluginsAndOfTheRelayDaemonApart) {
    refused_argument = "NOTIFY_PF";
    ExpectOfBoth(FailedAt(Step::kPreparePlugins), FailedAt(Step::kReload),
                 [] { SetExitStatus("systemctl", "0\n1"); });
}

TEST_F(NotificationTest, SaysThatTheRelayDaemonDoesNotRun) {
    std::filesystem::remove("/run/active-units");
    ExpectOfBoth("yes", "not running", [] {});
    Forget();
    EXPECT_EQ(RestartServices(TAVO_RESTART_RELAY, notified_), 0);
    EXPECT_EQ(StateOf(Of(Listener::kRelayDaemon)), "not running");
}

TEST_F(NotificationTest, SaysThatTheRelayDaemonWasNotReloaded) {
    const auto fail = [] { SetExitStatus("systemctl", "0\n1"); };
    ExpectOfBoth("yes", FailedAt(Step::kReload), fail);
    Forget();
    fail();
    EXPECT_EQ(RestartServices(TAVO_RESTART_RELAY, notified_), 0);
    EXPECT_EQ(StateOf(Of(Listener::kRelayDaemon)), FailedAt(Step::kReload));
    EXPECT_STREQ(FailureOf(Listener::kRelayDaemon).path, "tavorelayd");
    EXPECT_EQ(FailureOf(Listener::kRelayDaemon).code, 0x900U);
}

TEST_F(NotificationTest, DoesNotKnowWhetherTheRelayDaemonRuns) {
    const auto fail = [] { SetExitStatus("systemctl", "130"); };
    ExpectOfBoth("yes", FailedAt(Step::kQueryService), fail);
    Forget();
    fail();
    EXPECT_EQ(RestartServices(TAVO_RESTART_RELAY, notified_), 0);
    EXPECT_EQ(StateOf(Of(Listener::kRelayDaemon)), FailedAt(Step::kQueryService));
}

TEST_F(NotificationTest, OfARestartReachesTheFirewallAndThenTheRelayDaemon) {
    EXPECT_EQ(RestartServices(TAVO_RESTART_FIREWALL, notified_), 0);
    EXPECT_EQ(StateOf(Of(Listener::kFirewall)), "yes");
    EXPECT_EQ(StateOf(Of(Listener::kRelayDaemon)), "yes");
    EXPECT_EQ(StateOf(Of(Listener::kPlugins)), "not reached");
}

TEST_F(NotificationTest, EndsAtAFirewallToolThatCannotBeRun) {
    std::filesystem::remove(kFirewallTool);
    EXPECT_EQ(RestartServices(TAVO_RESTART_FIREWALL, notified_), -1);
    EXPECT_EQ(StateOf(Of(Listener::kFirewall)), FailedAt(Step::kReload));
    EXPECT_STREQ(FailureOf(Listener::kFirewall).program, kFirewallTool);
    EXPECT_EQ(FailureOf(Listener::kFirewall).status, -1);
    EXPECT_EQ(FailureOf(Listener::kFirewall).code, 0x700U);
    EXPECT_EQ(StateOf(Of(Listener::kRelayDaemon)), "not reached");
    EXPECT_STREQ(FailureOf(Listener::kRelayDaemon).program, kFirewallTool);
    EXPECT_EQ(FailureOf(Listener::kRelayDaemon).status, -1);
}

// The exported function treats a tool that ran as a success, so the relay daemon is reloaded.
TEST_F(NotificationTest, SaysThatTheFirewallToolFailed) {
    SetExitStatus("tavofirewall", "3");
    EXPECT_EQ(RestartServices(TAVO_RESTART_FIREWALL, notified_), 0);
    EXPECT_EQ(StateOf(Of(Listener::kFirewall)), FailedAt(Step::kReload));
    EXPECT_EQ(FailureOf(Listener::kFirewall).status, 3);
    EXPECT_EQ(StateOf(Of(Listener::kRelayDaemon)), "yes");
}

TEST_F(NotificationTest, KeepsTheFirstFailureOfAListener) {
    SetExitStatus("tavofirewall", "3\n0");
    EXPECT_EQ(RemoveFirewallRecord("web", notified_), 0);
    EXPECT_EQ(RestartServices(TAVO_RESTART_FIREWALL, notified_), 0);
    EXPECT_EQ(StateOf(Of(Listener::kFirewall)), FailedAt(Step::kFirewallRecord));
    EXPECT_THAT(Calls("tavofirewall"),
                ElementsAre("tavofirewall --remove-serv-rec web", kFirewallReloaded));
}

}  // namespace
}  // namespace tavo::test

// The symbols of the program take precedence over those of a library.
extern "C" __attribute__((visibility("default"))) TLIBPluginHandle *TLIBPluginSDKInit(
    const char *group, const char *action) {
    static const auto next =
        reinterpret_cast<decltype(&TLIBPluginSDKInit)>(dlsym(RTLD_NEXT, "TLIBPluginSDKInit"));
    return tavo::test::no_plugin_library ? nullptr : next(group, action);
}

extern "C" __attribute__((visibility("default"))) int TLIBPluginSetArg(TLIBPluginHandle *handle,
                                                                       const char *key,
                                                                       const char *value) {
    static const auto next =
        reinterpret_cast<decltype(&TLIBPluginSetArg)>(dlsym(RTLD_NEXT, "TLIBPluginSetArg"));
    return tavo::test::refused_argument == key ? -1 : next(handle, key, value);
}

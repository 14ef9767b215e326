// Notifying the listeners of declared ports: the arguments that a plugin receives, in order, and
// the arguments that are missing after a failed step.
#include "failing_allocation.h"
#include "lifecycle_test.h"
#include "stand_ins.h"
#include "tavopluginsdk.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kOldFile[] = "/var/tmp/old.sc";
constexpr char kNewFile[] = "/var/tmp/new.sc";

class ServNotify : public LifecycleTest {
  protected:
    ServNotify() {
        ActivateRelayDaemon();
        WriteFile(kOldFile, "old ports\n");
        WriteFile(kNewFile, "new ports\n");
        Fill(update_.szOldConfPath, kOldFile);
        Fill(update_.szNewConfPath, kNewFile);
        update_.blNotifyFw = 1;
        update_.blNotifyPf = 1;
    }

    static constexpr char kUpdated[] = "portforward port_config/update";
    static constexpr char kRemoved[] = "portforward port_config/remove";
    static constexpr char kForwarding[] = "< NOTIFY_PF=1";
    static constexpr char kFirewall[] = "< NOTIFY_FW=1";

    // Expects that the plugin was called with these arguments and the relay daemon was reloaded.
    static void ExpectTold(std::vector<std::string> call) {
        call.insert(call.end(), {kRelayAsked, kRelayReloaded});
        EXPECT_EQ(Calls(), call);
    }

    TAVO_SERVICE_CONF_NOTIFY update_ = {};
    TAVO_SERVICE_CONF_REMOVE_NOTIFY remove_ = {kOldFile, 1, 1};
};

using UpdateServNotify = ServNotify;

TEST_F(UpdateServNotify, RefusesNothing) {
    EXPECT_EQ(TLIBServiceConfUpdateServNotify(nullptr), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_conf_serv_restart.cpp");
    TLIBCErrSetEx(0, nullptr, 0);
    EXPECT_EQ(TLIBServiceConfServNotify(nullptr), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_conf_serv_restart.cpp");
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(UpdateServNotify, SendsBothTextsToPluginsAndThenReloadsTheRelayDaemon) {
    for (auto *notify : {TLIBServiceConfUpdateServNotify, TLIBServiceConfServNotify}) {
        ForgetCalls();
        EXPECT_EQ(notify(&update_), 0);
        ExpectTold({kUpdated, "< $'OLD_PORT_CONFIG_CONTENT=old ports\\n'",
                    "< $'NEW_PORT_CONFIG_CONTENT=new ports\\n'", kForwarding, kFirewall});
    }
    EXPECT_EQ(TLIBCErrGet(), 0U);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(UpdateServNotify, ReportsPortForwardingAndTheFirewallApart) {
    update_.blNotifyFw = 0;
    update_.blNotifyPf = 2;
    EXPECT_EQ(TLIBServiceConfUpdateServNotify(&update_), 0);
    ExpectTold({kUpdated, "< $'OLD_PORT_CONFIG_CONTENT=old ports\\n'",
                "< $'NEW_PORT_CONFIG_CONTENT=new ports\\n'", kForwarding});
    ForgetCalls();
    update_.blNotifyFw = 2;
    update_.blNotifyPf = 0;
    EXPECT_EQ(TLIBServiceConfUpdateServNotify(&update_), 0);
    ExpectTold({kUpdated, kFirewall});
    ForgetCalls();
    update_.blNotifyFw = 0;
    EXPECT_EQ(TLIBServiceConfUpdateServNotify(&update_), 0);
    ExpectTold({kUpdated});
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(UpdateServNotify, LeavesARelayDaemonAloneThatDoesNotRun) {
    std::filesystem::remove("/run/active-units");
    EXPECT_EQ(TLIBServiceConfUpdateServNotify(&update_), 0);
    EXPECT_EQ(Calls().back(), kRelayAsked);
    EXPECT_EQ(TLIBServiceConfRemoveServNotify(&remove_), 0);
    EXPECT_EQ(Calls().back(), kRelayAsked);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ServNotify, SaysThatTheRelayDaemonCannotReload) {
    SetExitStatus("systemctl", "0\n1\n0\n1");
    EXPECT_EQ(TLIBServiceConfUpdateServNotify(&update_), 0);
    EXPECT_EQ(TLIBServiceConfRemoveServNotify(&remove_), 0);
    EXPECT_THAT(Messages(), ElementsAre("FAILED to notify tavorelayd for update conf",
                                        "FAILED to notify tavorelayd for remove conf"));
}

TEST_F(UpdateServNotify, SendsNoTextWithoutAPath) {
    struct {
        const char *old_path;
        const char *new_path;
        const char *message;
    } constexpr cases[] = {
        {"", kNewFile, "FAILED to notify portforward, old sc file is empty"},
        {kOldFile, "", "FAILED to notify portforward, new sc file is empty"},
        {"", "", "FAILED to notify portforward, old sc file is empty"},
    };
    for (const auto &[old_path, new_path, message] : cases) {
        ForgetCalls();
        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        Fill(update_.szOldConfPath, old_path);
        Fill(update_.szNewConfPath, new_path);
        EXPECT_EQ(TLIBServiceConfUpdateServNotify(&update_), 0);
        ExpectTold({kUpdated, "< OLD_PORT_CONFIG_CONTENT=", "< NEW_PORT_CONFIG_CONTENT=",
                    kForwarding, kFirewall});
        EXPECT_THAT(Messages(), ElementsAre(message, "FAILED to set common arg for update"));
        EXPECT_EQ(ErrorState(), "0xD00 service_conf_serv_restart.cpp");
    }
}

TEST_F(UpdateServNotify, DoesNotNeedPathsForTheFirewall) {
    update_ = {};
    update_.blNotifyFw = 1;
    EXPECT_EQ(TLIBServiceConfUpdateServNotify(&update_), 0);
    ExpectTold({kUpdated, kFirewall});
    EXPECT_EQ(TLIBCErrGet(), 0U);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(UpdateServNotify, SendsAMissingFileAsAnEmptyText) {
    std::filesystem::remove(kOldFile);
    std::filesystem::remove(kNewFile);
    EXPECT_EQ(TLIBServiceConfUpdateServNotify(&update_), 0);
    ExpectTold({kUpdated, "< OLD_PORT_CONFIG_CONTENT=", "< NEW_PORT_CONFIG_CONTENT=", kForwarding,
                kFirewall});
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(UpdateServNotify, TakesNoFileForMissingThatItCannotLookAt) {
    TLIBPluginHandle *plugins = TLIBPluginSDKInit("port_config", "port_config/update");
    {
        const Failing look("stat", "/etc/tavoinfo.conf", EIO);
        EXPECT_EQ(PluginArgSetFileContent(plugins, "KEY", "/etc/tavoinfo.conf"), 0);
        EXPECT_EQ(PluginArgSetFileContent(plugins, "KEY", "/etc/missing.conf"), 0);
    }
    {
        const Failing look("stat", "/etc/missing.conf", EIO);
        EXPECT_EQ(PluginArgSetFileContent(plugins, "KEY", "/etc/missing.conf"), -1);
    }
    EXPECT_THAT(Messages(), ElementsAre("FAILED to open /etc/missing.conf"));
    TLIBPluginExit(plugins);
}

// A folder in a tmpfs does not support seeking to its end.
TEST_F(UpdateServNotify, SendsNoTextWhenEitherCannotBeRead) {
    Fill(update_.szOldConfPath, "/dev");
    EXPECT_EQ(TLIBServiceConfUpdateServNotify(&update_), 0);
    ExpectTold({kUpdated, "< OLD_PORT_CONFIG_CONTENT=", "< NEW_PORT_CONFIG_CONTENT=", kForwarding,
                kFirewall});
    EXPECT_THAT(Messages(),
                ElementsAre("FAILED to lseek to SEEK_END err=Invalid argument",
                            "FAILED to set content for OLD_PORT_CONFIG_CONTENTwith file=/dev",
                            "FAILED to set common arg for update"));
    ForgetCalls();
    log_.Clear();
    Fill(update_.szOldConfPath, kOldFile);
    Fill(update_.szNewConfPath, "/dev");
    EXPECT_EQ(TLIBServiceConfUpdateServNotify(&update_), 0);
    ExpectTold({kUpdated, "< OLD_PORT_CONFIG_CONTENT=", "< NEW_PORT_CONFIG_CONTENT=", kForwarding,
                kFirewall});
    EXPECT_THAT(Messages(),
                ElementsAre("FAILED to lseek to SEEK_END err=Invalid argument",
                            "FAILED to set content for NEW_PORT_CONFIG_CONTENTwith file=/dev",
                            "FAILED to set common arg for update"));
}

TEST_F(UpdateServNotify, ReadsPathsThatFillTheirFields) {
    std::string path = "/";
    path.append(sizeof(update_.szOldConfPath) - 1, 'a');
    Fill(update_.szOldConfPath, path);
    Fill(update_.szNewConfPath, path);
    EXPECT_EQ(TLIBServiceConfUpdateServNotify(&update_), 0);
    ExpectTold({kUpdated, "< OLD_PORT_CONFIG_CONTENT=", "< NEW_PORT_CONFIG_CONTENT=", kForwarding,
                kFirewall});
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ServNotify, NotifiesNobodyWithoutThePluginInterface) {
    const Failing failing("TLIBPluginSDKInit");
    EXPECT_EQ(TLIBServiceConfUpdateServNotify(&update_), 0);
    EXPECT_EQ(TLIBServiceConfRemoveServNotify(&remove_), 0);
    EXPECT_THAT(Messages(), ElementsAre("FAILED to init plugin sdk", "FAILED to init plugin sdk"));
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(ServNotify, LeavesTheRelayDaemonAloneWhenAPluginFails) {
    SetExitStatus("portforward", "1");
    EXPECT_EQ(TLIBServiceConfUpdateServNotify(&update_), 0);
    EXPECT_EQ(TLIBServiceConfRemoveServNotify(&remove_), 0);
    EXPECT_THAT(Messages(), ElementsAre("FAILED to invoke plugins", "FAILED to invoke plugins"));
    EXPECT_THAT(Calls("systemctl"), IsEmpty());
    EXPECT_EQ(Calls("portforward").size(), 9U);
}

TEST_F(ServNotify, InvokesPluginsInTheModeOfThePlatform) {
    const Failing failing("TLIBPluginAction", "5");
    EXPECT_EQ(TLIBServiceConfUpdateServNotify(&update_), 0);
    EXPECT_EQ(TLIBServiceConfRemoveServNotify(&remove_), 0);
    EXPECT_THAT(Messages(), ElementsAre("FAILED to invoke plugins", "FAILED to invoke plugins"));
    EXPECT_THAT(Calls(), IsEmpty());
}

// Each case has the argument that cannot be set at first, and the effect of this failure.
TEST_F(UpdateServNotify, CarriesOnWithoutAnArgumentThatCannotBeSet) {
    const struct {
        const char *key;
        std::vector<std::string> call;
        std::vector<std::string> messages;
    } cases[] = {
        {"OLD_PORT_CONFIG_CONTENT",
         {kUpdated, "< OLD_PORT_CONFIG_CONTENT=", "< NEW_PORT_CONFIG_CONTENT=", kForwarding,
          kFirewall},
         {"FAILED to set OLD_TMP_PORT_CONFIG",
          "FAILED to set content for OLD_PORT_CONFIG_CONTENTwith file=/var/tmp/old.sc",
          "FAILED to set common arg for update"}},
        {"NEW_PORT_CONFIG_CONTENT",
         {kUpdated, "< OLD_PORT_CONFIG_CONTENT=", "< NEW_PORT_CONFIG_CONTENT=", kForwarding,
          kFirewall},
         {"FAILED to set OLD_TMP_PORT_CONFIG",
          "FAILED to set content for NEW_PORT_CONFIG_CONTENTwith file=/var/tmp/new.sc",
          "FAILED to set common arg for update"}},
        {"NOTIFY_PF",
         {kUpdated, "< $'OLD_PORT_CONFIG_CONTENT=old ports\\n'",
          "< $'NEW_PORT_CONFIG_CONTENT=new ports\\n'", kFirewall},
         {"FAILED to set NOTIFY_PF", "FAILED to set update pf arg"}},
        {"NOTIFY_FW",
         {kUpdated, "< $'OLD_PORT_CONFIG_CONTENT=old ports\\n'",
          "< $'NEW_PORT_CONFIG_CONTENT=new ports\\n'", kForwarding},
         {"FAILED to set NOTIFY_FW", "FAILED to set update fw arg"}},
    };
    for (const auto &[key, call, messages] : cases) {
        ForgetCalls();
        log_.Clear();
        Failing failing("TLIBPluginSetArg", key);
        failing.Once();
        EXPECT_EQ(TLIBServiceConfUpdateServNotify(&update_), 0) << key;
        ExpectTold(call);
        EXPECT_EQ(Messages(), messages) << key;
    }
}

TEST_F(UpdateServNotify, NotifiesNobodyWhenNobodyCouldAct) {
    const Failing failing("TLIBPluginSetArg");
    EXPECT_EQ(TLIBServiceConfUpdateServNotify(&update_), 0);
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_THAT(Messages(), ElementsAre("FAILED to set OLD_TMP_PORT_CONFIG",
                                        "FAILED to set content for OLD_PORT_CONFIG_CONTENTwith "
                                        "file=/var/tmp/old.sc",
                                        "FAILED to set common arg for update",
                                        "FAILED to set NOTIFY_PF", "FAILED to set update pf arg",
                                        "FAILED to set NOTIFY_FW", "FAILED to set update fw arg"));
}

TEST_F(UpdateServNotify, InvokesPluginsWhenTheOnlyFlagCannotBeSet) {
    const Failing failing("TLIBPluginSetArg");
    update_.blNotifyFw = 0;
    EXPECT_EQ(TLIBServiceConfUpdateServNotify(&update_), 0);
    ExpectTold({kUpdated});
    ForgetCalls();
    update_.blNotifyFw = 1;
    update_.blNotifyPf = 0;
    EXPECT_EQ(TLIBServiceConfUpdateServNotify(&update_), 0);
    ExpectTold({kUpdated});
}

using RemoveServNotify = ServNotify;

TEST_F(RemoveServNotify, RefusesNothing) {
    EXPECT_EQ(TLIBServiceConfRemoveServNotify(nullptr), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_conf_serv_restart.cpp");
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(RemoveServNotify, LetsTheFlagOfPortForwardingDecideForTheFirewall) {
    for (const uint32_t firewall : {0U, 1U}) {
        ForgetCalls();
        remove_ = {kOldFile, firewall, 2};
        EXPECT_EQ(TLIBServiceConfRemoveServNotify(&remove_), 0);
        ExpectTold({kRemoved, "< $'PORT_CONFIG_CONTENT=old ports\\n'", kForwarding, kFirewall});
        ForgetCalls();
        remove_ = {kOldFile, firewall, 0};
        EXPECT_EQ(TLIBServiceConfRemoveServNotify(&remove_), 0);
        ExpectTold({kRemoved, "< $'PORT_CONFIG_CONTENT=old ports\\n'"});
    }
    EXPECT_EQ(TLIBCErrGet(), 0U);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(RemoveServNotify, SendsAMissingFileAsAnEmptyText) {
    for (const char *path : {"/var/tmp/missing.sc", ""}) {
        ForgetCalls();
        remove_.pszConfPath = path;
        EXPECT_EQ(TLIBServiceConfRemoveServNotify(&remove_), 0);
        ExpectTold({kRemoved, "< PORT_CONFIG_CONTENT=", kForwarding, kFirewall});
    }
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(RemoveServNotify, SendsAnEmptyTextWhenThereIsNoneToSend) {
    constexpr char kNoContent[] =
        "FAILED to set arg for PORT_CONFIG_CONTENT for removed service config notify";
    for (const uint32_t forwarding : {0U, 1U}) {
        ForgetCalls();
        log_.Clear();
        remove_ = {nullptr, 0, forwarding};
        std::vector<std::string> call = {kRemoved, "< PORT_CONFIG_CONTENT="};
        if (forwarding != 0) {
            call.insert(call.end(), {kForwarding, kFirewall});
        }
        EXPECT_EQ(TLIBServiceConfRemoveServNotify(&remove_), 0);
        ExpectTold(call);
        EXPECT_THAT(Messages(), ElementsAre(kNoContent));
    }
}

// The plugins run without a missing argument if at least one of the two flags can be set.
TEST_F(RemoveServNotify, CarriesOnWithoutAnArgumentThatCannotBeSet) {
    constexpr char kContent[] = "< $'PORT_CONFIG_CONTENT=old ports\\n'";
    const struct {
        const char *path;
        const char *key;
        std::vector<std::string> call;
        std::vector<std::string> messages;
    } cases[] = {
        {kOldFile,
         "PORT_CONFIG_CONTENT",
         {kRemoved, "< PORT_CONFIG_CONTENT=", kForwarding, kFirewall},
         {"FAILED to set OLD_TMP_PORT_CONFIG",
          "FAILED to set arg for PORT_CONFIG_CONTENT for removed service config notify"}},
        {kOldFile,
         "NOTIFY_PF",
         {kRemoved, kContent, kFirewall},
         {"FAILED to set NOTIFY_PF", "FAILED to set update pf arg"}},
        {kOldFile,
         "NOTIFY_FW",
         {kRemoved, kContent, kForwarding},
         {"FAILED to set NOTIFY_FW", "FAILED to set update fw arg"}},
        {nullptr,
         "NOTIFY_FW",
         {kRemoved, "< PORT_CONFIG_CONTENT=", kForwarding},
         {"FAILED to set arg for PORT_CONFIG_CONTENT for removed service config notify",
          "FAILED to set NOTIFY_FW", "FAILED to set update fw arg"}},
    };
    for (const auto &[path, key, call, messages] : cases) {
        ForgetCalls();
        log_.Clear();
        remove_.pszConfPath = path;
        Failing failing("TLIBPluginSetArg", key);
        failing.Once();
        EXPECT_EQ(TLIBServiceConfRemoveServNotify(&remove_), 0) << key;
        ExpectTold(call);
        EXPECT_EQ(Messages(), messages) << key;
    }
}

TEST_F(RemoveServNotify, NotifiesNobodyWhenNobodyCouldAct) {
    const Failing failing("TLIBPluginSetArg");
    EXPECT_EQ(TLIBServiceConfRemoveServNotify(&remove_), 0);
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_THAT(
        Messages(),
        ElementsAre("FAILED to set OLD_TMP_PORT_CONFIG",
                    "FAILED to set arg for PORT_CONFIG_CONTENT for removed service config notify",
                    "FAILED to set NOTIFY_PF", "FAILED to set update pf arg",
                    "FAILED to set NOTIFY_FW", "FAILED to set update fw arg"));
}

// Without flags only the text can be missing, and the plugins run without it.
TEST_F(RemoveServNotify, InvokesPluginsWithoutAnyArgument) {
    const Failing failing("TLIBPluginSetArg");
    remove_.blNotifyPf = 0;
    EXPECT_EQ(TLIBServiceConfRemoveServNotify(&remove_), 0);
    ExpectTold({kRemoved});
}

// ---- Out of memory ----

TEST_F(ServNotify, SurvivesEveryFailingAllocation) {
    EXPECT_GT(ForEachFailingAllocation([&](FailingAllocation &fail) {
                  EXPECT_EQ(fail.During([&] { return TLIBServiceConfUpdateServNotify(&update_); }),
                            0);
              }),
              0);
    EXPECT_GT(ForEachFailingAllocation([&](FailingAllocation &fail) {
                  EXPECT_EQ(fail.During([&] { return TLIBServiceConfRemoveServNotify(&remove_); }),
                            0);
              }),
              0);
}

}  // namespace
}  // namespace tavo::test

// The lines by which servicetool sees that somebody was not told are the library's: each is brought
// about here as the library writes it.
#include <dlfcn.h>
#include <gmock/gmock.h>

#include "change/listeners.h"
#include "change_world.h"
#include "tavopluginsdk.h"
#include "tavoserviceconf.h"

namespace tavo::test {

using namespace tool;

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

bool no_plugin_library = false;

const std::vector<Listener> kEverybody = {Listener::kRouter, Listener::kFirewall, Listener::kRelay,
                                          Listener::kPlugins};

// Who is not told by what is done.
std::vector<std::string_view> Silent(const std::function<void()> &act) {
    LibraryLog::Start(false);
    ChangeLog log;
    act();
    std::vector<std::string_view> names;
    for (const Hearing &hearing : HearingsOf(kEverybody, log.End())) {
        if (!hearing.told) {
            names.push_back(ListenerName(hearing.listener));
        }
    }
    return names;
}

class Listeners : public ChangeWorld {
  protected:
    static void Update(const std::string &old_path, const std::string &new_path) {
        TAVO_SERVICE_CONF_NOTIFY notify{};
        old_path.copy(notify.szOldConfPath, sizeof(notify.szOldConfPath) - 1);
        new_path.copy(notify.szNewConfPath, sizeof(notify.szNewConfPath) - 1);
        notify.blNotifyFw = 1;
        notify.blNotifyPf = 1;
        TLIBServiceConfUpdateServNotify(&notify);
    }
    static void Remove(const char *path) {
        const TAVO_SERVICE_CONF_REMOVE_NOTIFY notify{path, 1, 1};
        TLIBServiceConfRemoveServNotify(&notify);
    }
    void TearDown() override {
        no_plugin_library = false;
        ChangeWorld::TearDown();
    }
};

TEST_F(Listeners, AreToldWhereTheLibraryLogsNothing) {
    EXPECT_THAT(Silent([] { Update("/none", "/none"); }), IsEmpty());
    EXPECT_THAT(Silent([] { Remove("/none"); }), IsEmpty());
    EXPECT_THAT(Silent([] { TLIBServiceConfServRestart(TAVO_RESTART_FIREWALL); }), IsEmpty());
}

TEST_F(Listeners, AreNotToldWithoutThePluginLibrary) {
    no_plugin_library = true;
    EXPECT_THAT(Silent([] { Update("/none", "/none"); }), ElementsAre("relay", "plugins"));
    EXPECT_THAT(Silent([] { Remove("/none"); }), ElementsAre("relay", "plugins"));
}

TEST_F(Listeners, AreNotToldBehindAPluginThatFails) {
    WriteFile("/run/exit-status/portforward", "1\n");
    EXPECT_THAT(Silent([] { Update("/none", "/none"); }), ElementsAre("relay", "plugins"));
    EXPECT_THAT(Silent([] { Remove("/none"); }), ElementsAre("relay", "plugins"));
}

TEST_F(Listeners, AreNotToldOfFilesThatCannotBeRead) {
    EXPECT_THAT(Silent([] { Update("", "/none"); }), ElementsAre("plugins"));
    EXPECT_THAT(Silent([] { Update("/none", ""); }), ElementsAre("plugins"));
    EXPECT_THAT(Silent([] { Update("/", "/none"); }), ElementsAre("plugins"));
    EXPECT_THAT(Silent([] { Update("/none", "/"); }), ElementsAre("plugins"));
    EXPECT_THAT(Silent([] { Remove("/"); }), ElementsAre("plugins"));
}

TEST_F(Listeners, SeeThatTheRelayDaemonWasNotReloaded) {
    WriteFile("/run/exit-status/systemctl", "0\n1\n");
    EXPECT_THAT(Silent([] { Update("/none", "/none"); }), ElementsAre("relay"));
    WriteFile("/run/exit-status/systemctl", "0\n1\n");
    EXPECT_THAT(Silent([] { Remove("/none"); }), ElementsAre("relay"));
}

}  // namespace
}  // namespace tavo::test

extern "C" TLIBPluginHandle *TLIBPluginSDKInit(const char *group, const char *action) {
    if (tavo::test::no_plugin_library) {
        return nullptr;
    }
    const auto library =
        reinterpret_cast<decltype(&TLIBPluginSDKInit)>(dlsym(RTLD_NEXT, "TLIBPluginSDKInit"));
    return library(group, action);
}

// Tells those who act on declared ports that they changed: the firewall by its tool, port
// forwarding and the firewall by plugins, the relay daemon by a reload.
//
// A change is not held up by those who are told: what goes wrong in telling is logged, and that is
// all.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "lifecycle/programs.h"
#include "support/descriptor.h"
#include "support/failure.h"
#include "support/owners.h"
#include "support/presence.h"
#include "support/text.h"
#include "tavocsystemd.h"
#include "tavopluginsdk.h"
#include "tavoserviceconf.h"

namespace {

constexpr char kRelayDaemon[] = "tavorelayd";

// How the core library is to run the firewall tool, and the plugin library the plugins. The values
// are theirs.
constexpr int kFirewallToolOptions = 187;
constexpr int kPluginMode = 5;

constexpr char kFirewallReload[] = "--reload";
constexpr char kFirewallRemoveRecord[] = "--remove-serv-rec";

constexpr int kHighestRestartFlags = 31;

int ReloadRelayDaemon() {
    return TAVOCSystemdActiveStatusGet(kRelayDaemon) == 1 ? TAVOCSystemdReload(kRelayDaemon) : 0;
}

// ---- Plugins ----

constexpr char kPluginGroup[] = "port_config";
constexpr char kUpdateAction[] = "port_config/update";
constexpr char kRemoveAction[] = "port_config/remove";

constexpr char kOldContent[] = "OLD_PORT_CONFIG_CONTENT";
constexpr char kNewContent[] = "NEW_PORT_CONFIG_CONTENT";
constexpr char kContent[] = "PORT_CONFIG_CONTENT";
constexpr char kNotifyForwarding[] = "NOTIFY_PF";
constexpr char kNotifyFirewall[] = "NOTIFY_FW";

using Plugins = std::unique_ptr<TLIBPluginHandle, tavo::FreeWith<TLIBPluginExit>>;

tavo::OwnedText EmptyText() {
    tavo::OwnedText text(static_cast<char *>(std::calloc(1, 1)));
    if (text == nullptr) {
        TAVO_LOG("FAILED to malloc sizeof 1 char, err=%s", std::strerror(errno));
    }
    return text;
}

// Reads up to nSize bytes; false when that fails.
bool ReadInto(char *szText, std::size_t nSize, int nDescriptor, const char *szPath) {
    for (std::size_t nDone = 0;;) {
        const ssize_t nRead = read(nDescriptor, szText + nDone, nSize - nDone);
        if (nRead == 0) {
            return true;
        }
        if (nRead > 0) {
            nDone += static_cast<std::size_t>(nRead);
        } else if (errno != EINTR) {
            TAVO_LOG("FAILED to read content from %s nRead=%zd err=%s", szPath, nRead,
                     std::strerror(errno));
            return false;
        }
    }
}

// As much of a file as its size says; null when it cannot be read. A pipe is a failure, not a wait
// for somebody who writes into it.
tavo::OwnedText ReadFile(const char *szPath) {
    const tavo::Descriptor file(open(szPath, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!file.IsOpen()) {
        TAVO_LOG("FAILED to open %s", szPath);
        return nullptr;
    }
    const off_t nEnd = lseek(file.Get(), 0, SEEK_END);
    if (nEnd < 0) {
        TAVO_LOG("FAILED to lseek to SEEK_END err=%s", std::strerror(errno));
        return nullptr;
    }
    if (lseek(file.Get(), 0, SEEK_SET) < 0) {
        TAVO_LOG("FAILED to lseek to begining");
        return nullptr;
    }
    const auto nSize = static_cast<std::size_t>(nEnd);
    tavo::OwnedText text(static_cast<char *>(std::calloc(nSize + 1, 1)));
    if (text == nullptr) {
        TAVO_LOG("FAILED to malloc %d, err=%s", static_cast<int>(nSize + 1), std::strerror(errno));
        return nullptr;
    }
    if (!ReadInto(text.get(), nSize, file.Get(), szPath)) {
        return nullptr;
    }
    return text;
}

int SetOldAndNewContent(TLIBPluginHandle *pHandle, const TAVO_SERVICE_CONF_NOTIFY &notify) {
    const tavo::FieldString oldPath(notify.szOldConfPath);
    const tavo::FieldString newPath(notify.szNewConfPath);
    if (oldPath.IsEmpty()) {
        return TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER,
                         "FAILED to notify portforward, old sc file is empty");
    }
    if (newPath.IsEmpty()) {
        return TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER,
                         "FAILED to notify portforward, new sc file is empty");
    }
    if (PluginArgSetFileContent(pHandle, kOldContent, oldPath.Get()) < 0) {
        return TAVO_LOG("FAILED to set content for OLD_PORT_CONFIG_CONTENTwith file=%s",
                        oldPath.Get());
    }
    if (PluginArgSetFileContent(pHandle, kNewContent, newPath.Get()) < 0) {
        return TAVO_LOG("FAILED to set content for NEW_PORT_CONFIG_CONTENTwith file=%s",
                        newPath.Get());
    }
    return 0;
}

int SetForwarding(TLIBPluginHandle *pHandle) {
    if (TLIBPluginSetArg(pHandle, kNotifyForwarding, "1") < 0) {
        TAVO_LOG("FAILED to set NOTIFY_PF");
        return TAVO_LOG("FAILED to set update pf arg");
    }
    return 0;
}

int SetFirewall(TLIBPluginHandle *pHandle) {
    if (TLIBPluginSetArg(pHandle, kNotifyFirewall, "1") < 0) {
        TAVO_LOG("FAILED to set NOTIFY_FW");
        return TAVO_LOG("FAILED to set update fw arg");
    }
    return 0;
}

// The plugins are asked as long as there is somebody for whom they can act; -1 when there is
// nobody.
int SetUpdateArguments(TLIBPluginHandle *pHandle, const TAVO_SERVICE_CONF_NOTIFY &notify) {
    bool complete = true;
    if (notify.blNotifyPf != 0) {
        if (SetOldAndNewContent(pHandle, notify) < 0) {
            TLIBPluginSetArg(pHandle, kOldContent, "");
            TLIBPluginSetArg(pHandle, kNewContent, "");
            TAVO_LOG("FAILED to set common arg for update");
        }
        complete = SetForwarding(pHandle) == 0;
    }
    if (notify.blNotifyFw != 0 && SetFirewall(pHandle) < 0 && !complete) {
        return -1;
    }
    return 0;
}

// One flag decides for both: ports that went away concern the firewall whenever they concern port
// forwarding.
int SetRemoveArguments(TLIBPluginHandle *pHandle, const TAVO_SERVICE_CONF_REMOVE_NOTIFY &notify) {
    if (PluginArgSetFileContent(pHandle, kContent, notify.pszConfPath) < 0) {
        TAVO_LOG("FAILED to set arg for PORT_CONFIG_CONTENT for removed service config notify");
        TLIBPluginSetArg(pHandle, kContent, "");
    }
    if (notify.blNotifyPf == 0) {
        return 0;
    }
    const bool complete = SetForwarding(pHandle) == 0;
    return SetFirewall(pHandle) < 0 && !complete ? -1 : 0;
}

int InvokePlugins(TLIBPluginHandle *pHandle) {
    return TLIBPluginAction(kPluginMode, pHandle) < 0 ? TAVO_LOG("FAILED to invoke plugins") : 0;
}

}  // namespace

int TAVOFwRuleHupWrap(void) {
    const int nResult =
        TLIBCExecl(tavo::kFirewallTool, kFirewallToolOptions, kFirewallReload, nullptr);
    if (nResult < 0) {
        return TAVO_LOG("Failed to execute [%s %s], ret:%d", tavo::kFirewallTool, kFirewallReload,
                        nResult);
    }
    return 0;
}

int TLIBFwServRemoveRecWrap(const char *szName) {
    if (szName == nullptr) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    const int nResult = TLIBCExecl(tavo::kFirewallTool, kFirewallToolOptions, kFirewallRemoveRecord,
                                   szName, nullptr);
    if (nResult < 0) {
        return TAVO_LOG("Failed to execute [%s %s %s], ret:%d", tavo::kFirewallTool,
                        kFirewallRemoveRecord, szName, nResult);
    }
    return 0;
}

int TLIBServiceConfServRestart(int nRestartFlags) {
    if (nRestartFlags < 1 || nRestartFlags > kHighestRestartFlags) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    if ((nRestartFlags & TAVO_RESTART_FIREWALL) != 0 && TAVOFwRuleHupWrap() < 0) {
        return -1;
    }
    if ((nRestartFlags & (TAVO_RESTART_FIREWALL | TAVO_RESTART_RELAY)) != 0) {
        ReloadRelayDaemon();
    }
    return 0;
}

int PluginArgSetFileContent(struct TLIBPluginHandle *pHandle, const char *szKey,
                            const char *szPath) {
    if (szPath == nullptr) {
        return -1;
    }
    const tavo::OwnedText text =
        tavo::PresenceOf(szPath) == tavo::Presence::kAbsent ? EmptyText() : ReadFile(szPath);
    if (text == nullptr) {
        return -1;
    }
    // The words are the same whatever the key.
    return TLIBPluginSetArg(pHandle, szKey, text.get()) < 0
               ? TAVO_LOG("FAILED to set OLD_TMP_PORT_CONFIG")
               : 0;
}

int TLIBServiceConfUpdateServNotify(const TAVO_SERVICE_CONF_NOTIFY *pNotify) {
    if (pNotify == nullptr) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    const Plugins plugins(TLIBPluginSDKInit(kPluginGroup, kUpdateAction));
    if (plugins == nullptr) {
        TAVO_LOG("FAILED to init plugin sdk");
        return 0;
    }
    if (SetUpdateArguments(plugins.get(), *pNotify) < 0 || InvokePlugins(plugins.get()) < 0) {
        return 0;
    }
    if (ReloadRelayDaemon() < 0) {
        TAVO_LOG("FAILED to notify tavorelayd for update conf");
    }
    return 0;
}

int TLIBServiceConfRemoveServNotify(const TAVO_SERVICE_CONF_REMOVE_NOTIFY *pNotify) {
    if (pNotify == nullptr) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    const Plugins plugins(TLIBPluginSDKInit(kPluginGroup, kRemoveAction));
    if (plugins == nullptr) {
        TAVO_LOG("FAILED to init plugin sdk");
        return 0;
    }
    if (SetRemoveArguments(plugins.get(), *pNotify) < 0 || InvokePlugins(plugins.get()) < 0) {
        return 0;
    }
    if (ReloadRelayDaemon() < 0) {
        TAVO_LOG("FAILED to notify tavorelayd for remove conf");
    }
    return 0;
}

extern "C" int TLIBServiceConfServNotify(const TAVO_SERVICE_CONF_NOTIFY *pNotify)
    __attribute__((alias("TLIBServiceConfUpdateServNotify")));

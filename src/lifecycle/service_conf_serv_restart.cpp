// Notifies the listeners of a change of declared ports: the firewall by its tool, port forwarding
// and the firewall by plugins, the relay daemon by a reload.
//
// A failed notification by plugins is only logged and does not make the change fail.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/descriptor.h"
#include "lifecycle/notification.h"
#include "support/failure.h"
#include "support/owners.h"
#include "support/presence.h"
#include "support/text.h"
#include "tavocsystemd.h"
#include "tavopluginsdk.h"
#include "tavoserviceconf.h"

// Declared here as weak, because an appliance's plugin library and its header may not have it.
extern "C" {
typedef void (*TLIBPluginReport)(const char *szPath, int nStatus, void *pContext);
__attribute__((weak)) int TLIBPluginActionReport(int nMode, TLIBPluginHandle *pHandle,
                                                 TLIBPluginReport pReport, void *pContext);
}

namespace tavo {
namespace {

constexpr char kFirewallTool[] = "/usr/tavo/bin/tavofirewall";
constexpr char kRelayDaemon[] = "tavorelayd";

// Options for the core library to run the firewall tool, and for the plugin library to run the
// plugins. These libraries define the values.
constexpr int kFirewallToolOptions = 187;
constexpr int kPluginMode = 5;

// Returns -1 if the daemon is running and cannot be reloaded.
int ReloadRelayDaemon(Notifications &notified) {
    Notification &relay = notified[Listener::kRelayDaemon];
    const int active = TAVOCSystemdActiveStatusGet(kRelayDaemon);
    if (active != 1) {
        if (active == 0) {
            relay.Succeed(Notified::kNotRunning);
        } else {
            relay.Fail().Set(Step::kQueryService, kRelayDaemon);
        }
        return 0;
    }
    if (TAVOCSystemdReload(kRelayDaemon) < 0) {
        return relay.Fail().Set(Step::kReload, kRelayDaemon);
    }
    relay.Succeed();
    return 0;
}

// Runs the firewall tool. For the caller only a tool that cannot be run is a failure. For the
// listener any status other than 0 is one.
int RunFirewallTool(Step step, Notifications &notified, const char *option,
                    const char *service = nullptr) {
    const int status = TLIBCExecl(kFirewallTool, kFirewallToolOptions, option, service, nullptr);
    Notification &firewall = notified[Listener::kFirewall];
    if (status == 0) {
        firewall.Succeed();
        return 0;
    }
    firewall.Fail().SetProgram(step, kFirewallTool, status);
    if (status > 0) {
        return 0;
    }
    return service == nullptr
               ? TAVO_LOG("Failed to execute [%s %s], ret:%d", kFirewallTool, option, status)
               : TAVO_LOG("Failed to execute [%s %s %s], ret:%d", kFirewallTool, option, service,
                          status);
}

// ---- Plugins ----

constexpr char kPluginGroup[] = "port_config";

constexpr char kOldContent[] = "OLD_PORT_CONFIG_CONTENT";
constexpr char kNewContent[] = "NEW_PORT_CONFIG_CONTENT";
constexpr char kContent[] = "PORT_CONFIG_CONTENT";
constexpr char kNotifyForwarding[] = "NOTIFY_PF";
constexpr char kNotifyFirewall[] = "NOTIFY_FW";

using Plugins = std::unique_ptr<TLIBPluginHandle, FreeWith<TLIBPluginExit>>;

// The functions that read content log a failure and leave its errno.

OwnedText EmptyText() {
    OwnedText text(static_cast<char *>(std::calloc(1, 1)));
    if (text == nullptr) {
        TAVO_LOG("FAILED to malloc sizeof 1 char, err=%s", std::strerror(errno));
    }
    return text;
}

// Reads up to `size` bytes. Returns false on failure.
bool ReadInto(char *text, std::size_t size, int descriptor, const char *path) {
    for (std::size_t done = 0;;) {
        const ssize_t count =
            Uninterrupted([&] { return read(descriptor, text + done, size - done); });
        if (count < 0) {
            TAVO_LOG("FAILED to read content from %s nRead=%zd err=%s", path, count,
                     std::strerror(errno));
        }
        if (count <= 0) {
            return count == 0;
        }
        done += static_cast<std::size_t>(count);
    }
}

// Reads a file up to the size that it has at the start; null if it cannot be read. O_NONBLOCK makes
// a pipe fail instead of blocking.
OwnedText ReadFile(const char *path) {
    const Descriptor file(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!file.IsOpen()) {
        TAVO_LOG("FAILED to open %s", path);
        return nullptr;
    }
    const off_t end = lseek(file.Get(), 0, SEEK_END);
    if (end < 0) {
        TAVO_LOG("FAILED to lseek to SEEK_END err=%s", std::strerror(errno));
        return nullptr;
    }
    if (lseek(file.Get(), 0, SEEK_SET) < 0) {
        TAVO_LOG("FAILED to lseek to begining");
        return nullptr;
    }
    const auto size = static_cast<std::size_t>(end);
    OwnedText text(static_cast<char *>(std::calloc(size + 1, 1)));
    if (text == nullptr) {
        TAVO_LOG("FAILED to malloc %d, err=%s", static_cast<int>(size + 1), std::strerror(errno));
        return nullptr;
    }
    return ReadInto(text.get(), size, file.Get(), path) ? std::move(text) : nullptr;
}

// The content of a missing file is the empty text.
int SetContent(TLIBPluginHandle *handle, const char *key, const char *path, StepFailure &failure) {
    if (path == nullptr) {
        return failure.Set(Step::kPreparePlugins);
    }
    const bool absent = PresenceOf(path) == Presence::kAbsent;
    const OwnedText text = absent ? EmptyText() : ReadFile(path);
    if (text == nullptr) {
        return failure.Set(Step::kPreparePlugins, path, errno);
    }
    if (TLIBPluginSetArg(handle, key, text.get()) < 0) {
        failure.Set(Step::kPreparePlugins);
        // The log line is the same for all keys.
        return TAVO_LOG("FAILED to set OLD_TMP_PORT_CONFIG");
    }
    return 0;
}

int SetOldAndNewContent(TLIBPluginHandle *handle, const TAVO_SERVICE_CONF_NOTIFY &notify,
                        StepFailure &failure) {
    const FieldString old_path(notify.szOldConfPath);
    const FieldString new_path(notify.szNewConfPath);
    if (old_path.IsEmpty() || new_path.IsEmpty()) {
        failure.Set(Step::kPreparePlugins);
        return TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER,
                         "FAILED to notify portforward, %s sc file is empty",
                         old_path.IsEmpty() ? "old" : "new");
    }
    if (SetContent(handle, kOldContent, old_path.Get(), failure) < 0) {
        return TAVO_LOG("FAILED to set content for %swith file=%s", kOldContent, old_path.Get());
    }
    if (SetContent(handle, kNewContent, new_path.Get(), failure) < 0) {
        return TAVO_LOG("FAILED to set content for %swith file=%s", kNewContent, new_path.Get());
    }
    return 0;
}

int SetFlag(TLIBPluginHandle *handle, const char *key, const char *short_name,
            StepFailure &failure) {
    if (TLIBPluginSetArg(handle, key, "1") < 0) {
        failure.Set(Step::kPreparePlugins);
        TAVO_LOG("FAILED to set %s", key);
        return TAVO_LOG("FAILED to set update %s arg", short_name);
    }
    return 0;
}

// Returns -1 if both flags are requested and neither can be set. Otherwise the plugins are run.
int SetUpdateArguments(TLIBPluginHandle *handle, const TAVO_SERVICE_CONF_NOTIFY &notify,
                       StepFailure &failure) {
    bool complete = true;
    if (notify.blNotifyPf != 0) {
        if (SetOldAndNewContent(handle, notify, failure) < 0) {
            TLIBPluginSetArg(handle, kOldContent, "");
            TLIBPluginSetArg(handle, kNewContent, "");
            TAVO_LOG("FAILED to set common arg for update");
        }
        complete = SetFlag(handle, kNotifyForwarding, "pf", failure) == 0;
    }
    if (notify.blNotifyFw != 0 && SetFlag(handle, kNotifyFirewall, "fw", failure) < 0 &&
        !complete) {
        return -1;
    }
    return 0;
}

// blNotifyPf controls both arguments: removed ports concern the firewall whenever they concern port
// forwarding.
int SetRemoveArguments(TLIBPluginHandle *handle, const TAVO_SERVICE_CONF_REMOVE_NOTIFY &notify,
                       StepFailure &failure) {
    if (SetContent(handle, kContent, notify.pszConfPath, failure) < 0) {
        TAVO_LOG("FAILED to set arg for PORT_CONFIG_CONTENT for removed service config notify");
        TLIBPluginSetArg(handle, kContent, "");
    }
    if (notify.blNotifyPf == 0) {
        return 0;
    }
    const bool complete = SetFlag(handle, kNotifyForwarding, "pf", failure) == 0;
    return SetFlag(handle, kNotifyFirewall, "fw", failure) < 0 && !complete ? -1 : 0;
}

// Records the plugins that ran and the first one that failed.
struct Invocation {
    StepFailure &failure;
    Notifications &notified;

    static void Record(const char *path, int status, void *context) {
        auto &run = *static_cast<Invocation *>(context);
        run.failure.SetProgram(Step::kRunPlugins, "", status, path);
        PluginResult result = {};
        CopyText(result.path, path);
        result.status = status;
        run.notified.plugins_incomplete |= !run.notified.plugins->Append(result);
    }
};

int InvokePlugins(TLIBPluginHandle *handle, Notifications &notified, StepFailure &failure) {
    Invocation run = {failure, notified};
    const int result = notified.plugins != nullptr && TLIBPluginActionReport != nullptr
                           ? TLIBPluginActionReport(kPluginMode, handle, &Invocation::Record, &run)
                           : TLIBPluginAction(kPluginMode, handle);
    if (result < 0) {
        failure.Set(Step::kRunPlugins);
        return TAVO_LOG("FAILED to invoke plugins");
    }
    return 0;
}

// Runs the plugins for an action, with the arguments that set() sets according to the record, and
// then reloads the relay daemon. If the plugins fail, the relay daemon is not reloaded.
template <typename Record>
void Notify(const char *action, const Record &record,
            int (*set)(TLIBPluginHandle *, const Record &, StepFailure &),
            Notifications &notified) {
    StepFailure failure;
    char name[32];
    PrintText(name, "%s/%s", kPluginGroup, action);
    const Plugins plugins(TLIBPluginSDKInit(kPluginGroup, name));
    if (plugins == nullptr) {
        failure.Set(Step::kPreparePlugins);
        TAVO_LOG("FAILED to init plugin sdk");
    }
    const bool invoked = plugins != nullptr && set(plugins.get(), record, failure) == 0 &&
                         InvokePlugins(plugins.get(), notified, failure) == 0;
    if (failure.HasFailed()) {
        notified[Listener::kPlugins].Fail() = failure;
    } else {
        notified[Listener::kPlugins].Succeed();
    }
    if (!invoked) {
        notified[Listener::kRelayDaemon].failure = failure;
    } else if (ReloadRelayDaemon(notified) < 0) {
        TAVO_LOG("FAILED to notify tavorelayd for %s conf", action);
    }
}

}  // namespace

int ReloadFirewall(Notifications &notified) {
    return RunFirewallTool(Step::kReload, notified, "--reload");
}

int RemoveFirewallRecord(const char *service, Notifications &notified) {
    if (service == nullptr) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    return RunFirewallTool(Step::kFirewallRecord, notified, "--remove-serv-rec", service);
}

int RestartServices(int flags, Notifications &notified) {
    if (flags < 1 || flags > TAVO_RESTART_ALL) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    if ((flags & TAVO_RESTART_FIREWALL) != 0 && ReloadFirewall(notified) < 0) {
        notified[Listener::kRelayDaemon].failure = notified[Listener::kFirewall].failure;
        return -1;
    }
    if ((flags & (TAVO_RESTART_FIREWALL | TAVO_RESTART_RELAY)) != 0) {
        ReloadRelayDaemon(notified);
    }
    return 0;
}

void NotifyOfUpdate(const TAVO_SERVICE_CONF_NOTIFY &notify, Notifications &notified) {
    Notify("update", notify, SetUpdateArguments, notified);
}

void NotifyOfRemoval(const TAVO_SERVICE_CONF_REMOVE_NOTIFY &notify, Notifications &notified) {
    Notify("remove", notify, SetRemoveArguments, notified);
}

}  // namespace tavo

// ---- The exported functions ----

int TAVOFwRuleHupWrap(void) {
    tavo::Notifications notified;
    return tavo::ReloadFirewall(notified);
}

int TLIBFwServRemoveRecWrap(const char *szName) {
    tavo::Notifications notified;
    return tavo::RemoveFirewallRecord(szName, notified);
}

int TLIBServiceConfServRestart(int nRestartFlags) {
    tavo::Notifications notified;
    return tavo::RestartServices(nRestartFlags, notified);
}

int PluginArgSetFileContent(struct TLIBPluginHandle *pHandle, const char *szKey,
                            const char *szPath) {
    tavo::StepFailure failure;
    return tavo::SetContent(pHandle, szKey, szPath, failure);
}

int TLIBServiceConfUpdateServNotify(const TAVO_SERVICE_CONF_NOTIFY *pNotify) {
    if (pNotify == nullptr) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    tavo::Notifications notified;
    tavo::NotifyOfUpdate(*pNotify, notified);
    return 0;
}

int TLIBServiceConfRemoveServNotify(const TAVO_SERVICE_CONF_REMOVE_NOTIFY *pNotify) {
    if (pNotify == nullptr) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    tavo::Notifications notified;
    tavo::NotifyOfRemoval(*pNotify, notified);
    return 0;
}

extern "C" int TLIBServiceConfServNotify(const TAVO_SERVICE_CONF_NOTIFY *pNotify)
    __attribute__((alias("TLIBServiceConfUpdateServNotify")));

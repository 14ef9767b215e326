// Notifies the listeners for declared ports of a change, and records the result for each of them.
#ifndef TAVO_SRC_LIFECYCLE_NOTIFICATION_H
#define TAVO_SRC_LIFECYCLE_NOTIFICATION_H

#include "lifecycle/step_failure.h"
#include "support/growing_array.h"
#include "tavoserviceconf.h"

namespace tavo {

enum class Listener { kRouterTool, kFirewall, kRelayDaemon, kPlugins };

constexpr int kListenerCount = 4;

enum class Notified {
    kNotReached,  // the change does not concern the listener, or an earlier one failed
    kYes,
    kNotRunning,  // a daemon that reads its configuration when it starts
    kFailed,
};

struct Notification {
    Notified state = Notified::kNotReached;
    StepFailure failure;  // the cause, with kFailed; of the earlier listener, with kNotReached

    // If a listener is notified twice and one of the attempts fails, the state is kFailed.
    void Succeed(Notified how = Notified::kYes) {
        state = state == Notified::kFailed ? state : how;
    }
    StepFailure &Fail() {
        state = Notified::kFailed;
        return failure;
    }
};

// A plugin that was run, and its result: an exit status, 128 + n after signal n, or -1 if it could
// not be run or ran out of time.
struct PluginResult {
    char path[kPathSize];
    int status;
};

struct Notifications {
    // Receives the plugins in the order in which they run; null: they are not listed. The
    // platform's plugin library may report none of them.
    GrowingArray<PluginResult> *plugins = nullptr;
    bool plugins_incomplete = false;  // out of memory for that list

    Notification &operator[](Listener listener) { return all_[static_cast<int>(listener)]; }
    const Notification &operator[](Listener listener) const {
        return all_[static_cast<int>(listener)];
    }

  private:
    Notification all_[kListenerCount];
};

// As TAVOFwRuleHupWrap.
int ReloadFirewall(Notifications &notified);

// As TLIBServiceConfServRestart.
int RestartServices(int flags, Notifications &notified);

// As TLIBFwServRemoveRecWrap.
int RemoveFirewallRecord(const char *service, Notifications &notified);

// As TLIBServiceConfUpdateServNotify and TLIBServiceConfRemoveServNotify, which fail only if the
// record is null.
void NotifyOfUpdate(const TAVO_SERVICE_CONF_NOTIFY &notify, Notifications &notified);
void NotifyOfRemoval(const TAVO_SERVICE_CONF_REMOVE_NOTIFY &notify, Notifications &notified);

}  // namespace tavo

#endif

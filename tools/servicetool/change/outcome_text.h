// What became of a change and its notifications, in words.
#ifndef TAVO_SERVICETOOL_CHANGE_OUTCOME_TEXT_H
#define TAVO_SERVICETOOL_CHANGE_OUTCOME_TEXT_H

#include <string>
#include <string_view>
#include <vector>

#include "lifecycle/notification.h"

namespace tavo::tool {

// Why a step failed whose change is about the file at `path`; empty where it did not. What the
// program of the step said last among `output` is quoted.
std::string ReasonText(const StepFailure &failure, const std::string &path,
                       const std::vector<std::string> &output);

// As JSON names it: "router", "firewall", "relay" or "plugins".
std::string_view ListenerName(Listener listener);

// "router tool, firewall, relay daemon"
std::string ListenersText(const std::vector<Listener> &listeners);

// Whether a listener needs no further notification. A daemon that does not run reads its
// configuration when it starts.
bool IsServed(const Notification &notification);

// "could not notify the plugins: REASON"
std::string NotToldText(Listener listener, const std::string &reason);

// How a listener that was not notified of a change of a file still can be; `gone`: the file was
// removed.
std::string NotToldFix(Listener listener, bool gone);

// Why a listener was not notified: its own failure, or that of the one before it.
const StepFailure &FailureOf(Listener listener, const Notifications &notified);

}  // namespace tavo::tool

#endif

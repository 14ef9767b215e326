// Texts for the results of a change and its notifications.
#ifndef TAVO_SERVICETOOL_CHANGE_OUTCOME_TEXT_H
#define TAVO_SERVICETOOL_CHANGE_OUTCOME_TEXT_H

#include <string>
#include <string_view>
#include <vector>

#include "lifecycle/notification.h"

namespace tavo::tool {

// Why a step of a change of the file at `path` failed; empty if it did not. Quotes the last line in
// `output` that the program of the step printed.
std::string ReasonText(const StepFailure &failure, const std::string &path,
                       const std::vector<std::string> &output);

struct ListenerText {
    std::string_view name;   // for JSON
    std::string_view words;  // for people
    std::string_view fix;    // how to notify it later if it was not notified of a change
};
const ListenerText &TextOf(Listener listener);

// "router tool, firewall, relay daemon"
std::string ListenersText(const std::vector<Listener> &listeners);

// Why a listener was not notified: its own failure, or that of the previous listener.
const StepFailure &FailureOf(Listener listener, const Notifications &notified);

}  // namespace tavo::tool

#endif

#include "change/listeners.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace tavo::tool {
namespace {

struct ListenerKind {
    Listener listener;
    std::string_view name;
    std::string_view words;
    std::string_view condition;  // under which it is notified at all
};

constexpr ListenerKind kKinds[] = {
    {Listener::kRouterTool, "router", "the router tool", ""},
    {Listener::kFirewall, "firewall", "the firewall", ""},
    {Listener::kRelayDaemon, "relay", "the relay daemon", " if it runs"},
    {Listener::kPlugins, "plugins", "the plugins", ""},
};

const ListenerKind &KindOf(Listener listener) {
    return *std::find_if(std::begin(kKinds), std::end(kKinds),
                         [listener](const auto &kind) { return kind.listener == listener; });
}

}  // namespace

std::string_view ListenerName(Listener listener) {
    return KindOf(listener).name;
}

std::string ListenersText(const std::vector<Listener> &listeners) {
    std::string text;
    for (std::size_t i = 0; i < listeners.size(); ++i) {
        text += i == 0 ? "" : i + 1 < listeners.size() ? ", " : " and ";
        text += KindOf(listeners[i]).words;
        text += KindOf(listeners[i]).condition;
    }
    return text;
}

bool IsServed(const Notification &notification) {
    return notification.state == Notified::kYes || notification.state == Notified::kNotRunning;
}

std::string NotToldText(Listener listener, const std::string &reason) {
    return "could not tell " + std::string(KindOf(listener).words) + ": " + reason;
}

std::string NotToldFix(Listener listener, bool gone) {
    switch (listener) {
        case Listener::kFirewall:
            return "write servicetool restart";
        case Listener::kRelayDaemon:
            return "write servicetool restart --relay";
        case Listener::kPlugins:
            return gone ? "install the file again and remove it once more"
                        : "remove the file and install it again";
        case Listener::kRouterTool:
            break;
    }
    return "it hears of a change only when it is made: change the section back and then again";
}

const StepFailure &FailureOf(Listener listener, const Notifications &notified) {
    if (notified[listener].state == Notified::kNotReached) {
        for (const ListenerKind &kind : kKinds) {
            if (notified[kind.listener].state == Notified::kFailed) {
                return notified[kind.listener].failure;
            }
        }
    }
    return notified[listener].failure;
}

}  // namespace tavo::tool

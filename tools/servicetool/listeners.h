// Who acts on declared ports, and whether a change came to their ears.
#ifndef TAVO_SERVICETOOL_LISTENERS_H
#define TAVO_SERVICETOOL_LISTENERS_H

#include <string>
#include <string_view>
#include <vector>

namespace tavo {

enum class Listener { kRouter, kFirewall, kRelay, kPlugins };

// As JSON names it: "router", "firewall", "relay" or "plugins".
std::string_view ListenerName(Listener listener);

// "the router tool, the firewall and the relay daemon if it runs"
std::string ListenersText(const std::vector<Listener> &listeners);

struct Hearing {
    Listener listener;
    bool told = true;
    std::string reason;  // why not, as the library says it; empty when it says nothing
};

// Who of them was told by a call of the library that logged these lines: it goes on past those who
// cannot be told, and only logs that.
std::vector<Hearing> HearingsOf(const std::vector<Listener> &listeners,
                                const std::vector<std::string> &lines);

}  // namespace tavo

#endif

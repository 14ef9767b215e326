// Who acts on declared ports, and whether a change came to their ears.
#ifndef TAVO_SERVICETOOL_CHANGE_LISTENERS_H
#define TAVO_SERVICETOOL_CHANGE_LISTENERS_H

#include <string>
#include <string_view>
#include <vector>

#include "input/library_log.h"

namespace tavo::tool {

enum class Listener { kRouter, kFirewall, kRelay, kPlugins };

// As JSON names it: "router", "firewall", "relay" or "plugins".
std::string_view ListenerName(Listener listener);

// "the router tool, the firewall and the relay daemon if it runs"
std::string ListenersText(const std::vector<Listener> &listeners);

struct Hearing {
    Listener listener;
    bool told = true;
    std::string reason;  // why not
};

// "could not tell the plugins: REASON"
std::string NotToldText(const Hearing &hearing);

// How a listener that was not told of a file hears of it after all; `gone`: the file was removed.
std::string NotToldFix(Listener listener, bool gone);

// Who of them was told by a call of the library that logged these lines: it goes on past those who
// cannot be told, and only logs that.
std::vector<Hearing> HearingsOf(const std::vector<Listener> &listeners,
                                const std::vector<LoggedLine> &lines);

}  // namespace tavo::tool

#endif

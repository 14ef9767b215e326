#include "change/listeners.h"

#include <algorithm>
#include <iterator>

#include "change/change_failure.h"

namespace tavo::tool {
namespace {

struct ListenerKind {
    Listener listener;
    std::string_view name;
    std::string_view words;
    std::string_view condition;  // under which it is told at all
};

constexpr ListenerKind kKinds[] = {
    {Listener::kRouter, "router", "the router tool", ""},
    {Listener::kFirewall, "firewall", "the firewall", ""},
    {Listener::kRelay, "relay", "the relay daemon", " if it runs"},
    {Listener::kPlugins, "plugins", "the plugins", ""},
};

const ListenerKind &KindOf(Listener listener) {
    return *std::find_if(std::begin(kKinds), std::end(kKinds),
                         [listener](const auto &kind) { return kind.listener == listener; });
}

// What the library logs when it cannot tell somebody, misspelt as it is there. Who comes behind a
// listener that failed is not told either.
struct FailureMark {
    std::string_view text;
    Listener silent;
};

constexpr FailureMark kFailureMarks[] = {
    {"/usr/tavo/sbin/tavoroutertool --udpate ", Listener::kRouter},
    {"Failed to execute [/usr/tavo/bin/tavofirewall --reload]", Listener::kFirewall},
    {"Failed to execute [/usr/tavo/bin/tavofirewall --reload]", Listener::kRelay},
    {"FAILED to init plugin sdk", Listener::kPlugins},
    {"FAILED to init plugin sdk", Listener::kRelay},
    {"FAILED to invoke plugins", Listener::kPlugins},
    {"FAILED to invoke plugins", Listener::kRelay},
    {"FAILED to notify portforward", Listener::kPlugins},
    {"FAILED to set ", Listener::kPlugins},
    {"FAILED to notify tavorelayd", Listener::kRelay},
};

bool Silences(const LoggedLine &line, Listener listener) {
    return line.of_library && std::any_of(std::begin(kFailureMarks), std::end(kFailureMarks),
                                          [&](const FailureMark &mark) {
                                              return mark.silent == listener &&
                                                     line.text.starts_with(mark.text);
                                          });
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

std::string NotToldText(const Hearing &hearing) {
    return "could not tell " + std::string(KindOf(hearing.listener).words) + ": " + hearing.reason;
}

std::string NotToldFix(Listener listener, bool gone) {
    switch (listener) {
        case Listener::kFirewall:
            return "write servicetool restart";
        case Listener::kRelay:
            return "write servicetool restart --relay";
        case Listener::kPlugins:
            return gone ? "install the file again and remove it once more"
                        : "remove the file and install it again";
        case Listener::kRouter:
            break;
    }
    return "it hears of a change only when it is made: change the section back and then again";
}

std::vector<Hearing> HearingsOf(const std::vector<Listener> &listeners,
                                const std::vector<LoggedLine> &lines) {
    std::vector<Hearing> hearings;
    for (const Listener listener : listeners) {
        const auto line = std::find_if(lines.begin(), lines.end(), [listener](const auto &one) {
            return Silences(one, listener);
        });
        const bool told = line == lines.end();
        hearings.push_back({listener, told, told ? "" : ReasonInLine(line->text)});
    }
    return hearings;
}

}  // namespace tavo::tool

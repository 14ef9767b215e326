#include "listeners.h"

#include <algorithm>

namespace tavo {
namespace {

struct ListenerKind {
    Listener listener;
    std::string_view name;
    std::string_view words;
};

constexpr ListenerKind kKinds[] = {
    {Listener::kRouter, "router", "the router tool"},
    {Listener::kFirewall, "firewall", "the firewall"},
    {Listener::kRelay, "relay", "the relay daemon if it runs"},
    {Listener::kPlugins, "plugins", "the plugins"},
};

const ListenerKind &KindOf(Listener listener) {
    return *std::find_if(std::begin(kKinds), std::end(kKinds),
                         [listener](const auto &kind) { return kind.listener == listener; });
}

// What the library logs when it cannot tell somebody, misspelt as it is there. Who comes behind a
// listener that failed is not told either.
struct FailureMark {
    std::string_view text;
    std::vector<Listener> silent;
};

const std::vector<FailureMark> &FailureMarks() {
    static const std::vector<FailureMark> marks = {
        {" --udpate ", {Listener::kRouter}},
        {"tavofirewall --reload]", {Listener::kFirewall, Listener::kRelay}},
        {"FAILED to init plugin sdk", {Listener::kPlugins, Listener::kRelay}},
        {"FAILED to invoke plugins", {Listener::kPlugins, Listener::kRelay}},
        {"FAILED to notify portforward", {Listener::kPlugins}},
        {"FAILED to set ", {Listener::kPlugins}},
        {"FAILED to notify tavorelayd", {Listener::kRelay}},
    };
    return marks;
}

bool Silences(const std::string &line, Listener listener) {
    const std::vector<FailureMark> &marks = FailureMarks();
    return std::any_of(marks.begin(), marks.end(), [&](const FailureMark &mark) {
        return line.find(mark.text) != std::string::npos &&
               std::count(mark.silent.begin(), mark.silent.end(), listener) != 0;
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
    }
    return text;
}

std::vector<Hearing> HearingsOf(const std::vector<Listener> &listeners,
                                const std::vector<std::string> &lines) {
    std::vector<Hearing> hearings;
    for (const Listener listener : listeners) {
        const auto line = std::find_if(lines.begin(), lines.end(), [listener](const auto &text) {
            return Silences(text, listener);
        });
        hearings.push_back({listener, line == lines.end(), line == lines.end() ? "" : *line});
    }
    return hearings;
}

}  // namespace tavo

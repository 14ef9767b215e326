#include "change/outcome_text.h"

#include <algorithm>
#include <cerrno>
#include <iterator>

#include "change/program_output.h"
#include "input/input_file.h"
#include "input/library_failure.h"
#include "tavocore.h"

namespace tavo::tool {
namespace {

// A higher exit status is this plus the number of the signal that ended the program.
constexpr int kSignalled = 128;

// Only the path of a plugin is known.
std::string ProgramOf(const StepFailure &failure) {
    return *failure.program != '\0' ? failure.program : failure.path;
}

std::string ProgramReason(const StepFailure &failure, const std::vector<std::string> &output) {
    const std::string program = ProgramOf(failure);
    if (failure.status < 0) {
        return failure.code == TLIBC_ERR_NO_FILE
                   ? program + " is missing"
                   : program + " could not be run, or ran out of time";
    }
    const std::string said = LastWordOf(program, output);
    if (!said.empty()) {
        return said;
    }
    return failure.status > kSignalled
               ? program + " was ended by signal " + std::to_string(failure.status - kSignalled)
               : program + " ended with status " + std::to_string(failure.status);
}

// A writer creates the new file in the folder of the old one, so failures to write are about the
// folder.
std::string SystemErrorReason(const StepFailure &failure, const std::string &path) {
    const bool writes = failure.step == Step::kWrite || failure.step == Step::kMakeFile;
    const std::string place = *failure.path == '\0'  ? ""
                              : failure.path != path ? std::string(failure.path) + ": "
                              : writes               ? "the folder: "
                                                     : "";
    return place + ErrorText(failure.error);
}

// The reason, for steps that can fail for one reason only.
std::string StepReason(const StepFailure &failure) {
    switch (failure.step) {
        case Step::kCheckArguments:
            return "invalid argument";
        case Step::kPrintPorts:
            return "the ports are too long for a service file";
        case Step::kCheckPorts:
            return "it is unknown whether the ports are free";
        case Step::kTakenPorts:
            return "the ports are taken";
        case Step::kLock:
            return std::string("cannot lock ") + failure.path;
        case Step::kOccupied:
            return std::string("folder ") + failure.path +
                   " has the name of a copy and is not empty";
        case Step::kMissingSection:
            return "the section does not exist";
        case Step::kQueryService:
            return std::string("it is unknown whether ") + failure.path + " runs";
        case Step::kReload:
            return std::string(failure.path) + " could not be reloaded";
        case Step::kPreparePlugins:
            return "the arguments of the plugins could not be set";
        case Step::kRunPlugins:
            return "a plugin failed";
        default:
            return {};
    }
}

std::string CodeReason(const StepFailure &failure) {
    const std::string reason = SystemReason(failure.code);
    const std::string place = *failure.path == '\0' ? "" : std::string(failure.path) + ": ";
    return place + (reason.empty() ? "the reason is unknown" : reason);
}

// ---- Listeners

struct ListenerKind {
    Listener listener;
    std::string_view name;
    std::string_view words;
};

constexpr ListenerKind kKinds[] = {
    {Listener::kRouterTool, "router", "router tool"},
    {Listener::kFirewall, "firewall", "firewall"},
    {Listener::kRelayDaemon, "relay", "relay daemon"},
    {Listener::kPlugins, "plugins", "plugins"},
};

const ListenerKind &KindOf(Listener listener) {
    return *std::find_if(std::begin(kKinds), std::end(kKinds),
                         [listener](const auto &kind) { return kind.listener == listener; });
}

}  // namespace

std::string ReasonText(const StepFailure &failure, const std::string &path,
                       const std::vector<std::string> &output) {
    if (!failure.HasFailed()) {
        return {};
    }
    if (failure.error == ENOMEM || (failure.error == 0 && failure.code == TLIBC_ERR_NO_MEMORY)) {
        return ErrorText(ENOMEM);
    }
    if (failure.program != nullptr) {
        return ProgramReason(failure, output);
    }
    if (failure.error != 0) {
        return SystemErrorReason(failure, path);
    }
    const std::string reason = StepReason(failure);
    return reason.empty() ? CodeReason(failure) : reason;
}

std::string_view ListenerName(Listener listener) {
    return KindOf(listener).name;
}

std::string ListenersText(const std::vector<Listener> &listeners) {
    std::string text;
    for (const Listener listener : listeners) {
        text.append(text.empty() ? "" : ", ").append(KindOf(listener).words);
    }
    return text;
}

bool IsServed(const Notification &notification) {
    return notification.state == Notified::kYes || notification.state == Notified::kNotRunning;
}

std::string NotToldText(Listener listener, const std::string &reason) {
    return "could not notify the " + std::string(KindOf(listener).words) + ": " + reason;
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
    return "it is notified only when a change is made: change the section back and then again";
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

#include "change/outcome_text.h"

#include <cerrno>

#include "change/program_output.h"
#include "input/input_file.h"
#include "input/library_failure.h"
#include "output/text.h"
#include "tavocore.h"

namespace tavo::tool {
namespace {

// A higher exit status is this plus the number of the signal that ended the program.
constexpr int kSignalled = 128;

std::string ProgramReason(const StepFailure &failure, const std::vector<std::string> &output) {
    // Only the path of a plugin is known.
    const std::string program = *failure.program != '\0' ? failure.program : failure.path;
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

// The reasons for the failure of steps that can fail for one reason only. A % is the path.
constexpr struct {
    Step step;
    std::string_view reason;
} kStepReasons[] = {
    {Step::kCheckArguments, "invalid argument"},
    {Step::kPrintPorts, "the ports are too long for a service file"},
    {Step::kCheckPorts, "it is unknown whether the ports are free"},
    {Step::kTakenPorts, "the ports are taken"},
    {Step::kLock, "cannot lock %"},
    {Step::kOccupied, "folder % has the name of a copy and is not empty"},
    {Step::kMissingSection, "the section does not exist"},
    {Step::kQueryService, "it is unknown whether % runs"},
    {Step::kReload, "% could not be reloaded"},
    {Step::kPreparePlugins, "the arguments of the plugins could not be set"},
    {Step::kRunPlugins, "a plugin failed"},
};

std::string CodeReason(const StepFailure &failure) {
    const std::string reason = SystemReason(failure.code);
    const std::string place = *failure.path == '\0' ? "" : std::string(failure.path) + ": ";
    return place + (reason.empty() ? "the reason is unknown" : reason);
}

// In the order of Listener.
constexpr ListenerText kListeners[kListenerCount] = {
    {"router", "router tool",
     "it is notified only when a change is made: change the section back and then again"},
    {"firewall", "firewall", "write servicetool restart"},
    {"relay", "relay daemon", "write servicetool restart --relay"},
    {"plugins", "plugins", "remove the file and install it again"},
};

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
    for (const auto &[step, reason] : kStepReasons) {
        if (step == failure.step) {
            return Replaced(std::string(reason), "%", failure.path);
        }
    }
    return CodeReason(failure);
}

const ListenerText &TextOf(Listener listener) {
    return kListeners[static_cast<std::size_t>(listener)];
}

std::string ListenersText(const std::vector<Listener> &listeners) {
    std::string text;
    for (const Listener listener : listeners) {
        text.append(text.empty() ? "" : ", ").append(TextOf(listener).words);
    }
    return text;
}

const StepFailure &FailureOf(Listener listener, const Notifications &notified) {
    if (notified[listener].state == Notified::kNotReached) {
        for (int i = 0; i < kListenerCount; ++i) {
            const Notification &other = notified[static_cast<Listener>(i)];
            if (other.state == Notified::kFailed) {
                return other.failure;
            }
        }
    }
    return notified[listener].failure;
}

}  // namespace tavo::tool

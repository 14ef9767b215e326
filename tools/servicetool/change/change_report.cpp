#include "change/change_report.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "change/leftovers.h"
#include "commands/commands.h"
#include "input/input_file.h"
#include "input/library.h"
#include "output/text.h"

namespace tavo::tool {
namespace {

// ---- Reasons

// A higher exit status is this plus the number of the signal that ended the program.
constexpr int kSignalled = 128;

// The last line that starts with the name or path of the program, such as "cp: error writing
// '/tmp/chat.sc': No space left on device"; empty if there is none.
std::string LastWordOf(std::string_view program, const std::vector<std::string> &lines) {
    const std::string path = std::string(program) + ": ";
    const std::string name = path.substr(path.rfind('/', program.size()) + 1);
    const auto line = std::find_if(lines.rbegin(), lines.rend(), [&](const std::string &one) {
        return one.starts_with(path) || one.starts_with(name);
    });
    return line == lines.rend() ? "" : *line;
}

std::string ProgramReason(const StepFailure &failure, const std::vector<std::string> &output) {
    // Only the path of a plugin is known.
    const std::string program = *failure.program != '\0' ? failure.program : failure.path;
    if (failure.status < 0) {
        return failure.code == TLIBC_ERR_NO_FILE ? program + " is missing"
                                                 : program + " could not be run, or timed out";
    }
    const std::string said = LastWordOf(program, output);
    if (!said.empty()) {
        return said;
    }
    return failure.status > kSignalled
               ? program + " was ended by signal " + std::to_string(failure.status - kSignalled)
               : program + " ended with status " + std::to_string(failure.status);
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

// Why a step of a change of the file `path` failed. Quotes the last line in `output` that the
// program of the step printed.
std::string ReasonText(const StepFailure &failure, const std::string &path,
                       const std::vector<std::string> &output) {
    if (failure.error == ENOMEM || (failure.error == 0 && failure.code == TLIBC_ERR_NO_MEMORY)) {
        return ErrorText(ENOMEM);
    }
    if (failure.program != nullptr) {
        return ProgramReason(failure, output);
    }
    const std::string place = *failure.path == '\0' ? "" : std::string(failure.path) + ": ";
    if (failure.error != 0) {
        // A writer creates the new file in the folder of the old one.
        const bool writes = failure.step == Step::kWrite || failure.step == Step::kMakeFile;
        const std::string known_place = writes ? "the folder: " : "";
        return (failure.path == path ? known_place : place) + ErrorText(failure.error);
    }
    for (const auto &[step, reason] : kStepReasons) {
        if (step == failure.step) {
            return Replaced(std::string(reason), "%", failure.path);
        }
    }
    const std::string reason = SystemReason(failure.code);
    return place + (reason.empty() ? "the reason is unknown" : reason);
}

// ---- Listeners

struct ListenerText {
    std::string_view name;   // for JSON
    std::string_view words;  // for people
    std::string_view fix;    // how to notify it later if it was not notified of a change
};

// In the order of Listener.
constexpr ListenerText kListeners[kListenerCount] = {
    {"router", "router tool",
     "it is notified only when a change is made: change the section back and then again"},
    {"firewall", "firewall", "write servicetool restart"},
    {"relay", "relay daemon", "write servicetool restart --relay"},
    {"plugins", "plugins", "remove the file and install it again"},
};

const ListenerText &TextOf(Listener listener) {
    return kListeners[static_cast<std::size_t>(listener)];
}

// "router tool, firewall, relay daemon"
std::string ListenersText(const std::vector<Listener> &listeners) {
    std::string text;
    for (const Listener listener : listeners) {
        text.append(text.empty() ? "" : ", ").append(TextOf(listener).words);
    }
    return text;
}

// ---- Changes

std::string_view WhatWasDone(const Change &change) {
    if (change.file.text) {
        return change.after ? "changed" : "removed";
    }
    return change.section.empty() ? "installed" : "created";
}

// What the change of a symbolic link affects; empty if the file is not a link. The library writes
// sections to its target, but replaces and removes the link itself.
std::string LinkRemark(const Change &change) {
    std::error_code error;
    if (!std::filesystem::is_symlink(change.file.path, error)) {
        return "";
    }
    const std::string target = Escaped(RealPathOf(change.file.path));
    return change.after && !change.section.empty() ? " (" + target + ", where the link leads)"
                                                   : " (the link, not " + target + ')';
}

// After a failure the stores are restored, but the firewall may have read them before that.
std::string FirewallFix(const ChangeOutcome &outcome) {
    const bool ran = outcome.notified[Listener::kFirewall].state == Notified::kYes ||
                     outcome.failure.step == Step::kReload;
    return ran && outcome.undo != Undo::kNotNeeded
               ? "write servicetool restart: the firewall may have read the undone change"
               : "";
}

}  // namespace

bool ChangeReport::Refuse(std::string rule, const std::string &message, std::string fix,
                          Status status) {
    const InstalledFile &file = change_.file;
    report_.AddError(file.path.empty() ? file.name : file.path, std::move(rule),
                     message + kSoUnchanged, std::move(fix), status);
    AddResult();
    return false;
}

bool ChangeReport::End(const std::string &text) {
    report_.Print(text + '\n');
    AddResult();
    return false;
}

// Prints which ports are not free. Returns false if the change is refused because of them.
bool ChangeReport::AllowsPorts() {
    ConflictTable table(ConflictTable::Sections::kYes);
    std::string verdicts;
    bool taken = false;
    bool unknown = false;
    for (const SectionQuery &ports : change_.ports) {
        const PortVerdict verdict = ports.answer.Verdict();
        taken |= verdict == PortVerdict::kTaken;
        unknown |= verdict == PortVerdict::kUnknown;
        table.Add(ports.answer.conflicts, ports.section);
        if (verdict != PortVerdict::kFree) {
            verdicts += Escaped(change_.file.path) + ": [" + Escaped(ports.section) + "] " +
                        VerdictText(ports.query, ports.answer) + '\n';
        }
    }
    report_.Print(table.Text(true, report_.Columns()) + verdicts);
    if (taken && !change_.force) {
        return Refuse("taken", "its ports are taken", change_.taken_fix,
                      unknown ? Status::kFailed : Status::kNo);
    }
    return !unknown || change_.force ||
           Refuse("unknown", "it is unknown whether its ports are free", change_.unknown_fix,
                  Status::kFailed);
}

bool ChangeReport::Begin() {
    const InstalledFile &file = change_.file;
    if (!file.path.empty() && !change_.notify_only && file.text == change_.after) {
        return End(Escaped(file.path) + ": already up to date; nothing changed");
    }
    if (!AllowsPorts()) {
        return false;
    }
    if (!change_.what.empty()) {
        report_.Print(Escaped(file.path) + ": " + change_.what + LinkRemark(change_) + '\n');
    }
    report_.Print("will notify: " + ListenersText(change_.listeners) + '\n');
    report_.Print(ShownDiff(diff_, report_.Colour()));
    return change_.dry_run ? End("dry run: nothing changed, no listener notified") : true;
}

// Exceptions of the operation are thrown before the library changes anything.
void ChangeReport::Call(const Operation &operation) {
    TLIBCErrSetEx(0, nullptr, 0);
    outcome_.notified.plugins = &plugins_;
    try {
        ProgramOutput programs;
        result_ = operation(outcome_);
        output_ = programs.End();
    } catch (const std::exception &error) {
        problem_ = LowerFirst(error.what());
    }
    std::ranges::for_each(output_, PrintLogLine);
}

// Catches the exceptions of the change: to a caller, an exception means that nothing was changed.
void ChangeReport::Do(const Operation &operation) {
    try {
        Call(operation);
        if (!change_.file.path.empty()) {
            ReportFile();
        }
        // A failed call has notified no listeners. A successful one has, even if the file is not as
        // planned.
        if (change_.file.path.empty() || result_ >= 0) {
            ReportNotifications();
        }
        ReportTemporaryFiles();
    } catch (const std::exception &error) {
        ReportUnknown(error);
    }
    AddResult();
}

// Reads the file again, because the library does not detect every failed write.
void ChangeReport::ReportFile() {
    const InstalledFile &file = change_.file;
    FileText now;
    try {
        now = TextOf(file.path, file.path);
    } catch (const std::runtime_error &error) {
        ReportUnknown(error);
        return;
    }
    changed_ = now != file.text;
    const bool as_planned = now == change_.after;
    if (result_ >= 0 && as_planned) {
        if (!change_.notify_only) {
            report_.PrintDone(Escaped(file.path) + ": " + std::string(WhatWasDone(change_)));
        }
        return;
    }
    if (result_ >= 0 && changed_) {
        ReportFailure("it was changed by another program in the meantime",
                      "check it, and repeat the change");
        return;
    }
    const std::string reason = problem_.empty() ? ReasonOf(outcome_.failure) : problem_;
    if (change_.notify_only) {
        ReportFailure(reason, "");
    } else if (outcome_.undo == Undo::kFailed) {
        ReportFailure(
            reason + "; the change could not be undone: " + ReasonOf(outcome_.undo_failure), "");
    } else if (!changed_) {
        ReportFailure(reason + (file.text ? "; the file is unchanged" : "; no file was created"),
                      FirewallFix(outcome_));
    } else if (as_planned) {
        ReportFailure(reason + "; the file was changed anyway", "write servicetool restart");
    } else {
        ReportFailure(reason + "; the file was changed by another program in the meantime",
                      "check it, and repeat the change");
    }
}

// A daemon that is not running needs no notification: it reads its configuration when it starts.
void ChangeReport::ReportNotifications() {
    const Notifications &notifications = outcome_.notified;
    for (const Listener listener : change_.listeners) {
        const ListenerText &text = TextOf(listener);
        const Notified state = notifications[listener].state;
        if (state == Notified::kYes || state == Notified::kNotRunning) {
            notified_.push_back(listener);
            continue;
        }
        not_notified_.push_back(listener);
        const bool removed = listener == Listener::kPlugins && !change_.after;
        report_.AddWarning(
            "", "not-told",
            "could not notify the " + std::string(text.words) + ": " +
                ReasonOf(notifications[listener].failure),
            removed ? "install the file again and remove it once more" : std::string(text.fix),
            Status::kFailed);
    }
    if (!notified_.empty()) {
        report_.PrintDone("notified: " + ListenersText(notified_));
    }
}

// The library installs a file under a temporary name and renames it. If that fails, the temporary
// file is not removed. Side copies remain if they may be needed or cannot be removed.
void ChangeReport::ReportTemporaryFiles() {
    const StepFailure &failure = outcome_.failure;
    struct stat status {};
    if ((failure.step == Step::kStage || failure.step == Step::kReplace) &&
        lstat(failure.path, &status) == 0) {
        report_.AddWarning(failure.path, "left-behind",
                           "could not be installed and was not removed", "remove it",
                           Status::kFailed);
    }
    for (const Leftover &copy : OwnCopiesOfStores()) {
        report_.AddWarning(copy.path, "left-behind", "is a leftover copy of " + copy.original,
                           "check that " + copy.original + " is complete, then remove the copy",
                           Status::kFailed);
    }
}

std::string ChangeReport::ReasonOf(const StepFailure &failure) const {
    // Names all plugins that failed, not only the first.
    std::string reasons;
    if (failure.step == Step::kRunPlugins) {
        for (const PluginResult &plugin : plugins_) {
            if (plugin.status != 0) {
                StepFailure one = failure;
                CopyText(one.path, plugin.path);
                one.status = plugin.status;
                reasons +=
                    (reasons.empty() ? "" : "; ") + ReasonText(one, change_.file.path, output_);
            }
        }
    }
    if (!reasons.empty()) {
        return reasons;
    }
    return Replaced(LowerFirst(ReasonText(failure, change_.file.path, output_)), change_.copy,
                    change_.name_of_copy);
}

void ChangeReport::ReportFailure(std::string message, std::string fix) {
    report_.AddError(change_.file.path, "failed", std::move(message), std::move(fix));
}

void ChangeReport::ReportUnknown(const std::exception &error) {
    ReportFailure("the result of the change is unknown: " + LowerFirst(error.what()),
                  "check the current content of the file");
}

void ChangeReport::AddResult() {
    Json conflicts = Json::EmptyArray();
    for (const SectionQuery &ports : change_.ports) {
        for (const PortConflict &conflict : ports.answer.conflicts) {
            Json one = {{"section", Utf8Text(ports.section)}};
            one.Merge(ConflictJson(conflict));
            conflicts.Append(std::move(one));
        }
    }
    const auto name = [](Listener listener) -> Json { return TextOf(listener).name; };
    report_.AddResult({{"operation", change_.operation},
                       {"file", TextOrNull(change_.file.name)},
                       {"path", TextOrNull(change_.file.path)},
                       {"section", TextOrNull(change_.section)},
                       {"dry_run", change_.dry_run},
                       {"changed", changed_},
                       {"diff", TextOrNull(diff_)},
                       {"conflicts", std::move(conflicts)},
                       {"told", Json::ArrayOf(notified_, name)},
                       {"not_told", Json::ArrayOf(not_notified_, name)}});
}

}  // namespace tavo::tool

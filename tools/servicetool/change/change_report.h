// The steps that all changing commands have in common: print the planned change and its listeners,
// refuse forbidden changes, call the library, verify the file and report the result.
#ifndef TAVO_SERVICETOOL_CHANGE_CHANGE_REPORT_H
#define TAVO_SERVICETOOL_CHANGE_CHANGE_REPORT_H

#include <exception>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "change/installed_file.h"
#include "lifecycle/change.h"
#include "output/report.h"
#include "ports/port_sources.h"

namespace tavo::tool {

class Arguments;

struct Change {
    std::string_view operation;       // the command's name
    std::string path;                 // of the file; empty if no file is changed
    std::string section;              // empty for a change of the whole file
    FileText before;                  // current text of the file
    FileText after;                   // planned text of the file
    std::vector<Listener> listeners;  // to be notified
    bool notify_only = false;         // the file is already removed; only notify the listeners
    bool dry_run = false;
    bool force = false;  // continue even if ports are taken or unknown
    std::string taken_fix = "ask servicetool suggest for ports that are free";
    std::string unknown_fix = {};  // the fix if it is unknown whether ports are taken
};

// The change of an installed file that the command makes; `after` is its planned text.
Change ChangeOf(const Arguments &arguments, const InstalledFile &file, FileText after,
                std::vector<Listener> listeners);

class ChangeReport {
  public:
    ChangeReport(Change change, Report &report);
    ChangeReport(const ChangeReport &) = delete;
    ChangeReport &operator=(const ChangeReport &) = delete;

    const Change &Plan() const { return change_; }

    // Adds the answer for the ports that a section will declare.
    void Add(const std::string &section, const PortQuery &query, const PortAnswer &answer);

    // Reports why the change is refused. "nothing was changed" is appended to `message`. Returns
    // false.
    bool Refuse(std::string rule, const std::string &message, std::string fix = {},
                Status status = Status::kNo);

    // Prints the planned change; `what` describes it, as in "add section [chat]". Returns false if
    // the command is done: ports are taken, there is nothing to change, or this is a dry run.
    bool Begin(const std::string &what);

    // Makes the change with an operation of the library, which returns -1 on failure, and reports
    // the result.
    using Operation = std::function<int(ChangeOutcome &outcome)>;
    void Do(const Operation &operation);

    // Sets a name to print instead of `path` in the reasons for failures of Do.
    void ShowAs(const std::string &path, const std::string &name) {
        copied_path_ = path;
        source_name_ = name;
    }

    // Adds the result of a change that is not made. The functions above also add one if they end
    // it.
    void AddResult();

  private:
    bool End(const std::string &text);
    void Call(const Operation &operation);

    // Each of these reports a part of the outcome, and raises the status after a failure.
    void TellFile();
    void TellFailed(std::string message, std::string fix);
    void TellUnknown(const std::exception &error);
    void TellNotifications();
    void TellTemporaryFiles();

    // Why a step failed.
    std::string ReasonOf(const StepFailure &failure) const;

    Change change_;
    Report &report_;
    std::string diff_;
    ConflictTable table_{ConflictTable::Sections::kYes};
    std::string verdicts_;
    Json conflicts_ = Json::EmptyArray();
    bool taken_ = false;
    bool unknown_ = false;

    // The outcome of the operation.
    int result_ = -1;
    std::string problem_;  // why the operation was not started; else empty
    ChangeOutcome outcome_;
    GrowingArray<PluginResult> plugins_;  // one for each plugin run
    std::vector<std::string> output_;     // lines printed by programs
    bool changed_ = false;
    std::vector<std::string> notified_;      // JSON names of the notified listeners
    std::vector<std::string> not_notified_;  // JSON names of the others
    std::string copied_path_;                // printed as source_name_
    std::string source_name_;
};

}  // namespace tavo::tool

#endif

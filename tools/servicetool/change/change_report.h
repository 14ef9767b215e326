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

struct Change {
    std::string_view operation;       // the command's name
    InstalledFile file;               // without a path if no file is changed, or none is found yet
    std::string section;              // empty for a change of the whole file
    FileText after;                   // planned text of the file
    std::string what;                 // is planned, escaped, as in "add section [chat]"
    std::vector<SectionQuery> ports;  // that the changed sections will declare, to be checked
    std::vector<Listener> listeners;  // to be notified
    bool notify_only = false;         // the file is already removed; only notify the listeners
    bool dry_run = false;
    bool force = false;  // continue even if ports are taken or unknown
    std::string taken_fix = "ask servicetool suggest for ports that are free";
    std::string unknown_fix;   // the fix if it is unknown whether ports are taken
    std::string copy;          // a private copy of the source of the change; empty: none
    std::string name_of_copy;  // printed instead of its path in the reasons for failures
};

class ChangeReport {
  public:
    // Refers to `change`. The caller may still set anything but the file and its planned text.
    ChangeReport(const Change &change, Report &report)
        : change_(change),
          report_(report),
          diff_(UnifiedDiff(change.file.text, change.after, change.file.path)) {}
    ChangeReport(const ChangeReport &) = delete;
    ChangeReport &operator=(const ChangeReport &) = delete;

    // Reports why the change is refused. "nothing was changed" is appended to `message`. Returns
    // false.
    bool Refuse(std::string rule, const std::string &message, std::string fix = {},
                Status status = Status::kNo);

    // Prints the planned change. Returns false if the command is done: ports are taken, there is
    // nothing to change, or this is a dry run.
    bool Begin();

    // Makes the change with an operation of the library, which returns -1 on failure, and reports
    // the result.
    using Operation = std::function<int(ChangeOutcome &outcome)>;
    void Do(const Operation &operation);

    // Adds the result of a change that is not made. The functions above also add one if they end
    // it.
    void AddResult();

  private:
    bool End(const std::string &text);
    bool AllowsPorts();
    void Call(const Operation &operation);

    // Each of these reports a part of the outcome, and raises the status after a failure.
    void ReportFile();
    void ReportFailure(std::string message, std::string fix);
    void ReportUnknown(const std::exception &error);
    void ReportNotifications();
    void ReportTemporaryFiles();

    // Why a step failed.
    std::string ReasonOf(const StepFailure &failure) const;

    const Change &change_;
    Report &report_;
    std::string diff_;

    // The outcome of the operation.
    int result_ = -1;
    std::string problem_;  // why the operation was not started; else empty
    ChangeOutcome outcome_;
    GrowingArray<PluginResult> plugins_;  // one for each plugin run
    std::vector<std::string> output_;     // lines printed by programs
    bool changed_ = false;
    std::vector<Listener> notified_;
    std::vector<Listener> not_notified_;
};

}  // namespace tavo::tool

#endif

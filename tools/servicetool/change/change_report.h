// What every changing command does around its change: it says what is to be changed and who is to
// be told, refuses what must not be, does it, looks whether it was done, and says what came of it.
#ifndef TAVO_SERVICETOOL_CHANGE_CHANGE_REPORT_H
#define TAVO_SERVICETOOL_CHANGE_CHANGE_REPORT_H

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "change/outcome_text.h"
#include "change/unified_diff.h"
#include "lifecycle/change.h"
#include "output/report.h"
#include "ports/port_sources.h"

namespace tavo::tool {

struct Change {
    std::string_view operation;       // the command's name
    std::string path;                 // of the file; empty where none is changed
    std::string section;              // empty where the file as a whole is meant
    FileText before;                  // what the file holds
    FileText after;                   // what it is to hold
    std::vector<Listener> listeners;  // who is to be told
    bool told_only = false;           // the file is gone, but they may not know of it
    bool dry_run = false;
    bool force = false;  // go on past ports that are taken, or may be
    std::string taken_fix = "ask servicetool suggest for ports that are free";
    std::string unknown_fix = {};  // if it is unknown whether they are
};

class ChangeReport {
  public:
    ChangeReport(Change change, Report &report);
    ChangeReport(const ChangeReport &) = delete;
    ChangeReport &operator=(const ChangeReport &) = delete;

    const Change &Plan() const { return change_; }

    // What the sources say of the ports that a section is to declare.
    void Add(const std::string &section, const PortQuery &query, const PortAnswer &answer);

    // Tells why the change is refused; `message` does not say that nothing was changed.
    void Refuse(std::string rule, const std::string &message, std::string fix = {},
                Status status = Status::kNo);

    // Says what is to be done, as in "add section [chat]". False when nothing is to follow: ports
    // are taken, there is nothing to change, or this is a dry run.
    bool Begin(const std::string &what);

    // Does it by an operation of the library, which gives -1 for a failure, and tells what came of
    // it.
    using Operation = std::function<int(ChangeOutcome &outcome)>;
    void Do(const Operation &operation);

    // For the operation of Do: where the library or a program says `path`, `name` is meant.
    void ShowAs(const std::string &path, const std::string &name);

    // Adds the result of the change as far as it came. The above do so, too, where they end it.
    void AddResult();

  private:
    bool RefusesPorts();
    void PrintPlan(const std::string &what);
    bool End(const std::string &text);
    // What an operation came to.
    struct Done {
        int result = -1;
        std::string problem;  // why it was not even called; else empty
        ChangeOutcome outcome;
        GrowingArray<PluginResult> plugins;  // that were run
        std::vector<std::string> output;     // of programs
    };
    void Call(const Operation &operation, Done &done);
    void TellOutcome(const Done &done);
    void TellFile(const Done &done);
    void TellFailed(std::string message, std::string fix);
    void TellListeners(const Done &done);
    void TellStagedCopy(const StepFailure &failure);
    void TellSideCopies();
    std::string ReasonOf(const StepFailure &failure, const Done &done) const;
    void Warn(const std::string &file, const std::string &rule, std::string message,
              std::string fix);

    Change change_;
    Report &report_;
    std::string diff_;
    ConflictTable table_{ConflictTable::Sections::kYes};
    std::string verdicts_;
    std::vector<std::pair<std::string, PortConflict>> conflicts_;  // each with its section
    bool taken_ = false;
    bool unknown_ = false;
    bool changed_ = false;
    std::vector<std::string> told_;      // listeners as JSON names them
    std::vector<std::string> not_told_;  // likewise
    std::string copied_path_;            // what is shown as source_name_
    std::string source_name_;
};

}  // namespace tavo::tool

#endif

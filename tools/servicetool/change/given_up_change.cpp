#include "change/given_up_change.h"

namespace tavo::tool {

Change ChangeAskedFor(std::string_view operation, const std::string &file,
                      const std::string &section, bool dry_run) {
    Change change;
    change.operation = operation;
    change.path = file;
    change.section = section;
    change.dry_run = dry_run;
    return change;
}

Change ChangeAskedFor(std::string_view operation, const SectionOptions &options) {
    return ChangeAskedFor(operation, options.file, options.section, options.dry_run);
}

void TellThrown(const CommandLine &line, const std::string &reason, Report &report) {
    if (line.command->change != nullptr) {
        ChangeReport(line.command->change(line.arguments), report)
            .Refuse("failed", reason, "", Status::kFailed);
        return;
    }
    report.TellError("", "failed", reason);
    report.Raise(Status::kFailed);
}

// A command line that is wrong asks for no change.
void AddMissingResult(const CommandLine &line, Report &report) {
    if (line.command->change != nullptr && report.Worst() != Status::kUsage &&
        !report.HasResult()) {
        ChangeReport(line.command->change(line.arguments), report).AddResult();
    }
}

}  // namespace tavo::tool

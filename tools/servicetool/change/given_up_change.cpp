#include "change/given_up_change.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <optional>
#include <string_view>

#include "change/change_report.h"

namespace tavo::tool {
namespace {

Change ChangeOf(std::string_view operation, const std::string &file, const std::string &section,
                bool dry_run) {
    Change change;
    change.operation = operation;
    change.path = file;
    change.section = section;
    change.dry_run = dry_run;
    return change;
}

Change ChangeOf(std::string_view operation, const SectionOptions &options) {
    return ChangeOf(operation, options.file, options.section, options.dry_run);
}

// The change that a command is to make, as far as the command line says it.
std::optional<Change> ChangeAskedFor(const std::string &command, const CommandOptions &options) {
    if (command == "install" || command == "update") {
        const InstallOptions &install = options.install;
        const std::string source = std::filesystem::path(install.source).filename();
        return ChangeOf(command, install.name.empty() ? source : install.name, "", install.dry_run);
    }
    if (command == "remove") {
        return ChangeOf(command, options.remove.name, "", options.remove.dry_run);
    }
    if (command == "restart") {
        return ChangeOf(command, "", "", options.restart.dry_run);
    }
    return command == "set"              ? ChangeOf(command, options.set)
           : command == "set-ports"      ? ChangeOf(command, options.set_ports)
           : command == "remove-section" ? ChangeOf(command, options.remove_section)
                                         : std::optional<Change>();
}

}  // namespace

void TellThrown(const CLI::App &command, const CommandOptions &options, const std::string &reason,
                Report &report) {
    const std::string &name = command.get_name();
    if (const std::optional<Change> change = ChangeAskedFor(name, options)) {
        ChangeReport(*change, report).Refuse("failed", reason, "", Status::kFailed);
        return;
    }
    report.TellError("", "failed", reason);
    report.Raise(Status::kFailed);
}

// A command line that is wrong asks for no change.
void AddMissingResult(const CLI::App &command, const CommandOptions &options, Report &report) {
    const std::string &name = command.get_name();
    const std::optional<Change> change = ChangeAskedFor(name, options);
    if (change && report.Worst() != Status::kUsage && !report.HasResult()) {
        ChangeReport(*change, report).AddResult();
    }
}

}  // namespace tavo::tool

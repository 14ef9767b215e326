// servicetool install and update: a package's file goes into a service folder.
//
// The library installs a file whatever its ports, and an update succeeds where the installation in
// it fails. So lint and the sources of taken ports are asked before, and behind it what stands in
// the folder is compared with what was to be there.
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "change/change_report.h"
#include "change/installed_file.h"
#include "change/left_copies.h"
#include "change/linted_file.h"
#include "change/private_folder.h"
#include "commands/commands.h"
#include "input/input_file.h"
#include "lint/file_remarks.h"
#include "output/text.h"
#include "ports/check_file.h"
#include "ports/port_sources.h"
#include "ports/section_queries.h"

namespace tavo::tool {
namespace {

// Stands for the old content of a file that was not installed: it reads as empty.
constexpr std::string_view kNoFile = "/dev/null";

std::string NameOf(const InstallOptions &options) {
    return options.name.empty() ? std::filesystem::path(options.source).filename().string()
                                : options.name;
}

// What tells the two commands from each other.
struct Placement {
    std::string_view operation;
    bool is_new;  // the file is not to be installed yet
    const char *rule;
    const char *refusal;
    const char *fix;
};

constexpr Placement kInstall = {"install", true, "installed",
                                "a file of that name is installed already",
                                "write servicetool update"};
constexpr Placement kUpdate = {"update", false, "not-found", "no file of that name is installed",
                               "write servicetool install"};

Change ChangeOf(std::string_view operation, const InstallOptions &options,
                const InstalledFile &file, const LintedFile &source) {
    return {
        .operation = operation,
        .path = file.path,
        .section = {},
        .before = file.text,
        .after = source.text,
        .listeners = {Listener::kPlugins, Listener::kRelay},
        .dry_run = options.dry_run,
        .force = options.force,
        .unknown_fix = "add --force to go on all the same",
    };
}

using Queries = std::vector<SectionQuery>;

// The services that a file has until now take no ports from those that it is to have.
void AskForPorts(const InstalledFile &file, const LintedFile &source, ChangeReport &change,
                 Report &report) {
    SkippedNames leaving;
    if (file.text) {
        for (const SectionQuery &old : QueriesOf(*file.text).value_or(Queries())) {
            leaving.push_back(old.section);
        }
    }
    const std::optional<Queries> queries = QueriesOf(source.text, source.lint);
    if (!queries) {
        throw std::runtime_error("the library does not read " + source.name);
    }
    std::vector<PortRequest> requests;
    for (const SectionQuery &wanted : *queries) {
        requests.push_back({wanted.query, leaving});
        requests.back().skipped.push_back(wanted.section);
    }
    const std::vector<PortAnswer> answers = PortSources(kSourcesOfFiles, report).Ask(requests);
    for (std::size_t i = 0; i < answers.size(); ++i) {
        change.Add((*queries)[i].section, requests[i].query, answers[i]);
    }
}

int CallInstall(const InstalledFile &file, const std::string &source) {
    TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
    const int result = TAVOServiceConfInstallBaseName(file.name.c_str(), source.c_str(),
                                                      file.folder.selector, &conflicts);
    TAVOServiceConfPortsFree(conflicts);
    if (result < 0) {
        return -1;
    }
    TAVO_SERVICE_CONF_NOTIFY notify{};
    kNoFile.copy(notify.szOldConfPath, sizeof(notify.szOldConfPath) - 1);
    file.path.copy(notify.szNewConfPath, sizeof(notify.szNewConfPath) - 1);
    notify.blNotifyFw = 1;
    notify.blNotifyPf = 1;
    return TLIBServiceConfUpdateServNotify(&notify);
}

int CallUpdate(const InstalledFile &file, const std::string &source) {
    TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
    const int result = TAVOServiceConfUpdateBaseName(file.name.c_str(), source.c_str(),
                                                     file.folder.selector, &conflicts);
    TAVOServiceConfPortsFree(conflicts);
    return result < 0 ? -1 : 0;
}

// A new file goes to the folder of packages where no other is asked for, an update to where the
// file is.
FolderChoice FolderOf(const InstallOptions &options, bool is_new) {
    return {.system = options.folder.system,
            .package = options.folder.package || (is_new && !options.folder.system)};
}

// Everything that is to be known of both sides of the change; false when that cannot be.
bool LookAt(const InstallOptions &options, bool is_new, InstalledFile &file, LintedFile &source,
            Report &report) {
    return CheckFileName(NameOf(options), report) &&
           LintAndTell(options.source, source, report,
                       "name a file that can be read, or - for standard input") &&
           FindInstalledFile(NameOf(options), FolderOf(options, is_new), Missing::kAllow,
                             options.dry_run, file, report);
}

bool Allows(const Placement &placement, const InstalledFile &file, const LintedFile &source,
            ChangeReport &change) {
    if (file.text.has_value() == placement.is_new) {
        change.Refuse(placement.rule, placement.refusal, placement.fix);
        return false;
    }
    if (source.lint.errors != 0) {
        change.Refuse("invalid", source.name + " has " + LintVerdict(source.lint));
        return false;
    }
    return true;
}

std::string WhatIsDone(const InstalledFile &file, const LintedFile &source) {
    return file.text ? "replace by " + Escaped(source.name) + LinkRemark(file.path, OfLink::kItself)
                     : "install " + Escaped(source.name);
}

// The library is handed a copy of the text that was checked: the source may be another one by now,
// and a copy of it would keep its owner and mode, so that whoever owns the source could rewrite the
// installed file later. The copy is made when everything is said, and gone when the library has it:
// a reader who hangs up in between leaves nothing behind.
void Place(const Placement &placement, const InstallOptions &options, Report &report) {
    InstalledFile file;
    LintedFile source;
    if (!LookAt(options, placement.is_new, file, source, report)) {
        return;
    }
    ChangeReport change(ChangeOf(placement.operation, options, file, source), report);
    if (!Allows(placement, file, source, change)) {
        return;
    }
    if (placement.is_new) {
        WarnOfNewName(file.name, "write --as", report);
    }
    AskForPorts(file, source, change, report);
    if (!change.Begin(WhatIsDone(file, source))) {
        return;
    }
    const LeftCopies copies(file);
    change.Do([&] {
        const PrivateFolder folder;
        const std::string path = folder.Make(file.name, source.text);
        change.ShowAs(path, source.name);
        return file.text ? CallUpdate(file, path) : CallInstall(file, path);
    });
    copies.Tell(report);
}

}  // namespace

void Install(const InstallOptions &options, Report &report) {
    Place(kInstall, options, report);
}

void Update(const InstallOptions &options, Report &report) {
    Place(kUpdate, options, report);
}

}  // namespace tavo::tool

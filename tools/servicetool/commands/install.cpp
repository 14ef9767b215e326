// servicetool install and update: copy a service file into a service folder.
//
// The library installs a file even if its ports are taken, and an update succeeds even if its
// installation step fails. Therefore lint and the port check run before the change, and the
// installed file is compared with the planned text after it.
#include <array>
#include <string_view>
#include <utility>

#include "change/change_report.h"
#include "change/installed_file.h"
#include "commands/commands.h"
#include "input/input_file.h"
#include "lint/lint.h"
#include "output/text.h"
#include "ports/port_sources.h"

namespace tavo::tool {
namespace {

// The old file for the notifications if no file was installed: it reads as empty.
constexpr std::string_view kNoFile = "/dev/null";

// The change according to the command line. The file is named by --as, or after the source.
Change ChangeOfFile(const Arguments &arguments) {
    Change change = ChangeAskedFor(arguments);
    change.file.name =
        arguments.Has("--as") ? arguments.Text("--as") : std::string(LastPart(arguments.Word(0)));
    change.listeners = {Listener::kPlugins, Listener::kRelayDaemon};
    change.force = arguments.Has("--force");
    change.unknown_fix = "add --force to go on anyway";
    return change;
}

// Checks the ports of the new services. The current services of the file are skipped, because the
// change removes them.
void CheckPorts(const LintedFile &source, Change &change, Report &report) {
    const InstalledFile &file = change.file;
    SkippedNames leaving;
    if (file.text) {
        for (const LintedService &old : LintText(*file.text, file.path).services) {
            if (old.readable) {
                leaving.push_back(old.name);
            }
        }
    }
    change.ports = QueriesOf(source.text).sections;
    std::vector<PortRequest> requests;
    for (const SectionQuery &wanted : change.ports) {
        requests.push_back({wanted.query, leaving});
        requests.back().skipped.push_back(wanted.section);
    }
    std::vector<PortAnswer> answers = PortSources(kSourcesOfFiles, report).Ask(requests);
    for (std::size_t i = 0; i < answers.size(); ++i) {
        change.ports[i].answer = std::move(answers[i]);
    }
}

// Installs or replaces the file, and notifies the plugins.
int PlaceAndNotify(const InstalledFile &file, const std::string &source, ChangeOutcome &outcome) {
    const char *name = file.name.c_str();
    TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
    TAVO_SERVICE_CONF_NOTIFY notify{};
    TemporaryCopy old;
    int result = -1;
    if (file.text) {
        result = UpdateFile(name, source.c_str(), file.location, &conflicts, notify, old,
                            outcome.failure);
    } else {
        result = InstallFile(name, source.c_str(), file.location, &conflicts, outcome.failure);
        CopyText(notify.szOldConfPath, kNoFile);
        CopyText(notify.szNewConfPath, file.path);
        notify.blNotifyFw = 1;
        notify.blNotifyPf = 1;
    }
    TAVOServiceConfPortsFree(conflicts);
    if (result < 0) {
        return -1;
    }
    NotifyOfUpdate(notify, outcome.notified);
    return 0;
}

// Reads the source and finds the installed file; returns false after a failure. By default, a new
// file is installed in the package folder, and an update in the folder of the installed file.
bool LookAt(const Arguments &arguments, bool is_new, InstalledFile &file, LintedFile &source,
            Report &report) {
    int folders = FoldersOf(arguments);
    if (is_new && folders == kEveryServiceFolder) {
        folders = TAVO_SERVICE_CONF_DIR_PACKAGE;
    }
    return CheckFileName(file.name, report) &&
           LintAndReport(arguments.Word(0), source, report,
                         "name a file that can be read, or - for standard input") &&
           FindInstalledFile(folders, Missing::kAllow, arguments.Has("--dry-run"), file, report);
}

bool Allows(bool is_new, const InstalledFile &file, const LintedFile &source,
            ChangeReport &change_report) {
    if (is_new && file.text) {
        return change_report.Refuse("installed", "a file of that name is already installed",
                                    "write servicetool update");
    }
    if (!is_new && !file.text) {
        return change_report.Refuse("not-found", "no file of that name is installed",
                                    "write servicetool install");
    }
    return source.lint.errors == 0 ||
           change_report.Refuse("invalid", source.name + " has " + LintVerdict(source.lint));
}

// The library gets a copy of the checked text: the source may have changed, and installing it would
// keep its owner and mode, so that the owner of the source could modify the installed file later.
// The copy is made after printing the plan and removed after the call of the library, so that a
// closed output pipe leaves no copy.
void Place(const Arguments &arguments, Report &report) {
    const bool is_new = &arguments.GivenCommand() == &kInstallCommand;
    Change change = ChangeOfFile(arguments);
    InstalledFile &file = change.file;
    LintedFile source;
    if (!LookAt(arguments, is_new, file, source, report)) {
        return;
    }
    change.after = source.text;
    ChangeReport change_report(change, report);
    if (!Allows(is_new, file, source, change_report)) {
        return;
    }
    if (is_new) {
        WarnOfNewName(file.name, "write --as", report);
    }
    CheckPorts(source, change, report);
    change.what = (is_new ? "install " : "replace by ") + Escaped(source.name);
    change.name_of_copy = source.name;
    if (change_report.Begin()) {
        change_report.Do([&](ChangeOutcome &outcome) {
            const PrivateFolder folder;
            change.copy = folder.Make(file.name, source.text);
            return PlaceAndNotify(file, change.copy, outcome);
        });
    }
}

constexpr Operand kOperands[] = {
    {.value = {"FILE", Completion::kFiles}, .help = "A service file; - is standard input"},
};

// The options of both commands. `completion` is that of the name of the installed file.
constexpr std::array<Option, 5> OptionsWith(Completion completion) {
    return {{{.name = "--as",
              .help = "Name of the installed file (default that of the source)",
              .value = {"NAME", completion}},
             kSystemFile,
             kPackageFile,
             {.name = "--force", .help = "Go on even if ports are taken or unknown"},
             kDryRun}};
}

constexpr std::array kInstallOptions = OptionsWith(Completion::kNothing);
constexpr std::array kUpdateOptions = OptionsWith(Completion::kInstalledFiles);

UsageProblem ProblemOf(const Arguments &arguments) {
    if (arguments.Word(0).empty()) {
        return {"a name is empty"};
    }
    if (arguments.Has("--as") && arguments.Text("--as").empty()) {
        return {"--as needs the name of a file"};
    }
    if (arguments.Word(0) == kStandardInput && !arguments.Has("--as")) {
        return {"standard input has no name", "write --as NAME"};
    }
    return {};
}

}  // namespace

constinit const Command kInstallCommand = {
    .name = "install",
    .summary = "Install a service file",
    .operands = kOperands,
    .options = kInstallOptions,
    .examples = R"(Examples:
  servicetool install mypackage.sc       a service file of a package
  servicetool install --dry-run mypackage.sc
  servicetool install --as mypackage.sc build/services.txt
  generate-services | servicetool install --as mypackage.sc -)",
    .check = ProblemOf,
    .run = Place,
    .change = ChangeOfFile,
};

constinit const Command kUpdateCommand = {
    .name = "update",
    .summary = "Replace an installed service file",
    .operands = kOperands,
    .options = kUpdateOptions,
    .examples = R"(Examples:
  servicetool update mypackage.sc        replaces the installed mypackage.sc
  servicetool update --dry-run --force mypackage.sc
  servicetool update --as mypackage.sc build/services.txt)",
    .check = ProblemOf,
    .run = Place,
    .change = ChangeOfFile,
};

}  // namespace tavo::tool

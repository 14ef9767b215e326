// servicetool install and update: copy a service file into a service folder.
//
// The library installs a file even if its ports are taken, and an update succeeds even if its
// installation step fails. Therefore lint and the port check run before the change, and the
// installed file is compared with the planned text after it.
#include <array>
#include <filesystem>
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

// The name of the installed file: --as, or the name of the source.
std::string NameOf(const Arguments &arguments) {
    return arguments.Has("--as") ? arguments.Text("--as")
                                 : std::filesystem::path(arguments.Word(0)).filename().string();
}

// The change according to the command line, for Command::change.
Change ChangeOfInstalled(const Arguments &arguments) {
    Change change = ChangeAskedFor(arguments);
    change.path = NameOf(arguments);
    return change;
}

// Checks the ports of the new services. The current services of the file are skipped, because the
// change removes them.
void AskForPorts(const InstalledFile &file, const LintedFile &source, ChangeReport &change,
                 Report &report) {
    SkippedNames leaving;
    if (file.text) {
        for (const LintedService &old : LintText(*file.text, file.path).services) {
            if (old.readable) {
                leaving.push_back(old.name);
            }
        }
    }
    const std::vector<SectionQuery> queries = QueriesOf(source.text).sections;
    std::vector<PortRequest> requests;
    for (const SectionQuery &wanted : queries) {
        requests.push_back({wanted.query, leaving});
        requests.back().skipped.push_back(wanted.section);
    }
    const std::vector<PortAnswer> answers = PortSources(kSourcesOfFiles, report).Ask(requests);
    for (std::size_t i = 0; i < answers.size(); ++i) {
        change.Add(queries[i].section, requests[i].query, answers[i]);
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
        result = UpdateFile(name, source.c_str(), file.folder.selector, &conflicts, notify, old,
                            outcome.failure);
    } else {
        result =
            InstallFile(name, source.c_str(), file.folder.selector, &conflicts, outcome.failure);
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
    const std::string name = NameOf(arguments);
    int folders = FoldersOf(arguments);
    if (is_new && folders == kEveryServiceFolder) {
        folders = TAVO_SERVICE_CONF_DIR_PACKAGE;
    }
    return CheckFileName(name, report) &&
           LintAndTell(arguments.Word(0), source, report,
                       "name a file that can be read, or - for standard input") &&
           FindInstalledFile(name, folders, Missing::kAllow, arguments.Has("--dry-run"), file,
                             report);
}

bool Allows(bool is_new, const InstalledFile &file, const LintedFile &source,
            ChangeReport &change) {
    if (is_new == file.text.has_value()) {
        return is_new ? change.Refuse("installed", "a file of that name is already installed",
                                      "write servicetool update")
                      : change.Refuse("not-found", "no file of that name is installed",
                                      "write servicetool install");
    }
    return source.lint.errors == 0 ||
           change.Refuse("invalid", source.name + " has " + LintVerdict(source.lint));
}

// The library gets a copy of the checked text: the source may have changed, and installing it would
// keep its owner and mode, so that the owner of the source could modify the installed file later.
// The copy is made after printing the plan and removed after the call of the library, so that a
// closed output pipe leaves no copy.
void Place(const Arguments &arguments, Report &report) {
    const bool is_new = &arguments.GivenCommand() == &kInstallCommand;
    InstalledFile file;
    LintedFile source;
    if (!LookAt(arguments, is_new, file, source, report)) {
        return;
    }
    Change plan =
        ChangeOf(arguments, file, source.text, {Listener::kPlugins, Listener::kRelayDaemon});
    plan.force = arguments.Has("--force");
    plan.unknown_fix = "add --force to go on anyway";
    ChangeReport change(std::move(plan), report);
    if (!Allows(is_new, file, source, change)) {
        return;
    }
    if (is_new) {
        WarnOfNewName(file.name, "write --as", report);
    }
    AskForPorts(file, source, change, report);
    const std::string remark = LinkRemark(file.path, OfLink::kItself);
    if (!change.Begin((is_new ? "install " : "replace by ") + Escaped(source.name) + remark)) {
        return;
    }
    change.Do([&](ChangeOutcome &outcome) {
        const PrivateFolder folder;
        const std::string path = folder.Make(file.name, source.text);
        change.ShowAs(path, source.name);
        return PlaceAndNotify(file, path, outcome);
    });
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
    .change = ChangeOfInstalled,
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
    .change = ChangeOfInstalled,
};

}  // namespace tavo::tool

#include "commands/file_options.h"

#include "commands/option_kinds.h"
#include "input/input_file.h"

namespace tavo::tool {
namespace {

constexpr char kInstallExamples[] = R"(Examples:
  servicetool install mypackage.sc       for a package
  servicetool install --dry-run mypackage.sc
  servicetool install --as mypackage.sc build/services.txt
  generate-services | servicetool install --as mypackage.sc -)";

constexpr char kUpdateExamples[] = R"(Examples:
  servicetool update mypackage.sc        replaces the installed mypackage.sc
  servicetool update --dry-run --force mypackage.sc
  servicetool update --as mypackage.sc build/services.txt)";

constexpr char kRemoveExamples[] = R"(Examples:
  servicetool remove mypackage.sc
  servicetool remove --dry-run --package mypackage.sc)";

void AddInstall(CLI::App &app, CommandOptions &options, const char *name, const char *purpose,
                const char *examples) {
    InstallOptions &install = options.install;
    CLI::App &command = AddCommand(app, options, name, purpose, examples);
    AddWord(command, "FILE", install.source, "A service file; - is standard input");
    AddText(command, "--as", install.name, "NAME", "Its name there; else its own");
    AddFolder(command, install.folder);
    AddFlag(command, "--force", install.force,
            "Go on where ports are taken, or cannot be told to be free");
    AddDryRun(command, install.dry_run);
}

void AddRemove(CLI::App &app, CommandOptions &options) {
    RemoveOptions &remove = options.remove;
    CLI::App &command =
        AddCommand(app, options, "remove", "Remove an installed service file", kRemoveExamples);
    AddWord(command, "FILE", remove.name, "The name of an installed file");
    AddFolder(command, remove.folder);
    AddDryRun(command, remove.dry_run);
}

UsageProblem ProblemOfInstall(const CLI::App &command, const InstallOptions &install) {
    if (install.source.empty()) {
        return {"a name is empty", ""};
    }
    if (command.count("--as") != 0 && install.name.empty()) {
        return {"--as needs the name of a file", ""};
    }
    if (install.source == kStandardInput && install.name.empty()) {
        return {"standard input has no name", "write --as NAME"};
    }
    return ProblemOfFolder(install.folder);
}

}  // namespace

void AddFileCommands(CLI::App &app, CommandOptions &options) {
    AddInstall(app, options, "install", "Install a service file", kInstallExamples);
    AddInstall(app, options, "update", "Replace an installed service file", kUpdateExamples);
    AddRemove(app, options);
}

bool ChangesFiles(const CLI::App &command) {
    const std::string &name = command.get_name();
    return name == "install" || name == "update" || name == "remove";
}

std::vector<std::string *> FileTexts(CommandOptions &options) {
    return {&options.install.source, &options.install.name, &options.remove.name};
}

UsageProblem ProblemOfFileCommand(const CLI::App &command, const CommandOptions &options) {
    return command.get_name() == "remove" ? ProblemOfFolder(options.remove.folder)
                                          : ProblemOfInstall(command, options.install);
}

}  // namespace tavo::tool

#include "commands/option_kinds.h"

namespace tavo::tool {

void AddFlag(CLI::App &app, const char *names, bool &flag, const char *purpose) {
    app.add_flag(names, flag, purpose)->disable_flag_override();
}

void AddText(CLI::App &app, const char *name, std::string &text, const char *label,
             const char *purpose) {
    app.add_option(name, text, purpose)
        ->option_text(label)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
}

CLI::Option *AddTexts(CLI::App &app, const char *name, std::vector<std::string> &texts,
                      const char *label, const std::string &purpose) {
    return app.add_option(name, texts, purpose)->option_text(label);
}

void AddCommonOptions(CLI::App &app, CommandOptions &options) {
    AddFlag(app, "--json", options.json, "Print one JSON document instead");
    AddFlag(app, "-v,--verbose", options.verbose, "Print what the library logs, too");
}

CLI::App &AddCommand(CLI::App &app, CommandOptions &options, const char *name, const char *purpose,
                     const char *examples) {
    CLI::App *command = app.add_subcommand(name, purpose);
    command->group("Commands");
    command->footer(examples);
    AddCommonOptions(*command, options);
    return *command;
}

void AddWord(CLI::App &app, const char *name, std::string &word, const char *purpose) {
    app.add_option(name, word, purpose)->option_text(" ")->required();
}

void AddFolder(CLI::App &command, FolderChoice &folder) {
    AddFlag(command, "--system", folder.system, "The file of the system");
    AddFlag(command, "--package", folder.package, "The file of a package");
}

void AddDryRun(CLI::App &command, bool &dry_run) {
    AddFlag(command, "--dry-run", dry_run, "Show what would be done, and do nothing");
}

UsageProblem ProblemOfFolder(const FolderChoice &folder) {
    if (folder.system && folder.package) {
        return {"--system and --package exclude each other", ""};
    }
    return {};
}

}  // namespace tavo::tool

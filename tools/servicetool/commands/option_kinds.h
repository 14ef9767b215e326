// The kinds of options that commands are put together from.
#ifndef TAVO_SERVICETOOL_COMMANDS_OPTION_KINDS_H
#define TAVO_SERVICETOOL_COMMANDS_OPTION_KINDS_H

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "commands/command_options.h"

namespace tavo::tool {

// A flag says it all; CLI11 would take --flag=false for its opposite.
void AddFlag(CLI::App &app, const char *names, bool &flag, const char *purpose);

// Given again, it means what it says last.
void AddText(CLI::App &app, const char *name, std::string &text, const char *label,
             const char *purpose);

CLI::Option *AddTexts(CLI::App &app, const char *name, std::vector<std::string> &texts,
                      const char *label, const std::string &purpose);

// A word that has to be there.
void AddWord(CLI::App &app, const char *name, std::string &word, const char *purpose);

// They may stand before the command and behind it.
void AddCommonOptions(CLI::App &app, CommandOptions &options);

CLI::App &AddCommand(CLI::App &app, CommandOptions &options, const char *name, const char *purpose,
                     const char *examples);

void AddFolder(CLI::App &command, FolderChoice &folder);
UsageProblem ProblemOfFolder(const FolderChoice &folder);

void AddDryRun(CLI::App &command, bool &dry_run);

}  // namespace tavo::tool

#endif

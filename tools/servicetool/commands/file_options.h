// What the commands that change whole files take from the command line.
#ifndef TAVO_SERVICETOOL_COMMANDS_FILE_OPTIONS_H
#define TAVO_SERVICETOOL_COMMANDS_FILE_OPTIONS_H

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "commands/command_options.h"

namespace tavo::tool {

void AddFileCommands(CLI::App &app, CommandOptions &options);

// Whether the command is one of them.
bool ChangesFiles(const CLI::App &command);

// All that they take as text.
std::vector<std::string *> FileTexts(CommandOptions &options);

UsageProblem ProblemOfFileCommand(const CLI::App &command, const CommandOptions &options);

}  // namespace tavo::tool

#endif

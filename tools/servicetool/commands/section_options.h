// What the commands that change sections, and tell of ports, take from the command line.
#ifndef TAVO_SERVICETOOL_COMMANDS_SECTION_OPTIONS_H
#define TAVO_SERVICETOOL_COMMANDS_SECTION_OPTIONS_H

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "commands/command_options.h"

namespace tavo::tool {

void AddSectionCommands(CLI::App &app, CommandOptions &options);

// Whether the command is one of them.
bool ChangesSections(const CLI::App &command);

// All that they take as text.
std::vector<std::string *> SectionTexts(CommandOptions &options);

UsageProblem ProblemOfSectionCommand(const CLI::App &command, const CommandOptions &options);

}  // namespace tavo::tool

#endif

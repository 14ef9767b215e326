// The table of all commands, and what is made of it: the command line and the help.
#ifndef TAVO_SERVICETOOL_COMMANDS_COMMANDS_H
#define TAVO_SERVICETOOL_COMMANDS_COMMANDS_H

#include <span>
#include <string>

#include "commands/command.h"

namespace tavo::tool {

extern const Command kListCommand;
extern const Command kShowCommand;
extern const Command kLintCommand;
extern const Command kServicesCommand;
extern const Command kCheckCommand;
extern const Command kSuggestCommand;
extern const Command kWhyCommand;
extern const Command kPortsCommand;
extern const Command kInstallCommand;
extern const Command kUpdateCommand;
extern const Command kRemoveCommand;
extern const Command kSetCommand;
extern const Command kSetPortsCommand;
extern const Command kRemoveSectionCommand;
extern const Command kRestartCommand;
extern const Command kCleanCommand;

// All commands, in the order in which the help lists them.
std::span<const Command *const> Commands();

struct CommandLine {
    const Command *command = nullptr;  // none where none is named, or an unknown one
    Arguments arguments;
    UsageProblem problem;  // the first one
};

// Reads to the end of the line whatever is wrong with it: a program that asks for JSON gets JSON.
CommandLine ReadCommandLine(int argc, char **argv);

// What --help prints for a command, or for servicetool itself where there is none.
std::string HelpText(const Command *command);

}  // namespace tavo::tool

#endif

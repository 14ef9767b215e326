// The table of all commands, the parser of the command line, and the help.
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

// All commands, in the order of the help.
std::span<const Command *const> Commands();

struct CommandLine {
    const Command *command = nullptr;  // null if the command is missing or unknown
    Arguments arguments;
    UsageProblem problem;  // the first one
};

// Reads the whole line even after an error, so that --json has an effect wherever it is.
CommandLine ReadCommandLine(int argc, char **argv);

// The help for a command, or for servicetool itself if `command` is null.
std::string HelpText(const Command *command);

}  // namespace tavo::tool

#endif

// The table of all commands.
#ifndef TAVO_SERVICETOOL_COMMANDS_COMMANDS_H
#define TAVO_SERVICETOOL_COMMANDS_COMMANDS_H

#include <span>

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

}  // namespace tavo::tool

#endif

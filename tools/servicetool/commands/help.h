#ifndef TAVO_SERVICETOOL_COMMANDS_HELP_H
#define TAVO_SERVICETOOL_COMMANDS_HELP_H

#include <string>

#include "commands/command.h"

namespace tavo::tool {

// What --help prints for a command, or for servicetool itself where there is none.
std::string HelpText(const Command *command);

}  // namespace tavo::tool

#endif

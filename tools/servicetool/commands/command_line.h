// Reads the command line by the records of the commands.
#ifndef TAVO_SERVICETOOL_COMMANDS_COMMAND_LINE_H
#define TAVO_SERVICETOOL_COMMANDS_COMMAND_LINE_H

#include "commands/command.h"

namespace tavo::tool {

struct CommandLine {
    const Command *command = nullptr;  // none where none is named, or an unknown one
    Arguments arguments;
    UsageProblem problem;  // the first one
};

// Reads to the end of the line whatever is wrong with it: a program that asks for JSON gets JSON.
CommandLine ReadCommandLine(int argc, char **argv);

}  // namespace tavo::tool

#endif

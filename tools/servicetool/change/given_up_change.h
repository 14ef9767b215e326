// A change that ends before it was planned: its file is not there or cannot be read, somebody else
// is at it, or something went wrong on the way.
#ifndef TAVO_SERVICETOOL_CHANGE_GIVEN_UP_CHANGE_H
#define TAVO_SERVICETOOL_CHANGE_GIVEN_UP_CHANGE_H

#include <string>

#include "commands/command_options.h"

namespace tavo::tool {

// Tells what was thrown out of a command. Of one that changes something it is a refusal: what is
// thrown by the change itself does not come out.
void TellThrown(const CLI::App &command, const CommandOptions &options, const std::string &reason,
                Report &report);

// Sees to it that a command that changes something has its one result, whatever became of it.
void AddMissingResult(const CLI::App &command, const CommandOptions &options, Report &report);

}  // namespace tavo::tool

#endif

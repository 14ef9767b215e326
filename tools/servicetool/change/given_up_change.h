// A change that ends before it was planned: its file is not there or cannot be read, somebody else
// is at it, or something went wrong on the way.
#ifndef TAVO_SERVICETOOL_CHANGE_GIVEN_UP_CHANGE_H
#define TAVO_SERVICETOOL_CHANGE_GIVEN_UP_CHANGE_H

#include <string>
#include <string_view>

#include "change/change_report.h"
#include "change/section_target.h"
#include "commands/commands.h"

namespace tavo::tool {

// A change as far as a command line says it.
Change ChangeAskedFor(std::string_view operation, const std::string &file,
                      const std::string &section, bool dry_run);
Change ChangeAskedFor(std::string_view operation, const SectionOptions &options);

// Tells what was thrown out of a command. Of one that changes something it is a refusal: what is
// thrown by the change itself does not come out.
void TellThrown(const CommandLine &line, const std::string &reason, Report &report);

// Sees to it that a command that changes something has its one result, whatever became of it.
void AddMissingResult(const CommandLine &line, Report &report);

}  // namespace tavo::tool

#endif

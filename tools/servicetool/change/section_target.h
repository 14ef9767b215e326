// The section of an installed file that a command changes: the common part of set, set-ports and
// remove-section.
#ifndef TAVO_SERVICETOOL_CHANGE_SECTION_TARGET_H
#define TAVO_SERVICETOOL_CHANGE_SECTION_TARGET_H

#include <functional>
#include <optional>
#include <string>

#include "change/change_report.h"
#include "change/installed_file.h"
#include "input/library.h"
#include "lifecycle/section_write.h"
#include "ports/port_query.h"
#include "support/owners.h"
#include "tavoserviceconf.h"

namespace tavo::tool {

class Arguments;

struct SectionTarget {
    InstalledFile file;
    std::string section;
    bool present = false;  // the file contains keys of the section
    OwnedSection today;    // as the library reads it; null if it rejects it
};

// Finds file and section, which must exist unless `missing` is kAllow. Returns false if they cannot
// be changed, which is reported and raises the status.
bool FindSection(const Arguments &arguments, Missing missing, SectionTarget &target,
                 Report &report);

// Reads a port list of the command line. If it is invalid, reports a usage error and returns null.
OwnedPorts ReadPorts(const std::string &text, unsigned int direction, Report &report);

// Reverses the list in place: the library reads ports in reverse order, but writes them in list
// order.
TAVO_SERVICE_CONF_PORT *Reversed(TAVO_SERVICE_CONF_PORT *ports);

// The ports as text. Throws std::runtime_error if they are too long for a service file.
PortText RequiredPorts(const TAVO_SERVICE_CONF_PORT *ports);

// The text of a file after change(path), an operation of the library. The library makes the change
// on a copy; the result is shown before the change and compared with the file after it. Throws
// std::runtime_error with the reason, or std::bad_alloc, if the change cannot be made.
using FileChange = std::function<int(const char *path, StepFailure &failure)>;
FileText TextAfter(const FileText &before, const FileChange &change);

// What a command changes in a section.
struct SectionChange {
    std::string what;  // for the plan, as in "add section [chat]"
    FileText after;
    Listener listener = Listener::kRouterTool;  // in addition to those that a restart notifies
    std::optional<PortQuery> ports = {};        // that the section will declare, to be checked
    std::string taken_fix = {};                 // if they are taken; empty: the usual one

    // Makes the change with the library; see ChangeReport::Operation.
    std::function<int(SetParam &param, ChangeOutcome &outcome)> make;
};

// Plans, checks, makes and reports the change. It is refused if the library would not read the new
// section.
void ChangeSection(const Arguments &arguments, const SectionTarget &target,
                   const SectionChange &wanted, Report &report);

}  // namespace tavo::tool

#endif

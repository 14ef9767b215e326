// The section of an installed file that a command changes: the common part of set, set-ports and
// remove-section.
#ifndef TAVO_SERVICETOOL_CHANGE_SECTION_TARGET_H
#define TAVO_SERVICETOOL_CHANGE_SECTION_TARGET_H

#include <functional>
#include <string>
#include <vector>

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

// The listeners of a change: `first`, and the firewall and the relay daemon unless --no-restart is
// given.
std::vector<Listener> ListenersOf(Listener first, const Arguments &arguments);

// Reports the findings of lint in the new section, and checks its ports for conflicts, as the
// library also does when it makes the change. Refuses the change and returns false if the library
// would not read the new section. Errors in other sections are ignored.
bool CheckSection(const SectionTarget &target, const PortQuery &query, ChangeReport &change,
                  Report &report);

// The library's record for writing to the section.
SetParam ParamOf(const Arguments &arguments, const SectionTarget &target);

}  // namespace tavo::tool

#endif

// The section of an installed file that a command changes: the common part of set, set-ports and
// remove-section.
#ifndef TAVO_SERVICETOOL_CHANGE_SECTION_TARGET_H
#define TAVO_SERVICETOOL_CHANGE_SECTION_TARGET_H

#include <functional>
#include <string>

#include "change/change_report.h"
#include "change/installed_file.h"
#include "lifecycle/section_write.h"
#include "support/owners.h"
#include "tavoserviceconf.h"

namespace tavo::tool {

class Arguments;

struct SectionTarget {
    Change change;         // without a plan
    SetParam param{};      // the library's record for writing to the section
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

// Plans, checks, makes and reports the change, of which the caller has set the text, description
// and ports. It is refused if the library would not read the new section.
void ChangeSection(SectionTarget &target, Report &report, const ChangeReport::Operation &make);

}  // namespace tavo::tool

#endif

// The section of an installed file that a command changes: the common part of set, set-ports and
// remove-section.
#ifndef TAVO_SERVICETOOL_CHANGE_SECTION_TARGET_H
#define TAVO_SERVICETOOL_CHANGE_SECTION_TARGET_H

#include <string>
#include <vector>

#include "change/change_report.h"
#include "change/installed_file.h"
#include "change/unified_diff.h"
#include "input/library_owners.h"
#include "lifecycle/section_write.h"
#include "ports/port_query.h"
#include "tavoserviceconf.h"

namespace tavo::tool {

struct SectionOptions {
    std::string file;
    std::string section;
    FolderChoice folder;
    bool no_restart = false;  // do not notify firewall and relay daemon
    bool dry_run = false;
};

struct SectionTarget {
    InstalledFile file;
    std::string section;
    bool present = false;  // the file contains keys of the section
    OwnedSection today;    // as the library reads it; null if it rejects it
};

// Finds file and section, which must exist unless `missing` is kAllow. Returns false if they cannot
// be changed, which is reported and raises the status.
bool FindSection(const SectionOptions &options, Missing missing, SectionTarget &target,
                 Report &report);

// The change of the section; `after` is the planned text of the file.
Change ChangeOf(std::string_view operation, const SectionTarget &target,
                const SectionOptions &options, FileText after);

// The listeners of a change: `first` and those notified by a restart, without duplicates.
std::vector<Listener> ListenersOf(Listener first, const SectionOptions &options);

// Reads a port list of the command line. If it is invalid, reports a usage error and returns null.
OwnedPorts ReadPorts(const std::string &text, unsigned int direction, Report &report);

// Reverses the list in place: the library reads ports in reverse order, but writes them in list
// order.
TAVO_SERVICE_CONF_PORT *Reversed(TAVO_SERVICE_CONF_PORT *ports);

// Reports the findings of lint in the new section, and checks its ports for conflicts, as the
// library also does when it makes the change. Refuses the change and returns false if the library
// would not read the new section. Errors in other sections are ignored.
bool CheckSection(const SectionTarget &target, const PortQuery &query, ChangeReport &change,
                  Report &report);

// The library's record for writing to the section.
TAVO_SERVICE_CONF_SET_PARAM ParamOf(const SectionTarget &target, const SectionOptions &options);

// ---- The text of the file after a change
//
// The library makes the change on a copy, which is shown before the change and compared with the
// file after it.

// The longest port list that the library writes.
inline constexpr std::size_t kLongestPortsValue = kPortTextSize - 1;

// Whether the library can write the ports to a service file.
bool FitsServiceFile(const TAVO_SERVICE_CONF_PORT &ports);

// The following functions throw std::runtime_error with the reason, or std::bad_alloc, if the
// change cannot be made.

// The text with all keys of a section set. `before` is nullopt for a new file.
FileText WithSection(const FileText &before, const TAVO_SERVICE_CONF_SECTION &section);

// The text with one port key of a section set.
FileText WithPorts(const FileText &before, const std::string &section,
                   const TAVO_SERVICE_CONF_PORT &ports);

// The text without a section; nullopt if it is the last service, so that the file is removed.
FileText WithoutSection(const FileText &before, const std::string &section);

}  // namespace tavo::tool

#endif

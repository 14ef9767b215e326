// The section of an installed file that a command is to change: what set, set-ports and
// remove-section have in common.
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

// The section of an installed file that is to be changed.
struct SectionOptions {
    std::string file;
    std::string section;
    FolderChoice folder;
    bool no_restart = false;  // leaves firewall and relay daemon as they are
    bool dry_run = false;
};

struct SectionTarget {
    InstalledFile file;
    std::string section;
    bool present = false;  // the file has keys of it
    OwnedSection today;    // as the library reads it; NULL where it does not
};

// Finds file and section, which must be there unless `missing` allows otherwise. False when they
// are not what can be changed, which is told and raises the status.
bool FindSection(const SectionOptions &options, Missing missing, SectionTarget &target,
                 Report &report);

// The change of the section to what `after` says.
Change ChangeOf(std::string_view operation, const SectionTarget &target,
                const SectionOptions &options, FileText after);

// Who is told of a change: `first`, and those that a restart reaches, each once.
std::vector<Listener> ListenersOf(Listener first, const SectionOptions &options);

// Reads a port list of the command line. None where it is wrong, which is told as a mistake in
// using the command.
OwnedPorts ReadPorts(const std::string &text, unsigned int direction, Report &report);

// The same list the other way round: the library reads ports from the last to the first, and writes
// them as they stand in the list.
TAVO_SERVICE_CONF_PORT *Reversed(TAVO_SERVICE_CONF_PORT *ports);

// Tells what lint finds in the section as it will be, and asks who else has the ports that it is to
// declare, as the library will once more when it makes the change. False when it would then not
// read the section, which is a refusal. What is wrong elsewhere in the file is in nobody's way.
bool CheckSection(const SectionTarget &target, const PortQuery &query, ChangeReport &change,
                  Report &report);

// The library's record for writing to the section.
TAVO_SERVICE_CONF_SET_PARAM ParamOf(const SectionTarget &target, const SectionOptions &options);

// ---- The text of the file after a change
//
// The library makes the change on a copy, so that it can be shown before anything is done, and
// compared with what was done.

// The most that the library writes as the ports of a section.
inline constexpr std::size_t kLongestPortsValue = kPortTextSize - 1;

// Whether a service file has room for the ports, and they can be written.
bool FitsServiceFile(const TAVO_SERVICE_CONF_PORT &ports);

// These throw std::runtime_error with the reason, or std::bad_alloc, where the file cannot be
// changed so.

// With all keys of a section set. None: a new file.
FileText WithSection(const FileText &before, const TAVO_SERVICE_CONF_SECTION &section);

// With one port key of a section set.
FileText WithPorts(const FileText &before, const std::string &section,
                   const TAVO_SERVICE_CONF_PORT &ports);

// Without a section. None: the file goes, for it has no other service.
FileText WithoutSection(const FileText &before, const std::string &section);

}  // namespace tavo::tool

#endif

// The text of a service file as a change will leave it: the library makes the change on a copy, so
// that it can be shown before anything is done, and compared with what was done.
#ifndef TAVO_SERVICETOOL_CHANGE_STAGED_FILE_H
#define TAVO_SERVICETOOL_CHANGE_STAGED_FILE_H

#include <string>

#include "change/unified_diff.h"
#include "lifecycle/section_write.h"
#include "tavoserviceconf.h"

namespace tavo::tool {

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

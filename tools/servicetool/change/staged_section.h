// A service file as it will be when the library has changed a section of it: worked out on a copy,
// by the same writers and with the same values, so that it can be looked at before anything is
// done, and compared with what was done.
#ifndef TAVO_SERVICETOOL_CHANGE_STAGED_SECTION_H
#define TAVO_SERVICETOOL_CHANGE_STAGED_SECTION_H

#include <string>

#include "change/unified_diff.h"
#include "tavoserviceconf.h"

namespace tavo::tool {

// The most that the library writes as the ports of a section.
inline constexpr int kLongestPortsValue = 1023;

// "80,443/tcp", as it writes them; empty where they are longer, or cannot be written.
std::string PortsValue(const TAVO_SERVICE_CONF_PORT &ports);

// These throw std::runtime_error with the reason where the file cannot be changed so.

// With all keys of a section set, as TLIBServiceConfSectionSet does it. None: a new file.
FileText WithSection(const FileText &before, const TAVO_SERVICE_CONF_SECTION &section);

// With one port key of a section set, as TLIBServiceConfPortsSet does it.
FileText WithPorts(const FileText &before, const std::string &section,
                   const TAVO_SERVICE_CONF_PORT &ports);

// Without a section, as TLIBServiceConfSectionRemove does it. None: the file is to go, for it has
// no other service.
FileText WithoutSection(const FileText &before, const std::string &section);

}  // namespace tavo::tool

#endif

// Ports as rules and firewall services declare them: "80", "1000-2000", with commas between.
#ifndef TAVO_SERVICETOOL_PORTS_DECLARED_TEXT_H
#define TAVO_SERVICETOOL_PORTS_DECLARED_TEXT_H

#include <string_view>

#include "ports/port_ranges.h"

namespace tavo::tool {

// Adds the ports that `text` declares. False when the library cannot compare anything with them;
// single ports are put to it.
bool ReadDeclaredPorts(std::string_view text, PortRanges &ranges);

}  // namespace tavo::tool

#endif

// The ports that an install of a service file requests.
#ifndef TAVO_SERVICETOOL_PORTS_SECTION_QUERIES_H
#define TAVO_SERVICETOOL_PORTS_SECTION_QUERIES_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "config_lines.h"
#include "ports/port_query.h"
#include "tavoserviceconf.h"

namespace tavo::tool {

// The sources that an install compares a file with.
inline constexpr int kSourcesOfFiles =
    TAVO_PORT_CHECK_FW_SERVICE | TAVO_PORT_CHECK_SYS_KEY | TAVO_PORT_CHECK_RUNTIME;

// The ports of a list in the order of the file.
PortQuery QueryOf(const TAVO_SERVICE_CONF_PORT *ports);

struct SectionQuery {
    std::string section;
    PortQuery query;
    bool names_protocols = false;  // false: both by default
    std::size_t line = 0;          // number of the section's header line
};

// The section [global] is not a service, but an install also requests its ports.
inline constexpr std::string_view kGlobalSection = "global";

// The header line of a [global] without dst.ports; points into `text`.
std::optional<ConfigLine> PortlessGlobalLine(std::string_view text);

// The destination ports of each section that the library reads in a file with that text: [global]
// first, the others in file order. Returns nullopt if the library rejects the file. Throws
// std::runtime_error or std::bad_alloc if a system error prevents reading a service.
std::optional<std::vector<SectionQuery>> QueriesOf(const std::string &text);

}  // namespace tavo::tool

#endif

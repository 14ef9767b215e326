// PORTS[/PROTOCOLS], as people ask for ports: the notation of service files, taken strictly. What
// lint would call doubtful in a file, such as port 0, is a mistake here.
#ifndef TAVO_SERVICETOOL_PORTS_PORT_QUERY_H
#define TAVO_SERVICETOOL_PORTS_PORT_QUERY_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "ports/port_ranges.h"

namespace tavo::tool {

struct PortQuery {
    PortRanges items;             // as they were named, each range in order
    std::uint32_t protocols = 0;  // protocol flag word
};

// "80,1000:2000/tcp,udp": protocols are always named.
std::string QueryText(const PortQuery &query);

struct QueryProblem {
    std::size_t column = 0;  // from 1, in bytes
    std::string message;
    std::string fix;
};

// False, with the first problem, when `text` is no query; `query` is then as it was.
bool ReadPortQuery(std::string_view text, PortQuery &query, QueryProblem &problem);

// The same for PROTOCOLS alone.
bool ReadProtocols(std::string_view text, std::uint32_t &protocols, QueryProblem &problem);

}  // namespace tavo::tool

#endif

// The nearest of free ports. Of two at the same distance, the lower one is the nearer.
#ifndef TAVO_SERVICETOOL_PORTS_PORT_CANDIDATES_H
#define TAVO_SERVICETOOL_PORTS_PORT_CANDIDATES_H

#include <cstddef>
#include <cstdint>

#include "ports/port_ranges.h"

namespace tavo::tool {

// The `count` ports of a set that are nearest to `near`, the nearest first, or as many as there
// are.
PortRanges NearestPorts(const PortRanges &set, std::size_t count, std::uint32_t near);

// The block of `size` ports of a set in a row whose first port is nearest to `near`, or no range.
PortRanges NearestBlock(const PortRanges &set, std::size_t size, std::uint32_t near);

}  // namespace tavo::tool

#endif

// Free ports to suggest: the nearest of a set, and the ports that the kernel gives away by itself.
#ifndef TAVO_SERVICETOOL_PORTS_FREE_PORTS_H
#define TAVO_SERVICETOOL_PORTS_FREE_PORTS_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "ports/port_query.h"

namespace tavo::tool {

// The `count` ports of a set that are nearest to `near`, the nearest first, or as many as there
// are. Of two at the same distance, the lower one is the nearer.
PortRanges NearestPorts(const PortRanges &set, std::size_t count, std::uint32_t near);

// The block of `size` ports of a set in a row whose first port is nearest to `near`, or no range.
PortRanges NearestBlock(const PortRanges &set, std::size_t size, std::uint32_t near);

// The range of ports for outgoing connections, over IPv4 and IPv6.
inline constexpr char kEphemeralPorts[] = "/proc/sys/net/ipv4/ip_local_port_range";

// Reads the range from that file. Returns the reason when it cannot, else "".
std::string ReadEphemeralPorts(const std::string &path, PortRange &range);

}  // namespace tavo::tool

#endif

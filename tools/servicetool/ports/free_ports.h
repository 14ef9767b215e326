// Free ports to suggest: the nearest ports of a set, and the kernel's range of ephemeral ports.
#ifndef TAVO_SERVICETOOL_PORTS_FREE_PORTS_H
#define TAVO_SERVICETOOL_PORTS_FREE_PORTS_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "ports/port_query.h"

namespace tavo::tool {

// Up to `count` ports of a set, those nearest to `near` first. Of two ports at the same distance,
// the lower one comes first.
PortRanges NearestPorts(const PortRanges &set, std::size_t count, std::uint32_t near);

// The block of `size` consecutive ports of a set whose first port is nearest to `near`; empty if
// there is none.
PortRanges NearestBlock(const PortRanges &set, std::size_t size, std::uint32_t near);

// The range of ports for outgoing connections, over IPv4 and IPv6.
inline constexpr char kEphemeralPorts[] = "/proc/sys/net/ipv4/ip_local_port_range";

// Reads the range from a file in the format of kEphemeralPorts. Returns "", or the reason for the
// failure.
std::string ReadEphemeralPorts(const std::string &path, PortRange &range);

}  // namespace tavo::tool

#endif

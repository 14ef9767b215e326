// The ports that the kernel gives to whoever asks for any, over IPv4 and IPv6.
#ifndef TAVO_SERVICETOOL_PORTS_EPHEMERAL_PORTS_H
#define TAVO_SERVICETOOL_PORTS_EPHEMERAL_PORTS_H

#include <string>

#include "ports/port_ranges.h"

namespace tavo::tool {

inline constexpr char kEphemeralPorts[] = "/proc/sys/net/ipv4/ip_local_port_range";

// Reads the range from that file. Gives what is in the way, else "".
std::string ReadEphemeralPorts(const std::string &path, PortRange &range);

}  // namespace tavo::tool

#endif

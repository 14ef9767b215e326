// The set of ports that were found, and the range of ports that are wanted.
#ifndef TAVO_PLATFORM_NET_PORT_SET_H
#define TAVO_PLATFORM_NET_PORT_SET_H

#include <bitset>
#include <cstdint>

namespace tavo {

// One bit for each port: a port shared by several sockets counts once, the ports are sorted, and no
// memory is allocated that could run out.
using PortSet = std::bitset<UINT16_MAX + 1>;

// The ports from `first` to `last`, both included.
struct PortRange {
    std::uint16_t first;
    std::uint16_t last;
};

}  // namespace tavo

#endif

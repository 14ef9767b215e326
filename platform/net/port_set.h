// The ports that were found, and which of them are wanted.
#ifndef TAVO_PLATFORM_NET_PORT_SET_H
#define TAVO_PLATFORM_NET_PORT_SET_H

#include <bitset>
#include <cstdint>

namespace tavo {

// One bit for each port there is: however many sockets share a port it counts once, the ports come
// out in order, and no memory is taken that could run out.
using PortSet = std::bitset<UINT16_MAX + 1>;

// The ports from `first` to `last`, both included.
struct PortRange {
    std::uint16_t first;
    std::uint16_t last;
};

}  // namespace tavo

#endif

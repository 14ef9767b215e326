// The ports in use, from the kernel's socket diagnostics or, if those are refused (a sandbox
// without netlink, a kernel without the module), from the tables in /proc/net. Diagnostics are
// tried first: they cost much less than writing and reading the tables.
#include <netinet/in.h>

#include <algorithm>
#include <climits>

#include "base/system_files.h"
#include "platform_failure.h"
#include "port_set.h"
#include "socket_diagnostics.h"
#include "socket_tables.h"
#include "tavonet.h"

namespace tavo {
namespace {

struct Protocol {
    int number;
    SocketTables tables;
};

constexpr Protocol kTcp = {IPPROTO_TCP, {kTcpTable, kTcp6Table}};
constexpr Protocol kUdp = {IPPROTO_UDP, {kUdpTable, kUdp6Table}};

// The ports of an incomplete dump are dropped: a result has only one source.
bool FindPorts(const Protocol &protocol, PortRange range, PortSet &ports) {
    if (AskForSockets(protocol.number, range, ports)) {
        return true;
    }
    ports.reset();
    return ReadSocketTables(protocol.tables, ports);
}

// Stores up to `room` of the marked ports of the range. Returns their number.
int Store(const PortSet &ports, PortRange range, int *slots, int room) {
    int count = 0;
    for (unsigned int port = range.first; port <= range.last && count < room; ++port) {
        if (ports[port]) {
            slots[count++] = static_cast<int>(port);
        }
    }
    return count;
}

}  // namespace
}  // namespace tavo

int TAVONetGetPortUsedInRange(int *pSlots, int *pnCount, int nLow, int nHigh, int blTCP) {
    if (pSlots == nullptr || pnCount == nullptr || nLow > nHigh) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    // A socket with port 0 is not bound.
    const int first = std::max(nLow, 1);
    const int last = std::min<int>(nHigh, UINT16_MAX);
    if (first > last) {
        *pnCount = 0;
        return 0;
    }
    const tavo::PortRange range = {static_cast<std::uint16_t>(first),
                                   static_cast<std::uint16_t>(last)};
    tavo::PortSet ports;
    if (!tavo::FindPorts(blTCP != 0 ? tavo::kTcp : tavo::kUdp, range, ports)) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_FILE_UNUSABLE);
    }
    *pnCount = tavo::Store(ports, range, pSlots, *pnCount > 0 ? *pnCount : INT_MAX);
    return 0;
}

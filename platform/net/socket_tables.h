// The sockets of this network namespace, as the tables in /proc/net tell them (proc(5)).
#ifndef TAVO_PLATFORM_NET_SOCKET_TABLES_H
#define TAVO_PLATFORM_NET_SOCKET_TABLES_H

#include <optional>
#include <string_view>

#include "port_set.h"

namespace tavo {

// The tables of one protocol.
struct SocketTables {
    const char *ipv4;
    const char *ipv6;
};

// Marks in `ports` every local port of the tables that a socket holds in any state but TIME_WAIT. A
// host without IPv6 lacks one of them; false when both are absent or one that is there cannot be
// read to its end. Sets no error.
bool ReadSocketTables(const SocketTables &tables, PortSet &ports);

struct SocketEntry {
    std::uint16_t port;
    unsigned int state;
};

// The local port and state in a line of a table; none for the header and what else is no socket.
std::optional<SocketEntry> ParseSocketLine(std::string_view line);

}  // namespace tavo

#endif

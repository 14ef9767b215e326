// The sockets of this network namespace according to the tables in /proc/net (proc(5)).
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
// host without IPv6 lacks one table. Returns false if both are missing or an existing one cannot be
// read to its end. Sets no error.
bool ReadSocketTables(const SocketTables &tables, PortSet &ports);

struct SocketEntry {
    std::uint16_t port;
    unsigned int state;
};

// The local port and state in a line of a table; none for the header and any other line that is not
// a socket.
std::optional<SocketEntry> ParseSocketLine(std::string_view line);

}  // namespace tavo

#endif

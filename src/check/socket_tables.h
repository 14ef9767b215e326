// The kernel's socket tables such as /proc/net/tcp, and their lines
// (Documentation/networking/proc_net_tcp.rst of the Linux kernel):
//
//   sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode
//    0: 0100007F:1F90 00000000:0000 0A 00000000:00000000 00:00000000 00000000     0        0 8123
//    ...
#ifndef TAVO_SRC_CHECK_SOCKET_TABLES_H
#define TAVO_SRC_CHECK_SOCKET_TABLES_H

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>

#include "base/system_files.h"
#include "support/failure.h"
#include "support/owners.h"

namespace tavo {

struct SocketTable {
    const char *path;
    uint16_t protocol;
    bool optional;  // absent in a kernel without IPv6
};

// The sockets are listed in this order.
inline constexpr SocketTable kSocketTables[] = {
    {kTcpTable, TAVO_PROTO_TCP, false},
    {kTcp6Table, TAVO_PROTO_TCP, true},
    {kUdpTable, TAVO_PROTO_UDP, false},
    {kUdp6Table, TAVO_PROTO_UDP, true},
};

// `here` is the source location of the calling operation, which the log lines show.

// Returns false, after logging, if the path is null or the file does not exist.
bool SocketTableExists(const Place &here, const char *path);

// Returns the lines of a table; null on failure, which is logged. The error state then gives the
// cause.
OwnedNames ReadSocketTable(const Place &here, const char *path);

// The local address of a socket, in network byte order.
struct SocketAddress {
    sa_family_t family;  // AF_INET or AF_INET6; AF_UNSPEC for any other kind
    in6_addr bytes;      // an IPv4 address is in the first four
};

// Reads the local port, state and inode. Returns false if the line is not a socket, such as the
// header.
bool ReadSocketLine(const char *line, RawSocketInfo &info);

// Reads the local address. The line must be a socket.
SocketAddress ReadSocketAddress(const char *line);

}  // namespace tavo

#endif

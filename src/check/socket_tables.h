// The files of the kernel's socket tables.
#ifndef TAVO_SRC_CHECK_SOCKET_TABLES_H
#define TAVO_SRC_CHECK_SOCKET_TABLES_H

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

}  // namespace tavo

#endif

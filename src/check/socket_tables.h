// The kernel's tables of sockets as files.
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
    bool optional;  // a kernel without IPv6 has none
};

// In the order in which their sockets are listed.
inline constexpr SocketTable kSocketTables[] = {
    {kTcpTable, TAVO_PROTO_TCP, false},
    {kTcp6Table, TAVO_PROTO_TCP, true},
    {kUdpTable, TAVO_PROTO_UDP, false},
    {kUdp6Table, TAVO_PROTO_UDP, true},
};

// `here` is the place of the operation that reads, which the log lines name.

// False, which is logged, when there is no such file, or no path.
bool SocketTableExists(const Place &here, const char *path);

// The lines of a table; null on failure, which is logged. The error state then says why.
OwnedNames ReadSocketTable(const Place &here, const char *path);

}  // namespace tavo

#endif

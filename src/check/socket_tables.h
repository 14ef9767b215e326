// The kernel's tables of sockets as files.
#ifndef TAVO_SRC_CHECK_SOCKET_TABLES_H
#define TAVO_SRC_CHECK_SOCKET_TABLES_H

#include <cstdint>

#include "base/system_files.h"
#include "support/failure.h"
#include "support/owners.h"

namespace tavo {

struct SocketTable {
    uint16_t protocol;
    const char *path;
    bool optional;  // a kernel without IPv6 has none
};

// In the order in which their sockets are listed.
inline constexpr SocketTable kSocketTables[] = {
    {TAVO_PROTO_TCP, kTcpTable, false},
    {TAVO_PROTO_TCP, kTcp6Table, true},
    {TAVO_PROTO_UDP, kUdpTable, false},
    {TAVO_PROTO_UDP, kUdp6Table, true},
};

// `here` is the place of the operation that reads, which the log lines name.

// False, which is logged, when there is no such file, or no path.
bool SocketTableExists(const Place &here, const char *path);

// The lines of a table; null on failure, which is logged. The error state then says why.
OwnedNames ReadSocketTable(const Place &here, const char *path);

}  // namespace tavo

#endif

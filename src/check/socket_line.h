// A line of the kernel's tables of sockets, /proc/net/tcp and its like
// (Documentation/networking/proc_net_tcp.rst of the Linux kernel):
//
//   sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode
//    0: 0100007F:1F90 00000000:0000 0A 00000000:00000000 00:00000000 00000000     0        0 8123
//    ...
#ifndef TAVO_SRC_CHECK_SOCKET_LINE_H
#define TAVO_SRC_CHECK_SOCKET_LINE_H

#include <netinet/in.h>
#include <sys/socket.h>

#include "tavoserviceconf.h"

namespace tavo {

// The local address of a socket, in network byte order.
struct SocketAddress {
    sa_family_t family;  // AF_INET or AF_INET6; AF_UNSPEC when the line has another kind
    in6_addr bytes;      // of IPv4 the first four
};

// Reads local port, state and inode; false for a line that is no socket, such as the header.
bool ReadSocketLine(const char *szLine, RawSocketInfo &info);

// Reads the local address of a line that is a socket.
SocketAddress ReadSocketAddress(const char *line);

}  // namespace tavo

#endif

// A line of a kernel socket table such as /proc/net/tcp (Documentation/networking/proc_net_tcp.rst
// of the Linux kernel):
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
    sa_family_t family;  // AF_INET or AF_INET6; AF_UNSPEC for any other kind
    in6_addr bytes;      // an IPv4 address is in the first four
};

// Reads the local port, state and inode. Returns false if the line is not a socket, such as the
// header.
bool ReadSocketLine(const char *szLine, RawSocketInfo &info);

// Reads the local address. The line must be a socket.
SocketAddress ReadSocketAddress(const char *line);

}  // namespace tavo

#endif

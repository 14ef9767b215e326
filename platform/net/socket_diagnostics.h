// The sockets of this network namespace according to the kernel's socket diagnostics
// (sock_diag(7)).
#ifndef TAVO_PLATFORM_NET_SOCKET_DIAGNOSTICS_H
#define TAVO_PLATFORM_NET_SOCKET_DIAGNOSTICS_H

#include "port_set.h"

namespace tavo {

// Marks in `ports` the local ports of `range` that a socket of `protocol` (IPPROTO_TCP,
// IPPROTO_UDP) holds, over IPv4 and IPv6, in any state but TIME_WAIT. Returns false if the kernel
// refuses, does not answer or reports the sockets incompletely; the ports received until then are
// marked. Sets no error.
bool AskForSockets(int protocol, PortRange range, PortSet &ports);

// The same for one address family (AF_INET, AF_INET6), through the socket `netlink`, which must
// have a receive timeout.
bool AskForSockets(int netlink, int family, int protocol, PortRange range, PortSet &ports);

}  // namespace tavo

#endif

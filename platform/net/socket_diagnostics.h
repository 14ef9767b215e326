// The sockets of this network namespace, as the kernel's socket diagnostics tell them
// (sock_diag(7)).
#ifndef TAVO_PLATFORM_NET_SOCKET_DIAGNOSTICS_H
#define TAVO_PLATFORM_NET_SOCKET_DIAGNOSTICS_H

#include "port_set.h"

namespace tavo {

// Marks in `ports` the local ports of `range` that a socket of `protocol` (IPPROTO_TCP,
// IPPROTO_UDP) holds, over IPv4 and IPv6, in any state but TIME_WAIT. False when the kernel
// refuses, falls silent or does not tell all of them; what it told until then is marked. Sets no
// error.
bool AskForSockets(int protocol, PortRange range, PortSet &ports);

// The same for one address family (AF_INET, AF_INET6), asked through `netlink`, a socket that gives
// up after a time to receive.
bool AskForSockets(int netlink, int family, int protocol, PortRange range, PortSet &ports);

}  // namespace tavo

#endif

// A line of the kernel's tables of sockets, /proc/net/tcp and its like
// (Documentation/networking/proc_net_tcp.rst of the Linux kernel):
//
//   sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode
//    0: 0100007F:1F90 00000000:0000 0A 00000000:00000000 00:00000000 00000000     0        0 8123
//    ...
#ifndef TAVO_SRC_CHECK_SOCKET_LINE_H
#define TAVO_SRC_CHECK_SOCKET_LINE_H

#include "tavoserviceconf.h"

namespace tavo {

// Reads local port, state and inode; false for a line that is no socket, such as the header.
bool ReadSocketLine(const char *szLine, RawSocketInfo &info);

}  // namespace tavo

#endif

// Who holds ports right now, from one look at the sockets and the processes of the system.
#ifndef TAVO_SERVICETOOL_PORTS_SOCKET_HOLDERS_H
#define TAVO_SERVICETOOL_PORTS_SOCKET_HOLDERS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tavo::tool {

struct HoldingProcess {
    std::uint32_t pid = 0;
    std::string program;  // its executable's path; empty when it cannot be read
    std::string name;     // in short: the last part of that path, else what it calls itself
    std::string user;     // name, or number where it has none; empty when it cannot be told
    std::string unit;     // of the service manager, without its suffix; empty when there is none
};

// Of a socket that is known to be there, but stands in no table of the kernel's.
inline constexpr std::uint32_t kNoState = 0;

// A port as one process holds it in one state.
struct HeldSocket {
    std::uint32_t port;
    std::uint32_t protocol;                 // TAVO_PROTO_TCP or TAVO_PROTO_UDP
    std::uint32_t state;                    // in the kernel's numbers, or kNoState
    std::optional<HoldingProcess> process;  // none: somebody whom we may not look at
};

// "LISTEN", "ESTABLISHED"; of UDP "UNCONNECTED" or "CONNECTED". Empty for kNoState.
std::string StateName(const HeldSocket &socket);

// Whether the socket waits for others to speak first.
bool Listens(const HeldSocket &socket);

struct SocketHolders {
    bool known = true;                // false: the sockets cannot be told
    std::string problem;              // why not
    std::vector<HeldSocket> sockets;  // by port, protocol, state, process
};

// Every port of a socket that some process holds. Sockets that the kernel alone is still closing,
// as those in TIME_WAIT, are held by nobody and are left out; so are those that nobody has any more
// when they are looked for once more.
SocketHolders LookAtSockets();

}  // namespace tavo::tool

#endif

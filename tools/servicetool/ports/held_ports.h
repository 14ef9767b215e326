// The processes that hold ports now, and whether they are programs of services.
#ifndef TAVO_SERVICETOOL_PORTS_HELD_PORTS_H
#define TAVO_SERVICETOOL_PORTS_HELD_PORTS_H

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "ports/declared_ports.h"

namespace tavo::tool {

struct HoldingProcess {
    std::uint32_t pid = 0;
    std::string program;  // path of the executable; empty if it cannot be read
    std::string name;     // last part of that path, else the name that the process sets itself
    std::string user;     // name, or number if it has no name; empty if unknown
    std::string unit;     // unit of the service manager, without its suffix; empty if none
};

// The state of a socket that exists but is in no table of the kernel.
inline constexpr std::uint32_t kNoState = 0;

// A port that a process holds with sockets in one state.
struct HeldSocket {
    std::uint32_t port;
    std::uint32_t protocol;         // TAVO_PROTO_TCP or TAVO_PROTO_UDP
    std::uint32_t state;            // the kernel's number, or kNoState
    const HoldingProcess *process;  // null if the holder is unknown
};

// "LISTEN", "ESTABLISHED"; for UDP "UNCONNECTED" or "CONNECTED". Empty for kNoState.
std::string StateName(const HeldSocket &socket);

// Whether the socket waits for clients.
bool Listens(const HeldSocket &socket);

struct HeldPorts {
    std::string problem;                   // why the sockets are unknown; else empty
    std::vector<HeldSocket> sockets;       // by port, protocol, state and process, no duplicates
    std::deque<HoldingProcess> processes;  // the sockets point to these
};

HeldPorts ReadHeldPorts();

// Whether a process is the program of the service that declares a port.
//
// The appliance has no record of which program belongs to which service, so names are compared: the
// names of the process (its unit, its program) and the sections that the library returns for each
// of them, with the names of the service and its file. Programs of a package are also recognised by
// the package's folder.
//
// The result is a hint, not a proof: users can choose the names of their programs and units. It is
// correct for the appliance's own programs.
//
// The sections of a program are read once, even if it is compared with many services.
class ProgramsOfServices {
  public:
    // Empty if unknown because the program of the process is unknown.
    std::optional<bool> Owns(const Declarer &service, const HoldingProcess &process);

    using Services = std::vector<const Declarer *>;

    struct Owner {
        const Declarer *service = nullptr;  // null: the process belongs to no service
        bool known = true;                  // false: unknown whether it belongs to one
    };

    // The first of the services that the process belongs to.
    Owner OwnerAmong(const Services &services, const HoldingProcess &process);

  private:
    using Sections = std::set<std::string>;

    const Sections &SectionsFor(const std::string &name);
    bool HasSection(const std::vector<std::string> &names, const std::string &section);

    std::map<std::string, Sections> sections_;  // by the name of the unit or program
};

}  // namespace tavo::tool

#endif

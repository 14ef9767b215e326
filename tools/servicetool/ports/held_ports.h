// Who holds ports right now, and whether that is the program of a service.
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
    std::string program;  // its executable's path; empty when it cannot be read
    std::string name;     // in short: the last part of that path, else what it calls itself
    std::string user;     // name, or number where it has none; empty when unknown
    std::string unit;     // of the service manager, without its suffix; empty when there is none
};

// Of a socket that is known to exist, but is in no table of the kernel.
inline constexpr std::uint32_t kNoState = 0;

// A port as one process holds it in one state.
struct HeldSocket {
    std::uint32_t port;
    std::uint32_t protocol;         // TAVO_PROTO_TCP or TAVO_PROTO_UDP
    std::uint32_t state;            // in the kernel's numbers, or kNoState
    const HoldingProcess *process;  // null when the holder is unknown
};

// "LISTEN", "ESTABLISHED"; of UDP "UNCONNECTED" or "CONNECTED". Empty for kNoState.
std::string StateName(const HeldSocket &socket);

// Whether the socket waits for others to speak first.
bool Listens(const HeldSocket &socket);

struct HeldPorts {
    std::string problem;                   // why the sockets are unknown; else empty
    std::vector<HeldSocket> sockets;       // by port, protocol, state and process, each only once
    std::deque<HoldingProcess> processes;  // what the sockets point to
};

HeldPorts ReadHeldPorts();

// Whether a process is the program of the service that declares a port.
//
// There is no record of which program belongs to which service, so names decide: those that the
// process goes by (its unit, its program) and the sections that the library names for each of them,
// against the names of the service and of its file; and a package's programs are in its folder.
//
// That is a hint and no proof: whoever may run programs may call one as he likes, and name the
// units of his own. It distinguishes an appliance's programs as long as nobody means to mislead.
//
// What files say of a program is read once, however many services it is compared with.
class ProgramsOfServices {
  public:
    // None where that is unknown, because the process's program is.
    std::optional<bool> Owns(const Declarer &service, const HoldingProcess &process);

    using Services = std::vector<const Declarer *>;

    struct Owner {
        const Declarer *service = nullptr;  // null: the process belongs to none of them
        bool known = true;                  // false: that is unknown
    };

    // The first of the services that the process belongs to.
    Owner OwnerAmong(const Services &services, const HoldingProcess &process);

  private:
    using Sections = std::set<std::string>;

    const Sections &SectionsFor(const std::string &name);
    bool HasSection(const std::vector<std::string> &names, const std::string &section);

    std::map<std::string, Sections> sections_;  // by the name they are listed for
};

}  // namespace tavo::tool

#endif

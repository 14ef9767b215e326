// The sockets that processes hold now, and whether the processes are programs of services.
#ifndef TAVO_SERVICETOOL_PORTS_HELD_PORTS_H
#define TAVO_SERVICETOOL_PORTS_HELD_PORTS_H

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "ports/port_claims.h"

namespace tavo::tool {

// Appends a claim for each socket and process, and the processes. Returns why they cannot be read,
// else "".
std::string ReadHeldPorts(PortClaims &all);

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
    std::optional<bool> Owns(const PortDeclarer &service, const HoldingProcess &process);

    struct Owner {
        const PortDeclarer *service = nullptr;  // null: the process belongs to no service
        bool known = true;                      // false: unknown whether it belongs to one
    };

    // The first of the declarers that the process belongs to. Null is an unknown process.
    Owner OwnerAmong(const ClaimList &declared, const HoldingProcess *process);

  private:
    using Sections = std::set<std::string>;

    const Sections &SectionsFor(const std::string &name);

    std::map<std::string, Sections> sections_;  // by the name of the unit or program
};

}  // namespace tavo::tool

#endif

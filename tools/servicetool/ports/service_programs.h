// Whether a process is the program of the service that declares a port.
//
// There is no record of which program belongs to which service, so names decide: those that the
// process goes by (its unit, its program) and the sections that the library names for each of them,
// against the names of the service and of its file; and a package's programs lie in its folder.
//
// That is a hint and no proof: whoever may run programs may call one as he likes, and name the
// units of his own. It tells an appliance's programs apart as long as nobody means to mislead.
#ifndef TAVO_SERVICETOOL_PORTS_SERVICE_PROGRAMS_H
#define TAVO_SERVICETOOL_PORTS_SERVICE_PROGRAMS_H

#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "ports/port_holders.h"
#include "ports/socket_holders.h"

namespace tavo::tool {

// What files say of a program is read once, however many services it is compared with.
class ProgramsOfServices {
  public:
    // None where that cannot be told, because the process's program cannot be.
    std::optional<bool> Owns(const PortHolder &service, const HoldingProcess &process);

    using Services = std::vector<const PortHolder *>;

    struct Owner {
        const PortHolder *service = nullptr;  // none: the process belongs to none of them
        bool known = true;                    // false: that cannot be told
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

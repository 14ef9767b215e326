// Everyone who declares ports, of every source, in one list.
#ifndef TAVO_SERVICETOOL_PORTS_DECLARED_CLAIMS_H
#define TAVO_SERVICETOOL_PORTS_DECLARED_CLAIMS_H

#include <compare>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "output/report.h"
#include "ports/port_holders.h"
#include "ports/port_query.h"
#include "ports/port_ranges.h"

namespace tavo::tool {

struct DeclaredClaim {
    PortRange range;          // as far as it was asked for
    std::uint32_t protocol;   // TAVO_PROTO_TCP or TAVO_PROTO_UDP
    std::string_view source;  // kForwardSource, kServiceSource or kSettingSource
    PortHolder holder;        // empty where it is not known who it is
    std::string detail = {};  // of a rule: "tcp, 8080 of the router to 80"
    auto operator<=>(const DeclaredClaim &) const = default;
};

struct DeclaredClaims {
    std::vector<DeclaredClaim> claims;     // in ascending order, each once
    bool known = true;                     // false: there may be more; why was told
    std::vector<std::string_view> failed;  // the sources that cannot tell, where there may be more
};

// Who declares the ports of a query. What goes wrong is told to `report`; its status is up to the
// caller.
DeclaredClaims ReadDeclaredClaims(const PortQuery &query, Report &report);

// The name by which a service is compared with others: the system knows some by two names.
std::string_view ServiceName(const PortHolder &holder);

}  // namespace tavo::tool

#endif

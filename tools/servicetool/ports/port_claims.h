// All claims to ports, by those who declare them and by the sockets that hold them now, and where
// claims collide.
#ifndef TAVO_SERVICETOOL_PORTS_PORT_CLAIMS_H
#define TAVO_SERVICETOOL_PORTS_PORT_CLAIMS_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "output/report.h"
#include "ports/port_holders.h"
#include "ports/port_ranges.h"
#include "ports/port_sources.h"
#include "ports/socket_holders.h"

namespace tavo::tool {

struct PortClaim {
    PortRange range;
    std::uint32_t protocol;            // TAVO_PROTO_TCP or TAVO_PROTO_UDP
    std::string_view source;           // as of PortSource
    PortHolder holder;                 // who declares it; of a socket, whose program has it
    std::optional<HeldSocket> socket;  // none: the claim is declared
};

struct PortClaims {
    std::vector<PortClaim> claims;                // by port, protocol and source
    std::map<std::uint32_t, PortRanges> collide;  // sets of the ports in conflict, by protocol
    std::map<std::uint32_t, PortRanges> unclear;  // those whose listeners cannot be told
    bool known = true;                            // false: there may be more; why was told
};

struct KindsOfClaim {
    bool declared;
    bool held;
};

// Reads the claims of these kinds. What goes wrong is told to `report`; its status is up to the
// caller.
PortClaims ReadPortClaims(KindsOfClaim kinds, Report &report);

using ClaimList = std::vector<const PortClaim *>;

// The claims that reach the ports at hand, of a list in the order of first ports.
class ClaimsInReach {
  public:
    explicit ClaimsInReach(ClaimList all) : all_(std::move(all)) {}

    // Ports are asked for in ascending order.
    const ClaimList &At(const PortRange &ports);

  private:
    const ClaimList all_;
    std::size_t next_ = 0;
    ClaimList reach_;
};

// Whether any of the claim's ports is in conflict.
bool Collides(const PortClaim &claim, const PortClaims &all);

// The claims to ports in conflict, each as far as that goes.
std::vector<PortClaim> CollidingClaims(const PortClaims &all);

}  // namespace tavo::tool

#endif

// Ports with their declarers, the forwarding rules that name them, and their holders: as a list of
// claims with the conflicts between them, or as one account per port.
#ifndef TAVO_SERVICETOOL_PORTS_PORT_CLAIMS_H
#define TAVO_SERVICETOOL_PORTS_PORT_CLAIMS_H

#include <compare>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "output/report.h"
#include "ports/declared_ports.h"
#include "ports/held_ports.h"
#include "ports/port_query.h"
#include "ports/port_sources.h"

namespace tavo::tool {

struct PortClaim {
    PortRange range;
    std::uint32_t protocol;    // TAVO_PROTO_TCP or TAVO_PROTO_UDP
    std::string_view source;   // a name of kPortSources
    const Declarer *declarer;  // for a socket, the service of its program; null if none
    const HeldSocket *socket;  // null for a declaration
};

struct PortClaims {
    PortClaims() = default;
    PortClaims(PortClaims &&) = default;
    PortClaims &operator=(PortClaims &&) = default;

    std::vector<PortClaim> claims;                // by port, protocol and source
    std::map<std::uint32_t, PortRanges> collide;  // ports in conflict, by protocol
    std::map<std::uint32_t, PortRanges> unclear;  // ports with unknown listeners, by protocol
    bool known = true;                            // false: incomplete; the reason was reported

    // Owners of what the claims point to.
    Declarations declared;
    HeldPorts held;
};

struct KindsOfClaim {
    bool declared;
    bool held;
};

// Reads the claims of these kinds. Reports failures but does not raise the status.
PortClaims ReadPortClaims(KindsOfClaim kinds, Report &report);

using ClaimList = std::vector<const PortClaim *>;

// Finds the claims to given ports in a list sorted by first port.
class ClaimsInReach {
  public:
    explicit ClaimsInReach(ClaimList all) : all_(std::move(all)) {}

    // The ports of consecutive calls must ascend.
    const ClaimList &At(const PortRange &ports);

  private:
    const ClaimList all_;
    std::size_t next_ = 0;
    ClaimList reach_;
};

// Whether any of the claim's ports is in conflict.
bool Collides(const PortClaim &claim, const PortClaims &all);

// The claims to ports in conflict, each cut to these ports.
std::vector<PortClaim> CollidingClaims(const PortClaims &all);

// ---- Accounts ----

// The declarers and holders of one port for one protocol.
struct PortAccount {
    std::uint32_t port = 0;
    std::uint32_t protocol = 0;          // TAVO_PROTO_TCP or TAVO_PROTO_UDP
    bool reserved = false;               // always taken
    std::vector<Declaration> declared;   // by services and settings
    std::vector<Declaration> forwarded;  // by rules of the router
    std::vector<HeldSocket> held;        // listening sockets first
    FailedSources failed;                // sources that could not be read

    // Derived: the processes that hold the port, without duplicates; if any of them listen, only
    // these. Strangers are holders that belong to no service that declares the port.
    std::vector<const HoldingProcess *> holders;
    std::vector<const HoldingProcess *> strangers;

    // Whether all holders belong to services that declare the port. Empty if the port has no
    // declarer or no holder, or if it is unknown for some holders.
    std::optional<bool> same_service;

    // kUnknown if no declarer or holder is known, but there may be one.
    PortVerdict Verdict() const;

    // Whether a process that cannot be inspected holds the port.
    bool HasUnknownHolder() const;
};

// A port and a protocol to report on.
struct PortTarget {
    std::uint32_t port;
    std::uint32_t protocol;
    auto operator<=>(const PortTarget &) const = default;
};

struct PortAccounts {
    PortAccounts() = default;
    PortAccounts(PortAccounts &&) = default;
    PortAccounts &operator=(PortAccounts &&) = default;

    std::vector<PortAccount> accounts;  // one for each target

    // Owners of what the accounts point to.
    Declarations declared;
    HeldPorts held;
};

// Reads each source once for all targets, which must be distinct. Reports failures but does not
// raise the status.
PortAccounts ReadPortAccounts(const std::vector<PortTarget> &targets, Report &report);

}  // namespace tavo::tool

#endif

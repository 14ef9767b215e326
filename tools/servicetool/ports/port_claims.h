// Who has ports: those who declare them, rules that name them, and the processes that hold them
// now. All of them as claims, with the collisions between these, or by port as accounts.
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
    std::string_view source;   // as of PortSource
    const Declarer *declarer;  // of a socket the service whose program has it; null for none
    const HeldSocket *socket;  // null: the claim is declared
};

struct PortClaims {
    PortClaims() = default;
    PortClaims(PortClaims &&) = default;
    PortClaims &operator=(PortClaims &&) = default;

    std::vector<PortClaim> claims;                // by port, protocol and source
    std::map<std::uint32_t, PortRanges> collide;  // sets of the ports in conflict, by protocol
    std::map<std::uint32_t, PortRanges> unclear;  // those whose listeners are unknown
    bool known = true;                            // false: there may be more; why was reported

    // What the claims point to.
    DeclaredPorts declared;
    HeldPorts held;
};

struct KindsOfClaim {
    bool declared;
    bool held;
};

// Reads the claims of these kinds. Failures are reported; the status is up to the caller.
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

// ---- Accounts ----

// Of one port for one protocol.
struct PortAccount {
    std::uint32_t port = 0;
    std::uint32_t protocol = 0;          // TAVO_PROTO_TCP or TAVO_PROTO_UDP
    bool reserved = false;               // taken whoever is asked
    std::vector<Declaration> declared;   // by services and settings
    std::vector<Declaration> forwarded;  // by rules of the router
    std::vector<HeldSocket> held;        // those that listen first
    FailedSources failed;                // sources that could not be read

    // What follows from that: the processes that hold the port, each once; where some listen, only
    // these. Strangers among them belong to no service that declares the port.
    std::vector<const HoldingProcess *> holders;
    std::vector<const HoldingProcess *> strangers;

    // Whether the holders all belong to services that declare the port; none where there are not
    // both, or where it is unknown of some.
    std::optional<bool> same_service;

    // Unknown where nobody is known to have the port, but somebody may.
    PortVerdict Verdict() const;

    // Whether a process holds it that cannot be looked at.
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

    // What the accounts point to.
    DeclaredPorts declared;
    HeldPorts held;
};

// Reads everything once, for all targets, which are different. Failures are reported; the status is
// up to the caller.
PortAccounts ReadPortAccounts(const std::vector<PortTarget> &targets, Report &report);

}  // namespace tavo::tool

#endif

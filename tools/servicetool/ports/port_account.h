// Who has a port: everyone who declares it, every rule that names it, and the processes that hold
// it now.
#ifndef TAVO_SERVICETOOL_PORTS_PORT_ACCOUNT_H
#define TAVO_SERVICETOOL_PORTS_PORT_ACCOUNT_H

#include <compare>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "output/report.h"
#include "ports/declared_claims.h"
#include "ports/port_sources.h"
#include "ports/socket_holders.h"

namespace tavo::tool {

// Of one port for one protocol.
struct PortAccount {
    std::uint32_t port = 0;
    std::uint32_t protocol = 0;            // TAVO_PROTO_TCP or TAVO_PROTO_UDP
    bool reserved = false;                 // taken whoever is asked
    std::vector<DeclaredClaim> declared;   // by services and settings
    std::vector<DeclaredClaim> forwarded;  // by rules of the router
    std::vector<HeldSocket> held;          // those that listen first
    std::vector<std::string_view> failed;  // sources that cannot tell

    // What follows from that: the processes that hold the port, each once; where some listen, only
    // these. Strangers among them belong to no service that declares the port.
    std::vector<HoldingProcess> holders;
    std::vector<HoldingProcess> strangers;

    // Whether the holders all belong to services that declare the port; none where there are not
    // both, or where it cannot be told of all.
    std::optional<bool> same_service;

    // Unknown where nobody is known to have the port, but somebody may.
    PortVerdict Verdict() const;

    // Whether somebody holds it who cannot be looked at.
    bool HasUnknownHolder() const;
};

// A wish to know of one port and one protocol.
struct PortTarget {
    std::uint32_t port;
    std::uint32_t protocol;
    auto operator<=>(const PortTarget &) const = default;
};

// One for each target, which are different, from one look at everything. What goes wrong is told to
// `report`; its status is up to the caller.
std::vector<PortAccount> ReadPortAccounts(const std::vector<PortTarget> &targets, Report &report);

}  // namespace tavo::tool

#endif

// Two services that declare a port collide, and so do a service that declares one and a program of
// somebody else that waits there for others. The port of an outgoing connection is the kernel's
// choice and given back soon, so it is no claim against a declaration. Rules of the router declare
// nothing here: one of their sides is a port of another machine, and they open a port for whoever
// listens there.
//
// Claims are walked in the order of their ports, with those in mind that reach the port at hand:
// an appliance has thousands of declarations, and a range of them may be everywhere.
#include "ports/port_claims.h"

#include <algorithm>
#include <string>
#include <tuple>
#include <utility>

#include "ports/declared_claims.h"
#include "ports/protocols.h"
#include "ports/service_programs.h"

namespace tavo::tool {
namespace {

// Of claims to the same port by the same source, those who declare it are in the order of their
// names already, and sockets in that of their states.
void Sort(std::vector<PortClaim> &claims) {
    std::stable_sort(claims.begin(), claims.end(), [](const PortClaim &a, const PortClaim &b) {
        return std::tie(a.range, a.protocol, a.source) < std::tie(b.range, b.protocol, b.source);
    });
}

bool Declares(const PortClaim &claim) {
    return !claim.socket && claim.source != kForwardSource && !claim.holder.name.empty();
}

// In the order of their first ports.
ClaimList DeclaredFor(std::uint32_t protocol, const std::vector<PortClaim> &claims) {
    ClaimList list;
    for (const PortClaim &claim : claims) {
        if (claim.protocol == protocol && Declares(claim)) {
            list.push_back(&claim);
        }
    }
    return list;
}

// Where a service begins or ceases to declare ports.
struct Edge {
    std::uint32_t port;
    int step;
    std::string_view service;
};

std::vector<Edge> EdgesOf(const ClaimList &declared) {
    std::vector<Edge> edges;
    for (const PortClaim *claim : declared) {
        const std::string_view service = ServiceName(claim->holder);
        edges.push_back({claim->range.first, 1, service});
        edges.push_back({claim->range.last + 1, -1, service});
    }
    std::sort(edges.begin(), edges.end(),
              [](const Edge &a, const Edge &b) { return a.port < b.port; });
    return edges;
}

// The ports that more than one service declares.
PortRanges DeclaredTwice(const ClaimList &declared) {
    PortRanges twice;
    std::map<std::string_view, int> services;  // how many claims each has to the port at hand
    std::uint32_t port = 0;
    for (const Edge &edge : EdgesOf(declared)) {
        if (services.size() > 1 && port < edge.port) {
            twice.push_back({port, edge.port - 1});
        }
        port = edge.port;
        if ((services[edge.service] += edge.step) == 0) {
            services.erase(edge.service);
        }
    }
    return twice;
}

// Who waits at a port, seen from those who declare it.
struct Listeners {
    bool strange = false;  // a program of none of them is there
    bool unknown = false;  // somebody is of whom that cannot be told
};

using SocketClaims = std::vector<PortClaim *>;

// Names the services that sockets belong to, too.
Listeners LookAtListeners(const SocketClaims &sockets, const ClaimList &declared,
                          ProgramsOfServices &programs) {
    ProgramsOfServices::Services services;
    for (const PortClaim *claim : declared) {
        services.push_back(&claim->holder);
    }
    Listeners listeners;
    for (PortClaim *claim : sockets) {
        const std::optional<HoldingProcess> &process = claim->socket->process;
        const ProgramsOfServices::Owner owner = process ? programs.OwnerAmong(services, *process)
                                                        : ProgramsOfServices::Owner{.known = false};
        if (owner.service != nullptr) {
            claim->holder = *owner.service;
        } else if (Listens(*claim->socket)) {
            (owner.known ? listeners.strange : listeners.unknown) = true;
        }
    }
    return listeners;
}

std::map<std::uint32_t, SocketClaims> HeldFor(std::uint32_t protocol,
                                              std::vector<PortClaim> &claims) {
    std::map<std::uint32_t, SocketClaims> by_port;
    for (PortClaim &claim : claims) {
        if (claim.protocol == protocol && claim.socket) {
            by_port[claim.range.first].push_back(&claim);
        }
    }
    return by_port;
}

void Compare(std::uint32_t protocol, PortClaims &all) {
    const ClaimList declared = DeclaredFor(protocol, all.claims);
    PortRanges collide = DeclaredTwice(declared);
    PortRanges unclear;
    ClaimsInReach in_reach(declared);
    ProgramsOfServices programs;
    for (const auto &[port, sockets] : HeldFor(protocol, all.claims)) {
        const PortRange here = {port, port};
        const ClaimList &declared_here = in_reach.At(here);
        if (declared_here.empty()) {
            continue;
        }
        const Listeners listeners = LookAtListeners(sockets, declared_here, programs);
        if (listeners.strange) {
            collide.push_back(here);
        } else if (listeners.unknown) {
            unclear.push_back(here);
        }
    }
    all.collide[protocol] = Merged(std::move(collide));
    all.unclear[protocol] = Merged(std::move(unclear));
}

void AddDeclared(PortClaims &all, Report &report) {
    DeclaredClaims declared = ReadDeclaredClaims({{{0, kHighestPort}}, TAVO_PROTO_BOTH}, report);
    all.known = all.known && declared.known;
    for (DeclaredClaim &claim : declared.claims) {
        all.claims.push_back(
            {claim.range, claim.protocol, claim.source, std::move(claim.holder), {}});
    }
}

void AddHeld(PortClaims &all, Report &report) {
    SocketHolders held = LookAtSockets();
    if (!held.known) {
        report.TellError("", "unreadable", "who holds ports cannot be told: " + held.problem);
        all.known = false;
    }
    for (HeldSocket &socket : held.sockets) {
        all.claims.push_back(
            {{socket.port, socket.port}, socket.protocol, kSocketSource, {}, std::move(socket)});
    }
}

}  // namespace

PortClaims ReadPortClaims(KindsOfClaim kinds, Report &report) {
    PortClaims all;
    if (kinds.declared) {
        AddDeclared(all, report);
    }
    if (kinds.held) {
        AddHeld(all, report);
    }
    Sort(all.claims);
    for (const std::uint32_t protocol : kProtocols) {
        Compare(protocol, all);
    }
    return all;
}

const ClaimList &ClaimsInReach::At(const PortRange &ports) {
    for (; next_ < all_.size() && all_[next_]->range.first <= ports.last; ++next_) {
        reach_.push_back(all_[next_]);
    }
    std::erase_if(reach_,
                  [&ports](const PortClaim *claim) { return claim->range.last < ports.first; });
    return reach_;
}

bool Collides(const PortClaim &claim, const PortClaims &all) {
    return !Overlap(all.collide.at(claim.protocol), claim.range).empty();
}

std::vector<PortClaim> CollidingClaims(const PortClaims &all) {
    std::vector<PortClaim> claims;
    for (const PortClaim &claim : all.claims) {
        for (const PortRange &range : Overlap(all.collide.at(claim.protocol), claim.range)) {
            claims.push_back(claim);
            claims.back().range = range;
        }
    }
    Sort(claims);
    return claims;
}

}  // namespace tavo::tool

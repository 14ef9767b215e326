// Two services that declare a port collide, and so do a service that declares one and a program of
// somebody else that holds it. A rule of the router that names no service opens a port for whoever
// listens there, so it collides with nobody.
//
// Claims are walked in the order of their ports, with those in mind that reach the port at hand:
// an appliance has thousands of declarations, and a range of them may be everywhere.
#include "port_claims.h"

#include <algorithm>
#include <string>
#include <tuple>
#include <utility>

#include "declared_claims.h"
#include "protocols.h"
#include "service_programs.h"

namespace tavo {
namespace {

using ClaimList = std::vector<PortClaim *>;

// Of claims to the same port by the same source, those who declare it are in the order of their
// names already, and sockets in that of their states.
void Sort(std::vector<PortClaim> &claims) {
    std::stable_sort(claims.begin(), claims.end(), [](const PortClaim &a, const PortClaim &b) {
        return std::tie(a.range, a.protocol, a.source) < std::tie(b.range, b.protocol, b.source);
    });
}

// In the order of their first ports.
ClaimList DeclaredFor(std::uint32_t protocol, std::vector<PortClaim> &claims) {
    ClaimList list;
    for (PortClaim &claim : claims) {
        if (claim.protocol == protocol && !claim.socket && !claim.holder.name.empty()) {
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

// The claims that reach the port at hand, of a list by first ports.
class ClaimsInReach {
  public:
    explicit ClaimsInReach(const ClaimList &all) : all_(all) {}

    // Ports are asked for in ascending order.
    const ClaimList &At(std::uint32_t port) {
        for (; next_ < all_.size() && all_[next_]->range.first <= port; ++next_) {
            reach_.push_back(all_[next_]);
        }
        std::erase_if(reach_, [port](const PortClaim *claim) { return claim->range.last < port; });
        return reach_;
    }

  private:
    const ClaimList &all_;
    std::size_t next_ = 0;
    ClaimList reach_;
};

// Which program belongs to which service, found out once: that takes a look at files.
class ProgramsOfServices {
  public:
    // The first of the services whose program the process runs; NULL when there is none.
    const PortClaim *ServiceOf(const HoldingProcess &process, const ClaimList &declared) {
        const auto found =
            std::find_if(declared.begin(), declared.end(),
                         [&](const PortClaim *claim) { return Belongs(process, *claim); });
        return found == declared.end() ? nullptr : *found;
    }

  private:
    using Pair = std::tuple<std::string_view, std::string_view, const PortClaim *>;

    bool Belongs(const HoldingProcess &process, const PortClaim &claim) {
        const auto [known, is_new] =
            known_.try_emplace(Pair(process.program, process.unit, &claim), false);
        if (is_new) {
            known->second = IsProgramOf(process, claim.holder);
        }
        return known->second;
    }

    std::map<Pair, bool> known_;
};

// Who holds a port, seen from those who declare it.
struct Holders {
    bool own = false;      // a program of a service that declares it is among them
    bool unknown = false;  // somebody whom we may not look at is
};

Holders LookAtHolders(const ClaimList &sockets, const ClaimList &declared,
                      ProgramsOfServices &programs) {
    Holders holders;
    for (PortClaim *claim : sockets) {
        const std::optional<HoldingProcess> &process = claim->socket->process;
        if (!process) {
            holders.unknown = true;
        } else if (const PortClaim *service = programs.ServiceOf(*process, declared);
                   service != nullptr) {
            claim->holder = service->holder;
            holders.own = true;
        }
    }
    return holders;
}

std::map<std::uint32_t, ClaimList> HeldFor(std::uint32_t protocol, std::vector<PortClaim> &claims) {
    std::map<std::uint32_t, ClaimList> by_port;
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
        const ClaimList &declared_here = in_reach.At(port);
        if (declared_here.empty()) {
            continue;
        }
        const Holders holders = LookAtHolders(sockets, declared_here, programs);
        if (!holders.own) {
            (holders.unknown ? unclear : collide).push_back({port, port});
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

}  // namespace tavo

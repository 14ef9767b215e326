// A port is in conflict if two services declare it, or if one service declares it and a program of
// another one listens on it. The port of an outgoing connection is chosen by the kernel and soon
// released, so it does not conflict with a declaration. Rules of the router are not declarations
// here: one side of a rule is a port of another machine, and the rule opens a port for any program
// that listens on it.
//
// Claims are processed in port order, with a list of those that include the current port: an
// appliance has thousands of declarations, and some are wide ranges.
#include "ports/port_claims.h"

#include <algorithm>
#include <set>
#include <string>
#include <tuple>

namespace tavo::tool {
namespace {

bool ComesBefore(const PortClaim &a, const PortClaim &b) {
    return std::tie(a.range, a.protocol, a.source) < std::tie(b.range, b.protocol, b.source);
}

bool Declares(const PortClaim &claim) {
    return claim.socket == nullptr && claim.source != kForwardSource &&
           !claim.declarer->name.empty();
}

// The declarations for a protocol, sorted by first port.
ClaimList DeclaredFor(std::uint32_t protocol, const std::vector<PortClaim> &claims) {
    ClaimList list;
    for (const PortClaim &claim : claims) {
        if (claim.protocol == protocol && Declares(claim)) {
            list.push_back(&claim);
        }
    }
    return list;
}

// A port from which on a service has one declaration more or less.
struct Edge {
    std::uint32_t port;
    int step;
    std::string_view service;
};

std::vector<Edge> EdgesOf(const ClaimList &declared) {
    std::vector<Edge> edges;
    for (const PortClaim *claim : declared) {
        const std::string_view service = claim->declarer->service;
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
    std::map<std::string_view, int> services;  // number of claims of each to the current port
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

// The listeners on a port that belong to no service that declares it.
struct Listeners {
    bool strange = false;  // there is one
    bool unknown = false;  // there may be one: a listener cannot be identified
};

using SocketClaims = std::vector<PortClaim *>;

// Also enters the service that each socket belongs to as the declarer of its claim.
Listeners LookAtListeners(const SocketClaims &sockets, const ClaimList &declared,
                          ProgramsOfServices &programs) {
    ProgramsOfServices::Services services;
    for (const PortClaim *claim : declared) {
        services.push_back(claim->declarer);
    }
    Listeners listeners;
    for (PortClaim *claim : sockets) {
        const HoldingProcess *process = claim->socket->process;
        const ProgramsOfServices::Owner owner = process != nullptr
                                                    ? programs.OwnerAmong(services, *process)
                                                    : ProgramsOfServices::Owner{.known = false};
        if (owner.service != nullptr) {
            claim->declarer = owner.service;
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
        if (claim.protocol == protocol && claim.socket != nullptr) {
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

void TellUnreadSockets(const HeldPorts &held, Report &report) {
    if (!held.problem.empty()) {
        report.TellError("", "unreadable", "the holders of ports are unknown: " + held.problem);
    }
}

void AddDeclared(PortClaims &all, Report &report) {
    all.declared = ReadDeclaredPorts({{{0, kHighestPort}}, TAVO_PROTO_BOTH}, report);
    all.known = all.known && all.declared.failed.empty();
    for (const Declaration &declared : all.declared.declarations) {
        all.claims.push_back(
            {declared.range, declared.protocol, declared.source, declared.declarer, nullptr});
    }
}

void AddHeld(PortClaims &all, Report &report) {
    all.held = ReadHeldPorts();
    TellUnreadSockets(all.held, report);
    all.known = all.known && all.held.problem.empty();
    for (const HeldSocket &socket : all.held.sockets) {
        all.claims.push_back(
            {{socket.port, socket.port}, socket.protocol, kSocketSource, nullptr, &socket});
    }
}

// ---- Accounts ----

class Accounts {
  public:
    explicit Accounts(const std::vector<PortTarget> &targets);

    void AddDeclared(const Declarations &declared);
    void AddHeld(const HeldPorts &sockets);
    void AddBound(Report &report);
    void Conclude();

    std::vector<PortAccount> &&Take() && { return std::move(accounts_); }

  private:
    std::vector<PortAccount *> AccountsIn(const PortRange &range, std::uint32_t protocol) const;
    PortQuery SocketlessPorts(std::uint32_t protocol) const;
    void AddBound(const PortAnswer &answer, std::uint32_t protocol);

    std::vector<PortAccount> accounts_;
    std::map<std::uint32_t, std::map<std::uint32_t, PortAccount *>> by_port_;  // of each protocol
};

Accounts::Accounts(const std::vector<PortTarget> &targets) : accounts_(targets.size()) {
    for (std::size_t i = 0; i < targets.size(); ++i) {
        const PortTarget &target = targets[i];
        accounts_[i].port = target.port;
        accounts_[i].protocol = target.protocol;
        accounts_[i].reserved = target.port == kReservedPort;
        by_port_[target.protocol][target.port] = &accounts_[i];
    }
}

std::vector<PortAccount *> Accounts::AccountsIn(const PortRange &range,
                                                std::uint32_t protocol) const {
    std::vector<PortAccount *> found;
    const auto accounts = by_port_.find(protocol);
    if (accounts != by_port_.end()) {
        const auto end = accounts->second.upper_bound(range.last);
        for (auto account = accounts->second.lower_bound(range.first); account != end; ++account) {
            found.push_back(account->second);
        }
    }
    return found;
}

// A port may have duplicate declarations once their ranges are cut to it; sorting removes these.
void Accounts::AddDeclared(const Declarations &declared) {
    for (const Declaration &declaration : declared.declarations) {
        for (PortAccount *account : AccountsIn(declaration.range, declaration.protocol)) {
            auto &list =
                declaration.source == kForwardSource ? account->forwarded : account->declared;
            list.push_back(declaration);
            list.back().range = {account->port, account->port};
        }
    }
    for (PortAccount &account : accounts_) {
        SortDeclarations(account.declared);
        SortDeclarations(account.forwarded);
        account.failed = declared.failed;
    }
}

void Accounts::AddHeld(const HeldPorts &sockets) {
    for (const HeldSocket &socket : sockets.sockets) {
        for (PortAccount *account : AccountsIn({socket.port, socket.port}, socket.protocol)) {
            account->held.push_back(socket);
        }
    }
    for (PortAccount &account : accounts_) {
        std::stable_partition(account.held.begin(), account.held.end(), Listens);
        if (!sockets.problem.empty()) {
            account.failed.push_back(kSocketSource);
        }
    }
}

PortQuery Accounts::SocketlessPorts(std::uint32_t protocol) const {
    PortQuery query;
    query.protocols = protocol;
    for (const PortAccount &account : accounts_) {
        if (account.protocol == protocol && account.held.empty()) {
            query.items.push_back({account.port, account.port});
        }
    }
    return query;
}

void Accounts::AddBound(const PortAnswer &answer, std::uint32_t protocol) {
    PortRanges bound;
    const bool unknown = !answer.failed.empty();
    for (const PortConflict &conflict : answer.conflicts) {
        if (conflict.source == kSocketSource) {
            bound.push_back(conflict.range);
        }
    }
    bound = Merged(std::move(bound));
    for (PortAccount *account : AccountsIn({0, kHighestPort}, protocol)) {
        const PortRange port = {account->port, account->port};
        if (!account->held.empty()) {
            continue;
        }
        if (!Overlap(bound, port).empty()) {
            account->held.push_back({account->port, protocol, kNoState, {}});
        } else if (unknown) {
            account->failed.push_back(kSocketSource);
        }
    }
}

// The kernel's tables do not list a TCP socket that is bound but not yet listening. The library's
// check for ports in use detects it, but not its holder.
void Accounts::AddBound(Report &report) {
    PortSources sources(TAVO_PORT_CHECK_RUNTIME, report);
    for (const std::uint32_t protocol : kProtocols) {
        const PortQuery query = SocketlessPorts(protocol);
        if (!query.items.empty()) {
            AddBound(sources.Ask(query), protocol);
        }
    }
}

std::vector<const HoldingProcess *> HoldersOf(const std::vector<HeldSocket> &sockets) {
    const bool listened_to = std::any_of(
        sockets.begin(), sockets.end(),
        [](const HeldSocket &socket) { return socket.process != nullptr && Listens(socket); });
    std::set<const HoldingProcess *> known;
    std::vector<const HoldingProcess *> holders;
    for (const HeldSocket &socket : sockets) {
        if (socket.process != nullptr && (Listens(socket) || !listened_to) &&
            known.insert(socket.process).second) {
            holders.push_back(socket.process);
        }
    }
    return holders;
}

void FindStrangers(PortAccount &account, ProgramsOfServices &programs) {
    ProgramsOfServices::Services services;
    for (const Declaration &claim : account.declared) {
        services.push_back(claim.declarer);
    }
    bool all_known = !account.HasUnknownHolder();
    for (const HoldingProcess *process : account.holders) {
        const ProgramsOfServices::Owner owner = programs.OwnerAmong(services, *process);
        all_known = all_known && owner.known;
        if (owner.service == nullptr && owner.known) {
            account.strangers.push_back(process);
        }
    }
    if (!account.strangers.empty()) {
        account.same_service = false;
    } else if (all_known) {
        account.same_service = true;
    }
}

void Accounts::Conclude() {
    ProgramsOfServices programs;
    for (PortAccount &account : accounts_) {
        account.holders = HoldersOf(account.held);
        if (!account.declared.empty() && !account.holders.empty()) {
            FindStrangers(account, programs);
        }
    }
}

PortQuery QueryFor(const std::vector<PortTarget> &targets) {
    PortQuery query;
    for (const PortTarget &target : targets) {
        query.items.push_back({target.port, target.port});
        query.protocols |= target.protocol;
    }
    return query;
}

}  // namespace

PortClaims ReadPortClaims(KindsOfClaim kinds, Report &report) {
    PortClaims all;
    if (kinds.declared) {
        AddDeclared(all, report);
    }
    const auto declared = static_cast<std::ptrdiff_t>(all.claims.size());
    if (kinds.held) {
        AddHeld(all, report);
    }
    std::inplace_merge(all.claims.begin(), all.claims.begin() + declared, all.claims.end(),
                       ComesBefore);
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
    std::stable_sort(claims.begin(), claims.end(), ComesBefore);
    return claims;
}

// ---- Accounts ----

PortVerdict PortAccount::Verdict() const {
    if (reserved || !declared.empty() || !forwarded.empty() || !holders.empty()) {
        return PortVerdict::kTaken;
    }
    return failed.empty() && held.empty() ? PortVerdict::kFree : PortVerdict::kUnknown;
}

bool PortAccount::HasUnknownHolder() const {
    return std::any_of(held.begin(), held.end(),
                       [](const HeldSocket &socket) { return socket.process == nullptr; });
}

PortAccounts ReadPortAccounts(const std::vector<PortTarget> &targets, Report &report) {
    PortAccounts read;
    Accounts accounts(targets);
    read.declared = ReadDeclaredPorts(QueryFor(targets), report);
    accounts.AddDeclared(read.declared);
    read.held = ReadHeldPorts();
    accounts.AddHeld(read.held);
    if (read.held.problem.empty()) {
        accounts.AddBound(report);
    } else {
        TellUnreadSockets(read.held, report);
    }
    accounts.Conclude();
    read.accounts = std::move(accounts).Take();
    return read;
}

}  // namespace tavo::tool

// Everything is read once, for all ports, and then given to the accounts that it concerns: someone
// may ask for all ports there are.
#include "ports/port_account.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "ports/port_sources.h"
#include "ports/protocols.h"
#include "ports/service_programs.h"
#include "tavoserviceconf.h"

namespace tavo::tool {
namespace {

class Accounts {
  public:
    explicit Accounts(const std::vector<PortTarget> &targets);

    void AddDeclared(const DeclaredClaims &declared);
    void AddHeld(const SocketHolders &sockets);
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

// Each once: what was asked for in several ranges may come in several.
void SortClaims(std::vector<DeclaredClaim> &claims) {
    std::sort(claims.begin(), claims.end());
    claims.erase(std::unique(claims.begin(), claims.end()), claims.end());
}

void Accounts::AddDeclared(const DeclaredClaims &declared) {
    for (const DeclaredClaim &claim : declared.claims) {
        for (PortAccount *account : AccountsIn(claim.range, claim.protocol)) {
            auto &claims = claim.source == kForwardSource ? account->forwarded : account->declared;
            claims.push_back(claim);
            claims.back().range = {account->port, account->port};
        }
    }
    for (PortAccount &account : accounts_) {
        SortClaims(account.declared);
        SortClaims(account.forwarded);
        account.failed = declared.failed;
    }
}

void Accounts::AddHeld(const SocketHolders &sockets) {
    for (const HeldSocket &socket : sockets.sockets) {
        for (PortAccount *account : AccountsIn({socket.port, socket.port}, socket.protocol)) {
            account->held.push_back(socket);
        }
    }
    for (PortAccount &account : accounts_) {
        std::stable_partition(account.held.begin(), account.held.end(), Listens);
        if (!sockets.known) {
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

// The kernel's tables leave out a TCP socket that is bound but does not listen yet. The library,
// asked whether a port is in use, knows of it, but not whose it is.
void Accounts::AddBound(Report &report) {
    PortSources sources(TAVO_PORT_CHECK_RUNTIME, report);
    for (const std::uint32_t protocol : kProtocols) {
        const PortQuery query = SocketlessPorts(protocol);
        if (!query.items.empty()) {
            AddBound(sources.Ask(query, {}), protocol);
        }
    }
}

std::vector<HoldingProcess> HoldersOf(const std::vector<HeldSocket> &sockets) {
    const bool listened_to =
        std::any_of(sockets.begin(), sockets.end(),
                    [](const HeldSocket &socket) { return socket.process && Listens(socket); });
    std::set<std::uint32_t> pids;
    std::vector<HoldingProcess> holders;
    for (const HeldSocket &socket : sockets) {
        if (socket.process && (Listens(socket) || !listened_to) &&
            pids.insert(socket.process->pid).second) {
            holders.push_back(*socket.process);
        }
    }
    return holders;
}

void FindStrangers(PortAccount &account, ProgramsOfServices &programs) {
    ProgramsOfServices::Services services;
    for (const DeclaredClaim &claim : account.declared) {
        services.push_back(&claim.holder);
    }
    bool all_known = !account.HasUnknownHolder();
    for (const HoldingProcess &process : account.holders) {
        const ProgramsOfServices::Owner owner = programs.OwnerAmong(services, process);
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

PortVerdict PortAccount::Verdict() const {
    if (reserved || !declared.empty() || !forwarded.empty() || !holders.empty()) {
        return PortVerdict::kTaken;
    }
    return failed.empty() && held.empty() ? PortVerdict::kFree : PortVerdict::kUnknown;
}

bool PortAccount::HasUnknownHolder() const {
    return std::any_of(held.begin(), held.end(),
                       [](const HeldSocket &socket) { return !socket.process; });
}

std::vector<PortAccount> ReadPortAccounts(const std::vector<PortTarget> &targets, Report &report) {
    Accounts accounts(targets);
    accounts.AddDeclared(ReadDeclaredClaims(QueryFor(targets), report));
    const SocketHolders sockets = LookAtSockets();
    accounts.AddHeld(sockets);
    if (sockets.known) {
        accounts.AddBound(report);
    } else {
        report.TellError("", "unreadable", "who holds ports cannot be told: " + sockets.problem);
    }
    accounts.Conclude();
    return std::move(accounts).Take();
}

}  // namespace tavo::tool

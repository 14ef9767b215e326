#include "port_account.h"

#include <algorithm>
#include <iterator>

#include "port_sources.h"
#include "service_programs.h"
#include "tavoserviceconf.h"

namespace tavo {
namespace {

// The kernel's numbers.
constexpr std::uint32_t kTcpListen = 10;
constexpr std::uint32_t kUdpUnconnected = 7;

PortQuery QueryFor(const std::vector<PortTarget> &targets) {
    PortQuery query;
    for (const PortTarget &target : targets) {
        query.items.push_back({target.port, target.port});
        query.protocols |= target.protocol;
    }
    return query;
}

void AddDeclared(const DeclaredClaims &declared, PortAccount &account) {
    for (const DeclaredClaim &claim : declared.claims) {
        if (claim.protocol == account.protocol && claim.range.first <= account.port &&
            account.port <= claim.range.last) {
            (claim.source == kForwardSource ? account.forwarded : account.declared)
                .push_back(claim);
        }
    }
    account.failed = declared.failed;
}

void AddHeld(const SocketHolders &sockets, PortAccount &account) {
    std::copy_if(sockets.sockets.begin(), sockets.sockets.end(), std::back_inserter(account.held),
                 [&account](const HeldSocket &socket) {
                     return socket.port == account.port && socket.protocol == account.protocol;
                 });
    if (!sockets.known) {
        account.failed.push_back(kSocketSource);
    }
}

bool HasKnownListener(const std::vector<HeldSocket> &sockets) {
    return std::any_of(sockets.begin(), sockets.end(),
                       [](const HeldSocket &socket) { return socket.process && Listens(socket); });
}

}  // namespace

bool Listens(const HeldSocket &socket) {
    return socket.state == (socket.protocol == TAVO_PROTO_UDP ? kUdpUnconnected : kTcpListen);
}

PortVerdict PortAccount::Verdict() const {
    if (reserved || !declared.empty() || !forwarded.empty() || !Holders().empty()) {
        return PortVerdict::kTaken;
    }
    return failed.empty() && held.empty() ? PortVerdict::kFree : PortVerdict::kUnknown;
}

std::vector<HoldingProcess> PortAccount::Holders() const {
    const bool listened_to = HasKnownListener(held);
    std::vector<HoldingProcess> holders;
    for (const HeldSocket &socket : held) {
        const bool counts = socket.process && (Listens(socket) || !listened_to);
        if (counts &&
            std::none_of(holders.begin(), holders.end(), [&](const HoldingProcess &known) {
                return known.pid == socket.process->pid;
            })) {
            holders.push_back(*socket.process);
        }
    }
    return holders;
}

bool PortAccount::HasUnknownHolder() const {
    return std::any_of(held.begin(), held.end(),
                       [](const HeldSocket &socket) { return !socket.process; });
}

std::vector<HoldingProcess> PortAccount::Strangers() const {
    std::vector<HoldingProcess> strangers = Holders();
    std::erase_if(strangers, [this](const HoldingProcess &process) {
        return std::any_of(
            declared.begin(), declared.end(),
            [&process](const DeclaredClaim &claim) { return IsProgramOf(process, claim.holder); });
    });
    return strangers;
}

std::optional<bool> PortAccount::SameService() const {
    if (declared.empty() || Holders().empty()) {
        return {};
    }
    if (!Strangers().empty()) {
        return false;
    }
    return HasUnknownHolder() ? std::nullopt : std::optional(true);
}

std::vector<PortAccount> ReadPortAccounts(const std::vector<PortTarget> &targets, Report &report) {
    const DeclaredClaims declared = ReadDeclaredClaims(QueryFor(targets), report);
    const SocketHolders sockets = LookAtSockets();
    if (!sockets.known) {
        report.TellError("", "unreadable", "who holds ports cannot be told: " + sockets.problem);
    }
    std::vector<PortAccount> accounts;
    for (const PortTarget &target : targets) {
        PortAccount &account = accounts.emplace_back();
        account.port = target.port;
        account.protocol = target.protocol;
        account.reserved = NamesReservedPort({{target.port, target.port}});
        AddDeclared(declared, account);
        AddHeld(sockets, account);
    }
    return accounts;
}

}  // namespace tavo

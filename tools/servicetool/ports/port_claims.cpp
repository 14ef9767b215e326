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
#include <functional>
#include <iterator>
#include <set>
#include <tuple>

#include "base/system_files.h"
#include "check/declared_ports.h"

namespace tavo::tool {
namespace {

// ---- The order of claims ----

// Orders claims by source, then by declarer, or by state and process.
std::strong_ordering CompareOrigins(const PortClaim &a, const PortClaim &b) {
    if (a.source != b.source) {
        return a.source <=> b.source;
    }
    return a.IsHeld()
               ? std::tuple(a.state, a.Process().pid) <=> std::tuple(b.state, b.Process().pid)
               : CompareTexts(*a.declarer, *b.declarer);
}

template <typename Element, typename Comparison>
void SortWithoutDuplicates(std::vector<Element> &elements, Comparison compare) {
    std::ranges::sort(elements,
                      [compare](const Element &a, const Element &b) { return compare(a, b) < 0; });
    elements.erase(
        std::unique(elements.begin(), elements.end(),
                    [compare](const Element &a, const Element &b) { return compare(a, b) == 0; }),
        elements.end());
}

// ---- Reading ----

// A claim for each requested protocol.
void AddDeclared(const PortRange &range, std::uint32_t protocols, int source,
                 const PortDeclarer &declarer, std::vector<PortClaim> &claims) {
    for (const std::uint32_t protocol : kProtocols) {
        if ((protocols & protocol) != 0) {
            claims.push_back({range, protocol, source, &declarer});
        }
    }
}

bool IsAskedFor(std::uint32_t port, const PortQuery &query) {
    return std::ranges::any_of(query.items, [port](const PortRange &range) {
        return range.first <= port && port <= range.last;
    });
}

void AddSystemPort(const SystemPort &row, const PortQuery &query, PortSources &sources,
                   PortClaims &all) {
    if (std::ranges::count(kServiceSettings, OrEmpty(row.key), &ServiceSetting::key) != 0) {
        return;  // the engine reports this setting
    }
    const int source = row.key == nullptr ? TAVO_PORT_CHECK_FW_SERVICE : TAVO_PORT_CHECK_SYS_KEY;
    const PortDeclarer &declarer =
        all.system.emplace_back(PortDeclarer{.name = row.service,
                                             .file = row.key == nullptr ? nullptr : kSettingsFile,
                                             .entry = row.key});
    const SystemDeclaration read = ReadSystemPort(TAVO_HERE, row);
    if (!read.reading.IsGood()) {
        all.failed |= source;
        sources.ReportOnce(
            WhyUnknown({.source = source, .code = read.reading.Fault(), .declarer = declarer}));
    } else if (read.port != 0 && IsAskedFor(read.port, query)) {
        AddDeclared({read.port, read.port}, row.protocol & query.protocols, source, declarer,
                    all.claims);
    }
}

void ReadDeclaredPorts(const PortQuery &query, int flags, Report &report, PortClaims &all) {
    PortSources sources(flags, report);
    all.declared = std::make_unique<PortConflicts>();
    all.failed = sources.Find({{query, {}}}, *all.declared).front().failed;
    all.claims.reserve(std::size(kProtocols) * all.declared->Taken().size());
    for (const TakenPorts &taken : all.declared->Taken()) {
        if (taken.source != TAVO_PORT_CHECK_DEFAULT) {
            AddDeclared(RangeOf(taken), taken.protocols & query.protocols, taken.source,
                        taken.declarer, all.claims);
        }
    }
    for (const SystemPort &row : kSystemPorts) {
        AddSystemPort(row, query, sources, all);
    }
}

// ---- Conflicts ----

// The sources whose declarations can be in conflict.
constexpr int kServiceSources = TAVO_PORT_CHECK_FW_SERVICE | TAVO_PORT_CHECK_SYS_KEY;

// The ports of a sorted list that more than one service declares. The claims before the current one
// start at or below its first port, so it shares its ports with another service up to the highest
// port that such a service has declared so far.
PortRanges DeclaredTwice(const ClaimList &declared) {
    struct Reach {
        std::string_view service;
        std::uint32_t end;  // the port after the last one
    };
    Reach highest = {};
    Reach second = {};  // of all services but that of `highest`
    PortRanges twice;
    for (const PortClaim *claim : declared) {
        const Reach own = {ServiceName(*claim->declarer), claim->range.last + 1};
        const bool again = own.service == highest.service;
        const std::uint32_t others = (again ? second : highest).end;
        if (claim->range.first < others) {
            twice.push_back({claim->range.first, std::min(own.end, others) - 1});
        }
        if (again) {
            highest.end = std::max(highest.end, own.end);
        } else if (own.end > highest.end) {
            second = std::exchange(highest, own);
        } else if (own.end > second.end) {
            second = own;
        }
    }
    return twice;
}

// Finds the ports of a protocol in conflict, and the services that the sockets on declared ports
// belong to.
void CompareFor(std::uint32_t protocol, ProgramsOfServices &programs, PortClaims &all) {
    const ClaimList declared = ClaimsFor(protocol, kServiceSources, all.claims);
    PortRanges collide = DeclaredTwice(declared);
    PortRanges unclear;
    ClaimsInReach in_reach(declared);
    for (PortClaim &claim : all.claims) {
        if (claim.protocol != protocol || !claim.IsHeld()) {
            continue;
        }
        const ClaimList &declared_here = in_reach.At(claim.range);
        if (declared_here.empty()) {
            continue;
        }
        programs.EnterOwner(declared_here, claim);
        if (claim.Listens() && claim.declarer == nullptr) {
            (claim.is_stranger ? collide : unclear).push_back(claim.range);
        }
    }
    all.collide[protocol] = Merged(std::move(collide));
    all.unclear[protocol] = Merged(std::move(unclear));
}

// ---- Accounts ----

ClaimList &ListFor(const PortClaim &claim, PortAccount &account) {
    const bool rule = claim.source == TAVO_PORT_CHECK_PORT_FORWARD;
    return claim.IsHeld() ? account.held : rule ? account.forwarded : account.declared;
}

void AddClaims(const std::vector<PortClaim> &claims, std::vector<PortAccount> &accounts) {
    std::map<PortTarget, PortAccount *> by_target;
    for (PortAccount &account : accounts) {
        by_target[account.target] = &account;
    }
    for (const PortClaim &claim : claims) {
        const auto end = by_target.upper_bound({claim.range.last, TAVO_PROTO_BOTH});
        for (auto one = by_target.lower_bound({claim.range.first, 0}); one != end; ++one) {
            PortAccount &account = *one->second;
            if (claim.protocol == account.target.protocol) {
                ListFor(claim, account).push_back(&claim);
            }
        }
    }
    for (PortAccount &account : accounts) {
        // A declarer may name the port in several ranges.
        for (ClaimList *list : {&account.declared, &account.forwarded}) {
            SortWithoutDuplicates(*list, [](const PortClaim *a, const PortClaim *b) {
                return CompareOrigins(*a, *b);
            });
        }
        std::stable_partition(account.held.begin(), account.held.end(),
                              std::mem_fn(&PortClaim::Listens));
    }
}

// The kernel's tables do not list a TCP socket that is bound but not yet listening. The library's
// check for ports in use detects it, but not its holder.
constexpr PortClaim kBoundSocket = {.range = {}, .protocol = 0, .source = TAVO_PORT_CHECK_RUNTIME};

void AddBound(std::vector<PortAccount> &accounts, Report &report) {
    std::vector<PortAccount *> asked;
    std::vector<PortRequest> requests;
    for (PortAccount &account : accounts) {
        if (account.held.empty()) {
            const auto &[port, protocol] = account.target;
            asked.push_back(&account);
            requests.push_back({{{{port, port}}, protocol}, {}});
        }
    }
    const auto answers = PortSources(TAVO_PORT_CHECK_RUNTIME, report).Ask(requests);
    for (std::size_t i = 0; i < answers.size(); ++i) {
        const auto &conflicts = answers[i].conflicts;
        if (std::ranges::count(conflicts, TAVO_PORT_CHECK_RUNTIME, &PortConflict::source) != 0) {
            asked[i]->held.push_back(&kBoundSocket);
        } else {
            asked[i]->failed |= answers[i].failed;
        }
    }
}

void FindHolders(PortAccount &account) {
    account.has_unknown_holder =
        std::ranges::count(account.held, nullptr, &PortClaim::process) != 0;
    account.is_listened_to = std::ranges::any_of(account.held, [](const PortClaim *socket) {
        return socket->process != nullptr && socket->Listens();
    });
    bool all_known = !account.has_unknown_holder;
    std::set<const HoldingProcess *> known;
    for (const PortClaim *socket : account.held) {
        if (socket->process == nullptr || (account.is_listened_to && !socket->Listens()) ||
            !known.insert(socket->process).second) {
            continue;
        }
        account.holders.push_back(socket->process);
        if (socket->is_stranger) {
            account.strangers.push_back(socket->process);
        }
        all_known = all_known && (socket->is_stranger || socket->declarer != nullptr);
    }
    if (!account.declared.empty() && !account.holders.empty() &&
        (all_known || !account.strangers.empty())) {
        account.same_service = account.strangers.empty();
    }
}

}  // namespace

std::string_view ServiceName(const PortDeclarer &declarer) {
    const std::string_view name = OrEmpty(declarer.name);
    for (const SystemPort &row : kSystemPorts) {
        if (name == row.service && row.setting_service != nullptr) {
            return row.setting_service;
        }
    }
    return name;
}

PortClaims ReadPortClaims(const PortQuery &query, int sources, Report &report) {
    PortClaims all;
    const int declaring = sources & kDeclaringSources;
    if (declaring != 0) {
        ReadDeclaredPorts(query, declaring, report, all);
    }
    if ((sources & TAVO_PORT_CHECK_RUNTIME) != 0) {
        ReadHeldPorts(report, all);
    }
    SortWithoutDuplicates(all.claims, [](const PortClaim &a, const PortClaim &b) {
        const auto order = std::tie(a.range, a.protocol) <=> std::tie(b.range, b.protocol);
        return order != 0 ? order : CompareOrigins(a, b);
    });
    ProgramsOfServices programs;
    for (const std::uint32_t protocol : kProtocols) {
        CompareFor(protocol, programs, all);
    }
    return all;
}

ClaimList ClaimsFor(std::uint32_t protocol, int sources, const std::vector<PortClaim> &claims) {
    ClaimList list;
    for (const PortClaim &claim : claims) {
        if (claim.protocol == protocol && (claim.source & sources) != 0) {
            list.push_back(&claim);
        }
    }
    return list;
}

const ClaimList &ClaimsInReach::At(const PortRange &ports) {
    for (; next_ < all_.size() && all_[next_]->range.first <= ports.last; ++next_) {
        reach_.push_back(all_[next_]);
    }
    std::erase_if(reach_,
                  [&ports](const PortClaim *claim) { return claim->range.last < ports.first; });
    return reach_;
}

// ---- Conflicts ----

bool Collides(const PortClaim &claim, const PortClaims &all) {
    return OverlapsWith(all.collide.at(claim.protocol), claim.range);
}

std::vector<PortClaim> CollidingClaims(const PortClaims &all) {
    std::vector<PortClaim> claims;
    for (const PortClaim &claim : all.claims) {
        for (const PortRange &range : Overlap(all.collide.at(claim.protocol), claim.range)) {
            claims.push_back(claim);
            claims.back().range = range;
        }
    }
    std::ranges::stable_sort(claims, {}, [](const PortClaim &claim) {
        return std::tuple(claim.range, claim.protocol, claim.source);
    });
    return claims;
}

// ---- Accounts ----

PortVerdict PortAccount::Verdict() const {
    if (IsReserved() || !declared.empty() || !forwarded.empty() || !holders.empty()) {
        return PortVerdict::kTaken;
    }
    return failed == 0 && held.empty() ? PortVerdict::kFree : PortVerdict::kUnknown;
}

std::vector<PortAccount> AccountsOf(const std::vector<PortTarget> &targets, const PortClaims &all,
                                    Report &report) {
    std::vector<PortAccount> accounts;
    for (const PortTarget &target : targets) {
        accounts.emplace_back().target = target;
        accounts.back().failed = all.failed;
    }
    AddClaims(all.claims, accounts);
    if ((all.failed & TAVO_PORT_CHECK_RUNTIME) == 0) {
        AddBound(accounts, report);
    }
    for (PortAccount &account : accounts) {
        FindHolders(account);
    }
    return accounts;
}

}  // namespace tavo::tool

#include "ports/declared_claims.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <new>
#include <set>
#include <string>

#include "input/library_owners.h"
#include "ports/port_sources.h"
#include "ports/protocols.h"
#include "ports/source_failure.h"
#include "tavoserviceconf.h"

namespace tavo::tool {
namespace {

constexpr int kDeclaringSources =
    TAVO_PORT_CHECK_PORT_FORWARD | TAVO_PORT_CHECK_FW_SERVICE | TAVO_PORT_CHECK_SYS_KEY;

// What the system declares for itself: under which key of the settings, or in no file at all, and
// which service it is under another name.
struct SystemService {
    std::string_view name;
    std::string_view key;
    std::string_view service;
};

constexpr SystemService kSystemServices[] = {
    {"tavo-syslog", "syslogport", "syslog_server"},
    {"tavo-sms", "smsport", "tavo-sms"},
    {"tavo-webdav", "", "webdav_http"},
    {"tavo-webdav-ssl", "", "webdavs_https"},
};

const SystemService *FindSystemService(std::string_view name) {
    const auto found =
        std::find_if(std::begin(kSystemServices), std::end(kSystemServices),
                     [name](const SystemService &service) { return service.name == name; });
    return found == std::end(kSystemServices) ? nullptr : found;
}

// The settings are a source of their own, which tells of this key already.
bool IsToldBySettings(const SystemService &system) {
    return std::any_of(
        std::begin(kServiceSettings), std::end(kServiceSettings),
        [&system](const ServiceSetting &setting) { return setting.key == system.key; });
}

DeclaredClaim ClaimOf(const SystemService &system, const TAVO_CONF_PORT_CONFLICT_RESULT &result) {
    DeclaredClaim claim = {{result.uPort, result.uPort}, result.uProtocol, kServiceSource, {}};
    claim.holder.name = system.name;
    claim.holder.place = "built-in";
    if (!system.key.empty()) {
        claim.source = kSettingSource;
        claim.holder.file = kSettingsFile;
        claim.holder.entry = system.key;
        claim.holder.place = system.key;
    }
    return claim;
}

bool IsAskedFor(const DeclaredClaim &claim, const PortQuery &query) {
    return (claim.protocol & query.protocols) != 0 &&
           std::any_of(query.items.begin(), query.items.end(), [&claim](const PortRange &range) {
               return range.first <= claim.range.first && claim.range.last <= range.last;
           });
}

// The library's list has whatever number a setting begins with, and 0 for one that it cannot read,
// so the setting itself is looked at: true when it cannot be told which port it declares.
bool TellUnknownSetting(const SystemService &system, std::uint32_t port, Report &report) {
    Diagnostic finding;
    if (system.key.empty() || !FindUnknownSetting(system.key, port, finding)) {
        return false;
    }
    report.Tell(std::move(finding));
    return true;
}

void AddFailed(std::string_view source, DeclaredClaims &declared) {
    declared.known = false;
    if (std::find(declared.failed.begin(), declared.failed.end(), source) ==
        declared.failed.end()) {
        declared.failed.push_back(source);
    }
}

OwnedConfResults FetchSystemServices() {
    return OrThrow(OwnedConfResults(SysConfListFetch()));
}

// A setting that is absent has port 0.
void AddSystemServices(const PortQuery &query, DeclaredClaims &declared, Report &report) {
    const OwnedConfResults list = FetchSystemServices();
    std::set<const SystemService *> seen;
    for (const TLIBCDListNode *node = TLIBCDListFirst(list.get()); node != nullptr;
         node = TLIBCDListNext(node)) {
        const auto &result =
            *static_cast<const TAVO_CONF_PORT_CONFLICT_RESULT *>(TLIBCDListElement(node));
        const SystemService *system =
            FindSystemService(result.szService == nullptr ? "" : result.szService);
        seen.insert(system);
        if (system == nullptr || IsToldBySettings(*system)) {
            continue;
        }
        if (TellUnknownSetting(*system, result.uPort, report)) {
            AddFailed(kSettingSource, declared);
            continue;
        }
        DeclaredClaim claim = ClaimOf(*system, result);
        if (result.uPort != 0 && IsAskedFor(claim, query)) {
            declared.claims.push_back(std::move(claim));
        }
    }
    // The list leaves out what there is no memory for.
    for (const SystemService &system : kSystemServices) {
        if (!seen.contains(&system)) {
            throw std::bad_alloc();
        }
    }
}

void AddConflict(const PortConflict &conflict, std::uint32_t protocols,
                 std::vector<DeclaredClaim> &claims) {
    for (const std::uint32_t protocol : kProtocols) {
        if ((conflict.protocols & protocols & protocol) == 0) {
            continue;
        }
        for (const PortHolder &holder : conflict.holders) {
            claims.push_back({conflict.range, protocol, conflict.source, holder});
        }
        if (conflict.holders.empty()) {
            claims.push_back({conflict.range, protocol, conflict.source, {}});
        }
    }
}

std::string DetailOf(const ForwardingRule &rule) {
    return std::string(rule.protocol) + ", " + rule.router_ports + " of the router to " +
           rule.appliance_ports;
}

void AddDetails(std::vector<DeclaredClaim> &claims) {
    ForwardingRules rules;
    ForwardingRule rule{};
    std::map<std::string, std::string> details;
    while (rules.Next(rule) == ForwardingRules::Step::kRule) {
        if (rule.MissingKey() == nullptr) {
            details.emplace(rule.section, DetailOf(rule));
        }
    }
    for (DeclaredClaim &claim : claims) {
        const auto detail = details.find(claim.holder.entry);
        if (claim.source == kForwardSource && detail != details.end()) {
            claim.detail = detail->second;
        }
    }
}

}  // namespace

DeclaredClaims ReadDeclaredClaims(const PortQuery &query, Report &report) {
    DeclaredClaims declared;
    const PortAnswer answer = PortSources(kDeclaringSources, report).Ask(query, {});
    declared.known = answer.failed.empty();
    declared.failed = answer.failed;
    for (const PortConflict &conflict : answer.conflicts) {
        if (conflict.source != kReservedSource) {
            AddConflict(conflict, query.protocols, declared.claims);
        }
    }
    AddSystemServices(query, declared, report);
    AddDetails(declared.claims);
    std::sort(declared.claims.begin(), declared.claims.end());
    declared.claims.erase(std::unique(declared.claims.begin(), declared.claims.end()),
                          declared.claims.end());
    return declared;
}

std::string_view ServiceName(const PortHolder &holder) {
    const SystemService *system = FindSystemService(holder.name);
    return system == nullptr ? std::string_view(holder.name) : system->service;
}

}  // namespace tavo::tool

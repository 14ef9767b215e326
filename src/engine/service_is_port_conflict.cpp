// Checks whether ports are taken: by forwarding rules, firewall services, settings of the system,
// or sockets that hold a port now.
//
// The four sources are independent and are checked in that order. Each returns 1 for taken, 0 for
// free, -1 for unknown, and prepends the conflicts it can name to the caller's list. They parse the
// caller's ports differently, which is kept: rules and services split the text at commas, the
// settings import it into a range set, and the sockets split it at blanks and commas.
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <optional>
#include <utility>

#include "base/system_files.h"
#include "catalogue/firewall_service.h"
#include "engine/call_catalogue.h"
#include "engine/comparison.h"
#include "engine/conflict_sources.h"
#include "engine/text_ranges.h"
#include "engine/used_ports.h"
#include "model/service_file_keys.h"
#include "support/failure.h"
#include "support/held_file.h"
#include "support/owners.h"
#include "support/presence.h"
#include "support/text.h"
#include "tavoftp.h"
#include "tavopf.h"

namespace tavo {
namespace {

using Ports = TAVO_SERVICE_CONF_PORT;

constexpr char kTokenSeparators[] = " ,";
// Longer protocol texts are rejected.
constexpr int kProtocolTextSize = 1024;

// kReservedPort as a token of the query.
constexpr char kReservedToken[] = "412";

// The ports that sockets of one protocol hold. The first few ranges are queried one by one. A call
// with more ranges queries all ports once and looks the ranges up, because each query makes the
// kernel walk its sockets.
class HeldPorts {
  public:
    // All held ports, if the range can be looked up in them; else null.
    const PortSet *For(const Range &range, bool tcp) {
        const bool possible = range.low >= 0 && range.high < kPortCount;
        if (possible && !known_ && ++questions_ > kFewQuestions) {
            questions_ = 0;
            known_ = AddHeldPorts(tcp, ports_);
        }
        return possible && known_ ? &ports_ : nullptr;
    }

  private:
    static constexpr int kFewQuestions = 4;

    PortSet ports_;
    bool known_ = false;
    int questions_ = 0;
};

// What one call of the engine reads at most once.
struct Call {
    CallCatalogue catalogue;
    HeldPorts held[std::size(gProtoTypeMapping)];  // by row of the protocol map
};

// The arguments of the caller, as passed and split into tokens.
struct Query {
    const char *port_text;
    const char *protocol_text;
    const TLIBCSzList *skip;
    const TLIBCSzHash *skip_index;  // the names of `skip` as keys; null if there are few
    const TLIBCSzList *ports;
    const TLIBCSzList *protocols;  // in lower case
    Ports **conflicts;
    Call &call;
    Comparison &comparison;

    bool Skips(const char *service) const {
        return skip_index != nullptr ? TLIBCSzHashGetValue(skip_index, service) != nullptr
                                     : TLIBCSzListFind(skip, service) >= 0;
    }
    bool Names(const TAVO_PROTO_TYPE_MAPPING &protocol) const {
        return TLIBCSzListFind(protocols, protocol.szName) >= 0;
    }
};

int FailToAllocateList() {
    TAVO_LOG_STATE("Failed to TLIBCSzListAlloc");
    return TAVO_SET_ERROR(TLIBC_ERR_NO_MEMORY);
}

int AskFtpPassivePort() {
    if (TAVOFTPHighPortGet() < 0) {
        return TAVO_LOG("failed to get ftp low port");
    }
    if (TAVOFTPHighPortGet() < 0) {
        return TAVO_LOG("failed to get ftp high port");
    }
    return 0;
}

// ---- Port-forwarding rules ----

// A rule conflicts on either protocol although it must name its own, because the router may be
// asked for both.
int CompareRule(const Query &query, const ForwardingRule &rule) {
    if (rule.service != nullptr && query.Skips(rule.service)) {
        return 0;
    }
    if (rule.MissingKey() != nullptr) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    const int appliance = query.comparison.Compare(rule.appliance_ports);
    if (appliance < 0) {
        return -1;
    }
    const int router = query.comparison.Compare(rule.router_ports);
    return router < 0 ? -1 : appliance | router;
}

int CheckForwardingRules(const Query &query) {
    using Step = ForwardingRules::Step;
    ForwardingRules rules;
    ForwardingRule rule{};
    int answer = 0;
    for (Step step = rules.Next(rule); step != Step::kEnd; step = rules.Next(rule)) {
        const int one = step == Step::kRule ? CompareRule(query, rule) : -1;
        if (one < 0) {
            return -1;
        }
        answer |= one;
    }
    return answer;
}

// ---- Firewall services ----

// A service that is missing because memory ran out or a system call failed may declare the ports in
// question. Neither source can answer without it.
int FailWithoutCatalogue(const ServiceCatalogue &catalogue) {
    return TAVO_FAIL_STATE(catalogue.report.Fault(), "Failed to enumerate services");
}

// The protocols of the query; 0 if the text names none, then no service conflicts.
int ReadProtocols(const char *protocol_text, uint32_t &protocols) {
    const OwnedText copy(strdup(protocol_text));
    if (copy == nullptr) {
        return FailToCopy(TAVO_HERE, protocol_text);
    }
    protocols = TAVOProtocolMapping(TLIBServiceConfProtocolParse(copy.get()));
    return 0;
}

// Compares with one service, unless it is skipped or uses other protocols.
int CompareService(const Query &query, uint32_t protocols, const TAVO_FW_SERVICE &service) {
    if ((service.nDstProtocol & protocols) == 0 || query.Skips(service.szName)) {
        return 0;
    }
    int answer = 0;
    for (int i = 0; i < TLIBCSzListCount(service.pDstPortList); ++i) {
        const int one = query.comparison.Compare(TLIBCSzListGet(service.pDstPortList, i));
        if (one < 0) {
            return -1;
        }
        answer |= one;
    }
    return answer;
}

int CheckFirewallServices(const Query &query) {
    const ServiceCatalogue &catalogue = query.call.catalogue.Get();
    if (catalogue.count < 0) {
        return TAVO_LOG_STATE("Failed to enumerate services");
    }
    if (catalogue.report.Fault() != 0) {
        return FailWithoutCatalogue(catalogue);
    }
    uint32_t protocols = 0;
    if (catalogue.count == 0) {
        return 0;
    }
    if (ReadProtocols(query.protocol_text, protocols) < 0) {
        return -1;
    }
    const Services *services = query.call.catalogue.Candidates(query.port_text);
    if (services == nullptr) {
        return TAVO_FAIL_STATE(TLIBC_ERR_NO_MEMORY, "Failed to allocate for services");
    }
    int answer = 0;
    for (const TAVO_FW_SERVICE *service : *services) {
        const int one = CompareService(query, protocols, *service);
        if (one < 0) {
            return -1;
        }
        answer |= one;
    }
    return answer;
}

// ---- Settings of the system ----

int GetAllNonSkipServicePort(const Query &query, TAVO_PORT_RANGE *set) {
    for (const ServiceSetting &setting : kServiceSettings) {
        if (query.Skips(setting.service)) {
            continue;
        }
        if (GetServicePort(setting.key, set) < 0) {
            return TAVO_LOG("Failed to GetServicePort(), service = [%s]", setting.key);
        }
    }
    return 0;
}

OwnedRanges CreateRanges() {
    OwnedRanges ranges(TLIBPortRangeCreate());
    if (ranges == nullptr) {
        TAVO_LOG("Failed to TLIBPortRangeCreate()");
    }
    return ranges;
}

// Moves the caller's list into the overlap. The list is unchanged on failure.
int JoinFormerConflicts(TAVO_PORT_RANGE *overlap, Ports **conflicts) {
    const OwnedRanges former = CreateRanges();
    if (former == nullptr) {
        return -1;
    }
    former->pRanges = *conflicts;
    if (TLIBPortRangeJoin(overlap, former.get()) < 0) {
        former->pRanges = nullptr;
        return TAVO_LOG("Failed to TLIBPortRangeJoin()");
    }
    return 0;
}

// Replaces the caller's list with the overlap merged with all conflicts before it. Entries that
// were in the list on entry count as a conflict, which is kept: callers that pass the list from
// check to check rely on a result for all of them.
int HandOverOverlap(const Query &query, TAVO_PORT_RANGE *overlap) {
    Ports **conflicts = query.conflicts;
    // The conflicts of rules and services come before the entries that the list had on entry.
    if (query.comparison.Merge(overlap) < 0) {
        return TAVO_LOG("Failed to TLIBPortRangeJoin()");
    }
    if (*conflicts != nullptr && JoinFormerConflicts(overlap, conflicts) < 0) {
        return -1;
    }
    query.comparison.Forget();
    *conflicts = std::exchange(overlap->pRanges, nullptr);
    return std::exchange(overlap->nCount, 0) != 0 ? 1 : 0;
}

int CheckSettings(const Query &query) {
    const OwnedRanges settings = CreateRanges();
    if (settings == nullptr) {
        return -1;
    }
    if (GetAllNonSkipServicePort(query, settings.get()) < 0) {
        return TAVO_LOG("Failed to GetAllNonSkipServicePort()");
    }
    const OwnedRanges asked = CreateRanges();
    if (asked == nullptr) {
        return -1;
    }
    if (TLIBPortRangeImport(asked.get(), query.port_text) < 0) {
        return TAVO_LOG("Failed to TLIBPortRangeImport().");
    }
    const OwnedRanges overlap = CreateRanges();
    if (overlap == nullptr) {
        return -1;
    }
    if (TLIBPortRangeOverlap(asked.get(), settings.get(), overlap.get()) < 0) {
        return TAVO_LOG("Failed to TLIBPortRangeOverlap()");
    }
    return HandOverOverlap(query, overlap.get());
}

// ---- Sockets ----

int FailForArgument() {
    return TAVO_FAIL_STATE(TLIBC_ERR_BAD_PARAMETER, "Invalid Argument!!");
}

// A token is PORT or START:END in any order, parsed with strtol. Zero alone is invalid: no socket
// can hold port 0.
bool ReadSocketToken(const char *token, Range &range) {
    const char *separator = std::strchr(token, kQueryRangeSeparator);
    const int start = static_cast<int>(std::strtol(token, nullptr, 10));
    const int end =
        separator == nullptr ? start : static_cast<int>(std::strtol(separator + 1, nullptr, 10));
    range = {std::min(start, end), std::max(start, end)};
    return start != 0 || end != 0;
}

// `skipped` gets the ports of the skipped services once a port of the range is held.
int CheckSocketsOf(const Query &query, const Range &range, std::size_t row,
                   TAVO_FW_SERVICE *services, std::optional<PortSet> &skipped) {
    const TAVO_PROTO_TYPE_MAPPING &protocol = gProtoTypeMapping[row];
    const bool tcp = protocol.nProto == TAVO_PROTO_TCP;
    const auto skipped_ports = [&]() -> const PortSet & {
        if (!skipped) {
            skipped.emplace();
            for (int i = 0; i < TLIBCSzListCount(query.skip); ++i) {
                AddServicePorts(services, TLIBCSzListGet(query.skip, i),
                                static_cast<uint32_t>(protocol.nProto), *skipped);
            }
        }
        return *skipped;
    };
    if (const PortSet *all_held =
            services != nullptr ? query.call.held[row].For(range, tcp) : nullptr) {
        const PortSet held = *all_held & PortsOf(range.low, range.high);
        return held.any() && (held & ~skipped_ports()).any() ? 1 : 0;
    }
    UsedPorts used(range);
    if (used.OutOfMemory()) {
        return TAVO_FAIL(TLIBC_ERR_NO_MEMORY, "out of memory!!");
    }
    used.Ask(range, tcp);
    // Without services there is no list to look up skipped names in. This has always been an error,
    // even if no name is skipped.
    if (services == nullptr) {
        return FailForArgument();
    }
    const bool taken = std::any_of(used.begin(), used.end(), [&](int port) {
        const bool valid = port >= 0 && port < kPortCount;
        return port != 0 && !(valid && skipped_ports()[static_cast<std::size_t>(port)]);
    });
    return taken ? 1 : 0;
}

// Stops at the first held port, which is not reported.
int CheckSockets(const Query &query) {
    const ServiceCatalogue &catalogue = query.call.catalogue.Get();
    if (catalogue.count < 0) {
        return TAVO_FAIL_STATE(TAVO_ERR_FW_SERVICES, "Failed to enumerate services");
    }
    if (catalogue.report.Fault() != 0) {
        return FailWithoutCatalogue(catalogue);
    }
    std::optional<PortSet> skipped[std::size(gProtoTypeMapping)];
    for (int i = 0; i < TLIBCSzListCount(query.ports); ++i) {
        Range range{};
        if (!ReadSocketToken(TLIBCSzListGet(query.ports, i), range)) {
            return FailForArgument();
        }
        for (std::size_t row = 0; row < std::size(skipped); ++row) {
            const int answer =
                query.Names(gProtoTypeMapping[row])
                    ? CheckSocketsOf(query, range, row, catalogue.services.get(), skipped[row])
                    : 0;
            if (answer != 0) {
                return answer;
            }
        }
    }
    return 0;
}

// ---- The question ----

int SplitWords(const char *text, TLIBCSzList *words) {
    if (TLIBCStrTok(text, kTokenSeparators, &words) < 0) {
        return TAVO_LOG("Failed to skiped services into list!");
    }
    return 0;
}

int SplitProtocols(const char *protocol_text, TLIBCSzList *words) {
    char lowered[kProtocolTextSize];
    if (TLIBCStrCaseLower(protocol_text, lowered, sizeof(lowered)) < 0) {
        return -1;
    }
    return SplitWords(lowered, words);
}

// The names of a long list as keys; null for a short list and when out of memory, then the list is
// searched.
OwnedTable IndexNames(const TLIBCSzList *names) {
    constexpr int kFewNames = 8;
    const int name_count = TLIBCSzListCount(names);
    OwnedTable index(name_count > kFewNames ? TLIBCSzHashAlloc(name_count) : nullptr);
    for (int i = 0; index != nullptr && i < name_count; ++i) {
        if (TLIBCSzHashSetValue(index.get(), TLIBCSzListGet(names, i), "") < 0) {
            index.reset();
        }
    }
    return index;
}

// Checks every selected source even after a conflict, so that the caller's list contains the
// conflicts of all of them. The sockets come last because they add nothing to it.
int AskSources(const Query &query, int check_flags) {
    static constexpr struct {
        int flag;
        int (*check)(const Query &);
    } kSources[] = {
        {TAVO_PORT_CHECK_PORT_FORWARD, CheckForwardingRules},
        {TAVO_PORT_CHECK_FW_SERVICE, CheckFirewallServices},
        {TAVO_PORT_CHECK_SYS_KEY, CheckSettings},
        {TAVO_PORT_CHECK_RUNTIME, CheckSockets},
    };
    const bool merged = (check_flags & TAVO_PORT_CHECK_SYS_KEY) != 0;
    int answer = TLIBCSzListFind(query.ports, kReservedToken) >= 0 ? 1 : 0;
    for (const auto &source : kSources) {
        if ((check_flags & source.flag) == 0) {
            continue;
        }
        const int one = source.check(query);
        // The settings merge the conflicts of rules and services. Without the settings the pairs
        // are the result. After a failure the caller gets the conflicts found before it.
        const bool complete =
            (one >= 0 && merged) || query.comparison.MakePairs(query.conflicts) == 0;
        if (one < 0 || !complete) {
            return -1;
        }
        answer |= one;
    }
    return answer;
}

int IsPortConflict(const char *skip_services, const char *port_text, const char *protocol_text,
                   int check_flags, Ports **conflicts, Call &call) {
    if (skip_services == nullptr || port_text == nullptr || protocol_text == nullptr ||
        conflicts == nullptr || check_flags < TAVO_PORT_CHECK_DEFAULT ||
        check_flags > TAVO_PORT_CHECK_ALL) {
        return TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "Invalid Argument!!");
    }
    const OwnedNames skip(TLIBCSzListAlloc(kInitialCapacity));
    const OwnedNames ports(TLIBCSzListAlloc(kInitialCapacity));
    const OwnedNames protocols(TLIBCSzListAlloc(kInitialCapacity));
    if (skip == nullptr || ports == nullptr || protocols == nullptr) {
        return FailToAllocateList();
    }
    if (SplitWords(skip_services, skip.get()) < 0 || SplitWords(port_text, ports.get()) < 0 ||
        SplitProtocols(protocol_text, protocols.get()) < 0) {
        return -1;
    }
    const OwnedTable skip_index = IndexNames(skip.get());
    Comparison comparison(TAVO_HERE, port_text);
    const Query query = {port_text,       protocol_text, skip.get(), skip_index.get(), ports.get(),
                         protocols.get(), conflicts,     call,       comparison};
    return AskSources(query, check_flags);
}

// ---- Service files ----

// A snapshot of a service file: the ports of its sections, up to the first section that ends the
// check.
struct SectionPorts {
    enum class End { kWhole, kNoMemory, kUnreadable, kNoPorts };

    OwnedNames names;
    OwnedNames ports;
    End end = End::kWhole;
    int key_count = 0;  // of the unreadable section
    ErrorState error;   // the error that ended the reading
};

// Reads the sections while the file is held. Errors are reported later, when the check reaches the
// section, because an earlier section may conflict.
SectionPorts::End ReadSections(const char *path, TLIBCSzHash *keys, SectionPorts &sections) {
    for (int i = 0; i < TLIBCSzListCount(sections.names.get()); ++i) {
        sections.key_count =
            TLIBCFileGetSection(path, TLIBCSzListGet(sections.names.get(), i), &keys);
        if (sections.key_count < 1) {
            return SectionPorts::End::kUnreadable;
        }
        const char *dst_ports = TLIBCSzHashGetValue(keys, kKeyDstPorts);
        if (dst_ports == nullptr) {
            return SectionPorts::End::kNoPorts;
        }
        if (!Push(sections.ports, dst_ports)) {
            return SectionPorts::End::kNoMemory;
        }
    }
    return SectionPorts::End::kWhole;
}

// Reports the error that ended the reading of the file, if any.
int ReportEnd(const char *path, const SectionPorts &sections) {
    const char *section =
        TLIBCSzListGet(sections.names.get(), TLIBCSzListCount(sections.ports.get()));
    switch (sections.end) {
        case SectionPorts::End::kWhole:
            return 0;
        case SectionPorts::End::kNoMemory:
            sections.error.Restore();
            return TAVO_LOG_STATE("Failed to keep the ports of section %s of %s", section, path);
        case SectionPorts::End::kNoPorts:
            return TAVO_FAIL_STATE(TLIBC_ERR_BAD_PARAMETER, "szTmpString is NULL");
        case SectionPorts::End::kUnreadable:
            break;
    }
    if (sections.key_count < 0) {
        sections.error.Restore();
    } else {
        TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    return TAVO_LOG_STATE(
        "Failed to TLIBCFileGetSection, file: %s, section name: %s, nHashRecords: %d, "
        "tavoerr=",
        path, section, sections.key_count);
}

// A failed check is logged and counts as no conflict: one invalid section of a package must not
// reject the others.
int CheckSection(const char *section, const char *dst_ports, Ports **conflicts, Call &call) {
    if (section == nullptr) {
        TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
        return 0;
    }
    const OwnedText copy(strdup(dst_ports));
    if (copy == nullptr) {
        TAVO_SET_ERROR(TLIBC_ERR_NO_MEMORY);
        return 0;
    }
    char *protocol_text = copy.get();
    char *port_text = CutPiece(protocol_text, '/');
    if (TLIBCStrTrimSpace(port_text) < 0) {
        return 0;
    }
    char none[] = "";
    protocol_text = protocol_text == nullptr ? none : protocol_text;
    TLIBCStrTrimSpace(protocol_text);
    const int answer =
        IsPortConflict(section, port_text, protocol_text, kSourcesOfFiles, conflicts, call);
    if (answer < 0) {
        TAVO_LOG_STATE("TLIBIsPortConflict FAILED=%d, port=%s, protocol=%s tavoerr=", answer,
                       port_text, protocol_text);
        return 0;
    }
    if (answer > 0) {
        TAVO_LOG("szTmpString=%s conflict", dst_ports);
    }
    return answer;
}

}  // namespace

// ---- The readers of the sources ----

ForwardingRules::Step ForwardingRules::Open() {
    path_ = TAVOPFRuleConfPathGet();
    next_ = 0;
    keys_.reset(TLIBCSzHashAlloc(kInitialCapacity));
    if (keys_ == nullptr) {
        TAVO_LOG("Failed to alloc memory");
        TAVO_SET_ERROR(TLIBC_ERR_NO_MEMORY);
        return Step::kFailed;
    }
    names_.reset(TLIBCSzListAlloc(kInitialCapacity));
    if (names_ == nullptr) {
        FailToAllocateList();
        return Step::kFailed;
    }
    if (path_ == nullptr) {
        return Step::kEnd;
    }
    const Presence presence = PresenceOf(path_);
    if (presence != Presence::kPresent) {
        look_error_ = errno;
        if (presence == Presence::kAbsent) {
            return Step::kEnd;
        }
        TAVO_FAIL_STATE(TLIBC_ERR_FILE_UNUSABLE, "Failed to look for %s", path_);
        return Step::kFailed;
    }
    held_.emplace(path_);
    TLIBCSzList *names = names_.release();
    const int name_count = TLIBCFileEnumSection(path_, &names);
    names_.reset(names);
    if (name_count < 0) {
        TAVO_LOG_STATE("Failed to TLIBCFileEnumSection");
        return Step::kFailed;
    }
    return Step::kRule;
}

ForwardingRules::Step ForwardingRules::Read(const char *section) {
    TLIBCSzHash *keys = keys_.release();
    const int key_count = TLIBCFileGetSection(path_, section, &keys);
    keys_.reset(keys);
    if (key_count == 0) {
        TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    if (key_count < 1) {
        TAVO_LOG("Section not found or failed to get section(%s) from %s", section, path_);
        return Step::kFailed;
    }
    return Step::kRule;
}

ForwardingRules::Step ForwardingRules::Next(ForwardingRule &rule) {
    if (next_ < 0) {
        const Step opened = Open();
        if (opened != Step::kRule) {
            return opened;
        }
    }
    if (next_ >= TLIBCSzListCount(names_.get())) {
        return Step::kEnd;
    }
    const char *section = TLIBCSzListGet(names_.get(), next_++);
    const Step read = Read(section);
    if (read == Step::kRule) {
        const auto value = [this](const char *key) {
            return TLIBCSzHashGetValue(keys_.get(), key);
        };
        rule = {section,
                value(kRuleService),
                value(kRuleTitle),
                value(kRuleProtocol),
                value(kRuleAppliancePorts),
                value(kRuleRouterPorts)};
    }
    return read;
}

const char *ForwardingRules::FailedSection() const {
    return next_ > 0 ? TLIBCSzListGet(names_.get(), next_ - 1) : nullptr;
}

int GetServicePort(const char *key, TAVO_PORT_RANGE *set) {
    if (set == nullptr) {
        return TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "Bad parameters.");
    }
    const auto port = NewRecord<OwnedPorts>();
    if (port == nullptr) {
        return TAVO_FAIL(TLIBC_ERR_NO_MEMORY, "Out of memory");
    }
    if (std::strcmp(key, kFtpLowPortKey) == 0 || std::strcmp(key, kFtpHighPortKey) == 0) {
        return AskFtpPassivePort();
    }
    constexpr int kSettingSize = 1024;
    char value[kSettingSize] = "";
    if (TLIBCFileGetKeyValue(kSettingsFile, key, value, sizeof(value)) < 0) {
        return TAVO_LOG("Failed to get [%s] info from [%s].", key, kSettingsFile);
    }
    if (value[0] == '\0') {
        return 0;
    }
    if (TAVOServiceConfPortsCheck(value) != 1) {
        return -1;
    }
    port->nPortType = TAVO_PORT_TYPE_SINGLE;
    port->nPortStart = static_cast<uint32_t>(std::strtol(value, nullptr, 10));
    port->nPortEnd = port->nPortStart;
    if (TLIBPortRangeAdd(set, port.get()) < 0) {
        return TAVO_LOG("Failed to TLIBPortRangeAdd().");
    }
    return 0;
}

}  // namespace tavo

int TLIBIsPortConflict(const char *szSkipServices, const char *szPort, const char *szProtocol,
                       int nCheckFlags, TAVO_SERVICE_CONF_PORT **ppConflictPorts) {
    tavo::Call call;
    return tavo::IsPortConflict(szSkipServices, szPort, szProtocol, nCheckFlags, ppConflictPorts,
                                call);
}

int TLIBIsConfPortConflict(const char *szConfFile, TAVO_SERVICE_CONF_PORT **ppConflictPorts) {
    tavo::SectionPorts sections;
    sections.names.reset(TLIBCSzListAlloc(tavo::kInitialCapacity));
    if (sections.names == nullptr) {
        return TAVO_LOG_STATE("Failed to TLIBCSzListAlloc, tavoerr=");
    }
    const tavo::OwnedTable keys(TLIBCSzHashAlloc(tavo::kInitialCapacity));
    if (keys == nullptr) {
        return TAVO_LOG_STATE("Failed to TLIBCSzHashAlloc, tavoerr=");
    }
    sections.ports.reset(TLIBCSzListAlloc(tavo::kInitialCapacity));
    if (sections.ports == nullptr) {
        return TAVO_LOG_STATE("Failed to TLIBCSzListAlloc, tavoerr=");
    }
    {
        const tavo::HeldFile held(szConfFile);
        TLIBCSzList *names = sections.names.get();
        if (TLIBCFileEnumSection(szConfFile, &names) < 1) {
            return 0;
        }
        sections.end = tavo::ReadSections(szConfFile, keys.get(), sections);
        sections.error = tavo::ErrorState();
    }
    tavo::Call call;
    for (int i = 0; i < TLIBCSzListCount(sections.ports.get()); ++i) {
        if (tavo::CheckSection(TLIBCSzListGet(sections.names.get(), i),
                               TLIBCSzListGet(sections.ports.get(), i), ppConflictPorts,
                               call) > 0) {
            return 1;
        }
    }
    return tavo::ReportEnd(szConfFile, sections);
}

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
    const char *szPort;
    const char *szProtocol;
    const TLIBCSzList *pSkip;
    const TLIBCSzHash *pSkipIndex;  // the names of pSkip as keys; null if there are few
    const TLIBCSzList *pPorts;
    const TLIBCSzList *pProtocols;  // in lower case
    Ports **ppConflictPorts;
    Call &call;
    Comparison &comparison;

    bool Skips(const char *szService) const {
        return pSkipIndex != nullptr ? TLIBCSzHashGetValue(pSkipIndex, szService) != nullptr
                                     : TLIBCSzListFind(pSkip, szService) >= 0;
    }
    bool Names(const TAVO_PROTO_TYPE_MAPPING &protocol) const {
        return TLIBCSzListFind(pProtocols, protocol.szName) >= 0;
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
    const int nAppliance = query.comparison.Compare(rule.appliance_ports);
    if (nAppliance < 0) {
        return -1;
    }
    const int nRouter = query.comparison.Compare(rule.router_ports);
    return nRouter < 0 ? -1 : nAppliance | nRouter;
}

int CheckForwardingRules(const Query &query) {
    using Step = ForwardingRules::Step;
    ForwardingRules rules;
    ForwardingRule rule{};
    int nAnswer = 0;
    for (Step step = rules.Next(rule); step != Step::kEnd; step = rules.Next(rule)) {
        const int nRule = step == Step::kRule ? CompareRule(query, rule) : -1;
        if (nRule < 0) {
            return -1;
        }
        nAnswer |= nRule;
    }
    return nAnswer;
}

// ---- Firewall services ----

// A service that is missing because memory ran out or a system call failed may declare the ports in
// question. Neither source can answer without it.
int FailWithoutCatalogue(const ServiceCatalogue &catalogue) {
    return TAVO_FAIL_STATE(catalogue.report.Fault(), "Failed to enumerate services");
}

// The protocols of the query; 0 if the text names none, then no service conflicts.
int ReadProtocols(const char *szProtocol, uint32_t &nProtocols) {
    const OwnedText copy(strdup(szProtocol));
    if (copy == nullptr) {
        return FailToCopy(TAVO_HERE, szProtocol);
    }
    nProtocols = TAVOProtocolMapping(TLIBServiceConfProtocolParse(copy.get()));
    return 0;
}

// Compares with one service, unless it is skipped or uses other protocols.
int CompareService(const Query &query, uint32_t nProtocols, const TAVO_FW_SERVICE &service) {
    if ((service.nDstProtocol & nProtocols) == 0 || query.Skips(service.szName)) {
        return 0;
    }
    int nAnswer = 0;
    for (int i = 0; i < TLIBCSzListCount(service.pDstPortList); ++i) {
        const int nOne = query.comparison.Compare(TLIBCSzListGet(service.pDstPortList, i));
        if (nOne < 0) {
            return -1;
        }
        nAnswer |= nOne;
    }
    return nAnswer;
}

int CheckFirewallServices(const Query &query) {
    const ServiceCatalogue &catalogue = query.call.catalogue.Get();
    if (catalogue.count < 0) {
        return TAVO_LOG_STATE("Failed to enumerate services");
    }
    if (catalogue.report.Fault() != 0) {
        return FailWithoutCatalogue(catalogue);
    }
    uint32_t nProtocols = 0;
    if (catalogue.count == 0) {
        return 0;
    }
    if (ReadProtocols(query.szProtocol, nProtocols) < 0) {
        return -1;
    }
    const Services *pServices = query.call.catalogue.Candidates(query.szPort);
    if (pServices == nullptr) {
        return TAVO_FAIL_STATE(TLIBC_ERR_NO_MEMORY, "Failed to allocate for services");
    }
    int nAnswer = 0;
    for (const TAVO_FW_SERVICE *pService : *pServices) {
        const int nOne = CompareService(query, nProtocols, *pService);
        if (nOne < 0) {
            return -1;
        }
        nAnswer |= nOne;
    }
    return nAnswer;
}

// ---- Settings of the system ----

int GetAllNonSkipServicePort(const Query &query, TAVO_PORT_RANGE *pSet) {
    for (const ServiceSetting &setting : kServiceSettings) {
        if (query.Skips(setting.service)) {
            continue;
        }
        if (GetServicePort(setting.key, pSet) < 0) {
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
int JoinFormerConflicts(TAVO_PORT_RANGE *pOverlap, Ports **ppConflictPorts) {
    const OwnedRanges former = CreateRanges();
    if (former == nullptr) {
        return -1;
    }
    former->pRanges = *ppConflictPorts;
    if (TLIBPortRangeJoin(pOverlap, former.get()) < 0) {
        former->pRanges = nullptr;
        return TAVO_LOG("Failed to TLIBPortRangeJoin()");
    }
    return 0;
}

// Replaces the caller's list with the overlap merged with all conflicts before it. Entries that
// were in the list on entry count as a conflict, which is kept: callers that pass the list from
// check to check rely on a result for all of them.
int HandOverOverlap(const Query &query, TAVO_PORT_RANGE *pOverlap) {
    Ports **ppConflictPorts = query.ppConflictPorts;
    // The conflicts of rules and services come before the entries that the list had on entry.
    if (query.comparison.Merge(pOverlap) < 0) {
        return TAVO_LOG("Failed to TLIBPortRangeJoin()");
    }
    if (*ppConflictPorts != nullptr && JoinFormerConflicts(pOverlap, ppConflictPorts) < 0) {
        return -1;
    }
    query.comparison.Forget();
    *ppConflictPorts = std::exchange(pOverlap->pRanges, nullptr);
    return std::exchange(pOverlap->nCount, 0) != 0 ? 1 : 0;
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
    if (TLIBPortRangeImport(asked.get(), query.szPort) < 0) {
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
bool ReadSocketToken(const char *szToken, Range &range) {
    const char *szSeparator = std::strchr(szToken, kQueryRangeSeparator);
    const int nStart = static_cast<int>(std::strtol(szToken, nullptr, 10));
    const int nEnd = szSeparator == nullptr
                         ? nStart
                         : static_cast<int>(std::strtol(szSeparator + 1, nullptr, 10));
    range = {std::min(nStart, nEnd), std::max(nStart, nEnd)};
    return nStart != 0 || nEnd != 0;
}

// `skipped` gets the ports of the skipped services once a port of the range is held.
int CheckSocketsOf(const Query &query, const Range &range, std::size_t row,
                   TAVO_FW_SERVICE *pServices, std::optional<PortSet> &skipped) {
    const TAVO_PROTO_TYPE_MAPPING &protocol = gProtoTypeMapping[row];
    const bool tcp = protocol.nProto == TAVO_PROTO_TCP;
    const auto skippedPorts = [&]() -> const PortSet & {
        if (!skipped) {
            skipped.emplace();
            for (int i = 0; i < TLIBCSzListCount(query.pSkip); ++i) {
                AddServicePorts(pServices, TLIBCSzListGet(query.pSkip, i),
                                static_cast<uint32_t>(protocol.nProto), *skipped);
            }
        }
        return *skipped;
    };
    if (const PortSet *pHeld =
            pServices != nullptr ? query.call.held[row].For(range, tcp) : nullptr) {
        const PortSet held = *pHeld & PortsOf(range.low, range.high);
        return held.any() && (held & ~skippedPorts()).any() ? 1 : 0;
    }
    UsedPorts used(range);
    if (used.OutOfMemory()) {
        return TAVO_FAIL(TLIBC_ERR_NO_MEMORY, "out of memory!!");
    }
    used.Ask(range, tcp);
    // Without services there is no list to look up skipped names in. This has always been an error,
    // even if no name is skipped.
    if (pServices == nullptr) {
        return FailForArgument();
    }
    const bool taken = std::any_of(used.begin(), used.end(), [&](int nPort) {
        const bool valid = nPort >= 0 && nPort < kPortCount;
        return nPort != 0 && !(valid && skippedPorts()[static_cast<std::size_t>(nPort)]);
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
    for (int i = 0; i < TLIBCSzListCount(query.pPorts); ++i) {
        Range range{};
        if (!ReadSocketToken(TLIBCSzListGet(query.pPorts, i), range)) {
            return FailForArgument();
        }
        for (std::size_t row = 0; row < std::size(skipped); ++row) {
            const int nAnswer =
                query.Names(gProtoTypeMapping[row])
                    ? CheckSocketsOf(query, range, row, catalogue.services.get(), skipped[row])
                    : 0;
            if (nAnswer != 0) {
                return nAnswer;
            }
        }
    }
    return 0;
}

// ---- The question ----

int SplitWords(const char *szText, TLIBCSzList *pWords) {
    if (TLIBCStrTok(szText, kTokenSeparators, &pWords) < 0) {
        return TAVO_LOG("Failed to skiped services into list!");
    }
    return 0;
}

int SplitProtocols(const char *szProtocol, TLIBCSzList *pWords) {
    char szLowered[kProtocolTextSize];
    if (TLIBCStrCaseLower(szProtocol, szLowered, sizeof(szLowered)) < 0) {
        return -1;
    }
    return SplitWords(szLowered, pWords);
}

// The names of a long list as keys; null for a short list and when out of memory, then the list is
// searched.
OwnedTable IndexNames(const TLIBCSzList *pNames) {
    constexpr int kFewNames = 8;
    const int nNames = TLIBCSzListCount(pNames);
    OwnedTable index(nNames > kFewNames ? TLIBCSzHashAlloc(nNames) : nullptr);
    for (int i = 0; index != nullptr && i < nNames; ++i) {
        if (TLIBCSzHashSetValue(index.get(), TLIBCSzListGet(pNames, i), "") < 0) {
            index.reset();
        }
    }
    return index;
}

// Checks every selected source even after a conflict, so that the caller's list contains the
// conflicts of all of them. The sockets come last because they add nothing to it.
int AskSources(const Query &query, int nCheckFlags) {
    static constexpr struct {
        int nFlag;
        int (*pfnCheck)(const Query &);
    } kSources[] = {
        {TAVO_PORT_CHECK_PORT_FORWARD, CheckForwardingRules},
        {TAVO_PORT_CHECK_FW_SERVICE, CheckFirewallServices},
        {TAVO_PORT_CHECK_SYS_KEY, CheckSettings},
        {TAVO_PORT_CHECK_RUNTIME, CheckSockets},
    };
    const bool merged = (nCheckFlags & TAVO_PORT_CHECK_SYS_KEY) != 0;
    int nAnswer = TLIBCSzListFind(query.pPorts, kReservedToken) >= 0 ? 1 : 0;
    for (const auto &source : kSources) {
        if ((nCheckFlags & source.nFlag) == 0) {
            continue;
        }
        const int nOne = source.pfnCheck(query);
        // The settings merge the conflicts of rules and services. Without the settings the pairs
        // are the result. After a failure the caller gets the conflicts found before it.
        const bool complete =
            (nOne >= 0 && merged) || query.comparison.MakePairs(query.ppConflictPorts) == 0;
        if (nOne < 0 || !complete) {
            return -1;
        }
        nAnswer |= nOne;
    }
    return nAnswer;
}

int IsPortConflict(const char *szSkipServices, const char *szPort, const char *szProtocol,
                   int nCheckFlags, Ports **ppConflictPorts, Call &call) {
    if (szSkipServices == nullptr || szPort == nullptr || szProtocol == nullptr ||
        ppConflictPorts == nullptr || nCheckFlags < TAVO_PORT_CHECK_DEFAULT ||
        nCheckFlags > TAVO_PORT_CHECK_ALL) {
        return TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "Invalid Argument!!");
    }
    const OwnedNames skip(TLIBCSzListAlloc(kInitialCapacity));
    const OwnedNames ports(TLIBCSzListAlloc(kInitialCapacity));
    const OwnedNames protocols(TLIBCSzListAlloc(kInitialCapacity));
    if (skip == nullptr || ports == nullptr || protocols == nullptr) {
        return FailToAllocateList();
    }
    if (SplitWords(szSkipServices, skip.get()) < 0 || SplitWords(szPort, ports.get()) < 0 ||
        SplitProtocols(szProtocol, protocols.get()) < 0) {
        return -1;
    }
    const OwnedTable skipIndex = IndexNames(skip.get());
    Comparison comparison(TAVO_HERE, szPort);
    const Query query = {szPort,          szProtocol,      skip.get(), skipIndex.get(), ports.get(),
                         protocols.get(), ppConflictPorts, call,       comparison};
    return AskSources(query, nCheckFlags);
}

// ---- Service files ----

// A snapshot of a service file: the ports of its sections, up to the first section that ends the
// check.
struct SectionPorts {
    enum class End { kWhole, kNoMemory, kUnreadable, kNoPorts };

    OwnedNames names;
    OwnedNames ports;
    End end = End::kWhole;
    int nKeys = 0;     // of the unreadable section
    ErrorState error;  // the error that ended the reading
};

// Reads the sections while the file is held. Errors are reported later, when the check reaches the
// section, because an earlier section may conflict.
SectionPorts::End ReadSections(const char *szConfFile, TLIBCSzHash *pKeys, SectionPorts &sections) {
    for (int i = 0; i < TLIBCSzListCount(sections.names.get()); ++i) {
        sections.nKeys =
            TLIBCFileGetSection(szConfFile, TLIBCSzListGet(sections.names.get(), i), &pKeys);
        if (sections.nKeys < 1) {
            return SectionPorts::End::kUnreadable;
        }
        const char *szDstPorts = TLIBCSzHashGetValue(pKeys, kKeyDstPorts);
        if (szDstPorts == nullptr) {
            return SectionPorts::End::kNoPorts;
        }
        if (!Push(sections.ports, szDstPorts)) {
            return SectionPorts::End::kNoMemory;
        }
    }
    return SectionPorts::End::kWhole;
}

// Reports the error that ended the reading of the file, if any.
int ReportEnd(const char *szConfFile, const SectionPorts &sections) {
    const char *szSection =
        TLIBCSzListGet(sections.names.get(), TLIBCSzListCount(sections.ports.get()));
    switch (sections.end) {
        case SectionPorts::End::kWhole:
            return 0;
        case SectionPorts::End::kNoMemory:
            sections.error.Restore();
            return TAVO_LOG_STATE("Failed to keep the ports of section %s of %s", szSection,
                                  szConfFile);
        case SectionPorts::End::kNoPorts:
            return TAVO_FAIL_STATE(TLIBC_ERR_BAD_PARAMETER, "szTmpString is NULL");
        case SectionPorts::End::kUnreadable:
            break;
    }
    if (sections.nKeys < 0) {
        sections.error.Restore();
    } else {
        TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    return TAVO_LOG_STATE(
        "Failed to TLIBCFileGetSection, file: %s, section name: %s, nHashRecords: %d, "
        "tavoerr=",
        szConfFile, szSection, sections.nKeys);
}

// A failed check is logged and counts as no conflict: one invalid section of a package must not
// reject the others.
int CheckSection(const char *szSection, const char *szDstPorts, Ports **ppConflictPorts,
                 Call &call) {
    if (szSection == nullptr) {
        TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
        return 0;
    }
    const OwnedText copy(strdup(szDstPorts));
    if (copy == nullptr) {
        TAVO_SET_ERROR(TLIBC_ERR_NO_MEMORY);
        return 0;
    }
    char *szProtocol = copy.get();
    char *szPort = CutPiece(szProtocol, '/');
    if (TLIBCStrTrimSpace(szPort) < 0) {
        return 0;
    }
    char szNone[] = "";
    szProtocol = szProtocol == nullptr ? szNone : szProtocol;
    TLIBCStrTrimSpace(szProtocol);
    const int nAnswer =
        IsPortConflict(szSection, szPort, szProtocol, kSourcesOfFiles, ppConflictPorts, call);
    if (nAnswer < 0) {
        TAVO_LOG_STATE("TLIBIsPortConflict FAILED=%d, port=%s, protocol=%s tavoerr=", nAnswer,
                       szPort, szProtocol);
        return 0;
    }
    if (nAnswer > 0) {
        TAVO_LOG("szTmpString=%s conflict", szDstPorts);
    }
    return nAnswer;
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
    TLIBCSzList *pNames = names_.release();
    const int nNames = TLIBCFileEnumSection(path_, &pNames);
    names_.reset(pNames);
    if (nNames < 0) {
        TAVO_LOG_STATE("Failed to TLIBCFileEnumSection");
        return Step::kFailed;
    }
    return Step::kRule;
}

ForwardingRules::Step ForwardingRules::Read(const char *section) {
    TLIBCSzHash *pKeys = keys_.release();
    const int nKeys = TLIBCFileGetSection(path_, section, &pKeys);
    keys_.reset(pKeys);
    if (nKeys == 0) {
        TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    if (nKeys < 1) {
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

int GetServicePort(const char *szKey, TAVO_PORT_RANGE *pSet) {
    if (pSet == nullptr) {
        return TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "Bad parameters.");
    }
    const auto port = NewRecord<OwnedPorts>();
    if (port == nullptr) {
        return TAVO_FAIL(TLIBC_ERR_NO_MEMORY, "Out of memory");
    }
    if (std::strcmp(szKey, kFtpLowPortKey) == 0 || std::strcmp(szKey, kFtpHighPortKey) == 0) {
        return AskFtpPassivePort();
    }
    constexpr int kSettingSize = 1024;
    char szValue[kSettingSize] = "";
    if (TLIBCFileGetKeyValue(kSettingsFile, szKey, szValue, sizeof(szValue)) < 0) {
        return TAVO_LOG("Failed to get [%s] info from [%s].", szKey, kSettingsFile);
    }
    if (szValue[0] == '\0') {
        return 0;
    }
    if (TAVOServiceConfPortsCheck(szValue) != 1) {
        return -1;
    }
    port->nPortType = TAVO_PORT_TYPE_SINGLE;
    port->nPortStart = static_cast<uint32_t>(std::strtol(szValue, nullptr, 10));
    port->nPortEnd = port->nPortStart;
    if (TLIBPortRangeAdd(pSet, port.get()) < 0) {
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
        TLIBCSzList *pNames = sections.names.get();
        if (TLIBCFileEnumSection(szConfFile, &pNames) < 1) {
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

// Whether ports are taken, and by what: forwarding rules, firewall services, settings of the
// system, and sockets that hold a port now.
//
// The four sources are asked in that order and know nothing of each other. Each answers 1 taken, 0
// free, -1 cannot tell, and puts what it can name in front of the caller's list. They read the
// caller's ports differently, which is kept: rules and services walk the text between commas, the
// settings import it into a range set, and the sockets take tokens between blanks and commas.
#include <algorithm>
#include <bitset>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <utility>

#include "catalogue/firewall_service.h"
#include "engine/call_catalogue.h"
#include "engine/comparison.h"
#include "engine/port_range.h"
#include "engine/text_ranges.h"
#include "model/service_file_keys.h"
#include "support/error_state.h"
#include "support/failure.h"
#include "support/held_file.h"
#include "support/owners.h"
#include "support/presence.h"
#include "support/settings.h"
#include "support/text.h"
#include "tavoftp.h"
#include "tavonet.h"
#include "tavopf.h"

namespace {

using tavo::CallCatalogue;
using tavo::Comparison;
using tavo::kDeclaredRangeSeparator;
using tavo::kQueryRangeSeparator;
using tavo::Range;

using Ports = TAVO_SERVICE_CONF_PORT;

constexpr char kTokenSeparators[] = " ,";
// Longer protocol texts are refused.
constexpr int kProtocolTextSize = 1024;

// Named on its own, this port always counts as taken; a range that holds it does not.
constexpr char kReservedPort[] = "412";

constexpr int kPortCount = 65536;

using PortSet = std::bitset<kPortCount>;

// The ports nLow..nHigh, both from 0 to 65535.
PortSet PortsOf(long nLow, long nHigh) {
    const auto nBeyond = static_cast<std::size_t>(kPortCount - 1 - (nHigh - nLow));
    return (PortSet().set() >> nBeyond) << static_cast<std::size_t>(nLow);
}

// The ports of skipped services, one set for each row of the protocol map. Filled once, so that the
// cost of a call is that of its slots and of the services' ports, not their product.
class SkippedPorts {
  public:
    void Add(const char *szPorts) {
        char *szEnd = nullptr;
        const long nStart = std::strtol(szPorts, &szEnd, 10);
        const long nEnd =
            *szEnd == kDeclaredRangeSeparator ? std::strtol(szEnd + 1, nullptr, 10) : nStart;
        const long nLow = std::max(std::min(nStart, nEnd), 0L);
        const long nHigh = std::min(std::max(nStart, nEnd), kPortCount - 1L);
        if (nLow <= nHigh) {
            ports_ |= PortsOf(nLow, nHigh);
        }
    }

    bool Has(int nPort) const {
        return nPort >= 0 && nPort < kPortCount && ports_.test(static_cast<std::size_t>(nPort));
    }

    const PortSet &Ports() const { return ports_; }

  private:
    PortSet ports_;
};

// The ports of the range that sockets hold now. One slot for each port: the networking library is
// told how many there are, and not trusted to have kept to it.
class UsedPorts {
  public:
    explicit UsedPorts(const Range &range)
        : nSlots_(static_cast<std::size_t>(static_cast<int64_t>(range.nHigh) - range.nLow + 1)),
          slots_(static_cast<int *>(std::calloc(nSlots_, sizeof(int)))) {}

    bool OutOfMemory() const { return slots_ == nullptr; }

    // A library that fails counts as having found none. It is asked twice before, so that one
    // failed system call does not make a held port read free. Whether it did not fail.
    bool Ask(const Range &range, bool tcp) {
        const int nMost = static_cast<int>(std::min<std::size_t>(nSlots_, INT_MAX));
        for (int nTry = 0; nTry < 2; ++nTry) {
            int nFound = nMost;
            if (TAVONetGetPortUsedInRange(slots_.get(), &nFound, range.nLow, range.nHigh, tcp) ==
                0) {
                nUsed_ = std::clamp(nFound, 0, nMost);
                return true;
            }
        }
        return false;
    }

    bool AllSkipped(const SkippedPorts &skipped) const {
        return std::all_of(slots_.get(), slots_.get() + nUsed_,
                           [&](int nPort) { return nPort == 0 || skipped.Has(nPort); });
    }

    void AddTo(PortSet &ports) const {
        std::for_each(slots_.get(), slots_.get() + nUsed_, [&](int nPort) {
            if (nPort > 0 && nPort < kPortCount) {
                ports.set(static_cast<std::size_t>(nPort));
            }
        });
    }

  private:
    std::size_t nSlots_;
    std::unique_ptr<int, tavo::FreeWith<std::free>> slots_;
    int nUsed_ = 0;
};

// The ports that sockets of one protocol hold. The first ranges are asked for one by one. A call
// with more of them asks once for all ports and looks the others up: each question makes the kernel
// walk its sockets.
class HeldPorts {
  public:
    // Whether the range can be looked up.
    bool Knows(const Range &range, bool tcp) {
        const bool possible = range.nLow >= 0 && range.nHigh < kPortCount;
        if (possible && !known_ && ++nQuestions_ > kFewQuestions) {
            nQuestions_ = 0;
            UsedPorts used(kAllPorts);
            known_ = !used.OutOfMemory() && used.Ask(kAllPorts, tcp);
            if (known_) {
                used.AddTo(ports_);
            }
        }
        return possible && known_;
    }

    bool AllSkipped(const Range &range, const SkippedPorts &skipped) const {
        return (ports_ & PortsOf(range.nLow, range.nHigh) & ~skipped.Ports()).none();
    }

  private:
    static constexpr int kFewQuestions = 4;
    static constexpr Range kAllPorts = {1, kPortCount - 1};

    PortSet ports_;
    bool known_ = false;
    int nQuestions_ = 0;
};

// What one call of the engine reads at most once, whatever it is asked.
struct Call {
    CallCatalogue catalogue;
    HeldPorts held[std::size(gProtoTypeMapping)];  // by row of the protocol map
};

// What the caller asks, as it was given and cut into tokens.
struct Query {
    const char *szPort;
    const char *szProtocol;
    const TLIBCSzList *pSkip;
    const TLIBCSzHash *pSkipIndex;  // the names of pSkip as keys; null where they are few
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

// ---- Port-forwarding rules ----

constexpr char kRuleService[] = "service_id";
constexpr char kRuleProtocol[] = "protocol name";
constexpr char kRuleAppliancePorts[] = "s_port";
constexpr char kRuleRouterPorts[] = "r_port";

// A rule leads r_port of the router to s_port of the appliance, and either collides. It must name
// its protocol, but collides on any: the router may be asked for both.
int CompareRule(const Query &query, const TLIBCSzHash *pRule) {
    const char *szService = TLIBCSzHashGetValue(pRule, kRuleService);
    if (szService != nullptr && query.Skips(szService)) {
        return 0;
    }
    const char *szAppliancePorts = TLIBCSzHashGetValue(pRule, kRuleAppliancePorts);
    const char *szRouterPorts = TLIBCSzHashGetValue(pRule, kRuleRouterPorts);
    if (TLIBCSzHashGetValue(pRule, kRuleProtocol) == nullptr || szAppliancePorts == nullptr ||
        szRouterPorts == nullptr) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    const int nAppliance = query.comparison.Compare(szAppliancePorts);
    if (nAppliance < 0) {
        return -1;
    }
    const int nRouter = query.comparison.Compare(szRouterPorts);
    return nRouter < 0 ? -1 : nAppliance | nRouter;
}

int CheckForwardingRules(const Query &query) {
    const char *szPath = TAVOPFRuleConfPathGet();
    const tavo::OwnedTable rule(TLIBCSzHashAlloc(tavo::kInitialCapacity));
    if (rule == nullptr) {
        TAVO_LOG("Failed to alloc memory");
        return TAVO_SET_ERROR(TLIBC_ERR_NO_MEMORY);
    }
    const tavo::OwnedNames names(TLIBCSzListAlloc(tavo::kInitialCapacity));
    if (names == nullptr) {
        return FailToAllocateList();
    }
    if (szPath == nullptr) {
        return 0;
    }
    switch (tavo::PresenceOf(szPath)) {
        case tavo::Presence::kAbsent:
            return 0;
        case tavo::Presence::kUnknown:
            return TAVO_FAIL_STATE(TLIBC_ERR_FILE_UNUSABLE, "Failed to look for %s", szPath);
        case tavo::Presence::kPresent:
            break;
    }
    const tavo::HeldFile held(szPath);
    TLIBCSzList *pNames = names.get();
    if (TLIBCFileEnumSection(szPath, &pNames) < 0) {
        return TAVO_LOG_STATE("Failed to TLIBCFileEnumSection");
    }
    int nAnswer = 0;
    for (int i = 0; i < TLIBCSzListCount(pNames); ++i) {
        const char *szName = TLIBCSzListGet(pNames, i);
        TLIBCSzHash *pRule = rule.get();
        const int nKeys = TLIBCFileGetSection(szPath, szName, &pRule);
        if (nKeys == 0) {
            TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
        }
        if (nKeys < 1) {
            return TAVO_LOG("Section not found or failed to get section(%s) from %s", szName,
                            szPath);
        }
        const int nRule = CompareRule(query, pRule);
        if (nRule < 0) {
            return -1;
        }
        nAnswer |= nRule;
    }
    return nAnswer;
}

// ---- Firewall services ----

// A service that is missing for want of memory, or because a system call failed, may declare the
// very ports that are asked for, so that neither source can answer without it.
int FailWithoutCatalogue(const tavo::ServiceCatalogue &catalogue) {
    return TAVO_FAIL_STATE(catalogue.report.Fault(), "Failed to enumerate services");
}

// The protocols that the caller asks for, 0 for a text that names none: then no service collides.
int ReadProtocols(const char *szProtocol, uint32_t &nProtocols) {
    const tavo::OwnedText copy(strdup(szProtocol));
    if (copy == nullptr) {
        return tavo::FailToCopy(TAVO_HERE, szProtocol);
    }
    nProtocols = TAVOProtocolMapping(TLIBServiceConfProtocolParse(copy.get()));
    return 0;
}

// Compares with one service, unless it is skipped or uses other protocols. False on failure.
bool CompareService(const Query &query, uint32_t nProtocols, const TAVO_FW_SERVICE &service,
                    int &nAnswer) {
    if ((service.nDstProtocol & nProtocols) == 0 || query.Skips(service.szName)) {
        return true;
    }
    for (int i = 0; i < TLIBCSzListCount(service.pDstPortList); ++i) {
        const int nOne = query.comparison.Compare(TLIBCSzListGet(service.pDstPortList, i));
        if (nOne < 0) {
            return false;
        }
        nAnswer |= nOne;
    }
    return true;
}

int CheckFirewallServices(const Query &query) {
    const tavo::ServiceCatalogue &catalogue = query.call.catalogue.Get();
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
    int nAnswer = 0;
    if (const tavo::OddServices *pOdd =
            query.call.catalogue.PlainDeclareNone(query.szPort, nProtocols, query.pSkip)) {
        for (const tavo::OddService &odd : *pOdd) {
            if (!CompareService(query, nProtocols, *odd.pService, nAnswer)) {
                return -1;
            }
        }
        return nAnswer;
    }
    for (const TAVO_FW_SERVICE *pService = catalogue.services.get(); pService != nullptr;
         pService = pService->pNext) {
        if (!CompareService(query, nProtocols, *pService, nAnswer)) {
            return -1;
        }
    }
    return nAnswer;
}

// ---- Settings of the system ----

constexpr int kSettingSize = 1024;

constexpr char kFtpLowPortKey[] = "ftplowport";
constexpr char kFtpHighPortKey[] = "ftphighport";

struct ServiceSetting {
    const char *szService;  // the word that skips it
    const char *szKey;
};

constexpr ServiceSetting kServiceSettings[] = {
    {"ftp", "ftpport"},
    {"ftp", kFtpLowPortKey},
    {"webdav_http", "WebDavPort"},
    {"webdavs_https", "secure_WebDavPort"},
    {"syslog_server", "syslogport"},
};

// The passive range of FTP takes no part in the comparison: it only has to be known.
int AskFtpPassivePort() {
    if (TAVOFTPHighPortGet() < 0) {
        return TAVO_LOG("failed to get ftp low port");
    }
    if (TAVOFTPHighPortGet() < 0) {
        return TAVO_LOG("failed to get ftp high port");
    }
    return 0;
}

// Adds the port that a setting names, if it names one.
int GetServicePort(const char *szKey, TAVO_PORT_RANGE *pSet) {
    if (pSet == nullptr) {
        return TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "Bad parameters.");
    }
    const auto port = tavo::NewRecord<tavo::OwnedPorts>();
    if (port == nullptr) {
        return TAVO_FAIL(TLIBC_ERR_NO_MEMORY, "Out of memory");
    }
    if (std::strcmp(szKey, kFtpLowPortKey) == 0 || std::strcmp(szKey, kFtpHighPortKey) == 0) {
        return AskFtpPassivePort();
    }
    char szValue[kSettingSize] = "";
    if (TLIBCFileGetKeyValue(tavo::kSettingsFile, szKey, szValue, sizeof(szValue)) < 0) {
        return TAVO_LOG("Failed to get [%s] info from [%s].", szKey, tavo::kSettingsFile);
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

int GetAllNonSkipServicePort(const Query &query, TAVO_PORT_RANGE *pSet) {
    for (const ServiceSetting &setting : kServiceSettings) {
        if (query.Skips(setting.szService)) {
            continue;
        }
        if (GetServicePort(setting.szKey, pSet) < 0) {
            return TAVO_LOG("Failed to GetServicePort(), service = [%s]", setting.szKey);
        }
    }
    return 0;
}

tavo::OwnedRanges CreateRanges() {
    tavo::OwnedRanges ranges(TLIBPortRangeCreate());
    if (ranges == nullptr) {
        TAVO_LOG("Failed to TLIBPortRangeCreate()");
    }
    return ranges;
}

// Moves what the caller's list holds into the overlap. A failure leaves the list whole.
int JoinFormerConflicts(TAVO_PORT_RANGE *pOverlap, Ports **ppConflictPorts) {
    const tavo::OwnedRanges former = CreateRanges();
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

// Joins the conflicts that rules and services left with the overlap, ahead of what the caller's
// list held on entry.
int JoinConflicts(const Query &query, TAVO_PORT_RANGE *pOverlap) {
    if (!query.comparison.HasKept()) {
        return 0;
    }
    if (query.comparison.Merge(pOverlap) < 0) {
        return TAVO_LOG("Failed to TLIBPortRangeJoin()");
    }
    return 0;
}

// Makes the overlap, joined with all conflicts before it, the caller's list. Entries that were
// there on entry count as a conflict, which is kept: callers that hand the list on from check to
// check rely on an answer for all of them.
int HandOverOverlap(const Query &query, TAVO_PORT_RANGE *pOverlap) {
    Ports **ppConflictPorts = query.ppConflictPorts;
    if (JoinConflicts(query, pOverlap) < 0 ||
        (*ppConflictPorts != nullptr && JoinFormerConflicts(pOverlap, ppConflictPorts) < 0)) {
        return -1;
    }
    query.comparison.Forget();
    *ppConflictPorts = std::exchange(pOverlap->pRanges, nullptr);
    return std::exchange(pOverlap->nCount, 0) != 0 ? 1 : 0;
}

int CheckSettings(const Query &query) {
    const tavo::OwnedRanges settings = CreateRanges();
    if (settings == nullptr) {
        return -1;
    }
    if (GetAllNonSkipServicePort(query, settings.get()) < 0) {
        return TAVO_LOG("Failed to GetAllNonSkipServicePort()");
    }
    const tavo::OwnedRanges asked = CreateRanges();
    if (asked == nullptr) {
        return -1;
    }
    if (TLIBPortRangeImport(asked.get(), query.szPort) < 0) {
        return TAVO_LOG("Failed to TLIBPortRangeImport().");
    }
    const tavo::OwnedRanges overlap = CreateRanges();
    if (overlap == nullptr) {
        return -1;
    }
    if (TLIBPortRangeOverlap(asked.get(), settings.get(), overlap.get()) < 0) {
        return TAVO_LOG("Failed to TLIBPortRangeOverlap()");
    }
    return HandOverOverlap(query, overlap.get());
}

// ---- Sockets ----

SkippedPorts PortsOfSkipped(const Query &query, int nProtocol) {
    SkippedPorts skipped;
    for (int i = 0; i < TLIBCSzListCount(query.pSkip); ++i) {
        const TAVO_FW_SERVICE *pService = query.call.catalogue.Find(TLIBCSzListGet(query.pSkip, i));
        if (pService == nullptr ||
            (pService->nDstProtocol & static_cast<uint32_t>(nProtocol)) == 0) {
            continue;
        }
        for (int k = 0; k < TLIBCSzListCount(pService->pDstPortList); ++k) {
            skipped.Add(TLIBCSzListGet(pService->pDstPortList, k));
        }
    }
    return skipped;
}

int FailForArgument() {
    return TAVO_FAIL_STATE(TLIBC_ERR_BAD_PARAMETER, "Invalid Argument!!");
}

// A token is PORT or START:END in any order, by whatever numbers strtol finds. Zero alone is no
// port that a socket could hold.
bool ReadSocketToken(const char *szToken, Range &range) {
    const char *szSeparator = std::strchr(szToken, kQueryRangeSeparator);
    const int nStart = static_cast<int>(std::strtol(szToken, nullptr, 10));
    const int nEnd = szSeparator == nullptr
                         ? nStart
                         : static_cast<int>(std::strtol(szSeparator + 1, nullptr, 10));
    range = {std::min(nStart, nEnd), std::max(nStart, nEnd)};
    return nStart != 0 || nEnd != 0;
}

int CheckSocketsOf(const Range &range, bool tcp, HeldPorts &held, const SkippedPorts &skipped,
                   const TAVO_FW_SERVICE *pServices) {
    if (pServices != nullptr && held.Knows(range, tcp)) {
        return held.AllSkipped(range, skipped) ? 0 : 1;
    }
    UsedPorts used(range);
    if (used.OutOfMemory()) {
        return TAVO_FAIL(TLIBC_ERR_NO_MEMORY, "out of memory!!");
    }
    used.Ask(range, tcp);
    // Without any service there is no list in which skipped names could be looked up, which has
    // always been an error, also where nothing is to be skipped.
    if (pServices == nullptr) {
        return FailForArgument();
    }
    return used.AllSkipped(skipped) ? 0 : 1;
}

// The first port that is held ends the check; which it is, is not told.
int CheckSockets(const Query &query) {
    const tavo::ServiceCatalogue &catalogue = query.call.catalogue.Get();
    if (catalogue.count < 0) {
        return TAVO_FAIL_STATE(TAVO_ERR_FW_SERVICES, "Failed to enumerate services");
    }
    if (catalogue.report.Fault() != 0) {
        return FailWithoutCatalogue(catalogue);
    }
    const TAVO_FW_SERVICE *pServices = catalogue.services.get();
    SkippedPorts skipped[std::size(gProtoTypeMapping)];
    for (std::size_t row = 0; pServices != nullptr && row < std::size(skipped); ++row) {
        if (query.Names(gProtoTypeMapping[row])) {
            skipped[row] = PortsOfSkipped(query, gProtoTypeMapping[row].nProto);
        }
    }
    for (int i = 0; i < TLIBCSzListCount(query.pPorts); ++i) {
        Range range{};
        if (!ReadSocketToken(TLIBCSzListGet(query.pPorts, i), range)) {
            return FailForArgument();
        }
        for (std::size_t row = 0; row < std::size(skipped); ++row) {
            const TAVO_PROTO_TYPE_MAPPING &protocol = gProtoTypeMapping[row];
            if (!query.Names(protocol)) {
                continue;
            }
            const int nAnswer = CheckSocketsOf(range, protocol.nProto == TAVO_PROTO_TCP,
                                               query.call.held[row], skipped[row], pServices);
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

// The names of a long list as keys; null for a short one, and when memory runs out: the list is
// searched then.
tavo::OwnedTable IndexNames(const TLIBCSzList *pNames) {
    constexpr int kFewNames = 8;
    const int nNames = TLIBCSzListCount(pNames);
    tavo::OwnedTable index(nNames > kFewNames ? TLIBCSzHashAlloc(nNames) : nullptr);
    for (int i = 0; index != nullptr && i < nNames; ++i) {
        if (TLIBCSzHashSetValue(index.get(), TLIBCSzListGet(pNames, i), "") < 0) {
            index.reset();
        }
    }
    return index;
}

// Every source that is wanted is asked, also once a conflict is found, so that the caller's list
// tells all of them. The sockets come last: they add nothing to it.
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
    int nAnswer = TLIBCSzListFind(query.pPorts, kReservedPort) >= 0 ? 1 : 0;
    for (const auto &source : kSources) {
        if ((nCheckFlags & source.nFlag) == 0) {
            continue;
        }
        const int nOne = source.pfnCheck(query);
        if (nOne < 0) {
            // What was found before a failure is the caller's.
            query.comparison.MakePairs();
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
    const tavo::OwnedNames skip(TLIBCSzListAlloc(tavo::kInitialCapacity));
    const tavo::OwnedNames ports(TLIBCSzListAlloc(tavo::kInitialCapacity));
    const tavo::OwnedNames protocols(TLIBCSzListAlloc(tavo::kInitialCapacity));
    if (skip == nullptr || ports == nullptr || protocols == nullptr) {
        return FailToAllocateList();
    }
    if (SplitWords(szSkipServices, skip.get()) < 0 || SplitWords(szPort, ports.get()) < 0 ||
        SplitProtocols(szProtocol, protocols.get()) < 0) {
        return -1;
    }
    const tavo::OwnedTable skipIndex = IndexNames(skip.get());
    // The settings merge what rules and services find; only without them are the pairs the result.
    const bool merged = (nCheckFlags & TAVO_PORT_CHECK_SYS_KEY) != 0;
    Comparison comparison(
        TAVO_HERE, szPort,
        merged ? Comparison::Keeping::kDeclaredRanges : Comparison::Keeping::kPairs,
        ppConflictPorts);
    const Query query = {szPort,          szProtocol,      skip.get(), skipIndex.get(), ports.get(),
                         protocols.get(), ppConflictPorts, call,       comparison};
    return AskSources(query, nCheckFlags);
}

// ---- Service files ----

// The flags of a check of a whole file: its author need not know the rules of the router.
constexpr int kServiceFileCheckFlags =
    TAVO_PORT_CHECK_FW_SERVICE | TAVO_PORT_CHECK_SYS_KEY | TAVO_PORT_CHECK_RUNTIME;

// A service file as it is at one moment: the ports of its sections, up to the first section that
// ends the check.
struct SectionPorts {
    enum class End { kWhole, kNoMemory, kUnreadable, kNoPorts };

    tavo::OwnedNames names;
    tavo::OwnedNames ports;
    End end = End::kWhole;
    int nKeys = 0;           // of the section that is unreadable
    tavo::ErrorState error;  // of what ended the reading
};

// Reads the sections one after the other while the file is held. What they hold is reported when
// the check comes to them: a section may collide before it.
SectionPorts::End ReadSections(const char *szConfFile, TLIBCSzHash *pKeys, SectionPorts &sections) {
    for (int i = 0; i < TLIBCSzListCount(sections.names.get()); ++i) {
        sections.nKeys =
            TLIBCFileGetSection(szConfFile, TLIBCSzListGet(sections.names.get(), i), &pKeys);
        if (sections.nKeys < 1) {
            return SectionPorts::End::kUnreadable;
        }
        const char *szDstPorts = TLIBCSzHashGetValue(pKeys, tavo::kKeyDstPorts);
        if (szDstPorts == nullptr) {
            return SectionPorts::End::kNoPorts;
        }
        if (!tavo::Push(sections.ports, szDstPorts)) {
            return SectionPorts::End::kNoMemory;
        }
    }
    return SectionPorts::End::kWhole;
}

// Reports what ended the reading of the file, if anything did.
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

// A check that fails is logged and counts as no conflict: one bad section of a package is no reason
// to refuse the others.
int CheckSection(const char *szSection, const char *szDstPorts, Ports **ppConflictPorts,
                 Call &call) {
    if (szSection == nullptr) {
        TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
        return 0;
    }
    const tavo::OwnedText copy(strdup(szDstPorts));
    if (copy == nullptr) {
        TAVO_SET_ERROR(TLIBC_ERR_NO_MEMORY);
        return 0;
    }
    char *szProtocol = copy.get();
    char *szPort = tavo::CutPiece(szProtocol, '/');
    if (TLIBCStrTrimSpace(szPort) < 0) {
        return 0;
    }
    char szNone[] = "";
    szProtocol = szProtocol == nullptr ? szNone : szProtocol;
    TLIBCStrTrimSpace(szProtocol);
    const int nAnswer = IsPortConflict(szSection, szPort, szProtocol, kServiceFileCheckFlags,
                                       ppConflictPorts, call);
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

int TLIBIsPortConflict(const char *szSkipServices, const char *szPort, const char *szProtocol,
                       int nCheckFlags, TAVO_SERVICE_CONF_PORT **ppConflictPorts) {
    Call call;
    return IsPortConflict(szSkipServices, szPort, szProtocol, nCheckFlags, ppConflictPorts, call);
}

int TLIBIsConfPortConflict(const char *szConfFile, TAVO_SERVICE_CONF_PORT **ppConflictPorts) {
    SectionPorts sections;
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
        sections.end = ReadSections(szConfFile, keys.get(), sections);
        sections.error = tavo::ErrorState();
    }
    Call call;
    for (int i = 0; i < TLIBCSzListCount(sections.ports.get()); ++i) {
        if (CheckSection(TLIBCSzListGet(sections.names.get(), i),
                         TLIBCSzListGet(sections.ports.get(), i), ppConflictPorts, call) > 0) {
            return 1;
        }
    }
    return ReportEnd(szConfFile, sections);
}

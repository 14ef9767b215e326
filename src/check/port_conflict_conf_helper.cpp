// The ports that are declared: by the system's own settings, and by every service that the firewall
// catalogue knows.
#include <cstdio>

#include "check/result_records.h"
#include "support/settings.h"

namespace tavo {
namespace {

using Results = OwnedResults<ConfResults>;
using Template = TemplateRecord<ConfResults>;

// What the system itself declares: the value of a key of the settings, or a port that is fixed.
struct SystemPort {
    const char *szKey;
    const char *szPort;
    uint16_t uProtocol;
    const char *szService;
};

constexpr SystemPort kSystemPorts[] = {
    {"syslogport", nullptr, TAVO_PROTO_TCP, "tavo-syslog"},
    {"smsport", nullptr, TAVO_PROTO_TCP, "tavo-sms"},
    {nullptr, "5005", TAVO_PROTO_TCP, "tavo-webdav"},
    {nullptr, "5006", TAVO_PROTO_TCP, "tavo-webdav-ssl"},
    {"syslogport", nullptr, TAVO_PROTO_UDP, "tavo-syslog"},
};

constexpr std::size_t kValueSize = 1024;

// The port that a key gives; 0 where the key is absent or the settings cannot be read, which keeps
// nobody from asking for the other ports.
uint16_t PortOfKey(const char *szKey) {
    char szValue[kValueSize];
    const int nFound = TLIBCFileGetKeyValue(kSettingsFile, szKey, szValue, sizeof(szValue));
    if (nFound < 0) {
        TAVO_LOG("Failed to get %s from %s, errno=0x%X", szKey, kSettingsFile, TLIBCErrGet());
    }
    return nFound == 1 ? ToUPort(szValue) : uint16_t{0};
}

bool Append(const Results &results, const Template &result) {
    if (TLIBCDListAppend(results.get(), result.get()) != 0) {
        TAVO_FAIL_ALLOC("pResult");
        return false;
    }
    return true;
}

bool AppendPortString(const Results &results, const Template &result, const char *szPort) {
    unsigned short uFirst = 0;
    unsigned short uLast = 0;
    const int nNumbers = std::sscanf(szPort, "%hu-%hu", &uFirst, &uLast);
    if (nNumbers < 1) {
        TAVO_LOG("Failed to fetch port from service: %s", result->szService);
        return true;
    }
    if (nNumbers == 1) {
        uLast = uFirst;
    }
    if (uFirst > uLast) {
        TAVO_LOG("Illegal port range: %hu~%hu", uFirst, uLast);
        return true;
    }
    for (unsigned int nPort = uFirst; nPort <= uLast; ++nPort) {
        result->uPort = static_cast<uint16_t>(nPort);
        if (!Append(results, result)) {
            return false;
        }
    }
    return true;
}

// Only a service of exactly TCP counts for TCP; one that declares both is found under UDP alone,
// which is kept.
bool AppendService(const Results &results, const Template &result, TAVO_FW_SERVICE &service) {
    result->szService = service.szName;
    result->uProtocol = service.nDstProtocol == TAVO_PROTO_TCP ? TAVO_PROTO_TCP : TAVO_PROTO_UDP;
    const int nStrings = TLIBCSzListCount(service.pDstPortList);
    for (int i = 0; i < nStrings; ++i) {
        if (!AppendPortString(results, result, TLIBCSzListGet(service.pDstPortList, i))) {
            return false;
        }
    }
    return true;
}

}  // namespace
}  // namespace tavo

TLIBCDList *SysConfListFetch(void) {
    tavo::Results results(TAVOConfPortConflictResultListAlloc());
    const tavo::Template result(results ? TAVOConfPortConflictResultAlloc() : nullptr);
    if (!result) {
        TAVO_FAIL_ALLOC("pResultList");
        return nullptr;
    }
    result->blConflict = 1;
    for (const tavo::SystemPort &port : tavo::kSystemPorts) {
        result->uPort = port.szKey != nullptr ? tavo::PortOfKey(port.szKey) : ToUPort(port.szPort);
        result->uProtocol = port.uProtocol;
        result->szService = const_cast<char *>(port.szService);
        if (!tavo::Append(results, result)) {
            return nullptr;
        }
    }
    return results.release();
}

TLIBCDList *PkgConfListFetch(void) {
    tavo::Results results(TAVOConfPortConflictResultListAlloc());
    if (!results) {
        TAVO_FAIL_ALLOC("pResultList");
        return nullptr;
    }
    const tavo::Template result(TAVOConfPortConflictResultAlloc());
    if (!result) {
        TAVO_FAIL_ALLOC("pResult");
        return nullptr;
    }
    TAVO_FW_SERVICE *pServices = nullptr;
    const int nServices = TAVOFwServiceEnum(&pServices);
    const tavo::OwnedServices services(pServices);
    if (nServices < 0) {
        return nullptr;
    }
    result->blConflict = 1;
    for (; pServices != nullptr; pServices = pServices->pNext) {
        if (!tavo::AppendService(results, result, *pServices)) {
            return nullptr;
        }
    }
    return results.release();
}

TLIBCDList *ServiceConfListFetch(void) {
    tavo::Results results(TAVOConfPortConflictResultListAlloc());
    if (!results) {
        TAVO_FAIL_ALLOC("pResultList");
        return nullptr;
    }
    const tavo::Results system(SysConfListFetch());
    if (!system) {
        TAVO_LOG("Failed to SysConfListFetch");
        return nullptr;
    }
    const tavo::Results services(PkgConfListFetch());
    if (!services) {
        TAVO_LOG("Failed to ServiceConfListFetch");
        return nullptr;
    }
    for (const tavo::Results *part : {&system, &services}) {
        if (!tavo::AppendAll<tavo::ConfResults>(results.get(), part->get())) {
            TAVO_FAIL_ALLOC("pResult");
            return nullptr;
        }
    }
    return results.release();
}

// Lists what the firewall can offer: the built-in services, then every section of every service
// file.
//
// The list is never refused as a whole. A service that cannot be listed is logged and left out, so
// that one broken setting or service file does not take the others off the firewall.
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "catalogue/firewall_service.h"
#include "model/completeness.h"
#include "support/error_state.h"
#include "support/failure.h"
#include "support/held_file.h"
#include "support/owners.h"
#include "support/settings.h"
#include "support/text.h"
#include "tavoserviceconf.h"

namespace {

using tavo::Completeness;
using tavo::Reading;

// Room for any 32-bit number as text, and for a range with its dash and terminator.
constexpr std::size_t kNumberSize = 11;
constexpr std::size_t kPortTextSize = 2 * kNumberSize + 2;

bool IsSupportKeySet(const char *szKey, bool blIgnoreCase) {
    return TLIBCFileCheckKeyValue(tavo::kFactorySettingsFile, szKey, "yes", blIgnoreCase ? 1 : 0) >
           0;
}

void CopyReference(const TAVO_SERVICE_CONF_STRING &source, TAVO_SERVICE_CONF_STRING &copy) {
    tavo::CopyText(copy.szSource, tavo::FieldText(source.szSource));
    tavo::CopyText(copy.szSection, tavo::FieldText(source.szSection));
    tavo::CopyText(copy.szKey, tavo::FieldText(source.szKey));
}

// ---- Built-in services ----

// One side of a row: its source or its destination ports.
struct RowPorts {
    const char *szSide;  // "src" or "dst", for the log lines
    const char *szPorts;
    TAVO_FW_PORT_PROVIDER pfnPorts;
};

bool IsPortNumber(const char *szPort) {
    return szPort[std::strspn(szPort, "0123456789")] == '\0';
}

// Splits a text such as "1234,9997" into *ppPorts. Empty pieces are passed over.
Reading ParseFixedPorts(const char *szPorts, TLIBCSzList **ppPorts) {
    if (*szPorts == '\0') {
        TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "Bad parameters");
        return Reading::kInvalid;
    }
    *ppPorts = TLIBCSzListAlloc(tavo::kPortListCapacity);
    if (*ppPorts == nullptr) {
        TAVO_LOG("Failed to allocate for ports number, errno=0x%X", TLIBCErrGet());
        return Reading::kUnknown;
    }
    const tavo::OwnedText copy(strdup(szPorts));
    if (copy == nullptr) {
        TAVO_FAIL(TLIBC_ERR_NO_MEMORY, "Failed to allocate for ports number, errno=%s",
                  std::strerror(errno));
        return Reading::kUnknown;
    }
    char *szRest = nullptr;
    for (char *szPort = strtok_r(copy.get(), ",", &szRest); szPort != nullptr;
         szPort = strtok_r(nullptr, ",", &szRest)) {
        if (!IsPortNumber(szPort)) {
            TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "illegal ports number, port=%s", szPort);
            return Reading::kInvalid;
        }
        if (TLIBCSzListPush(ppPorts, szPort) < 0) {
            return Reading::kUnknown;
        }
    }
    return Reading::kRead;
}

// Clears the error state for a call, to see what the call leaves there. Where it leaves nothing,
// the caller's state stays.
class FreshErrorState {
  public:
    FreshErrorState() { TLIBCErrSetEx(0, nullptr, 0); }
    ~FreshErrorState() {
        if (TLIBCErrGet() == 0) {
            before_.Restore();
        }
    }
    FreshErrorState(const FreshErrorState &) = delete;
    FreshErrorState &operator=(const FreshErrorState &) = delete;

  private:
    tavo::ErrorState before_;
};

// A provider says by its error code whether it failed for what the settings hold, or because they
// are absent. Any other failure, and one without a code, leaves its ports unknown; that is noted
// here, where the state is still the provider's.
Reading AskProvider(TAVO_FW_PORT_PROVIDER pfnPorts, TLIBCSzList **ppPorts) {
    const FreshErrorState fresh;
    if (pfnPorts(ppPorts) >= 0) {
        return Reading::kRead;
    }
    const unsigned int code = TLIBCErrGet();
    const bool settled = code == TLIBC_ERR_BAD_PARAMETER || code == TLIBC_ERR_NO_FILE;
    const Reading reading = settled ? Reading::kInvalid : Reading::kUnknown;
    Completeness::Note(reading);
    return reading;
}

// Works out the ports of one side of the service szName. A provider that has none to give makes no
// line of its own.
Reading ReadRowPorts(const char *szName, const RowPorts &side, TLIBCSzList **ppPorts) {
    if (side.szPorts != nullptr) {
        const Reading fixed = ParseFixedPorts(side.szPorts, ppPorts);
        if (fixed != Reading::kRead) {
            TAVO_LOG("Failed to parse %s ports in firewall services: %s", side.szSide, szName);
        }
        return fixed;
    }
    if (side.pfnPorts == nullptr) {
        TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "No specified %s ports in firewall services: %s",
                  side.szSide, szName);
        return Reading::kInvalid;
    }
    const Reading provided = AskProvider(side.pfnPorts, ppPorts);
    if (provided != Reading::kRead) {
        TAVO_LOG("Failed to enum %s ports in firewall services: %s", side.szSide, szName);
        return provided;
    }
    return TLIBCSzListCount(*ppPorts) > 0 ? Reading::kRead : Reading::kInvalid;
}

// How many services there are; they are put in front of *ppServices.
int AddBuiltInServices(TAVO_FW_SERVICE **ppServices) {
    int nServices = 0;
    for (const auto *pRow = rgServices; pRow->szName != nullptr; ++pRow) {
        if (auto service = tavo::ServiceFromRow(*pRow)) {
            tavo::Prepend(std::move(service), ppServices);
            ++nServices;
        }
    }
    return nServices;
}

// ---- Services of service files ----

char *PrintNumber(uint32_t nNumber, char *szText) {
    return std::to_chars(szText, szText + kNumberSize, static_cast<int>(nNumber)).ptr;
}

// A port as "80" or "1000-2000": the firewall writes ranges with a dash.
void PrintPort(const TAVO_SERVICE_CONF_PORT &port, char (&szPort)[kPortTextSize]) {
    char *szEnd = PrintNumber(port.nPortStart, szPort);
    if (port.nPortType == TAVO_PORT_TYPE_RANGE) {
        *szEnd++ = '-';
        szEnd = PrintNumber(port.nPortEnd, szEnd);
    }
    *szEnd = '\0';
}

// Makes the port strings of a port list. Its entries share their protocol; where they do not, the
// last one decides.
Reading ConvertPorts(const TAVO_SERVICE_CONF_PORT *pList, uint32_t *pnProtocol,
                     TLIBCSzList **ppPorts) {
    if (pList == nullptr) {
        return Reading::kInvalid;
    }
    *ppPorts = TLIBCSzListAlloc(tavo::kPortListCapacity);
    if (*ppPorts == nullptr) {
        TAVO_LOG_STATE("Failed to allocate for ports number, tavoerr=");
        return Reading::kUnknown;
    }
    for (; pList != nullptr; pList = pList->pNext) {
        *pnProtocol = TAVOProtocolMapping(static_cast<int>(pList->nProtocol));
        if (pList->nPortType > TAVO_PORT_TYPE_RANGE) {
            continue;
        }
        char szPort[kPortTextSize];
        PrintPort(*pList, szPort);
        if (TLIBCSzListPush(ppPorts, szPort) < 0) {
            return Reading::kUnknown;
        }
    }
    return Reading::kRead;
}

int AddFileServices(const TAVO_SERVICE_CONF &file, TAVO_FW_SERVICE **ppServices) {
    const bool blSupported = *file.szSupportKey == '\0' || IsSupportKeySet(file.szSupportKey, true);
    int nServices = 0;
    for (const auto *pSection = file.pSections; pSection != nullptr; pSection = pSection->pNext) {
        if (auto service = tavo::ServiceFromSection(*pSection, blSupported)) {
            tavo::Prepend(std::move(service), ppServices);
            ++nServices;
        }
    }
    return nServices;
}

int AddDeclaredServices(TAVO_FW_SERVICE **ppServices) {
    TAVO_SERVICE_CONF *pFiles = nullptr;
    const int nFiles =
        TAVOServiceConfEnum(&pFiles, TAVO_SERVICE_CONF_DIR_SYSTEM | TAVO_SERVICE_CONF_DIR_PACKAGE);
    const tavo::OwnedConf files(pFiles);
    if (nFiles > 0 && files == nullptr) {
        TAVO_LOG_STATE("Bad parameters, tavoerr=");
        Completeness::Note(Reading::kInvalid);
        return 0;
    }
    const tavo::HeldFile held(tavo::kFactorySettingsFile);
    int nServices = 0;
    for (; pFiles != nullptr; pFiles = pFiles->pNext) {
        nServices += AddFileServices(*pFiles, ppServices);
    }
    return nServices;
}

}  // namespace

namespace tavo {
namespace {

// Reports a service that is left out.
OwnedServices LeaveOut(Reading reading) {
    Completeness::Note(reading);
    return nullptr;
}

}  // namespace

OwnedServices ServiceFromRow(const TAVO_FW_SERVICE_REG &row) {
    auto service = NewRecord<OwnedServices>();
    if (service == nullptr) {
        TAVO_FAIL(TLIBC_ERR_NO_MEMORY, "Failed to allocate for service, errno=0x%X", TLIBCErrGet());
        return LeaveOut(Reading::kUnknown);
    }
    CopyText(service->szName, row.szName);
    service->blSupported = row.szSupportKey != nullptr
                               ? static_cast<uint32_t>(IsSupportKeySet(row.szSupportKey, false))
                               : row.blSupportDefault;
    service->blPortForward = row.blPortForward;
    CopyReference(row.strTitle, service->strTitle);
    CopyReference(row.strDesc, service->strDesc);
    if (row.blHasSrcPorts != 0) {
        service->nSrcProtocol = row.nSrcProtocol;
        const Reading ports = ReadRowPorts(row.szName, {"src", row.szSrcPorts, row.pfnSrcPorts},
                                           &service->pSrcPortList);
        if (ports != Reading::kRead) {
            return LeaveOut(ports);
        }
    }
    if (row.blHasDstPorts != 0) {
        service->nDstProtocol = row.nDstProtocol;
        const Reading ports = ReadRowPorts(row.szName, {"dst", row.szDstPorts, row.pfnDstPorts},
                                           &service->pDstPortList);
        if (ports != Reading::kRead) {
            return LeaveOut(ports);
        }
    }
    return service;
}

OwnedServices ServiceFromSection(const TAVO_SERVICE_CONF_SECTION &section, bool blSupported) {
    auto service = NewRecord<OwnedServices>();
    if (service == nullptr) {
        TAVO_FAIL_NO_MEMORY();
        return LeaveOut(Reading::kUnknown);
    }
    CopyText(service->szName, FieldText(section.szName));
    service->blSupported = blSupported ? 1 : 0;
    service->blPortForward = section.blPortForward;
    CopyReference(section.strTitle, service->strTitle);
    CopyText(service->strTitle.szText, FieldText(section.strTitle.szText));
    CopyReference(section.strDesc, service->strDesc);
    CopyText(service->strDesc.szText, FieldText(section.strDesc.szText));
    CopyText(service->strDesc.szExtra, FieldText(section.strDesc.szExtra));
    const Reading src =
        section.pSrcPorts == nullptr
            ? Reading::kRead
            : ConvertPorts(section.pSrcPorts, &service->nSrcProtocol, &service->pSrcPortList);
    if (src != Reading::kRead) {
        TAVO_LOG_STATE("Failed to parse section [%s] src ports for firewall services, tavoerr=",
                       service->szName);
        return LeaveOut(src);
    }
    const Reading dst =
        ConvertPorts(section.pDstPorts, &service->nDstProtocol, &service->pDstPortList);
    if (dst != Reading::kRead) {
        TAVO_LOG_STATE("Failed to parse section [%s] dst ports for firewall services, tavoerr=",
                       service->szName);
        return LeaveOut(dst);
    }
    return service;
}

ServiceCatalogue ReadCatalogue() {
    const Completeness completeness;
    TAVO_FW_SERVICE *pServices = nullptr;
    ServiceCatalogue catalogue;
    catalogue.count = TAVOFwServiceEnum(&pServices);
    catalogue.services.reset(pServices);
    catalogue.fault = completeness.Fault();
    catalogue.logged = !completeness.LeftNothingOut();
    return catalogue;
}

}  // namespace tavo

int TAVOFwServiceEnum(TAVO_FW_SERVICE **ppServices) {
    if (ppServices == nullptr) {
        return TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "Bad parameters");
    }
    TAVO_FW_SERVICE *pServices = nullptr;
    int nServices = AddBuiltInServices(&pServices);
    nServices += AddDeclaredServices(&pServices);
    *ppServices = pServices;
    return nServices;
}

void TAVOFwServiceFree(TAVO_FW_SERVICE *pList) {
    while (pList != nullptr) {
        TAVO_FW_SERVICE *pNext = pList->pNext;
        TLIBCSzListFree(pList->pDstPortList);
        TLIBCSzListFree(pList->pSrcPortList);
        std::free(pList);
        pList = pNext;
    }
}

uint32_t TAVOProtocolMapping(int nProtocol) {
    static constexpr uint32_t kFlagWords[] = {TAVO_PROTO_TCP, TAVO_PROTO_UDP, TAVO_PROTO_BOTH};
    return nProtocol >= 1 && nProtocol <= 3 ? kFlagWords[nProtocol - 1] : 0;
}

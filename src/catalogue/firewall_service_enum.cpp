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
#include "support/failure.h"
#include "support/held_file.h"
#include "support/owners.h"
#include "support/settings.h"
#include "support/text.h"
#include "tavoserviceconf.h"

namespace {

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
int ParseFixedPorts(const char *szPorts, TLIBCSzList **ppPorts) {
    if (*szPorts == '\0') {
        return TAVO_FAIL(tavo::kErrorBadParameter, "Bad parameters");
    }
    *ppPorts = TLIBCSzListAlloc(tavo::kPortListCapacity);
    if (*ppPorts == nullptr) {
        return TAVO_LOG("Failed to allocate for ports number, errno=0x%X", TLIBCErrGet());
    }
    const tavo::OwnedText copy(strdup(szPorts));
    if (copy == nullptr) {
        return TAVO_FAIL(tavo::kErrorNoMemory, "Failed to allocate for ports number, errno=%s",
                         std::strerror(errno));
    }
    char *szRest = nullptr;
    for (char *szPort = strtok_r(copy.get(), ",", &szRest); szPort != nullptr;
         szPort = strtok_r(nullptr, ",", &szRest)) {
        if (!IsPortNumber(szPort)) {
            return TAVO_FAIL(tavo::kErrorBadParameter, "illegal ports number, port=%s", szPort);
        }
        if (TLIBCSzListPush(ppPorts, szPort) < 0) {
            return -1;
        }
    }
    return 0;
}

// Works out the ports of one side of the service szName. A provider that has none to give makes no
// line of its own.
int ReadRowPorts(const char *szName, const RowPorts &side, TLIBCSzList **ppPorts) {
    if (side.szPorts != nullptr) {
        if (ParseFixedPorts(side.szPorts, ppPorts) < 0) {
            return TAVO_LOG("Failed to parse %s ports in firewall services: %s", side.szSide,
                            szName);
        }
        return 0;
    }
    if (side.pfnPorts == nullptr) {
        return TAVO_FAIL(tavo::kErrorBadParameter, "No specified %s ports in firewall services: %s",
                         side.szSide, szName);
    }
    if (side.pfnPorts(ppPorts) < 0) {
        return TAVO_LOG("Failed to enum %s ports in firewall services: %s", side.szSide, szName);
    }
    return TLIBCSzListCount(*ppPorts) > 0 ? 0 : -1;
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
int ConvertPorts(const TAVO_SERVICE_CONF_PORT *pList, uint32_t *pnProtocol, TLIBCSzList **ppPorts) {
    if (pList == nullptr) {
        return -1;
    }
    *ppPorts = TLIBCSzListAlloc(tavo::kPortListCapacity);
    if (*ppPorts == nullptr) {
        return TAVO_LOG_STATE("Failed to allocate for ports number, tavoerr=");
    }
    for (; pList != nullptr; pList = pList->pNext) {
        *pnProtocol = TAVOProtocolMapping(static_cast<int>(pList->nProtocol));
        if (pList->nPortType > TAVO_PORT_TYPE_RANGE) {
            continue;
        }
        char szPort[kPortTextSize];
        PrintPort(*pList, szPort);
        if (TLIBCSzListPush(ppPorts, szPort) < 0) {
            return -1;
        }
    }
    return 0;
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

OwnedServices ServiceFromRow(const TAVO_FW_SERVICE_REG &row) {
    auto service = NewRecord<OwnedServices>();
    if (service == nullptr) {
        TAVO_FAIL(kErrorNoMemory, "Failed to allocate for service, errno=0x%X", TLIBCErrGet());
        return nullptr;
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
        if (ReadRowPorts(row.szName, {"src", row.szSrcPorts, row.pfnSrcPorts},
                         &service->pSrcPortList) < 0) {
            return nullptr;
        }
    }
    if (row.blHasDstPorts != 0) {
        service->nDstProtocol = row.nDstProtocol;
        if (ReadRowPorts(row.szName, {"dst", row.szDstPorts, row.pfnDstPorts},
                         &service->pDstPortList) < 0) {
            return nullptr;
        }
    }
    return service;
}

OwnedServices ServiceFromSection(const TAVO_SERVICE_CONF_SECTION &section, bool blSupported) {
    auto service = NewRecord<OwnedServices>();
    if (service == nullptr) {
        TAVO_FAIL_NO_MEMORY();
        return nullptr;
    }
    CopyText(service->szName, FieldText(section.szName));
    service->blSupported = blSupported ? 1 : 0;
    service->blPortForward = section.blPortForward;
    CopyReference(section.strTitle, service->strTitle);
    CopyText(service->strTitle.szText, FieldText(section.strTitle.szText));
    CopyReference(section.strDesc, service->strDesc);
    CopyText(service->strDesc.szText, FieldText(section.strDesc.szText));
    CopyText(service->strDesc.szExtra, FieldText(section.strDesc.szExtra));
    if (section.pSrcPorts != nullptr &&
        ConvertPorts(section.pSrcPorts, &service->nSrcProtocol, &service->pSrcPortList) < 0) {
        TAVO_LOG_STATE("Failed to parse section [%s] src ports for firewall services, tavoerr=",
                       service->szName);
        return nullptr;
    }
    if (ConvertPorts(section.pDstPorts, &service->nDstProtocol, &service->pDstPortList) < 0) {
        TAVO_LOG_STATE("Failed to parse section [%s] dst ports for firewall services, tavoerr=",
                       service->szName);
        return nullptr;
    }
    return service;
}

}  // namespace tavo

int TAVOFwServiceEnum(TAVO_FW_SERVICE **ppServices) {
    if (ppServices == nullptr) {
        return TAVO_FAIL(tavo::kErrorBadParameter, "Bad parameters");
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

// Lists the services that the firewall can offer: the built-in services, then every section of
// every service file.
//
// An error never fails the whole list. A service that cannot be listed is logged and left out, so
// that one invalid setting or service file does not remove the others from the firewall.
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "base/system_files.h"
#include "catalogue/firewall_service.h"
#include "support/failure.h"
#include "support/held_file.h"
#include "support/owners.h"
#include "support/text.h"
#include "tavoserviceconf.h"

namespace {

using tavo::Reading;

// The sizes of a 32-bit number as text, and of a range with its dash and terminator.
constexpr std::size_t kNumberSize = 11;
constexpr std::size_t kPortTextSize = 2 * kNumberSize + 2;

bool IsSupportKeySet(const char *key, bool ignore_case) {
    return TLIBCFileCheckKeyValue(tavo::kFactorySettingsFile, key, "yes", ignore_case ? 1 : 0) > 0;
}

void CopyReference(const TAVO_SERVICE_CONF_STRING &source, TAVO_SERVICE_CONF_STRING &copy) {
    tavo::CopyText(copy.szSource, tavo::FieldText(source.szSource));
    tavo::CopyText(copy.szSection, tavo::FieldText(source.szSection));
    tavo::CopyText(copy.szKey, tavo::FieldText(source.szKey));
}

// ---- Built-in services ----

// One side of a row: its source ports or its destination ports.
struct RowPorts {
    const char *direction;  // "src" or "dst", for the log lines
    const char *ports;
    TAVO_FW_PORT_PROVIDER provider;
};

bool IsPortNumber(const char *text) {
    return text[std::strspn(text, "0123456789")] == '\0';
}

// Splits a text such as "1234,9997" into `*ports`. Empty pieces are ignored.
Reading ParseFixedPorts(const char *text, TLIBCSzList **ports) {
    if (*text == '\0') {
        TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "Bad parameters");
        return Reading::Invalid();
    }
    *ports = TLIBCSzListAlloc(tavo::kPortListCapacity);
    if (*ports == nullptr) {
        TAVO_LOG("Failed to allocate for ports number, errno=0x%X", TLIBCErrGet());
        return Reading::Unknown();
    }
    const tavo::OwnedText copy(strdup(text));
    if (copy == nullptr) {
        TAVO_FAIL(TLIBC_ERR_NO_MEMORY, "Failed to allocate for ports number, errno=%s",
                  std::strerror(errno));
        return Reading::Unknown();
    }
    char *rest = nullptr;
    for (char *port = strtok_r(copy.get(), ",", &rest); port != nullptr;
         port = strtok_r(nullptr, ",", &rest)) {
        if (!IsPortNumber(port)) {
            TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "illegal ports number, port=%s", port);
            return Reading::Invalid();
        }
        if (TLIBCSzListPush(ports, port) < 0) {
            return Reading::Unknown();
        }
    }
    return Reading::Good();
}

// Clears the error state for a call, to detect whether the call sets it. If the call does not set
// it, the previous state is restored.
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

// The error code of a provider says whether the settings are invalid or absent. After any other
// failure, and after one without a code, the ports are unknown.
Reading AskProvider(TAVO_FW_PORT_PROVIDER provider, TLIBCSzList **ports) {
    const FreshErrorState fresh;
    if (provider(ports) >= 0) {
        return Reading::Good();
    }
    const unsigned int code = TLIBCErrGet();
    const bool settled = code == TLIBC_ERR_BAD_PARAMETER || code == TLIBC_ERR_NO_FILE;
    return settled ? Reading::Invalid() : Reading::Unknown();
}

// Determines the ports of one side of the service `name`. A provider that returns no ports is not
// logged here.
Reading ReadRowPorts(const char *name, const RowPorts &side, TLIBCSzList **ports) {
    if (side.ports != nullptr) {
        const Reading fixed = ParseFixedPorts(side.ports, ports);
        if (!fixed.IsGood()) {
            TAVO_LOG("Failed to parse %s ports in firewall services: %s", side.direction, name);
        }
        return fixed;
    }
    if (side.provider == nullptr) {
        TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "No specified %s ports in firewall services: %s",
                  side.direction, name);
        return Reading::Invalid();
    }
    const Reading provided = AskProvider(side.provider, ports);
    if (!provided.IsGood()) {
        TAVO_LOG("Failed to enum %s ports in firewall services: %s", side.direction, name);
        return provided;
    }
    return TLIBCSzListCount(*ports) > 0 ? Reading::Good() : Reading::Invalid();
}

// ---- Services of service files ----

char *PrintNumber(uint32_t number, char *text) {
    return std::to_chars(text, text + kNumberSize, static_cast<int>(number)).ptr;
}

// Prints a port as "80" or "1000-2000": the firewall writes ranges with a dash.
void PrintPort(const TAVO_SERVICE_CONF_PORT &port, char (&text)[kPortTextSize]) {
    char *end = PrintNumber(port.nPortStart, text);
    if (port.nPortType == TAVO_PORT_TYPE_RANGE) {
        *end++ = '-';
        end = PrintNumber(port.nPortEnd, end);
    }
    *end = '\0';
}

// Converts a port list to port strings. All entries are expected to have the same protocol; if they
// do not, the last one is used.
Reading ConvertPorts(const TAVO_SERVICE_CONF_PORT *list, uint32_t *protocol, TLIBCSzList **ports) {
    if (list == nullptr) {
        return Reading::Invalid();
    }
    *ports = TLIBCSzListAlloc(tavo::kPortListCapacity);
    if (*ports == nullptr) {
        TAVO_LOG_STATE("Failed to allocate for ports number, tavoerr=");
        return Reading::Unknown();
    }
    for (; list != nullptr; list = list->pNext) {
        *protocol = TAVOProtocolMapping(static_cast<int>(list->nProtocol));
        if (list->nPortType > TAVO_PORT_TYPE_RANGE) {
            continue;
        }
        char text[kPortTextSize];
        PrintPort(*list, text);
        if (TLIBCSzListPush(ports, text) < 0) {
            return Reading::Unknown();
        }
    }
    return Reading::Good();
}

}  // namespace

namespace tavo {

Reading ServiceFromRow(const TAVO_FW_SERVICE_REG &row, OwnedServices &made) {
    auto service = NewRecord<OwnedServices>();
    if (service == nullptr) {
        TAVO_FAIL(TLIBC_ERR_NO_MEMORY, "Failed to allocate for service, errno=0x%X", TLIBCErrGet());
        return Reading::Unknown();
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
        if (!ports.IsGood()) {
            return ports;
        }
    }
    if (row.blHasDstPorts != 0) {
        service->nDstProtocol = row.nDstProtocol;
        const Reading ports = ReadRowPorts(row.szName, {"dst", row.szDstPorts, row.pfnDstPorts},
                                           &service->pDstPortList);
        if (!ports.IsGood()) {
            return ports;
        }
    }
    made = std::move(service);
    return Reading::Good();
}

Reading ServiceFromSection(const TAVO_SERVICE_CONF_SECTION &section, bool supported,
                           OwnedServices &made) {
    auto service = NewRecord<OwnedServices>();
    if (service == nullptr) {
        TAVO_FAIL_NO_MEMORY();
        return Reading::Unknown();
    }
    CopyText(service->szName, FieldText(section.szName));
    service->blSupported = supported ? 1 : 0;
    service->blPortForward = section.blPortForward;
    CopyReference(section.strTitle, service->strTitle);
    CopyText(service->strTitle.szText, FieldText(section.strTitle.szText));
    CopyReference(section.strDesc, service->strDesc);
    CopyText(service->strDesc.szText, FieldText(section.strDesc.szText));
    CopyText(service->strDesc.szExtra, FieldText(section.strDesc.szExtra));
    const Reading src =
        section.pSrcPorts == nullptr
            ? Reading::Good()
            : ConvertPorts(section.pSrcPorts, &service->nSrcProtocol, &service->pSrcPortList);
    if (!src.IsGood()) {
        TAVO_LOG_STATE("Failed to parse section [%s] src ports for firewall services, tavoerr=",
                       service->szName);
        return src;
    }
    const Reading dst =
        ConvertPorts(section.pDstPorts, &service->nDstProtocol, &service->pDstPortList);
    if (!dst.IsGood()) {
        TAVO_LOG_STATE("Failed to parse section [%s] dst ports for firewall services, tavoerr=",
                       service->szName);
        return dst;
    }
    made = std::move(service);
    return Reading::Good();
}

DeclaredServices ReadDeclaredServices(const FileVisitor *visitor) {
    DeclaredServices declared = {nullptr, nullptr, ReadingReport(visitor)};
    for (const auto *row = rgServices; row->szName != nullptr; ++row) {
        OwnedServices service;
        declared.report.NoteRow(ServiceFromRow(*row, service), *row);
        if (service != nullptr) {
            Prepend(std::move(service), declared.built_in);
        }
    }
    TAVO_SERVICE_CONF *files = nullptr;
    const int count = ReadServiceFiles(&files, kEveryServiceFolder, &declared.report);
    declared.files.reset(files);
    if (count > 0 && files == nullptr && visitor == nullptr) {
        TAVO_LOG_STATE("Bad parameters, tavoerr=");
    }
    return declared;
}

bool IsFileSupported(const char *support_key) {
    return *support_key == '\0' || IsSupportKeySet(support_key, true);
}

ServiceCatalogue ReadCatalogue() {
    DeclaredServices declared = ReadDeclaredServices();
    ServiceCatalogue catalogue = {std::move(declared.built_in), 0, std::move(declared.report)};
    const HeldFile held(kFactorySettingsFile);
    for (const auto *file = declared.files.get(); file != nullptr; file = file->pNext) {
        const bool supported = IsFileSupported(file->szSupportKey);
        for (const auto *section = file->pSections; section != nullptr; section = section->pNext) {
            OwnedServices service;
            catalogue.report.NoteFault(ServiceFromSection(*section, supported, service));
            if (service != nullptr) {
                Prepend(std::move(service), catalogue.services);
            }
        }
    }
    for (const auto *one = catalogue.services.get(); one != nullptr; one = one->pNext) {
        ++catalogue.count;
    }
    return catalogue;
}

}  // namespace tavo

int TAVOFwServiceEnum(TAVO_FW_SERVICE **ppServices) {
    if (ppServices == nullptr) {
        return TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "Bad parameters");
    }
    tavo::ServiceCatalogue catalogue = tavo::ReadCatalogue();
    *ppServices = catalogue.services.release();
    return catalogue.count;
}

void TAVOFwServiceFree(TAVO_FW_SERVICE *pList) {
    while (pList != nullptr) {
        TLIBCSzListFree(pList->pDstPortList);
        TLIBCSzListFree(pList->pSrcPortList);
        std::free(std::exchange(pList, pList->pNext));
    }
}

uint32_t TAVOProtocolMapping(int nProtocol) {
    static constexpr uint32_t kFlagWords[] = {TAVO_PROTO_TCP, TAVO_PROTO_UDP, TAVO_PROTO_BOTH};
    return nProtocol >= 1 && nProtocol <= 3 ? kFlagWords[nProtocol - 1] : 0;
}

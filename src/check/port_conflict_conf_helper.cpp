// Lists the ports that the system's own settings and the services in the firewall catalogue
// declare. A range gives one record for each of its ports.
#include "check/declared_ports.h"
#include "check/result_records.h"

namespace tavo {
namespace {

using Results = OwnedResults<ConfResults>;
using Template = TemplateRecord<ConfResults>;

bool Append(const Results &results, const Template &result) {
    if (TLIBCDListAppend(results.get(), result.get()) != 0) {
        TAVO_FAIL_ALLOC("pResult");
        return false;
    }
    return true;
}

bool AppendService(const Results &results, const Template &result, TAVO_FW_SERVICE &service) {
    result->szService = service.szName;
    result->uProtocol = DeclaredProtocol(service);
    return ForEachDeclaredRange(TAVO_HERE, service, [&](uint16_t first, uint16_t last) {
        for (unsigned int port = first; port <= last; ++port) {
            result->uPort = static_cast<uint16_t>(port);
            if (!Append(results, result)) {
                return false;
            }
        }
        return true;
    });
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
    for (const tavo::SystemPort &row : tavo::kSystemPorts) {
        // A key that cannot be read does not prevent the other ports from being listed.
        result->uPort = tavo::ReadSystemPort(TAVO_HERE, row).port;
        result->uProtocol = row.protocol;
        result->szService = const_cast<char *>(row.service);
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
    TAVO_FW_SERVICE *service = nullptr;
    const int count = TAVOFwServiceEnum(&service);
    const tavo::OwnedServices services(service);
    if (count < 0) {
        return nullptr;
    }
    result->blConflict = 1;
    for (; service != nullptr; service = service->pNext) {
        if (!tavo::AppendService(results, result, *service)) {
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

// The configuration check: which of the caller's ports are declared, and by which service.
//
// It reads the same sources as ServiceConfListFetch, in the same order and with the same log lines.
// In contrast to that function, it creates no records for ports that the caller did not pass, and
// it fails if a source that may declare a port cannot be read.
#include "catalogue/firewall_service.h"
#include "check/declared_ports.h"
#include "check/port_check.h"

namespace tavo {
namespace {

// The declarations of the requested ports, each with the name of its service.
struct DeclaredPorts {
    PortIndex<char> index;
    ServiceCatalogue catalogue;

    bool Fetch() {
        if (!AddSystemPorts()) {
            TAVO_LOG("Failed to SysConfListFetch");
            return false;
        }
        if (!AddServices()) {
            TAVO_LOG("Failed to ServiceConfListFetch");
            return false;
        }
        return true;
    }

  private:
    bool Add(uint16_t first, uint16_t last, uint16_t protocol, const char *service) {
        if (!index.Add(first, last, protocol, service)) {
            TAVO_FAIL_ALLOC("pResult");
            return false;
        }
        return true;
    }

    bool AddSystemPorts() {
        unsigned int fault = 0;
        for (const SystemPort &row : kSystemPorts) {
            const SystemDeclaration declared = ReadSystemPort(TAVO_HERE, row);
            fault = fault != 0 ? fault : declared.reading.Fault();
            if (!Add(declared.port, declared.port, row.protocol, row.service)) {
                return false;
            }
        }
        return IsComplete(fault);
    }

    bool AddServices() {
        catalogue = ReadCatalogue();
        if (catalogue.count < 0 || !IsComplete(catalogue.report.Fault())) {
            return false;
        }
        for (const auto *service = catalogue.services.get(); service; service = service->pNext) {
            const uint16_t protocol = DeclaredProtocol(*service);
            if (!ForEachDeclaredRange(TAVO_HERE, *service, [&](uint16_t first, uint16_t last) {
                    return Add(first, last, protocol, service->szName);
                })) {
                return false;
            }
        }
        return true;
    }

    // Sets the error again, since later reads may have set another one.
    static bool IsComplete(unsigned int fault) {
        if (fault != 0) {
            TAVO_SET_ERROR(fault);
        }
        return fault == 0;
    }
};

struct ConfCheck : ConfResults {
    using Known = DeclaredPorts;
    static Record RecordOf(const char &service, uint16_t port, uint16_t protocol) {
        return {port, protocol, const_cast<char *>(&service), 1};
    }
    static constexpr auto kAppendNobody = ConfNotConflictResultAppend;
    static constexpr auto kCheck = TAVOConfPortConflictCheck;
    static constexpr auto kListPorts = TAVOConfListConflictPorts;
    static constexpr auto kIsAny = TAVOConfIsConflictPorts;
    static constexpr char kResultListName[] = "ppResultList";
    static constexpr char kCheckName[] = "TAVOConfPortConflictCheck";
    static constexpr char kListPortsName[] = "TAVOConfListConflictPorts";
    static void Show(const TLIBCSzList *) {}
};

}  // namespace
}  // namespace tavo

using tavo::ConfCheck;

int TAVOConfPortConflictCheck(const TLIBCSzList *pPortList, uint16_t uProtocol,
                              TLIBCDList *pResultList) {
    return tavo::CheckPorts<ConfCheck>(TAVO_HERE, pPortList, uProtocol, pResultList);
}

TLIBCDList *TAVOConfPortConflictResultListAllocAndCheck(const TLIBCSzList *pPortList,
                                                        uint16_t uProtocol) {
    return tavo::AllocAndCheck<ConfCheck>(TAVO_HERE, pPortList, uProtocol);
}

int TAVOConfListConflictPorts(const TLIBCDList *pResultList, uint16_t uProtocol,
                              TLIBCSzList *pConflictPortList) {
    return tavo::ListConflictPorts<ConfCheck>(TAVO_HERE, pResultList, uProtocol, pConflictPortList);
}

int TAVOConfVerifyConflictPort(const TLIBCDList *pResultList, uint16_t uPort, uint16_t uProtocol) {
    return tavo::VerifyConflictPort<ConfCheck>(TAVO_HERE, pResultList, uPort, uProtocol);
}

int TAVOConfIsConflictPorts(const TLIBCSzList *pPortList, uint16_t uProtocol) {
    return tavo::IsAnyInConflict<ConfCheck>(TAVO_HERE, pPortList, uProtocol);
}

int TAVOConfIsConflictPort(uint16_t uPort, uint16_t uProtocol) {
    return tavo::IsOneInConflict<ConfCheck>(TAVO_HERE, uPort, uProtocol);
}

int TAVOConfIsConflictPortRange(uint16_t uFirst, uint16_t uLast, uint16_t uProtocol) {
    return tavo::IsRangeInConflict<ConfCheck>(TAVO_HERE, uFirst, uLast, uProtocol);
}

// The runtime check: which of the caller's ports processes currently hold, and which processes.
#include "check/port_check.h"

namespace tavo {
namespace {

// The records of all held ports, and an index of those for the requested ports.
struct HeldPorts {
    using Record = RuntimeResults::Record;

    PortIndex<Record> index;
    OwnedResults<RuntimeResults> held;

    bool Fetch() {
        held.reset(RuntimeServiceListFetch());
        if (!held) {
            return false;
        }
        for (const Record &record : Records<Record>(held.get())) {
            if (!index.Add(record.uPort, record.uPort, record.uProtocol, &record)) {
                TAVO_FAIL_ALLOC("pResult");
                return false;
            }
        }
        return true;
    }
};

struct RuntimeCheck : RuntimeResults {
    using Known = HeldPorts;
    static const Record &RecordOf(const Record &held, uint16_t, uint16_t) { return held; }
    static constexpr auto kAppendNobody = RuntimeNotConflictResultAppend;
    static constexpr auto kCheck = TAVORuntimePortConflictCheck;
    static constexpr auto kListPorts = TAVORuntimeListConflictPorts;
    static constexpr auto kIsAny = TAVORuntimeIsConflictPorts;
    static constexpr char kResultListName[] = "pResultList";
    static constexpr char kCheckName[] = "TAVORuntimePortConflictCheck";
    static constexpr char kListPortsName[] = "TAVORuntimeListConflictPorts";
    // Prints the ports for an administrator who runs a program by hand.
    static void Show(const TLIBCSzList *ports) {
        std::fputs("pConflictPortList:\n", stderr);
        TLIBCISzListDump(ports, stderr);
    }
};

}  // namespace
}  // namespace tavo

using tavo::RuntimeCheck;

int TAVORuntimePortConflictCheck(const TLIBCSzList *pPortList, uint16_t uProtocol,
                                 TLIBCDList *pResultList) {
    return tavo::CheckPorts<RuntimeCheck>(TAVO_HERE, pPortList, uProtocol, pResultList);
}

TLIBCDList *TAVORuntimePortConflictResultListAllocAndCheck(const TLIBCSzList *pPortList,
                                                           uint16_t uProtocol) {
    return tavo::AllocAndCheck<RuntimeCheck>(TAVO_HERE, pPortList, uProtocol);
}

int TAVORuntimeListConflictPorts(const TLIBCDList *pResultList, uint16_t uProtocol,
                                 TLIBCSzList *pConflictPortList) {
    return tavo::ListConflictPorts<RuntimeCheck>(TAVO_HERE, pResultList, uProtocol,
                                                 pConflictPortList);
}

int TAVORuntimeVerifyConflictPort(const TLIBCDList *pResultList, uint16_t uPort,
                                  uint16_t uProtocol) {
    return tavo::VerifyConflictPort<RuntimeCheck>(TAVO_HERE, pResultList, uPort, uProtocol);
}

int TAVORuntimeIsConflictPorts(const TLIBCSzList *pPortList, uint16_t uProtocol) {
    return tavo::IsAnyInConflict<RuntimeCheck>(TAVO_HERE, pPortList, uProtocol);
}

int TAVORuntimeIsConflictPort(uint16_t uPort, uint16_t uProtocol) {
    return tavo::IsOneInConflict<RuntimeCheck>(TAVO_HERE, uPort, uProtocol);
}

int TAVORuntimeIsConflictPortRange(uint16_t uFirst, uint16_t uLast, uint16_t uProtocol) {
    return tavo::IsRangeInConflict<RuntimeCheck>(TAVO_HERE, uFirst, uLast, uProtocol);
}

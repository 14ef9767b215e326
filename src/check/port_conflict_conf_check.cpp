// The check of the configuration: which of the caller's ports are declared, and by whom.
#include "check/port_check.h"

namespace tavo {
namespace {

struct ConfCheck : ConfResults {
    static constexpr auto kFetch = ServiceConfListFetch;
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
    return tavo::CheckPorts<ConfCheck>(pPortList, uProtocol, pResultList);
}

TLIBCDList *TAVOConfPortConflictResultListAllocAndCheck(const TLIBCSzList *pPortList,
                                                        uint16_t uProtocol) {
    return tavo::AllocAndCheck<ConfCheck>(pPortList, uProtocol);
}

int TAVOConfListConflictPorts(const TLIBCDList *pResultList, uint16_t uProtocol,
                              TLIBCSzList *pConflictPortList) {
    return tavo::ListConflictPorts<ConfCheck>(pResultList, uProtocol, pConflictPortList);
}

int TAVOConfVerifyConflictPort(const TLIBCDList *pResultList, uint16_t uPort, uint16_t uProtocol) {
    return tavo::VerifyConflictPort<ConfCheck>(pResultList, uPort, uProtocol);
}

int TAVOConfIsConflictPorts(const TLIBCSzList *pPortList, uint16_t uProtocol) {
    return tavo::IsAnyInConflict<ConfCheck>(pPortList, uProtocol);
}

int TAVOConfIsConflictPort(uint16_t uPort, uint16_t uProtocol) {
    return tavo::IsOneInConflict<ConfCheck>(uPort, uProtocol);
}

int TAVOConfIsConflictPortRange(uint16_t uFirst, uint16_t uLast, uint16_t uProtocol) {
    return tavo::IsRangeInConflict<ConfCheck>(uFirst, uLast, uProtocol);
}

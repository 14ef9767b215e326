// Adds one port range set to another.
//
// The source may also be a list that a caller built and wrapped: its entries count as ports to add,
// in any order, the end of a single port not filled in. The source is looked at only, so that its
// single ports keep the ends that they had.
#include "engine/port_range.h"
#include "support/failure.h"
#include "tavoserviceconf.h"

namespace {

int AddRanges(TAVO_PORT_RANGE *pDst, const TAVO_SERVICE_CONF_PORT *pRanges) {
    tavo::RangeAdder adder(pDst);
    for (const auto *pNode = pRanges; pNode != nullptr; pNode = pNode->pNext) {
        if (adder.Add(pNode->nPortStart, tavo::LastPort(*pNode)) < 0) {
            return -1;
        }
    }
    return 0;
}

int AddToItself(TAVO_PORT_RANGE *pSet) {
    tavo::PendingRanges ranges;
    for (const auto *pNode = pSet->pRanges; pNode != nullptr; pNode = pNode->pNext) {
        if (!ranges.Append(pNode->nPortStart, tavo::LastPort(*pNode))) {
            return -1;
        }
    }
    return ranges.AddTo(pSet);
}

}  // namespace

int TLIBPortRangeJoin(TAVO_PORT_RANGE *pDst, const TAVO_PORT_RANGE *pSrc) {
    if (pDst == nullptr || pSrc == nullptr) {
        return TAVO_FAIL(tavo::kErrorBadParameter, "Bad parameters.");
    }
    if ((pDst == pSrc ? AddToItself(pDst) : AddRanges(pDst, pSrc->pRanges)) < 0) {
        return TAVO_LOG("Failed to TLIBPortRangeAdd().");
    }
    return 0;
}

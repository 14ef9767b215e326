// Adds one port range set to another.
//
// The source may also be a list that a caller built and wrapped: its entries count as ports to add,
// in any order, the end of a single port not filled in. The source is looked at only, so that its
// single ports keep the ends that they had.
#include <cstdint>

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

// Whether the ranges begin in ascending order.
bool IsAscending(const TAVO_SERVICE_CONF_PORT *pNode) {
    while (pNode != nullptr && pNode->pNext != nullptr &&
           pNode->nPortStart <= pNode->pNext->nPortStart) {
        pNode = pNode->pNext;
    }
    return pNode == nullptr || pNode->pNext == nullptr;
}

// Whether every range begins where it ends or before, and ends before arithmetic wraps.
bool ArePlain(const TAVO_SERVICE_CONF_PORT *pNode) {
    while (pNode != nullptr && tavo::IsPlain(pNode->nPortStart, tavo::LastPort(*pNode))) {
        pNode = pNode->pNext;
    }
    return pNode == nullptr;
}

// Puts the ranges aside first, and in order where that makes no difference: plain ranges in any
// order are the same set, and a long list in random order then costs no walk for each of them.
int AddSnapshot(TAVO_PORT_RANGE *pDst, const TAVO_SERVICE_CONF_PORT *pRanges) {
    tavo::PendingRanges ranges(TAVO_HERE);
    for (const auto *pNode = pRanges; pNode != nullptr; pNode = pNode->pNext) {
        if (!ranges.Append(pNode->nPortStart, tavo::LastPort(*pNode))) {
            return -1;
        }
    }
    if (ArePlain(pRanges) && tavo::IsWellFormed(pDst->pRanges)) {
        ranges.Sort();
    }
    return ranges.AddTo(pDst);
}

int Join(TAVO_PORT_RANGE *pDst, const TAVO_PORT_RANGE *pSrc) {
    const bool direct = pDst != pSrc && IsAscending(pSrc->pRanges);
    return direct ? AddRanges(pDst, pSrc->pRanges) : AddSnapshot(pDst, pSrc->pRanges);
}

}  // namespace

int TLIBPortRangeJoin(TAVO_PORT_RANGE *pDst, const TAVO_PORT_RANGE *pSrc) {
    if (pDst == nullptr || pSrc == nullptr) {
        return TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "Bad parameters.");
    }
    if (Join(pDst, pSrc) < 0) {
        return TAVO_LOG("Failed to TLIBPortRangeAdd().");
    }
    return 0;
}

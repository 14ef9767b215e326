// Adds one port range set to another.
//
// The source may be a list that a caller built and wrapped: its entries are ports to add, in any
// order, and nPortEnd of single ports may be unset. The source is not changed; its single ports
// keep their nPortEnd.
#include <algorithm>

#include "engine/port_range.h"
#include "support/failure.h"
#include "tavoserviceconf.h"

namespace {

int AddDirectly(TAVO_PORT_RANGE *pDst, const TAVO_SERVICE_CONF_PORT *pRanges) {
    tavo::RangeAdder adder(pDst);
    for (const auto *pNode = pRanges; pNode != nullptr; pNode = pNode->pNext) {
        if (adder.Add(pNode->nPortStart, tavo::LastPort(*pNode)) < 0) {
            return -1;
        }
    }
    return 0;
}

// Whether the starts of the ranges are ascending.
bool IsAscending(const TAVO_SERVICE_CONF_PORT *pNode) {
    while (pNode != nullptr && pNode->pNext != nullptr &&
           pNode->nPortStart <= pNode->pNext->nPortStart) {
        pNode = pNode->pNext;
    }
    return pNode == nullptr || pNode->pNext == nullptr;
}

// Whether no range has its end before its start or ends at the highest value, where arithmetic
// wraps.
bool ArePlain(const TAVO_SERVICE_CONF_PORT *pNode) {
    while (pNode != nullptr && tavo::IsPlain(pNode->nPortStart, tavo::LastPort(*pNode))) {
        pNode = pNode->pNext;
    }
    return pNode == nullptr;
}

// Copies the ranges first, and sorts them if the order does not affect the result: plain ranges in
// any order give the same set. A long unsorted list then does not need a walk for each range.
int AddSnapshot(TAVO_PORT_RANGE *pDst, const TAVO_SERVICE_CONF_PORT *pRanges) {
    tavo::PendingRanges ranges;
    for (const auto *pNode = pRanges; pNode != nullptr; pNode = pNode->pNext) {
        if (!ranges.Append({pNode->nPortStart, tavo::LastPort(*pNode)})) {
            return TAVO_SET_ERROR(TLIBC_ERR_NO_MEMORY);
        }
    }
    if (ArePlain(pRanges) && tavo::IsWellFormed(pDst->pRanges)) {
        std::sort(ranges.begin(), ranges.end(),
                  [](const auto &a, const auto &b) { return a.start < b.start; });
    }
    return tavo::AddRanges(ranges, pDst);
}

}  // namespace

int TLIBPortRangeJoin(TAVO_PORT_RANGE *pDst, const TAVO_PORT_RANGE *pSrc) {
    if (pDst == nullptr || pSrc == nullptr) {
        return TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "Bad parameters.");
    }
    const bool direct = pDst != pSrc && IsAscending(pSrc->pRanges);
    const int nResult =
        direct ? AddDirectly(pDst, pSrc->pRanges) : AddSnapshot(pDst, pSrc->pRanges);
    if (nResult < 0) {
        return TAVO_LOG("Failed to TLIBPortRangeAdd().");
    }
    return 0;
}

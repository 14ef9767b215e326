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

int AddDirectly(TAVO_PORT_RANGE *set, const TAVO_SERVICE_CONF_PORT *source) {
    tavo::RangeAdder adder(set);
    for (const auto *node = source; node != nullptr; node = node->pNext) {
        if (adder.Add(node->nPortStart, tavo::LastPort(*node)) < 0) {
            return -1;
        }
    }
    return 0;
}

// Whether the starts of the ranges are ascending.
bool IsAscending(const TAVO_SERVICE_CONF_PORT *node) {
    while (node != nullptr && node->pNext != nullptr &&
           node->nPortStart <= node->pNext->nPortStart) {
        node = node->pNext;
    }
    return node == nullptr || node->pNext == nullptr;
}

// Whether no range has its end before its start or ends at the highest value, where arithmetic
// wraps.
bool ArePlain(const TAVO_SERVICE_CONF_PORT *node) {
    while (node != nullptr && tavo::IsPlain(node->nPortStart, tavo::LastPort(*node))) {
        node = node->pNext;
    }
    return node == nullptr;
}

// Copies the ranges first, and sorts them if the order does not affect the result: plain ranges in
// any order give the same set. A long unsorted list then does not need a walk for each range.
int AddSnapshot(TAVO_PORT_RANGE *set, const TAVO_SERVICE_CONF_PORT *source) {
    tavo::PendingRanges ranges;
    for (const auto *node = source; node != nullptr; node = node->pNext) {
        if (!ranges.Append({node->nPortStart, tavo::LastPort(*node)})) {
            return TAVO_SET_ERROR(TLIBC_ERR_NO_MEMORY);
        }
    }
    if (ArePlain(source) && tavo::IsWellFormed(set->pRanges)) {
        std::sort(ranges.begin(), ranges.end(),
                  [](const auto &a, const auto &b) { return a.start < b.start; });
    }
    return tavo::AddRanges(ranges, set);
}

}  // namespace

int TLIBPortRangeJoin(TAVO_PORT_RANGE *pDst, const TAVO_PORT_RANGE *pSrc) {
    if (pDst == nullptr || pSrc == nullptr) {
        return TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "Bad parameters.");
    }
    const bool direct = pDst != pSrc && IsAscending(pSrc->pRanges);
    const int result = direct ? AddDirectly(pDst, pSrc->pRanges) : AddSnapshot(pDst, pSrc->pRanges);
    if (result < 0) {
        return TAVO_LOG("Failed to TLIBPortRangeAdd().");
    }
    return 0;
}

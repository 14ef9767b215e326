// The ports that two port range sets have in common.
//
// Both sets are ascending, so one walk along both finds every piece: the node that ends first
// cannot overlap anything further, so its walk moves on. The pieces are stored until the end,
// because the destination may be one of the two sets.
#include <algorithm>

#include "engine/port_range.h"
#include "support/failure.h"
#include "tavoserviceconf.h"

namespace {

int FindPieces(const TAVO_SERVICE_CONF_PORT *a, const TAVO_SERVICE_CONF_PORT *b,
               tavo::PendingRanges &pieces) {
    for (; a != nullptr; a = a->pNext) {
        while (b != nullptr && b->nPortEnd < a->nPortStart) {
            b = b->pNext;
        }
        while (b != nullptr && b->nPortStart <= a->nPortEnd) {
            if (!pieces.Append(
                    {std::max(a->nPortStart, b->nPortStart), std::min(a->nPortEnd, b->nPortEnd)})) {
                return TAVO_FAIL(TLIBC_ERR_NO_MEMORY, "Failed to memory allocation.");
            }
            if (b->nPortEnd >= a->nPortEnd) {
                break;
            }
            b = b->pNext;
        }
    }
    return 0;
}

}  // namespace

int TLIBPortRangeOverlap(const TAVO_PORT_RANGE *pA, const TAVO_PORT_RANGE *pB,
                         TAVO_PORT_RANGE *pOut) {
    if (pA == nullptr || pB == nullptr || pOut == nullptr) {
        return TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "Bad parameters.");
    }
    tavo::PendingRanges pieces;
    if (FindPieces(pA->pRanges, pB->pRanges, pieces) < 0) {
        return -1;
    }
    if (tavo::AddRanges(pieces, pOut) < 0) {
        return TAVO_LOG("Failed to TLIBPortRangeAdd().");
    }
    return 0;
}

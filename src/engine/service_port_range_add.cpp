// Adds ranges to a port range set.
//
// A set is a list of nodes in ascending order, with a gap of at least one port between neighbours.
// A range is inserted as a new node before the first node that does not end below it, and absorbs
// the nodes that it overlaps or touches. Ports are 32-bit values: they are neither clamped nor
// sorted, and arithmetic wraps, so that a range that ends at the highest value touches one that
// starts at 0.
#include <algorithm>
#include <utility>

#include "engine/port_range.h"
#include "support/failure.h"
#include "support/owners.h"
#include "tavoserviceconf.h"

namespace tavo {

int RangeAdder::Add(uint32_t start, uint32_t end) {
    // Every node before the remembered link ends at least two below the last start, so also before
    // this start unless that is lower. Continuing from the link therefore gives the same result as
    // a walk from the head, even in an unsorted set.
    if (start < last_start_) {
        link_ = &set_->pRanges;
    }
    last_start_ = start;
    while (*link_ != nullptr && (*link_)->nPortEnd + 1 < start) {
        link_ = &(*link_)->pNext;
    }
    // Not calloc: it bypasses the heap's cache of recently freed blocks.
    OwnedPorts node(static_cast<TAVO_SERVICE_CONF_PORT *>(std::malloc(sizeof(*node))));
    if (node == nullptr) {
        return TAVO_FAIL(TLIBC_ERR_NO_MEMORY, "Out of memory");
    }
    TAVO_SERVICE_CONF_PORT *next = *link_;
    *node = {};
    node->nPortStart = next == nullptr ? start : std::min(next->nPortStart, start);
    node->nPortEnd = end;
    while (next != nullptr && next->nPortStart <= node->nPortEnd + 1) {
        node->nPortEnd = std::max(node->nPortEnd, next->nPortEnd);
        std::free(std::exchange(next, next->pNext));
        --set_->nCount;
    }
    node->nPortType =
        node->nPortStart == node->nPortEnd ? TAVO_PORT_TYPE_SINGLE : TAVO_PORT_TYPE_RANGE;
    node->pNext = next;
    *link_ = node.release();
    ++set_->nCount;
    return 0;
}

int AddRanges(const PendingRanges &ranges, TAVO_PORT_RANGE *set) {
    RangeAdder adder(set);
    const bool added = std::all_of(ranges.begin(), ranges.end(), [&](const RawRange &range) {
        return adder.Add(range.start, range.end) == 0;
    });
    return added ? 0 : -1;
}

}  // namespace tavo

TAVO_PORT_RANGE *TLIBPortRangeCreate(void) {
    auto set = tavo::NewRecord<tavo::OwnedRanges>();
    if (set == nullptr) {
        TAVO_SET_ERROR(TLIBC_ERR_NO_MEMORY);
    }
    return set.release();
}

void TLIBPortRangeDestory(TAVO_PORT_RANGE *pSet) {
    if (pSet != nullptr) {
        TAVOServiceConfPortsFree(pSet->pRanges);
        std::free(pSet);
    }
}

int TLIBPortRangeAdd(TAVO_PORT_RANGE *pSet, TAVO_SERVICE_CONF_PORT *pPort) {
    if (pSet == nullptr || pPort == nullptr) {
        return TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "Bad parameters.");
    }
    // Callers read the end of a single port from their own record.
    pPort->nPortEnd = tavo::LastPort(*pPort);
    return tavo::RangeAdder(pSet).Add(pPort->nPortStart, pPort->nPortEnd);
}

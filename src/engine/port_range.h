// Common parts of the operations on port range sets. A set is changed by adding one range at a
// time; operations that add many ranges pass them to one RangeAdder.
#ifndef TAVO_SRC_ENGINE_PORT_RANGE_H
#define TAVO_SRC_ENGINE_PORT_RANGE_H

#include <cstdint>

#include "support/growing_array.h"
#include "tavoserviceconf.h"

namespace tavo {

// The last port of a record. nPortEnd is ignored for single ports.
inline uint32_t LastPort(const TAVO_SERVICE_CONF_PORT &port) {
    return port.nPortType == TAVO_PORT_TYPE_SINGLE ? port.nPortStart : port.nPortEnd;
}

inline bool IsPlain(uint32_t start, uint32_t end) {
    return start <= end && end != UINT32_MAX;
}

// Whether the set looks as if plain ranges had been added to it with Add.
inline bool IsWellFormed(const TAVO_SERVICE_CONF_PORT *node) {
    while (node != nullptr && IsPlain(node->nPortStart, node->nPortEnd) &&
           (node->pNext == nullptr || node->nPortEnd + 1 < node->pNext->nPortStart)) {
        node = node->pNext;
    }
    return node == nullptr;
}

// Adds ranges to a set, which nothing else may change meanwhile. It remembers the position of the
// last range, so that ascending ranges need only one walk over the whole set.
class RangeAdder {
  public:
    explicit RangeAdder(TAVO_PORT_RANGE *set) : set_(set), link_(&set->pRanges) {}

    // Merges the range with those it overlaps or touches. When out of memory, reports the error and
    // leaves the set unchanged.
    int Add(uint32_t start, uint32_t end);

  private:
    TAVO_PORT_RANGE *set_;
    TAVO_SERVICE_CONF_PORT **link_;  // link to the node of the last range
    uint32_t last_start_ = 0;
};

// A range as a caller passed it: neither sorted nor limited to ports.
struct RawRange {
    uint32_t start;
    uint32_t end;
};

// Ranges stored to be added later. Adding frees nodes, and the set that is being walked may be the
// set that is added to.
using PendingRanges = GrowingArray<RawRange>;

// Adds the ranges in order. Stops at the first failure.
int AddRanges(const PendingRanges &ranges, TAVO_PORT_RANGE *set);

}  // namespace tavo

#endif

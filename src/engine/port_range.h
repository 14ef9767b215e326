// What the operations on port range sets share. A set is changed by adding to it, one range at a
// time; those that add many at once hand them to one RangeAdder.
#ifndef TAVO_SRC_ENGINE_PORT_RANGE_H
#define TAVO_SRC_ENGINE_PORT_RANGE_H

#include <cstdint>

#include "support/failure.h"
#include "support/growing_array.h"
#include "tavoserviceconf.h"

namespace tavo {

// The last port that a record stands for. The end of a single port is nobody's business.
inline uint32_t LastPort(const TAVO_SERVICE_CONF_PORT &port) {
    return port.nPortType == TAVO_PORT_TYPE_SINGLE ? port.nPortStart : port.nPortEnd;
}

inline bool IsPlain(uint32_t nStart, uint32_t nEnd) {
    return nStart <= nEnd && nEnd != UINT32_MAX;
}

// Whether a set is as Add makes it of plain ranges.
inline bool IsWellFormed(const TAVO_SERVICE_CONF_PORT *pNode) {
    while (pNode != nullptr && IsPlain(pNode->nPortStart, pNode->nPortEnd) &&
           (pNode->pNext == nullptr || pNode->nPortEnd + 1 < pNode->pNext->nPortStart)) {
        pNode = pNode->pNext;
    }
    return pNode == nullptr;
}

// Adds ranges to a set that nothing else changes meanwhile. It remembers where the last one went,
// so that ascending ranges, however many, cost one walk over the set.
class RangeAdder {
  public:
    explicit RangeAdder(TAVO_PORT_RANGE *pSet) : pSet_(pSet), ppLink_(&pSet->pRanges) {}

    // Ranges that this one overlaps or touches become one with it. Out of memory, it says so and
    // leaves the set as it was.
    int Add(uint32_t nStart, uint32_t nEnd);

  private:
    TAVO_PORT_RANGE *pSet_;
    TAVO_SERVICE_CONF_PORT **ppLink_;  // the link to the node that the last range went into
    uint32_t nLastStart_ = 0;
};

// Ranges put aside to be added later: adding frees nodes, and a set that is being walked may be the
// very one that is added to.
class PendingRanges {
  public:
    // Out of memory is recorded for the operation at `place`.
    explicit PendingRanges(const Place &place) : place_(place) {}

    // False when out of memory.
    bool Append(uint32_t nStart, uint32_t nEnd);

    // Puts them in ascending order.
    void Sort();

    // Stops at the first range that cannot be added.
    int AddTo(TAVO_PORT_RANGE *pSet) const;

  private:
    struct Range {
        uint32_t nStart;
        uint32_t nEnd;
    };

    Place place_;
    GrowingArray<Range> ranges_;
};

}  // namespace tavo

#endif

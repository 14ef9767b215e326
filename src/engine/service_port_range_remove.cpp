// Takes ports out of a port range set.
//
// Two old rules stay as they are, since callers have arranged themselves with them. A node whose
// last port is the first one to go, goes as a whole: 20:25 out of 10:20 leaves nothing. And the
// bounds are taken as given: a single port whose end is not filled in takes nothing out, but the
// ports in front of it may be left a second time, in a node of their own.
#include <cstdint>
#include <cstdlib>
#include <utility>

#include "support/failure.h"
#include "support/owners.h"
#include "tavoserviceconf.h"

namespace {

using Link = TAVO_SERVICE_CONF_PORT **;

// A node nStart..nEnd, its type not set.
tavo::OwnedPorts NewNode(uint32_t nStart, uint32_t nEnd) {
    auto node = tavo::NewRecord<tavo::OwnedPorts>();
    if (node == nullptr) {
        TAVO_FAIL(tavo::kErrorNoMemory, "Failed to memory allocation.");
        return node;
    }
    node->nPortStart = nStart;
    node->nPortEnd = nEnd;
    return node;
}

// Puts the ports of the node at `ppLink` that come before nStart into a node in front of it, and
// moves on to that node itself.
int KeepLeft(TAVO_PORT_RANGE *pSet, uint32_t nStart, Link &ppLink) {
    auto left = NewNode((*ppLink)->nPortStart, nStart - 1);
    if (left == nullptr) {
        return -1;
    }
    if (left->nPortStart != left->nPortEnd) {
        left->nPortType = TAVO_PORT_TYPE_RANGE;
    }
    left->pNext = *ppLink;
    *ppLink = left.release();
    ppLink = &(*ppLink)->pNext;
    ++pSet->nCount;
    return 0;
}

// Puts a node with the ports behind nEnd into the place of the node at `ppLink`, and moves on
// behind it. The new one has the type of a single port, whatever its ports: Join then takes it for
// its first port.
int KeepRight(uint32_t nEnd, Link &ppLink) {
    auto right = NewNode(nEnd + 1, (*ppLink)->nPortEnd);
    if (right == nullptr) {
        return -1;
    }
    right->pNext = (*ppLink)->pNext;
    std::free(std::exchange(*ppLink, right.release()));
    ppLink = &(*ppLink)->pNext;
    return 0;
}

}  // namespace

int TLIBPortRangeRemove(TAVO_PORT_RANGE *pSet, const TAVO_SERVICE_CONF_PORT *pPort) {
    if (pSet == nullptr || pPort == nullptr || pSet->pRanges == nullptr) {
        return TAVO_FAIL(tavo::kErrorBadParameter, "Bad parameters.");
    }
    const uint32_t nStart = pPort->nPortStart;
    const uint32_t nEnd = pPort->nPortEnd;
    Link ppLink = &pSet->pRanges;
    while (*ppLink != nullptr && (*ppLink)->nPortEnd < nStart) {
        ppLink = &(*ppLink)->pNext;
    }
    if (*ppLink == nullptr) {
        return TAVO_FAIL(tavo::kErrorBadParameter, "Can't find entry to remove in the list");
    }
    if ((*ppLink)->nPortStart < nStart && nStart < (*ppLink)->nPortEnd &&
        KeepLeft(pSet, nStart, ppLink) < 0) {
        return -1;
    }
    while (*ppLink != nullptr && (*ppLink)->nPortStart <= nEnd) {
        if (nEnd >= (*ppLink)->nPortEnd) {
            std::free(std::exchange(*ppLink, (*ppLink)->pNext));
            --pSet->nCount;
        } else if (KeepRight(nEnd, ppLink) < 0) {
            return -1;
        }
    }
    return 0;
}

// Removes ports from a port range set.
//
// Two old behaviours are kept because callers rely on them. A node whose last port is the first
// port of the removal is removed completely: removing 20:25 from 10:20 leaves nothing. And the
// bounds are used as given: a single port with an unset nPortEnd removes nothing, but the ports
// before it may be duplicated in a node of their own.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <utility>

#include "support/failure.h"
#include "support/owners.h"
#include "tavoserviceconf.h"

namespace {

using Link = TAVO_SERVICE_CONF_PORT **;

// Whether ports of the node before nStart remain.
bool HasLeft(const TAVO_SERVICE_CONF_PORT &node, uint32_t nStart) {
    return node.nPortStart < nStart && nStart < node.nPortEnd;
}

// The number of nodes that a removal of nStart..nEnd adds or replaces, starting at the first node
// that it overlaps.
std::size_t CountPieces(const TAVO_SERVICE_CONF_PORT *pNode, uint32_t nStart, uint32_t nEnd) {
    std::size_t nPieces = HasLeft(*pNode, nStart) ? 1 : 0;
    for (; pNode != nullptr && pNode->nPortStart <= nEnd; pNode = pNode->pNext) {
        nPieces += nEnd < pNode->nPortEnd ? 1 : 0;
    }
    return nPieces;
}

// Allocates all nodes before the set is changed, so that the set is unchanged when out of memory.
int MakeNodes(std::size_t nCount, tavo::OwnedPorts &nodes) {
    for (; nCount > 0; --nCount) {
        auto node = tavo::NewRecord<tavo::OwnedPorts>();
        if (node == nullptr) {
            return TAVO_FAIL(TLIBC_ERR_NO_MEMORY, "Failed to memory allocation.");
        }
        node->pNext = nodes.release();
        nodes = std::move(node);
    }
    return 0;
}

// Takes a node from the allocated ones and sets it to nStart..nEnd, but not its type.
TAVO_SERVICE_CONF_PORT *TakeNode(uint32_t nStart, uint32_t nEnd, tavo::OwnedPorts &nodes) {
    TAVO_SERVICE_CONF_PORT *pNode = nodes.release();
    nodes.reset(pNode->pNext);
    pNode->nPortStart = nStart;
    pNode->nPortEnd = nEnd;
    return pNode;
}

// Moves the ports of the node at `ppLink` below nStart into a new node before it, and advances to
// the old node.
void KeepLeft(TAVO_PORT_RANGE *pSet, uint32_t nStart, tavo::OwnedPorts &nodes, Link &ppLink) {
    TAVO_SERVICE_CONF_PORT *pLeft = TakeNode((*ppLink)->nPortStart, nStart - 1, nodes);
    if (pLeft->nPortStart != pLeft->nPortEnd) {
        pLeft->nPortType = TAVO_PORT_TYPE_RANGE;
    }
    pLeft->pNext = *ppLink;
    *ppLink = pLeft;
    ppLink = &pLeft->pNext;
    ++pSet->nCount;
}

// Replaces the node at `ppLink` with a node for the ports above nEnd, and advances past it. The new
// node has the type of a single port even if it is a range, which is kept; Join then adds only its
// first port.
void KeepRight(uint32_t nEnd, tavo::OwnedPorts &nodes, Link &ppLink) {
    TAVO_SERVICE_CONF_PORT *pRight = TakeNode(nEnd + 1, (*ppLink)->nPortEnd, nodes);
    pRight->pNext = (*ppLink)->pNext;
    std::free(std::exchange(*ppLink, pRight));
    ppLink = &pRight->pNext;
}

}  // namespace

int TLIBPortRangeRemove(TAVO_PORT_RANGE *pSet, const TAVO_SERVICE_CONF_PORT *pPort) {
    if (pSet == nullptr || pPort == nullptr || pSet->pRanges == nullptr) {
        return TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "Bad parameters.");
    }
    const uint32_t nStart = pPort->nPortStart;
    const uint32_t nEnd = pPort->nPortEnd;
    Link ppLink = &pSet->pRanges;
    while (*ppLink != nullptr && (*ppLink)->nPortEnd < nStart) {
        ppLink = &(*ppLink)->pNext;
    }
    if (*ppLink == nullptr) {
        return TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "Can't find entry to remove in the list");
    }
    tavo::OwnedPorts nodes;
    if (MakeNodes(CountPieces(*ppLink, nStart, nEnd), nodes) < 0) {
        return -1;
    }
    if (HasLeft(**ppLink, nStart)) {
        KeepLeft(pSet, nStart, nodes, ppLink);
    }
    while (*ppLink != nullptr && (*ppLink)->nPortStart <= nEnd) {
        if (nEnd >= (*ppLink)->nPortEnd) {
            std::free(std::exchange(*ppLink, (*ppLink)->pNext));
            --pSet->nCount;
        } else {
            KeepRight(nEnd, nodes, ppLink);
        }
    }
    return 0;
}

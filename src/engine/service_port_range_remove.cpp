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

// Whether ports of the node before `start` remain.
bool HasLeft(const TAVO_SERVICE_CONF_PORT &node, uint32_t start) {
    return node.nPortStart < start && start < node.nPortEnd;
}

// The number of nodes that a removal of `start`..`end` adds or replaces, starting at the first node
// that it overlaps.
std::size_t CountPieces(const TAVO_SERVICE_CONF_PORT *node, uint32_t start, uint32_t end) {
    std::size_t pieces = HasLeft(*node, start) ? 1 : 0;
    for (; node != nullptr && node->nPortStart <= end; node = node->pNext) {
        pieces += end < node->nPortEnd ? 1 : 0;
    }
    return pieces;
}

// Allocates all nodes before the set is changed, so that the set is unchanged when out of memory.
int MakeNodes(std::size_t count, tavo::OwnedPorts &nodes) {
    for (; count > 0; --count) {
        auto node = tavo::NewRecord<tavo::OwnedPorts>();
        if (node == nullptr) {
            return TAVO_FAIL(TLIBC_ERR_NO_MEMORY, "Failed to memory allocation.");
        }
        node->pNext = nodes.release();
        nodes = std::move(node);
    }
    return 0;
}

// Takes a node from the allocated ones and sets it to `start`..`end`, but not its type.
TAVO_SERVICE_CONF_PORT *TakeNode(uint32_t start, uint32_t end, tavo::OwnedPorts &nodes) {
    TAVO_SERVICE_CONF_PORT *node = nodes.release();
    nodes.reset(node->pNext);
    node->nPortStart = start;
    node->nPortEnd = end;
    return node;
}

// Moves the ports of the node at `link` below `start` into a new node before it, and advances to
// the old node.
void KeepLeft(TAVO_PORT_RANGE *set, uint32_t start, tavo::OwnedPorts &nodes, Link &link) {
    TAVO_SERVICE_CONF_PORT *left = TakeNode((*link)->nPortStart, start - 1, nodes);
    if (left->nPortStart != left->nPortEnd) {
        left->nPortType = TAVO_PORT_TYPE_RANGE;
    }
    left->pNext = *link;
    *link = left;
    link = &left->pNext;
    ++set->nCount;
}

// Replaces the node at `link` with a node for the ports above `end`, and advances past it. The new
// node has the type of a single port even if it is a range, which is kept; Join then adds only its
// first port.
void KeepRight(uint32_t end, tavo::OwnedPorts &nodes, Link &link) {
    TAVO_SERVICE_CONF_PORT *right = TakeNode(end + 1, (*link)->nPortEnd, nodes);
    right->pNext = (*link)->pNext;
    std::free(std::exchange(*link, right));
    link = &right->pNext;
}

}  // namespace

int TLIBPortRangeRemove(TAVO_PORT_RANGE *pSet, const TAVO_SERVICE_CONF_PORT *pPort) {
    if (pSet == nullptr || pPort == nullptr || pSet->pRanges == nullptr) {
        return TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "Bad parameters.");
    }
    const uint32_t start = pPort->nPortStart;
    const uint32_t end = pPort->nPortEnd;
    Link link = &pSet->pRanges;
    while (*link != nullptr && (*link)->nPortEnd < start) {
        link = &(*link)->pNext;
    }
    if (*link == nullptr) {
        return TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "Can't find entry to remove in the list");
    }
    tavo::OwnedPorts nodes;
    if (MakeNodes(CountPieces(*link, start, end), nodes) < 0) {
        return -1;
    }
    if (HasLeft(**link, start)) {
        KeepLeft(pSet, start, nodes, link);
    }
    while (*link != nullptr && (*link)->nPortStart <= end) {
        if (end >= (*link)->nPortEnd) {
            std::free(std::exchange(*link, (*link)->pNext));
            --pSet->nCount;
        } else {
            KeepRight(end, nodes, link);
        }
    }
    return 0;
}

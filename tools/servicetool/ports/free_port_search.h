// The nearest free ports among candidates, with few questions about who holds what.
//
// All that can be asked is whether at least one port of a set is held, and each question takes a
// look at every socket there is. So many ports are asked for at once, fewer where they are held.
#ifndef TAVO_SERVICETOOL_PORTS_FREE_PORT_SEARCH_H
#define TAVO_SERVICETOOL_PORTS_FREE_PORT_SEARCH_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>

#include "ports/port_candidates.h"
#include "ports/port_ranges.h"

namespace tavo::tool {

// Whether at least one port of a set is held; none where that cannot be told.
using HeldQuestion = std::function<std::optional<bool>(const PortRanges &set)>;

// Each gives none as soon as a question has no answer.

// The nearest `count` free ports, the nearest first, or as many as there are.
std::optional<PortRanges> FindFreePorts(const PortCandidates &candidates, std::size_t count,
                                        const HeldQuestion &any_held);

// The block of `size` free ports whose first port is the nearest, or no range.
std::optional<PortRanges> FindFreeBlock(PortCandidates candidates, std::uint32_t size,
                                        const HeldQuestion &any_held);

}  // namespace tavo::tool

#endif

#include "ports/port_ranges.h"

#include <algorithm>

namespace tavo::tool {

PortRanges Merged(PortRanges ranges) {
    std::sort(ranges.begin(), ranges.end());
    PortRanges set;
    for (const PortRange &range : ranges) {
        if (set.empty() || range.first > set.back().last + 1) {
            set.push_back(range);
        } else {
            set.back().last = std::max(set.back().last, range.last);
        }
    }
    return set;
}

PortRanges Overlap(const PortRanges &set, const PortRange &range) {
    PortRanges overlap;
    auto next =
        std::lower_bound(set.begin(), set.end(), range.first,
                         [](const PortRange &one, std::uint32_t port) { return one.last < port; });
    for (; next != set.end() && next->first <= range.last; ++next) {
        overlap.push_back({std::max(next->first, range.first), std::min(next->last, range.last)});
    }
    return overlap;
}

PortRanges Without(const PortRanges &set, const PortRanges &taken) {
    PortRanges left;
    for (const PortRange &range : set) {
        std::uint32_t next = range.first;
        for (const PortRange &hole : Overlap(taken, range)) {
            if (next < hole.first) {
                left.push_back({next, hole.first - 1});
            }
            next = hole.last + 1;
        }
        if (next <= range.last) {
            left.push_back({next, range.last});
        }
    }
    return left;
}

std::size_t PortCount(const PortRanges &set) {
    std::size_t count = 0;
    for (const PortRange &range : set) {
        count += range.last - range.first + 1;
    }
    return count;
}

std::string PortsText(const PortRange &range) {
    const std::string first = std::to_string(range.first);
    return range.first == range.last ? first : first + ':' + std::to_string(range.last);
}

std::string PortsText(const PortRanges &ranges) {
    std::string text;
    for (const PortRange &range : ranges) {
        text += (text.empty() ? "" : ",") + PortsText(range);
    }
    return text;
}

}  // namespace tavo::tool

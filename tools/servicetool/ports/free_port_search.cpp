#include "ports/free_port_search.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace tavo::tool {
namespace {

using Ports = std::vector<std::uint32_t>;

PortRanges SetOf(Ports::const_iterator begin, Ports::const_iterator end) {
    PortRanges ranges;
    for (; begin != end; ++begin) {
        ranges.push_back({*begin, *begin});
    }
    return Merged(std::move(ranges));
}

enum class End { kLower, kUpper };

// The `count` ports of a block at one of its ends.
PortRange PartAt(End end, const PortRange &block, std::uint32_t count) {
    return end == End::kLower ? PortRange{block.first, block.first + count - 1}
                              : PortRange{block.last - count + 1, block.last};
}

// The held port next to one end of a block that holds one. Where many are held it is close to the
// end, so the search starts there, with steps that grow.
std::optional<std::uint32_t> HeldPortNextTo(End end, const PortRange &block,
                                            const HeldQuestion &any_held) {
    std::uint32_t free = 0;  // that many ports at the end are
    std::uint32_t some_held = block.last - block.first + 1;
    while (some_held - free > 1) {
        const std::uint32_t count = std::min(2 * free + 1, free + (some_held - free) / 2);
        const std::optional<bool> held = any_held({PartAt(end, block, count)});
        if (!held) {
            return {};
        }
        (*held ? some_held : free) = count;
    }
    const PortRange part = PartAt(end, block, some_held);
    return end == End::kLower ? part.last : part.first;
}

}  // namespace

std::optional<PortRanges> FindFreePorts(const PortCandidates &candidates, std::size_t count,
                                        const HeldQuestion &any_held) {
    const Ports ports = candidates.NearestPorts(kHighestPort + 1);
    PortRanges found;
    auto next = ports.begin();
    for (std::size_t wanted = count; found.size() < count && next != ports.end();) {
        const std::size_t batch =
            std::min({wanted, count - found.size(), static_cast<std::size_t>(ports.end() - next)});
        const auto behind = next + static_cast<std::ptrdiff_t>(batch);
        const std::optional<bool> held = any_held(SetOf(next, behind));
        if (!held) {
            return {};
        }
        if (*held && batch > 1) {
            wanted = batch / 2;
            continue;
        }
        for (; next != behind; ++next) {
            if (!*held) {
                found.push_back({*next, *next});
            }
        }
        wanted = *held ? 1 : 2 * batch;
    }
    return found;
}

// One held port spoils every block around it. The one that is left out is the one that spoils most
// of those that come next: they lie further away on the same side.
std::optional<PortRanges> FindFreeBlock(PortCandidates candidates, std::uint32_t size,
                                        const HeldQuestion &any_held) {
    while (const std::optional<PortRange> block = candidates.NearestBlock(size)) {
        const std::optional<bool> held = any_held({*block});
        if (!held) {
            return {};
        }
        if (!*held) {
            return PortRanges{*block};
        }
        const End far_end = block->first < candidates.Near() ? End::kLower : End::kUpper;
        const std::optional<std::uint32_t> port = HeldPortNextTo(far_end, *block, any_held);
        if (!port) {
            return {};
        }
        candidates.Remove({{*port, *port}});
    }
    return PortRanges{};
}

}  // namespace tavo::tool

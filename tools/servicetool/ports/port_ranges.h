// Ports as ranges: sets of them as ascending ranges that neither overlap nor touch.
#ifndef TAVO_SERVICETOOL_PORTS_PORT_RANGES_H
#define TAVO_SERVICETOOL_PORTS_PORT_RANGES_H

#include <compare>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tavo::tool {

inline constexpr std::uint32_t kHighestPort = 65535;

struct PortRange {
    std::uint32_t first;
    std::uint32_t last;  // at least `first`
    auto operator<=>(const PortRange &) const = default;
};

using PortRanges = std::vector<PortRange>;

// The set of the ports of any ranges.
PortRanges Merged(PortRanges ranges);

// The ports of a set that lie in `range`.
PortRanges Overlap(const PortRanges &set, const PortRange &range);

// The ports of a set that are not in `taken`, a set.
PortRanges Without(const PortRanges &set, const PortRanges &taken);

// How many ports there are in a set.
std::size_t PortCount(const PortRanges &set);

// "80", "1000:2000".
std::string PortsText(const PortRange &range);

// The same of several, with commas between.
std::string PortsText(const PortRanges &ranges);

}  // namespace tavo::tool

#endif

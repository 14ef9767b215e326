// Ports that may be free, the nearest first.
#ifndef TAVO_SERVICETOOL_PORTS_PORT_CANDIDATES_H
#define TAVO_SERVICETOOL_PORTS_PORT_CANDIDATES_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "ports/port_ranges.h"

namespace tavo::tool {

// Of two ports at the same distance from `near`, the lower one is the nearer.
class PortCandidates {
  public:
    PortCandidates(std::uint32_t near, const PortRanges &ports);

    std::uint32_t Near() const { return near_; }

    void Remove(const PortRanges &ports);

    // The nearest `count` ports, or as many as there are.
    std::vector<std::uint32_t> NearestPorts(std::size_t count) const;

    // The block of `size` ports in a row whose first port is the nearest.
    std::optional<PortRange> NearestBlock(std::uint32_t size) const;

  private:
    template <typename IsFit>
    std::vector<std::uint32_t> Nearest(std::size_t count, IsFit is_fit) const;

    std::uint32_t near_;
    std::vector<bool> left_ = std::vector<bool>(kHighestPort + 1, false);
};

}  // namespace tavo::tool

#endif

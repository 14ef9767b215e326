#include "ports/port_candidates.h"

#include <algorithm>

namespace tavo::tool {
namespace {

void Mark(const PortRanges &ports, bool mark, std::vector<bool> &marks) {
    for (const PortRange &range : ports) {
        std::fill(marks.begin() + range.first, marks.begin() + range.last + 1, mark);
    }
}

}  // namespace

PortCandidates::PortCandidates(std::uint32_t near, const PortRanges &ports) : near_(near) {
    Mark(ports, true, left_);
}

void PortCandidates::Remove(const PortRanges &ports) {
    Mark(ports, false, left_);
}

template <typename IsFit>
std::vector<std::uint32_t> PortCandidates::Nearest(std::size_t count, IsFit is_fit) const {
    std::vector<std::uint32_t> ports;
    const auto look_at = [&](std::uint32_t port) {
        if (ports.size() < count && is_fit(port)) {
            ports.push_back(port);
        }
    };
    for (std::uint32_t distance = 0; distance <= kHighestPort && ports.size() < count; ++distance) {
        if (distance <= near_) {
            look_at(near_ - distance);
        }
        if (distance != 0 && near_ + distance <= kHighestPort) {
            look_at(near_ + distance);
        }
    }
    return ports;
}

std::vector<std::uint32_t> PortCandidates::NearestPorts(std::size_t count) const {
    return Nearest(count, [this](std::uint32_t port) { return left_[port]; });
}

std::optional<PortRange> PortCandidates::NearestBlock(std::uint32_t size) const {
    std::vector<std::uint32_t> row_from(kHighestPort + 2, 0);  // how many in a row from each port
    for (std::uint32_t port = kHighestPort + 1; port-- > 0;) {
        row_from[port] = left_[port] ? row_from[port + 1] + 1 : 0;
    }
    const auto start =
        Nearest(1, [&row_from, size](std::uint32_t port) { return row_from[port] >= size; });
    if (start.empty()) {
        return {};
    }
    return PortRange{start.front(), start.front() + size - 1};
}

}  // namespace tavo::tool

#include "ports/free_ports.h"

#include <sstream>
#include <vector>

#include "input/input_file.h"

namespace tavo::tool {
namespace {

// For each port, the number of consecutive ports of the set that start with it.
std::vector<std::size_t> RowsFrom(const PortRanges &set) {
    std::vector<std::size_t> rows(kHighestPort + 1, 0);
    for (const PortRange &range : set) {
        for (std::uint32_t port = range.first; port <= range.last; ++port) {
            rows[port] = range.last - port + 1;
        }
    }
    return rows;
}

// The nearest ports that start at least `row` consecutive ports of the set.
std::vector<std::uint32_t> Nearest(const PortRanges &set, std::size_t count, std::size_t row,
                                   std::uint32_t near) {
    const std::vector<std::size_t> rows = RowsFrom(set);
    std::vector<std::uint32_t> ports;
    const auto look_at = [&](std::uint32_t port) {
        if (ports.size() < count && rows[port] >= row) {
            ports.push_back(port);
        }
    };
    for (std::uint32_t distance = 0; distance <= kHighestPort && ports.size() < count; ++distance) {
        if (distance <= near) {
            look_at(near - distance);
        }
        if (distance != 0 && near + distance <= kHighestPort) {
            look_at(near + distance);
        }
    }
    return ports;
}

}  // namespace

PortRanges NearestPorts(const PortRanges &set, std::size_t count, std::uint32_t near) {
    PortRanges ports;
    for (const std::uint32_t port : Nearest(set, count, 1, near)) {
        ports.push_back({port, port});
    }
    return ports;
}

PortRanges NearestBlock(const PortRanges &set, std::size_t size, std::uint32_t near) {
    PortRanges block;
    for (const std::uint32_t first : Nearest(set, 1, size, near)) {
        block.push_back({first, first + static_cast<std::uint32_t>(size) - 1});
    }
    return block;
}

std::string ReadEphemeralPorts(const std::string &path, PortRange &range) {
    const FileContents contents = ReadRegularFile(path);
    if (!contents.problem.empty()) {
        return contents.problem;
    }
    std::istringstream text(contents.text);
    PortRange read{};
    if (!(text >> read.first >> read.last) || read.first > read.last || read.last > kHighestPort) {
        return "holds no range of ports";
    }
    range = read;
    return {};
}

}  // namespace tavo::tool

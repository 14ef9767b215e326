#include "ports/port_query.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <utility>

#include "input/input_file.h"
#include "output/text.h"

namespace tavo::tool {
namespace {

// A suggested correction for an invalid item of a port list; empty if there is none.
std::string PortFix(std::string_view item) {
    const std::size_t dash = item.find_first_of("-.");
    const std::size_t last_dash = item.find_last_of("-.");
    if (dash != std::string_view::npos) {
        const std::string_view start = TrimBlanks(item.substr(0, dash));
        const std::string_view end = TrimBlanks(item.substr(last_dash + 1));
        if (IsNumber(start) && IsNumber(end) && item.size() < 20) {
            return "write " + std::string(start) + ':' + std::string(end);
        }
    }
    if (item.find_first_not_of("0123456789:; \t") == std::string_view::npos) {
        return "separate ports by commas, and put no blanks into a range";
    }
    return {};
}

// Why `number`, alone or on one side of the range `item`, is not a port that can be asked for.
std::optional<PortProblem> WhyNoPort(std::string_view number, std::string_view item) {
    constexpr std::size_t kMostDigits = 5;
    constexpr char kNamePorts[] = "name ports from 1 to 65535";
    if (!IsNumber(number)) {
        return WhyNoNumber(number, item);
    }
    const std::string_view digits = Significant(number);
    if (digits.size() > kMostDigits || PortOf(digits) > kHighestPort) {
        return PortProblem{number, "port " + Shortened(number) + " is above 65535", kNamePorts};
    }
    if (PortOf(digits) == 0) {
        return PortProblem{number, "no service can be reached at port 0", kNamePorts};
    }
    return {};
}

std::optional<PortProblem> ReadItem(std::string_view text, PortRanges &items) {
    if (text.empty()) {
        return PortProblem{text, "a port is missing next to a comma", "remove the comma"};
    }
    const PortItem item = SplitItem(text);
    std::optional<PortProblem> problem = WhyNoPort(item.start, text);
    if (!problem && item.is_range) {
        problem = WhyNoPort(item.end, text);
    }
    items.push_back(item.Range());
    return problem;
}

}  // namespace

// ---- Ranges ----

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

bool OverlapsWith(const PortRanges &set, const PortRange &range) {
    const auto next = std::ranges::lower_bound(set, range.first, {}, &PortRange::last);
    return next != set.end() && next->first <= range.last;
}

PortRanges Overlap(const PortRanges &set, const PortRange &range) {
    PortRanges overlap;
    auto next = std::ranges::lower_bound(set, range.first, {}, &PortRange::last);
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

// ---- Free ports to suggest ----

PortRanges NearestBlocks(const PortRanges &set, std::size_t count, std::size_t size,
                         std::uint32_t near) {
    PortRanges blocks;
    for (const PortRange &range : set) {
        for (std::uint32_t first = range.first; first + size <= range.last + 1; ++first) {
            blocks.push_back({first, first + static_cast<std::uint32_t>(size) - 1});
        }
    }
    std::ranges::stable_sort(blocks, {}, [near](const PortRange &block) {
        return std::max(block.first, near) - std::min(block.first, near);
    });
    blocks.resize(std::min(count, blocks.size()));
    return blocks;
}

std::string ReadEphemeralPorts(const std::string &path, PortRange &range) {
    const FileContents contents = ReadRegularFile(path);
    if (!contents.problem.empty()) {
        return contents.problem;
    }
    std::istringstream text(contents.text);
    PortRange read{};
    if (!(text >> read.first >> read.last) || read.first > read.last || read.last > kHighestPort) {
        return "does not contain a range of ports";
    }
    range = read;
    return {};
}

// ---- Protocols ----

std::vector<std::string_view> ProtocolNames(std::uint32_t flags) {
    std::vector<std::string_view> names;
    for (const TAVO_PROTO_TYPE_MAPPING &row : gProtoTypeMapping) {
        if ((flags & static_cast<std::uint32_t>(row.nProto)) != 0) {
            names.emplace_back(row.szName);
        }
    }
    return names;
}

std::string ProtocolsText(std::uint32_t flags) {
    std::string text;
    for (const TAVO_PROTO_TYPE_MAPPING &row : gProtoTypeMapping) {
        if ((flags & static_cast<std::uint32_t>(row.nProto)) != 0) {
            text.append(text.empty() ? "" : ",").append(row.szName);
        }
    }
    return text;
}

int ProtocolFlags(std::string_view words) {
    std::string copy(words);
    return copy.find('\0') == std::string::npos ? TLIBServiceConfProtocolParse(copy.data()) : -1;
}

// ---- Pieces of port lists ----

std::uint32_t PortOf(std::string_view text) {
    return static_cast<std::uint32_t>(std::strtol(std::string(text).c_str(), nullptr, 10));
}

bool IsNumber(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

std::string_view Significant(std::string_view digits) {
    return digits.substr(std::min(digits.find_first_not_of('0'), digits.size() - 1));
}

PortItem SplitItem(std::string_view text) {
    const std::size_t colon = text.find(':');
    return colon == std::string_view::npos
               ? PortItem{text, text, false}
               : PortItem{text.substr(0, colon), text.substr(colon + 1), true};
}

PortRange PortItem::Range() const {
    const auto [first, last] = std::minmax({PortOf(start), PortOf(end)});
    return {first, last};
}

PortProblem WhyNoNumber(std::string_view number, std::string_view item) {
    if (number.empty()) {
        return {number, "a range is written START:END, and one of them is missing"};
    }
    const std::size_t colon = number.find(':');
    if (colon != std::string_view::npos) {
        return {number.substr(colon), "a range has one colon only: START:END"};
    }
    return {number, Quoted(number) + " is not a port number", PortFix(item)};
}

// ---- Questions ----

std::string QueryText(const PortQuery &query) {
    return PortsText(query.items) + '/' + ProtocolsText(query.protocols);
}

std::optional<PortProblem> ReadPortQuery(std::string_view text, PortQuery &query) {
    const std::size_t slash = text.find('/');
    const std::string_view ports = TrimBlanks(text.substr(0, slash));
    if (ports.empty()) {
        return PortProblem{ports, "no port is named", "name a port, as in 80/tcp"};
    }
    PortQuery read = {{}, TAVO_PROTO_BOTH};
    std::optional<PortProblem> problem;
    ForEachPiece(ports, [&](std::string_view item) {
        if (!problem) {
            problem = ReadItem(item, read.items);
        }
    });
    if (!problem && slash != std::string_view::npos) {
        problem = ReadProtocols(text.substr(slash + 1), read.protocols);
    }
    if (!problem) {
        query = std::move(read);
    }
    return problem;
}

std::optional<PortProblem> ReadProtocols(std::string_view text, std::uint32_t &protocols) {
    std::uint32_t read = 0;
    std::optional<PortProblem> problem;
    ForEachPiece(text, [&](std::string_view word) {
        const int flags = word.empty() ? -1 : ProtocolFlags(word);
        if (flags >= 0) {
            read |= static_cast<std::uint32_t>(flags);
        } else if (!problem) {
            problem = {word,
                       word.empty() ? "a protocol is missing" : Quoted(word) + " is not a protocol",
                       kNameProtocols};
        }
    });
    if (!problem) {
        protocols = read;
    }
    return problem;
}

}  // namespace tavo::tool

#include "ports/port_query.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <utility>

#include "input/input_file.h"
#include "output/text.h"

namespace tavo::tool {
namespace {

constexpr char kNameProtocols[] = "write tcp, udp or tcp,udp";

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

// Parses one text and stops at the first error.
class QueryReader {
  public:
    // An error is stored in `problem`.
    QueryReader(std::string_view text, QueryProblem &problem) : text_(text), problem_(problem) {}

    bool ReadQuery(PortQuery &query) {
        const std::size_t slash = text_.find('/');
        const std::string_view ports = TrimBlanks(text_.substr(0, slash));
        if (ports.empty()) {
            return Fail({ports, "no port is named", "name a port, as in 80/tcp"});
        }
        bool good = true;
        ForEachPiece(ports, [&](std::string_view item) {
            PortRange range{};
            good = good && ReadItem(item, range);
            query.items.push_back(range);
        });
        if (slash == std::string_view::npos) {
            query.protocols = TAVO_PROTO_BOTH;
            return good;
        }
        return good && ReadProtocolWords(text_.substr(slash + 1), query.protocols);
    }

    bool ReadProtocolWords(std::string_view words, std::uint32_t &protocols) {
        bool good = true;
        ForEachPiece(words, [&](std::string_view word) {
            good = good && ReadProtocolWord(word, protocols);
        });
        return good;
    }

  private:
    bool Fail(PieceProblem problem) {
        problem_ = {static_cast<std::size_t>(problem.spot.data() - text_.data()) + 1,
                    std::move(problem.message), std::move(problem.fix)};
        return false;
    }

    bool ReadItem(std::string_view item, PortRange &range) {
        if (item.empty()) {
            return Fail({item, "a port is missing next to a comma", "remove the comma"});
        }
        const std::size_t colon = item.find(':');
        const bool single = colon == std::string_view::npos;
        std::uint32_t start = 0;
        std::uint32_t end = 0;
        const bool good = ReadPort(item.substr(0, colon), item, start) &&
                          ReadPort(single ? item : item.substr(colon + 1), item, end);
        range = {std::min(start, end), std::max(start, end)};
        return good;
    }

    // One port number, alone or on one side of the range `item`.
    bool ReadPort(std::string_view number, std::string_view item, std::uint32_t &port) {
        constexpr std::size_t kMostDigits = 5;
        constexpr char kNamePorts[] = "name ports from 1 to 65535";
        if (!IsNumber(number)) {
            return Fail(WhyNoNumber(number, item));
        }
        const std::string_view digits = Significant(number);
        port = digits.size() > kMostDigits ? kHighestPort + 1 : PortOf(digits);
        if (port > kHighestPort) {
            return Fail({number, "port " + Shortened(number) + " is above 65535", kNamePorts});
        }
        return port != 0 || Fail({number, "no service can be reached at port 0", kNamePorts});
    }

    bool ReadProtocolWord(std::string_view word, std::uint32_t &protocols) {
        if (word.empty()) {
            return Fail({word, "a protocol is missing", kNameProtocols});
        }
        std::string copy(word);
        const bool whole = copy.find('\0') == std::string::npos;
        const int flags = TLIBServiceConfProtocolParse(copy.data());
        if (flags < 0 || !whole) {
            return Fail({word, Quoted(word) + " is not a protocol", kNameProtocols});
        }
        protocols |= static_cast<std::uint32_t>(flags);
        return true;
    }

    std::string_view text_;
    QueryProblem &problem_;
};

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

// ---- Free ports to suggest ----

PortRanges NearestBlocks(const PortRanges &set, std::size_t count, std::size_t size,
                         std::uint32_t near) {
    // For each port, the number of consecutive ports of the set that start with it.
    std::vector<std::size_t> rows(kHighestPort + 1, 0);
    for (const PortRange &range : set) {
        for (std::uint32_t port = range.first; port <= range.last; ++port) {
            rows[port] = range.last - port + 1;
        }
    }
    PortRanges blocks;
    const auto look_at = [&](std::uint32_t port) {
        if (blocks.size() < count && rows[port] >= size) {
            blocks.push_back({port, port + static_cast<std::uint32_t>(size) - 1});
        }
    };
    for (std::uint32_t distance = 0; distance <= kHighestPort && blocks.size() < count;
         ++distance) {
        if (distance <= near) {
            look_at(near - distance);
        }
        if (distance != 0 && near + distance <= kHighestPort) {
            look_at(near + distance);
        }
    }
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

PieceProblem WhyNoNumber(std::string_view number, std::string_view item) {
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

bool ReadPortQuery(std::string_view text, PortQuery &query, QueryProblem &problem) {
    PortQuery read;
    const bool good = QueryReader(text, problem).ReadQuery(read);
    if (good) {
        query = std::move(read);
    }
    return good;
}

bool ReadProtocols(std::string_view text, std::uint32_t &protocols, QueryProblem &problem) {
    std::uint32_t read = 0;
    const bool good = QueryReader(text, problem).ReadProtocolWords(text, read);
    if (good) {
        protocols = read;
    }
    return good;
}

}  // namespace tavo::tool

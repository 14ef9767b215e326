// Checks port lists: reports invalid items, and doubtful ones in a list that the library accepts.
//
// The list is split as by the library: at the first slash, then at each comma, an item at its first
// colon. Functions of the library check whether a piece is a port or a protocol.
#include "lint/lint_rules.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <utility>

#include "output/text.h"
#include "ports/port_query.h"
#include "tavoserviceconf.h"

namespace tavo::tool {
namespace {

bool IsPort(std::string_view text) {
    return TAVOServiceConfPortsCheck(std::string(text).c_str()) == 1;
}

// The checks of one port list.
class PortList {
  public:
    PortList(const ConfigLine &line, Findings &findings) : line_(line), findings_(findings) {}

    void Check();

  private:
    void Add(const LintRule &rule, std::string_view spot, std::string message,
             std::string fix = {}) {
        findings_.Add(rule, line_, spot, std::move(message), std::move(fix));
    }

    void CheckItem(std::string_view item);
    void CheckSinglePort(std::string_view port);
    void CheckRange(std::string_view range, std::size_t colon);
    bool CheckNumber(std::string_view number, std::string_view item);
    void CheckProtocols(std::string_view protocols);

    const ConfigLine &line_;
    Findings &findings_;
    PortSet named_;  // by the items checked so far
};

void PortList::Check() {
    const std::size_t slash = line_.value.find('/');
    const std::string_view ports = TrimBlanks(line_.value.substr(0, slash));
    if (ports.empty()) {
        Add(Rule("empty-port-item"), ports, "the port list is empty",
            "name a port, as in 80/tcp, or remove the key");
    } else {
        ForEachPiece(ports, [this](std::string_view item) { CheckItem(item); });
    }
    if (slash != std::string_view::npos) {
        CheckProtocols(TrimBlanks(line_.value.substr(slash + 1)));
    }
}

void PortList::CheckItem(std::string_view item) {
    const std::size_t colon = item.find(':');
    if (item.empty()) {
        Add(Rule("empty-port-item"), item, "a port is missing next to a comma", "remove the comma");
    } else if (colon == std::string_view::npos) {
        CheckSinglePort(item);
    } else {
        CheckRange(item, colon);
    }
}

void PortList::CheckSinglePort(std::string_view port) {
    if (!CheckNumber(port, port)) {
        return;
    }
    const std::uint32_t number = PortOf(port);
    if (number == 0) {
        Add(Rule("port-zero"), port, "no service can be reached at port 0");
    }
    if (named_.FirstIn({number, number})) {
        Add(Rule("duplicate-port"), port, "port " + std::to_string(number) + " is named twice",
            "remove it");
    }
    named_.Add({number, number});
}

void PortList::CheckRange(std::string_view range, std::size_t colon) {
    const std::string_view start = range.substr(0, colon);
    const std::string_view end = range.substr(colon + 1);
    const bool start_ok = CheckNumber(start, range);
    if (!CheckNumber(end, range) || !start_ok) {
        return;
    }
    const auto [first, last] = std::minmax({PortOf(start), PortOf(end)});
    const std::string forwards = std::to_string(first) + ':' + std::to_string(last);
    if (PortOf(start) > PortOf(end)) {
        Add(Rule("reversed-range"), range, "the range starts above its end", "write " + forwards);
    }
    if (named_.FirstIn({first, last})) {
        Add(Rule("duplicate-port"), range, "ports of the range " + forwards + " are named twice");
    }
    named_.Add({first, last});
}

// One port number, alone or on one side of the range `item`.
bool PortList::CheckNumber(std::string_view number, std::string_view item) {
    if (IsPort(number)) {
        const std::string read = std::to_string(PortOf(number));
        if (Significant(number) != read) {
            Add(Rule("port-wrap"), number, Quoted(number) + " is read as port " + read,
                "write " + read);
        }
        return true;
    }
    if (IsNumber(number)) {
        Add(Rule("port-range"), number, "port " + Shortened(number) + " is above 65535");
    } else {
        PieceProblem problem = WhyNoNumber(number, item);
        Add(Rule("port-syntax"), problem.spot, std::move(problem.message), std::move(problem.fix));
    }
    return false;
}

// No words after the slash mean both protocols; an empty word among others is an error.
void PortList::CheckProtocols(std::string_view protocols) {
    if (protocols.empty()) {
        return;
    }
    ForEachPiece(protocols, [this](std::string_view word) {
        std::string copy(word);
        if (copy.empty() || TLIBServiceConfProtocolParse(copy.data()) < 0) {
            Add(Rule("protocol-word"), word,
                word.empty() ? "a protocol is missing next to a comma"
                             : Quoted(word) + " is not a protocol",
                "write tcp, udp or tcp,udp");
        }
    });
}

// ---- Ports of several services ----

struct Item {
    std::string_view text;
    PortRange range;
};

std::vector<Item> ItemsOf(std::string_view ports) {
    std::vector<Item> items;
    ForEachPiece(ports, [&items](std::string_view item) {
        const std::size_t colon = item.find(':');
        const std::uint32_t start = PortOf(item.substr(0, colon));
        const std::uint32_t end =
            colon == std::string_view::npos ? start : PortOf(item.substr(colon + 1));
        items.push_back({item, {std::min(start, end), std::max(start, end)}});
    });
    return items;
}

}  // namespace

void CheckPorts(const ConfigLine &line, Findings &findings) {
    PortList(line, findings).Check();
}

std::optional<std::uint32_t> PortSet::FirstIn(const PortRange &range) const {
    const auto next = ranges_.upper_bound(range.first);
    if (next != ranges_.begin() && std::prev(next)->second >= range.first) {
        return range.first;
    }
    return next != ranges_.end() && next->first <= range.last ? std::optional(next->first)
                                                              : std::nullopt;
}

PortRanges PortSet::Add(const PortRange &range) {
    PortRanges added;
    PortRange whole = range;
    std::uint32_t rest = range.first;
    auto next = ranges_.upper_bound(range.first);
    if (next != ranges_.begin() && std::prev(next)->second >= range.first) {
        --next;
    }
    for (; next != ranges_.end() && next->first <= range.last; next = ranges_.erase(next)) {
        if (rest < next->first) {
            added.push_back({rest, next->first - 1});
        }
        rest = next->second + 1;
        whole = {std::min(whole.first, next->first), std::max(whole.last, next->second)};
    }
    if (rest <= range.last) {
        added.push_back({rest, range.last});
    }
    ranges_.emplace(whole.first, whole.last);
    return added;
}

// Checks all items before adding any: CheckPorts reports ports that are twice in one list.
void DeclaredPorts::Add(std::string_view service, const ConfigLine &line, Findings &findings) {
    const std::size_t slash = line.value.find('/');
    std::string words(slash == std::string_view::npos ? ""
                                                      : TrimBlanks(line.value.substr(slash + 1)));
    const int flags = TLIBServiceConfProtocolParse(words.data());
    const std::vector<Item> items = ItemsOf(TrimBlanks(line.value.substr(0, slash)));
    const auto is_meant = [flags](std::size_t row) {
        return (flags & gProtoTypeMapping[row].nProto) != 0;
    };
    for (const Item &item : items) {
        for (std::size_t row = 0; row < protocols_.size(); ++row) {
            const auto port = protocols_[row].declared.FirstIn(item.range);
            if (is_meant(row) && port) {
                const Declaration &other = declarations_[protocols_[row].firsts[*port]];
                findings.Add(Rule("duplicate-port"), line, item.text,
                             std::string(gProtoTypeMapping[row].szName) + " port " +
                                 std::to_string(*port) + " is already declared by service [" +
                                 Shortened(other.service) + "] in line " +
                                 std::to_string(other.line));
                break;
            }
        }
    }
    for (std::size_t row = 0; row < protocols_.size(); ++row) {
        if (!is_meant(row)) {
            continue;
        }
        auto &[declared, firsts] = protocols_[row];
        firsts.resize(kHighestPort + 1);
        for (const Item &item : items) {
            for (const PortRange &added : declared.Add(item.range)) {
                std::fill(firsts.begin() + added.first, firsts.begin() + added.last + 1,
                          static_cast<std::uint32_t>(declarations_.size()));
            }
        }
    }
    declarations_.push_back({service, line.number});
}

}  // namespace tavo::tool

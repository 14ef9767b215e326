// Checks port lists: reports invalid items, and doubtful ones in a list that the library accepts.
//
// The list is split as by the library: at the first slash, then at each comma, an item at its first
// colon. Functions of the library check whether a piece is a port or a protocol.
#include "lint/lint_rules.h"

#include <algorithm>
#include <utility>

#include "output/text.h"
#include "tavoserviceconf.h"

namespace tavo::tool {
namespace {

bool IsPort(std::string_view text) {
    return TAVOServiceConfPortsCheck(std::string(text).c_str()) == 1;
}

// The checks of one port list.
class PortList {
  public:
    explicit PortList(Findings &findings) : findings_(findings) {}

    void Check(std::string_view list) {
        const std::size_t slash = list.find('/');
        const std::string_view ports = TrimBlanks(list.substr(0, slash));
        if (ports.empty()) {
            findings_.Add(Rule("empty-port-item"), ports, "the port list is empty",
                          "name a port, as in 80/tcp, or remove the key");
        } else {
            ForEachPiece(ports, [this](std::string_view item) { CheckItem(item); });
        }
        if (slash != std::string_view::npos) {
            CheckProtocols(TrimBlanks(list.substr(slash + 1)));
        }
    }

  private:
    void CheckItem(std::string_view text) {
        if (text.empty()) {
            findings_.Add(Rule("empty-port-item"), text, "a port is missing next to a comma",
                          "remove the comma");
            return;
        }
        const PortItem item = SplitItem(text);
        const bool start_ok = CheckNumber(item.start, text);
        const bool end_ok = !item.is_range || CheckNumber(item.end, text);
        if (!start_ok || !end_ok) {
            return;
        }
        const PortRange range = item.Range();
        const std::string ports = std::to_string(range.first) + ':' + std::to_string(range.last);
        if (!item.is_range && range.first == 0) {
            findings_.Add(Rule("port-zero"), text, "no service can be reached at port 0");
        }
        if (PortOf(item.start) > PortOf(item.end)) {
            findings_.Add(Rule("reversed-range"), text, "the range starts above its end",
                          "write " + ports);
        }
        if (named_.FirstIn(range)) {
            findings_.Add(Rule("duplicate-port"), text,
                          item.is_range ? "ports of the range " + ports + " are named twice"
                                        : "port " + PortsText(range) + " is named twice",
                          item.is_range ? "" : "remove it");
        }
        named_.Add(range);
    }

    // One port number, alone or on one side of the range `item`.
    bool CheckNumber(std::string_view number, std::string_view item) {
        if (IsPort(number)) {
            const std::string read = std::to_string(PortOf(number));
            if (Significant(number) != read) {
                findings_.Add(Rule("port-wrap"), number,
                              Quoted(number) + " is read as port " + read, "write " + read);
            }
            return true;
        }
        if (IsNumber(number)) {
            findings_.Add(Rule("port-range"), number,
                          "port " + Shortened(number) + " is above 65535");
        } else {
            PortProblem problem = WhyNoNumber(number, item);
            findings_.Add(Rule("port-syntax"), problem.spot, std::move(problem.message),
                          std::move(problem.fix));
        }
        return false;
    }

    // No words after the slash mean both protocols; an empty word among others is an error.
    void CheckProtocols(std::string_view protocols) {
        if (protocols.empty()) {
            return;
        }
        ForEachPiece(protocols, [this](std::string_view word) {
            if (word.empty() || ProtocolFlags(word) < 0) {
                findings_.Add(Rule("protocol-word"), word,
                              word.empty() ? "a protocol is missing next to a comma"
                                           : Quoted(word) + " is not a protocol",
                              kNameProtocols);
            }
        });
    }

    Findings &findings_;
    PortSet named_;  // by the items checked so far
};

}  // namespace

void CheckPorts(const ConfigLine &line, Findings &findings) {
    PortList(findings).Check(line.value);
}

std::optional<std::uint32_t> PortSet::FirstIn(const PortRange &range) const {
    const auto next = ranges_.lower_bound(range.first);
    if (next == ranges_.end() || next->second > range.last) {
        return std::nullopt;
    }
    return std::max(next->second, range.first);
}

PortRanges PortSet::Add(const PortRange &range) {
    PortRanges added;
    PortRange whole = range;
    std::uint32_t rest = range.first;
    auto next = ranges_.lower_bound(range.first);
    for (; next != ranges_.end() && next->second <= range.last; next = ranges_.erase(next)) {
        const auto [last, first] = *next;
        if (rest < first) {
            added.push_back({rest, first - 1});
        }
        rest = last + 1;
        whole = {std::min(whole.first, first), std::max(whole.last, last)};
    }
    if (rest <= range.last) {
        added.push_back({rest, range.last});
    }
    ranges_.emplace(whole.last, whole.first);
    return added;
}

// Checks all items before adding any: CheckPorts reports ports that are twice in one list.
void DeclaredPorts::Add(std::string_view service, const ConfigLine &line, Findings &findings) {
    const std::size_t slash = line.value.find('/');
    const int flags = ProtocolFlags(
        slash == std::string_view::npos ? "" : TrimBlanks(line.value.substr(slash + 1)));
    std::vector<std::pair<std::string_view, PortRange>> items;
    ForEachPiece(TrimBlanks(line.value.substr(0, slash)), [&items](std::string_view text) {
        items.emplace_back(text, SplitItem(text).Range());
    });
    const auto is_meant = [flags](std::size_t row) {
        return (flags & gProtoTypeMapping[row].nProto) != 0;
    };
    for (const auto &[text, range] : items) {
        for (std::size_t row = 0; row < protocols_.size(); ++row) {
            const auto port = protocols_[row].declared.FirstIn(range);
            if (is_meant(row) && port) {
                const Declaration &other = declarations_[protocols_[row].firsts[*port]];
                findings.Add(Rule("duplicate-port"), text,
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
        for (const auto &[text, range] : items) {
            for (const PortRange &added : declared.Add(range)) {
                std::fill(firsts.begin() + added.first, firsts.begin() + added.last + 1,
                          static_cast<std::uint32_t>(declarations_.size()));
            }
        }
    }
    declarations_.push_back({service, line.number});
}

}  // namespace tavo::tool

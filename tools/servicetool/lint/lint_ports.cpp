// Checks port lists: reports invalid items, and doubtful ones in a list that the library accepts.
//
// The list is split as by the library: at the first slash, then at each comma, an item at its first
// colon. Functions of the library check whether a piece is a port or a protocol.
#include <algorithm>
#include <cstdint>
#include <iterator>
#include <map>
#include <string>
#include <utility>

#include "lint/lint_keys.h"
#include "output/text.h"
#include "ports/port_query.h"
#include "tavoserviceconf.h"

namespace tavo::tool {
namespace {

// The ports of the items checked so far, as disjoint ranges, start to end.
class NamedPorts {
  public:
    // Adds first..last; returns false if any of them was already present.
    bool Add(std::uint32_t first, std::uint32_t last) {
        bool fresh = true;
        auto range = ranges_.upper_bound(last);
        while (range != ranges_.begin() && std::prev(range)->second >= first) {
            --range;
            first = std::min(first, range->first);
            last = std::max(last, range->second);
            range = ranges_.erase(range);
            fresh = false;
        }
        ranges_.emplace(first, last);
        return fresh;
    }

  private:
    std::map<std::uint32_t, std::uint32_t> ranges_;
};

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
    NamedPorts named_;
};

void PortList::Check() {
    const std::size_t slash = line_.value.find('/');
    const std::string_view ports = TrimBlanks(line_.value.substr(0, slash));
    if (ports.empty()) {
        Add(Rule("empty-port-item"), ports, "the port list is empty",
            "name a port, as in 80/tcp, or take the key away");
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
        Add(Rule("empty-port-item"), item, "a port is missing beside a comma",
            "take the comma away");
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
    if (!named_.Add(number, number)) {
        Add(Rule("duplicate-port"), port, "port " + std::to_string(number) + " is named twice",
            "take it away");
    }
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
    if (!named_.Add(first, last)) {
        Add(Rule("duplicate-port"), range, "ports of the range " + forwards + " are named twice");
    }
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
    } else if (number.empty()) {
        Add(Rule("port-syntax"), number,
            "a range is written START:END, and one of them is missing");
    } else if (number.find(':') != std::string_view::npos) {
        Add(Rule("port-syntax"), number.substr(number.find(':')),
            "a range has one colon only: START:END");
    } else {
        Add(Rule("port-syntax"), number, Quoted(number) + " is no port number", PortFix(item));
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
                word.empty() ? "a protocol is missing beside a comma"
                             : Quoted(word) + " is no protocol",
                "write tcp, udp or tcp,udp");
        }
    });
}

}  // namespace

void CheckPorts(const ConfigLine &line, Findings &findings) {
    PortList(line, findings).Check();
}

}  // namespace tavo::tool

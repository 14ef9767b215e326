#include "lint/declared_ports.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "output/text.h"
#include "ports/port_query.h"
#include "tavoserviceconf.h"

namespace tavo::tool {
namespace {

constexpr std::size_t kPorts = 65536;

struct Item {
    std::string_view text;
    std::uint32_t first;
    std::uint32_t last;
};

std::vector<Item> ItemsOf(std::string_view ports) {
    std::vector<Item> items;
    ForEachPiece(ports, [&items](std::string_view item) {
        const std::size_t colon = item.find(':');
        const std::uint32_t start = PortOf(item.substr(0, colon));
        const std::uint32_t end =
            colon == std::string_view::npos ? start : PortOf(item.substr(colon + 1));
        items.push_back({item, std::min(start, end), std::max(start, end)});
    });
    return items;
}

}  // namespace

std::uint32_t PortOwners::FirstDeclared(std::uint32_t first, std::uint32_t last) const {
    auto range = ranges_.upper_bound(first);
    if (range != ranges_.begin() && std::prev(range)->second >= first) {
        return first;
    }
    return range != ranges_.end() && range->first <= last ? range->first : kNone;
}

void PortOwners::Declare(std::uint32_t first, std::uint32_t last, const PortDeclaration &owner) {
    by_port_.resize(kPorts);
    if (owners_.empty() || owners_.back().line != owner.line) {
        owners_.push_back(owner);
    }
    const auto number = static_cast<std::uint32_t>(owners_.size() - 1);
    auto range = ranges_.upper_bound(first);
    if (range != ranges_.begin() && std::prev(range)->second >= first) {
        --range;
    }
    const auto port = [this](std::uint32_t at) { return by_port_.begin() + at; };
    std::uint32_t free = first;
    std::uint32_t whole_first = first;
    std::uint32_t whole_last = last;
    for (; range != ranges_.end() && range->first <= last; range = ranges_.erase(range)) {
        if (free < range->first) {
            std::fill(port(free), port(range->first), number);
        }
        free = range->second + 1;
        whole_first = std::min(whole_first, range->first);
        whole_last = std::max(whole_last, range->second);
    }
    if (free <= last) {
        std::fill(port(free), port(last + 1), number);
    }
    ranges_.emplace(whole_first, whole_last);
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
            const std::uint32_t port = protocols_[row].FirstDeclared(item.first, item.last);
            if (is_meant(row) && port != PortOwners::kNone) {
                const PortDeclaration &other = protocols_[row].OwnerOf(port);
                findings.Add(Rule("duplicate-port"), line, item.text,
                             std::string(gProtoTypeMapping[row].szName) + " port " +
                                 std::to_string(port) + " is declared by service [" +
                                 Shortened(other.service) + "] in line " +
                                 std::to_string(other.line) + " already");
                break;
            }
        }
    }
    for (std::size_t row = 0; row < protocols_.size(); ++row) {
        for (const Item &item : items) {
            if (is_meant(row)) {
                protocols_[row].Declare(item.first, item.last, {service, line.number});
            }
        }
    }
}

}  // namespace tavo::tool

// Range text: any text can be imported, an ordered set prints as text that imports to the same set,
// and the set joined or overlapped with itself does not change.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "tavoserviceconf.h"

namespace {

// If the ranges are in descending order, each one needs a walk over the set.
constexpr std::size_t kLongest = 4096;

struct Node {
    bool operator==(const Node &) const = default;

    std::uint32_t start;
    std::uint32_t end;
    std::uint32_t type;
};

std::vector<Node> Nodes(const TAVO_PORT_RANGE *set) {
    std::vector<Node> nodes;
    for (const auto *port = set->pRanges; port != nullptr; port = port->pNext) {
        Require(port->nDirection == 0 && port->nProtocol == 0);
        Require(port->nPortType == (port->nPortStart == port->nPortEnd ? 0 : 1));
        nodes.push_back({port->nPortStart, port->nPortEnd, port->nPortType});
    }
    Require(set->nCount == static_cast<int>(nodes.size()) && !nodes.empty());
    return nodes;
}

// A reversed range may be inserted at another position when it is added again, and added ranges are
// placed after one that ends at the highest value.
bool IsInOrder(const std::vector<Node> &nodes) {
    const auto odd = [](const Node &node) {
        return node.start > node.end || node.end == UINT32_MAX;
    };
    const auto meet = [](const Node &a, const Node &b) { return a.end + 1 >= b.start; };
    return std::none_of(nodes.begin(), nodes.end(), odd) &&
           std::adjacent_find(nodes.begin(), nodes.end(), meet) == nodes.end();
}

TAVO_PORT_RANGE *Imported(const char *text) {
    TAVO_PORT_RANGE *set = TLIBPortRangeCreate();
    Require(TLIBPortRangeImport(set, text) == 0);
    return set;
}

void CheckRoundTrip(const char *printed, const std::vector<Node> &nodes) {
    TAVO_PORT_RANGE *again = Imported(printed);
    Require(Nodes(again) == nodes);
    TLIBPortRangeDestory(again);
}

void CheckSelf(TAVO_PORT_RANGE *set, const std::vector<Node> &nodes) {
    TAVO_PORT_RANGE *other = TLIBPortRangeCreate();
    Require(TLIBPortRangeOverlap(set, set, other) == 0 && Nodes(other) == nodes);
    Require(TLIBPortRangeJoin(other, set) == 0 && Nodes(other) == nodes);
    Require(TLIBPortRangeJoin(set, set) == 0 && Nodes(set) == nodes);
    TLIBPortRangeDestory(other);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    QuietLog();
    const std::string text(reinterpret_cast<const char *>(data), std::min(size, kLongest));
    TAVO_PORT_RANGE *set = Imported(text.c_str());
    const std::vector<Node> nodes = Nodes(set);
    char *printed = TLIBPortRangeExport(set);
    Require(printed != nullptr);
    if (IsInOrder(nodes)) {
        CheckRoundTrip(printed, nodes);
        CheckSelf(set, nodes);
    } else {
        TLIBPortRangeDestory(Imported(printed));
        Require(TLIBPortRangeOverlap(set, set, set) == 0 && TLIBPortRangeJoin(set, set) == 0);
    }
    TLIBCStrPut(printed);
    TLIBPortRangeDestory(set);
    return 0;
}

#include "ports/declared_text.h"

#include <algorithm>
#include <string>

#include "ports/port_pieces.h"
#include "tavoserviceconf.h"

namespace tavo::tool {
namespace {

bool ReadPort(std::string_view text, std::uint32_t &port) {
    port = PortOf(text);
    return TAVOServiceConfPortsCheck(std::string(text).c_str()) == 1;
}

bool ReadItem(std::string_view item, PortRanges &ranges) {
    const std::size_t dash = item.find('-');
    std::uint32_t start = 0;
    std::uint32_t end = 0;
    if (!ReadPort(item.substr(0, dash), start) ||
        !ReadPort(dash == std::string_view::npos ? item : item.substr(dash + 1), end)) {
        return false;
    }
    ranges.push_back({std::min(start, end), std::max(start, end)});
    return true;
}

}  // namespace

// Nothing between two commas is no mistake here, unlike in a service file; blanks are.
bool ReadDeclaredPorts(std::string_view text, PortRanges &ranges) {
    for (std::string_view rest = TrimBlanks(text); !rest.empty();) {
        const std::string_view item = rest.substr(0, rest.find(','));
        if (!item.empty() && !ReadItem(TrimBlanks(item), ranges)) {
            return false;
        }
        rest.remove_prefix(std::min(item.size() + 1, rest.size()));
    }
    return true;
}

}  // namespace tavo::tool

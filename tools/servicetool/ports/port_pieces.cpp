#include "ports/port_pieces.h"

#include <algorithm>

namespace tavo::tool {

bool IsNumber(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

std::string_view Significant(std::string_view digits) {
    return digits.substr(std::min(digits.find_first_not_of('0'), digits.size() - 1));
}

std::string PortFix(std::string_view item) {
    const std::size_t dash = item.find_first_of("-.");
    const std::size_t behind = item.find_last_of("-.");
    if (dash != std::string_view::npos) {
        const std::string_view start = TrimBlanks(item.substr(0, dash));
        const std::string_view end = TrimBlanks(item.substr(behind + 1));
        if (IsNumber(start) && IsNumber(end) && item.size() < 20) {
            return "write " + std::string(start) + ':' + std::string(end);
        }
    }
    if (item.find_first_not_of("0123456789:; \t") == std::string_view::npos) {
        return "put commas between ports, and no blanks into a range";
    }
    return {};
}

}  // namespace tavo::tool

// How a port list falls into pieces, and what number a piece stands for.
#ifndef TAVO_SERVICETOOL_PORTS_PORT_PIECES_H
#define TAVO_SERVICETOOL_PORTS_PORT_PIECES_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "config_lines.h"

namespace tavo::tool {

// Calls look(piece) for each piece of `text` between commas, blanks around it taken off.
template <typename Look>
void ForEachPiece(std::string_view text, Look look) {
    for (;;) {
        const std::size_t comma = text.find(',');
        look(TrimBlanks(text.substr(0, comma)));
        if (comma == std::string_view::npos) {
            return;
        }
        text.remove_prefix(comma + 1);
    }
}

// The low 32 bits of the number: what the library reads, also where digits run beyond them.
inline std::uint32_t PortOf(std::string_view text) {
    return static_cast<std::uint32_t>(std::strtol(std::string(text).c_str(), nullptr, 10));
}

// Whether `text` is decimal digits and nothing else.
bool IsNumber(std::string_view text);

// The digits of a number without its leading zeros.
std::string_view Significant(std::string_view digits);

// What may be meant by an item of a port list that is no port; empty when nothing is plain.
std::string PortFix(std::string_view item);

}  // namespace tavo::tool

#endif

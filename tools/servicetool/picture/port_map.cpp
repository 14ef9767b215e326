#include "picture/port_map.h"

#include <algorithm>
#include <iterator>

#include "output/text.h"

namespace tavo::tool {
namespace {

constexpr std::size_t kRows = 16;
constexpr std::size_t kRowsOfLowWindow = 8;

// The lines for both protocols with `kRows` rows each, their names, a legend and a prompt.
constexpr std::size_t kLinesForAllRows = 40;

// The columns for the port and a blank at the start of a row.
constexpr std::size_t kLabelColumns = 6;

char SignOf(int marks) {
    const bool declared = (marks & kDeclaringSources) != 0;
    const bool held = IsHeld(marks);
    if ((marks & kCollides) != 0) {
        return '!';
    }
    if (declared && held) {
        return 'B';
    }
    return declared ? 'd' : held ? 'h' : '.';
}

struct ColouredText {
    std::string_view text;
    std::string_view code = {};
};

// The items of a list, separated by commas and wrapped to `columns`.
std::string Flowing(std::string_view title, const std::vector<ColouredText> &items,
                    std::size_t columns) {
    constexpr std::string_view kNewLine = "\n ";
    std::string text(title);
    std::size_t used = title.size();
    for (const ColouredText &item : items) {
        const bool last = &item == &items.back();
        const std::size_t width = 1 + item.text.size() + (last ? 0 : 1);
        if (used + width > columns) {
            text += kNewLine;
            used = kNewLine.size() - 1;
        }
        text.append(" ").append(item.code).append(item.text);
        text.append(item.code.empty() ? "" : kPlain).append(last ? "\n" : ",");
        used += width;
    }
    return text;
}

}  // namespace

PortRange MapShape::CellAt(std::size_t row, std::size_t column) const {
    const auto first = static_cast<std::uint32_t>((row * cells + column) * ports);
    return {first, first + static_cast<std::uint32_t>(ports) - 1};
}

MapShape ShapeForWindow(const WindowSize &window) {
    constexpr std::size_t kFewest = 8;
    constexpr std::size_t kMost = 1024;
    std::size_t cells = kFewest;
    while (cells < kMost && kLabelColumns + 2 * cells <= window.columns) {
        cells *= 2;
    }
    const bool low = window.lines != 0 && window.lines < kLinesForAllRows;
    return {cells, kPortCount / (low ? kRowsOfLowWindow : kRows) / cells};
}

PortMap::Cell PortMap::At(const PortRange &ports) {
    Cell cell = {0, in_reach_.At(ports)};
    for (const PortClaim *claim : cell.claims) {
        const PortRange shown = {std::max(claim->range.first, ports.first),
                                 std::min(claim->range.last, ports.last)};
        cell.marks |= claim->source;
        cell.marks |= Overlap(collide_, shown).empty() ? 0 : kCollides;
    }
    return cell;
}

const CellLook &LookOf(int marks) {
    constexpr const CellLook *kConflict = std::end(kCellLooks) - 1;
    constexpr const CellLook *kSeveral = kConflict - 1;
    if ((marks & kCollides) != 0) {
        return *kConflict;
    }
    return *std::find_if(std::begin(kCellLooks), kSeveral,
                         [marks](const CellLook &look) { return look.marks == marks; });
}

// Colour codes are only printed where the colour changes.
std::string MapText(PortMap map, const MapShape &shape, bool colour) {
    std::string text;
    for (std::size_t row = 0; row < shape.Rows(); ++row) {
        const std::string port = std::to_string(shape.CellAt(row, 0).first);
        text += std::string(kLabelColumns - 1 - port.size(), ' ') + port + ' ';
        std::string_view current;
        for (std::size_t column = 0; column < shape.cells; ++column) {
            const int marks = map.At(shape.CellAt(row, column)).marks;
            const std::string_view code = colour ? LookOf(marks).colour : "";
            if (code != current) {
                text.append(current.empty() ? "" : kPlain).append(code);
                current = code;
            }
            text += SignOf(marks);
        }
        text.append(current.empty() ? "" : kPlain).append("\n");
    }
    return text;
}

std::string MapLegend(const MapShape &shape, std::size_t columns, bool colour) {
    std::string legend =
        Flowing(std::to_string(shape.ports) + " ports a sign:",
                {{". free"}, {"d declared"}, {"h held"}, {"B both among them"}, {"! in conflict"}},
                columns);
    if (colour) {
        std::vector<ColouredText> items;
        for (const CellLook &look : kLegendLooks) {
            items.push_back({look.legend, look.colour});
        }
        legend += Flowing("Coloured by source:", items, columns);
    }
    return legend;
}

}  // namespace tavo::tool

#include "picture/port_map.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "output/text.h"

namespace tavo::tool {
namespace {

constexpr std::size_t kRows = 16;
constexpr std::size_t kRowsOfLowWindow = 8;

// The lines for both protocols with `kRows` rows each, their names, a legend and a prompt.
constexpr std::size_t kLinesForAllRows = 40;

// The columns for the port and a blank at the start of a row.
constexpr std::size_t kLabelColumns = 6;

// Added to the sources of a port in conflict.
constexpr std::uint8_t kCollides = 0x80;
static_assert((kEverySource & kCollides) == 0 && kEverySource < kCollides);

char SignOf(const CellMarks &marks) {
    if (marks.collides) {
        return '!';
    }
    if (marks.IsDeclared() && marks.IsHeld()) {
        return 'B';
    }
    return marks.IsDeclared() ? 'd' : marks.IsHeld() ? 'h' : '.';
}

// Returns "" for cells without colour.
std::string_view ColourOf(const CellMarks &marks) {
    const auto *look = std::ranges::find(kCellLooks, LookOf(marks), &CellLook::name);
    return look == std::end(kCellLooks) ? "" : look->colour;
}

// Builds a text, with colour codes only where the colour changes.
class Canvas {
  public:
    explicit Canvas(bool colour) : colour_(colour) {}

    void Draw(std::string_view text, std::string_view code) {
        if (colour_ && code != code_) {
            text_ += code_.empty() ? "" : kPlain;
            text_ += code;
            code_ = code;
        }
        text_ += text;
    }

    std::string Take() {
        Draw("", "");
        return std::move(text_);
    }

  private:
    bool colour_;
    std::string text_;
    std::string_view code_;
};

struct ColouredText {
    std::string_view text;
    std::string_view code;
};

// The items of a list, separated by commas and wrapped to `columns`.
std::string Flowing(std::string_view title, const std::vector<ColouredText> &items,
                    std::size_t columns, bool colour) {
    constexpr std::string_view kNewLine = "\n ";
    Canvas canvas(colour);
    canvas.Draw(title, "");
    std::size_t used = title.size();
    for (const ColouredText &item : items) {
        const bool last = &item == &items.back();
        const std::size_t width = 1 + item.text.size() + (last ? 0 : 1);
        const bool full = used + width > columns;
        canvas.Draw(full ? kNewLine : "", "");
        canvas.Draw(" ", "");
        canvas.Draw(item.text, item.code);
        canvas.Draw(last ? "\n" : ",", "");
        used = (full ? kNewLine.size() - 1 : used) + width;
    }
    return canvas.Take();
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

PortMap::PortMap(const std::vector<PortClaim> &claims, const PortRanges &collide,
                 std::uint32_t protocol) {
    for (const PortClaim &claim : claims) {
        if (claim.protocol != protocol) {
            continue;
        }
        for (std::uint32_t port = claim.range.first; port <= claim.range.last; ++port) {
            marks_[port] |= static_cast<std::uint8_t>(claim.source);
        }
    }
    for (const PortRange &range : collide) {
        for (std::uint32_t port = range.first; port <= range.last; ++port) {
            marks_[port] |= marks_[port] == 0 ? std::uint8_t{0} : kCollides;
        }
    }
}

CellMarks PortMap::MarksOf(const PortRange &cell) const {
    std::uint8_t bits = 0;
    for (std::uint32_t port = cell.first; port <= cell.last; ++port) {
        bits |= marks_[port];
    }
    return {bits & kEverySource, (bits & kCollides) != 0};
}

std::string_view LookOf(const CellMarks &marks) {
    if (marks.collides) {
        return "conflict";
    }
    if ((marks.sources & (marks.sources - 1)) != 0) {
        return "several";
    }
    return marks.sources == 0 ? "free" : SourceName(marks.sources);
}

std::string MapText(const PortMap &map, const MapShape &shape, bool colour) {
    Canvas canvas(colour);
    for (std::size_t row = 0; row < shape.Rows(); ++row) {
        const std::string port = std::to_string(shape.CellAt(row, 0).first);
        canvas.Draw(std::string(kLabelColumns - 1 - port.size(), ' ') + port + ' ', "");
        for (std::size_t column = 0; column < shape.cells; ++column) {
            const CellMarks marks = map.MarksOf(shape.CellAt(row, column));
            canvas.Draw(std::string(1, SignOf(marks)), ColourOf(marks));
        }
        canvas.Draw("\n", "");
    }
    return canvas.Take();
}

std::string MapLegend(const MapShape &shape, std::size_t columns, bool colour) {
    std::string legend = Flowing(std::to_string(shape.ports) + " ports a sign:",
                                 {{". free", ""},
                                  {"d declared", ""},
                                  {"h held", ""},
                                  {"B both among them", ""},
                                  {"! in conflict", ""}},
                                 columns, false);
    if (colour) {
        std::vector<ColouredText> items;
        for (const CellLook &look : kCellLooks) {
            items.push_back({look.legend, look.colour});
        }
        legend += Flowing("Coloured by source:", items, columns, true);
    }
    return legend;
}

}  // namespace tavo::tool

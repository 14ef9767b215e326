// To keep the file small, adjacent cells with the same look and claims are drawn as one rectangle,
// and free cells are not drawn.
// In addition to the colours, held ports have dots and ports in conflict have a border, for readers
// who cannot distinguish the colours and for printing.
#include "picture/port_map.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "output/text.h"
#include "ports/port_query.h"

namespace tavo::tool {
namespace {

constexpr MapShape kShape = {128, 16};

// Sizes in units of the picture.
constexpr std::size_t kCell = 8;
constexpr std::size_t kMargin = 16;
constexpr std::size_t kLabels = 48;               // width of the ports at the start of rows
constexpr std::size_t kLine = 20;                 // height of a line of text
constexpr std::size_t kLeft = kMargin + kLabels;  // of the cells
constexpr std::size_t kWidth = kLeft + kShape.cells * kCell + kMargin;
constexpr std::size_t kMapHeight = kLine + kShape.Rows() * kCell;
constexpr std::size_t kLabelEvery = 4;  // rows

// The most lines in a tooltip.
constexpr std::size_t kMostLines = 100;

constexpr std::string_view kStyle = R"(<style>
svg { --paper: #fff; --ink: #1f2328; --free: #eaeef2; --forward: #8250df; --service: #0969da;
  --setting: #1b7c83; --socket: #1a7f37; --several: #bf8700; --conflict: #cf222e;
  background: var(--paper); font: 12px system-ui, sans-serif; }
@media (prefers-color-scheme: dark) {
  svg { --paper: #0d1117; --ink: #e6edf3; --free: #21262d; --forward: #bc8cff; --service: #58a6ff;
    --setting: #56d4dd; --socket: #3fb950; --several: #d29922; --conflict: #ff7b72; }
}
text { fill: var(--ink); }
.paper { fill: var(--paper); }
.free { fill: var(--free); }
.forward { fill: var(--forward); }
.service { fill: var(--service); }
.setting { fill: var(--setting); }
.socket { fill: var(--socket); }
.several { fill: var(--several); }
.conflict { fill: var(--conflict); stroke: var(--ink); stroke-width: 2; }
.dots { stroke: var(--paper); stroke-width: 4; stroke-linecap: round; stroke-dasharray: 0 8;
  pointer-events: none; }
rect:hover { stroke: var(--ink); }
.paper:hover, .free:hover { stroke: none; }
</style>
)";

std::string Attribute(std::string_view name, std::size_t number) {
    return ' ' + std::string(name) + "=\"" + std::to_string(number) + '"';
}

std::string Rectangle(std::string_view look, std::size_t x, std::size_t y, std::size_t width,
                      std::size_t height) {
    return "<rect class=\"" + std::string(look) + '"' + Attribute("x", x) + Attribute("y", y) +
           Attribute("width", width) + Attribute("height", height);
}

// A dot in each cell of a row, drawn as a line of dashes without length: one at its start and one
// after each `kCell` units.
std::string Dots(std::size_t x, std::size_t y, std::size_t width) {
    return "<path class=\"dots\" d=\"M" + std::to_string(x + kCell / 2) + ' ' +
           std::to_string(y + kCell / 2) + 'h' + std::to_string(width - kCell / 2) + "\"/>\n";
}

// The text as XML. Characters that XML does not allow are written as escapes, as on a terminal.
std::string XmlText(std::string_view text) {
    constexpr std::string_view kReplacements[][2] = {
        {"&", "&amp;"},   {"<", "&lt;"},         {">", "&gt;"},
        {"\"", "&quot;"}, {"\uFFFE", "\\uFFFE"}, {"\uFFFF", "\\uFFFF"},
    };
    std::string xml = Escaped(text);
    for (const auto &[from, to] : kReplacements) {
        xml = Replaced(std::move(xml), from, to);
    }
    return xml;
}

std::string Words(std::size_t x, std::size_t y, std::string_view words,
                  std::string_view anchor = "start") {
    return "<text" + Attribute("x", x) + Attribute("y", y) + " text-anchor=\"" +
           std::string(anchor) + "\">" + XmlText(words) + "</text>\n";
}

// "service web (system/web.sc)", "socket /usr/bin/nginx, pid 812, user www-data, LISTEN".
std::string ClaimText(const PortClaim &claim) {
    std::string text = std::string(SourceName(claim.source)) + ' ';
    if (!claim.IsHeld()) {
        return text + DeclarerText(claim.source, *claim.declarer);
    }
    if (const HoldingProcess *process = claim.process) {
        text += process->program.empty() ? process->name : process->program;
        text += ", pid " + std::to_string(process->pid);
        text += process->user.empty() ? "" : ", user " + process->user;
    } else {
        text += "of an unknown process";
    }
    return text + ", " + StateName(claim);
}

std::string Tooltip(const ClaimList &claims, const PortClaims &all) {
    std::string text;
    const std::size_t shown = std::min(claims.size(), kMostLines);
    for (std::size_t i = 0; i < shown; ++i) {
        const PortClaim &claim = *claims[i];
        text += (i == 0 ? "" : "\n") + PortsText(claim.range) + '/' +
                ProtocolsText(claim.protocol) + ": " + XmlText(ClaimText(claim)) +
                (Collides(claim, all) ? " (in conflict)" : "");
    }
    const std::size_t more = claims.size() - shown;
    return more == 0 ? text : text + "\nand " + std::to_string(more) + " more";
}

std::string RowOf(PortMap &map, std::size_t row, std::size_t y, const PortClaims &all) {
    std::string svg;
    if (row % kLabelEvery == 0) {
        svg += Words(kLeft - kCell, y + kCell, std::to_string(kShape.CellAt(row, 0).first), "end");
    }
    for (std::size_t column = 0, end = 0; column < kShape.cells; column = end) {
        const PortMap::Cell cell = map.At(kShape.CellAt(row, column));
        do {
            ++end;
        } while (end < kShape.cells && map.At(kShape.CellAt(row, end)) == cell);
        if (cell.marks == 0) {
            continue;
        }
        const std::size_t x = kLeft + column * kCell;
        const std::size_t width = (end - column) * kCell;
        svg += Rectangle(LookOf(cell.marks).name, x, y, width, kCell) + "><title>" +
               Tooltip(cell.claims, all) + "</title></rect>\n";
        svg += IsHeld(cell.marks) ? Dots(x, y, width) : "";
    }
    return svg;
}

std::string MapOf(const std::vector<PortClaim> &claims, const PortClaims &all,
                  std::uint32_t protocol, std::size_t y) {
    PortMap map(claims, all.collide.at(protocol), protocol);
    std::string svg = "<g>\n" + Words(kMargin, y + kLine / 2, ProtocolsText(protocol));
    y += kLine;
    svg += Rectangle("free", kLeft, y, kShape.cells * kCell, kShape.Rows() * kCell) + "/>\n";
    for (std::size_t row = 0; row < kShape.Rows(); ++row) {
        svg += RowOf(map, row, y + row * kCell, all);
    }
    return svg + "</g>\n";
}

std::string LegendOf(std::size_t y) {
    constexpr std::size_t kItem = (kWidth - 2 * kMargin) / kLegendLooks.size();
    std::string svg;
    std::size_t x = kMargin;
    for (const CellLook &look : kLegendLooks) {
        svg += Rectangle(look.name, x, y, kCell, kCell) + "/>\n" +
               (look.marks == TAVO_PORT_CHECK_RUNTIME ? Dots(x, y, kCell) : "") +
               Words(x + 2 * kCell, y + kCell, look.svg_legend);
        x += kItem;
    }
    return svg + Words(kMargin, y + 2 * kLine,
                       "A cell is " + std::to_string(kShape.ports) + " ports, a row " +
                           std::to_string(kShape.ports * kShape.cells) +
                           ". Point at a cell to see who claims its ports.");
}

std::string Opening(std::size_t height) {
    return "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " + std::to_string(kWidth) +
           ' ' + std::to_string(height) +
           "\" role=\"graphics-document document\" aria-labelledby=\"title desc\">\n"
           "<title id=\"title\">Ports</title>\n"
           "<desc id=\"desc\">The TCP and the UDP ports from 0 to 65535, coloured by who declares "
           "or holds them, with dots where they are held and borders where they are in "
           "conflict.</desc>\n" +
           std::string(kStyle) + Rectangle("paper", 0, 0, kWidth, height) + "/>\n";
}

}  // namespace

std::string PortSvg(const std::vector<PortClaim> &claims, const PortClaims &all, bool legend) {
    constexpr std::size_t kLegendHeight = 3 * kLine;
    std::size_t y = kMargin;
    std::string maps;
    for (const std::uint32_t protocol : kProtocols) {
        maps += MapOf(claims, all, protocol, y);
        y += kMapHeight + kLine;
    }
    const std::size_t height = y + (legend ? kLegendHeight : 0);
    return Opening(height) + maps + (legend ? LegendOf(y) : "") + "</svg>\n";
}

}  // namespace tavo::tool

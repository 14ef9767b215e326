// The map of all ports, for a terminal and for a browser: rows of cells with the same number of
// ports each, marked with the claims to these ports.
#ifndef TAVO_SERVICETOOL_PICTURE_PORT_MAP_H
#define TAVO_SERVICETOOL_PICTURE_PORT_MAP_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ports/port_claims.h"

namespace tavo::tool {

// The layout of the ports. Every cell and every row is full.
struct MapShape {
    std::size_t cells;  // per row
    std::size_t ports;  // per cell

    constexpr std::size_t Rows() const { return kPortCount / cells / ports; }
    PortRange CellAt(std::size_t row, std::size_t column) const;
};

// The widest shape that fits a window, including the port numbers: with 16 rows, or with 8 if the
// window is not high enough for both protocols.
MapShape ShapeForWindow(const WindowSize &window);

// The marks of a cell: the sources of its claims, bits of TAVO_PORT_CHECK_*, and this one if one of
// its ports is in conflict.
inline constexpr int kCollides = 0x80;
static_assert((kEverySource & kCollides) == 0);

inline bool IsHeld(int marks) {
    return (marks & TAVO_PORT_CHECK_RUNTIME) != 0;
}

// How a cell is drawn.
struct CellLook {
    int marks;                // of the cells; those of "several" and "conflict" vary
    std::string_view name;    // class in the SVG file
    std::string_view colour;  // escape sequence of a terminal
    std::string_view legend;
    std::string_view svg_legend;
};

inline constexpr CellLook kCellLooks[] = {
    {0, "free", "", "", ""},
    {TAVO_PORT_CHECK_PORT_FORWARD, "forward", "\x1b[35m", "forward", "declared by a rule"},
    {TAVO_PORT_CHECK_FW_SERVICE, "service", "\x1b[34m", "service", "declared by a service"},
    {TAVO_PORT_CHECK_SYS_KEY, "setting", "\x1b[36m", "setting", "declared by a setting"},
    {TAVO_PORT_CHECK_RUNTIME, "socket", "\x1b[32m", "socket", "held: a dot"},
    {kEverySource, "several", "\x1b[33m", "several", "several of these"},
    {kCollides, "conflict", "\x1b[1;31m", "in conflict", "in conflict: a border"},
};

// Those in the legends; free cells are not.
inline constexpr std::span<const CellLook> kLegendLooks = std::span(kCellLooks).subspan(1);

// The look of a cell with these marks.
const CellLook &LookOf(int marks);

// The map of one protocol.
class PortMap {
  public:
    struct Cell {
        int marks;
        ClaimList claims;
        bool operator==(const Cell &) const = default;
    };

    // The map shows these claims, which are sorted by first port, and the ports of the set
    // `collide` that they include.
    PortMap(const std::vector<PortClaim> &claims, PortRanges collide, std::uint32_t protocol)
        : in_reach_(ClaimsFor(protocol, kEverySource, claims)), collide_(std::move(collide)) {}

    // The cell of these ports. The ports of consecutive calls must ascend.
    Cell At(const PortRange &ports);

  private:
    ClaimsInReach in_reach_;
    PortRanges collide_;
};

// The rows of the map of a protocol; each starts with its first port.
std::string MapText(PortMap map, const MapShape &shape, bool colour);

// The legend of the signs and, if `colour` is true, of the colours, in lines of at most `columns`
// columns.
std::string MapLegend(const MapShape &shape, std::size_t columns, bool colour);

// The map of these claims as a self-contained SVG file. Each cell has a tooltip with all claims to
// its ports. `all` contains the ports in conflict. Defined in port_svg.cpp.
std::string PortSvg(const std::vector<PortClaim> &claims, const PortClaims &all, bool legend);

}  // namespace tavo::tool

#endif

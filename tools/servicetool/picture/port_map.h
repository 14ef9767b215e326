// The map of all ports, for a terminal and for a browser: rows of cells with the same number of
// ports each, marked with the claims to these ports.
#ifndef TAVO_SERVICETOOL_PICTURE_PORT_MAP_H
#define TAVO_SERVICETOOL_PICTURE_PORT_MAP_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ports/port_claims.h"

namespace tavo::tool {

// The layout of the ports. Every cell and every row is full.
struct MapShape {
    std::size_t cells;  // per row
    std::size_t ports;  // per cell

    std::size_t Rows() const { return kPortCount / cells / ports; }
    PortRange CellAt(std::size_t row, std::size_t column) const;
};

// The widest shape that fits a window, including the port numbers: with 16 rows, or with 8 if the
// window is not high enough for both protocols.
MapShape ShapeForWindow(const WindowSize &window);

// The marks of the ports of a cell.
struct CellMarks {
    int sources = 0;  // of its claims, bits of TAVO_PORT_CHECK_*
    bool collides = false;
    bool operator==(const CellMarks &) const = default;

    bool IsDeclared() const { return (sources & kDeclaringSources) != 0; }
    bool IsHeld() const { return (sources & TAVO_PORT_CHECK_RUNTIME) != 0; }
};

// "free", the name of a source, "several" for more than one, or "conflict".
std::string_view LookOf(const CellMarks &marks);

// How cells that are not free are drawn, in the order of the legends.
struct CellLook {
    std::string_view name;    // as LookOf returns it
    std::string_view colour;  // escape sequence of a terminal
    std::string_view legend;
    std::string_view svg_legend;
};

inline constexpr CellLook kCellLooks[] = {
    {"forward", "\x1b[35m", "forward", "declared by a rule"},
    {"service", "\x1b[34m", "service", "declared by a service"},
    {"setting", "\x1b[36m", "setting", "declared by a setting"},
    {"socket", "\x1b[32m", "socket", "held: a dot"},
    {"several", "\x1b[33m", "several", "several of these"},
    {"conflict", "\x1b[1;31m", "in conflict", "in conflict: a border"},
};

// The ports of one protocol.
class PortMap {
  public:
    // The map shows these claims, and the ports of the set `collide` that they include.
    PortMap(const std::vector<PortClaim> &claims, const PortRanges &collide,
            std::uint32_t protocol);

    CellMarks MarksOf(const PortRange &cell) const;

  private:
    std::array<std::uint8_t, kPortCount> marks_{};  // by port: its sources and kCollides
};

// The rows of the map of a protocol; each starts with its first port.
std::string MapText(const PortMap &map, const MapShape &shape, bool colour);

// The legend of the signs and, if `colour` is true, of the colours, in lines of at most `columns`
// columns.
std::string MapLegend(const MapShape &shape, std::size_t columns, bool colour);

// The map of these claims as a self-contained SVG file. Each cell has a tooltip with all claims to
// its ports. `all` contains the ports in conflict. Defined in port_svg.cpp.
std::string PortSvg(const std::vector<PortClaim> &claims, const PortClaims &all, bool legend);

}  // namespace tavo::tool

#endif

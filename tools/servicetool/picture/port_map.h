// The map of all ports: rows of cells with the same number of ports each, marked with the claims to
// these ports. Draws the map for a terminal; port_svg.h draws it for a browser.
#ifndef TAVO_SERVICETOOL_PICTURE_PORT_MAP_H
#define TAVO_SERVICETOOL_PICTURE_PORT_MAP_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "ports/port_claims.h"

namespace tavo::tool {

inline constexpr std::size_t kPortCount = std::size_t{kHighestPort} + 1;

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
    bool declared = false;
    bool held = false;
    bool collides = false;
    std::string_view source = {};  // source of all its claims; empty if they have several sources
    auto operator<=>(const CellMarks &) const = default;

    bool Free() const { return !declared && !held; }
};

// The ports of one protocol.
class PortMap {
  public:
    // The map shows these claims, and the ports of the set `collide` that they include.
    PortMap(const std::vector<PortClaim> &claims, const PortRanges &collide,
            std::uint32_t protocol);

    CellMarks MarksOf(const PortRange &cell) const;

  private:
    std::array<std::uint8_t, kPortCount> marks_{};  // by port, a bit for each source
};

// The rows of the map of a protocol; each starts with its first port.
std::string MapText(const PortMap &map, const MapShape &shape, bool colour);

// The legend of the signs and, if `colour` is true, of the colours, in lines of at most `columns`
// columns.
std::string MapLegend(const MapShape &shape, std::size_t columns, bool colour);

}  // namespace tavo::tool

#endif

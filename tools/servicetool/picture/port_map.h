// The picture of the port space: cells of as many ports each, row by row, and what is claimed of
// them. It is drawn here for a terminal, and elsewhere for a browser.
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

// How the ports are laid out: every cell and every row is full.
struct MapShape {
    std::size_t cells;  // of a row
    std::size_t ports;  // of a cell

    std::size_t Rows() const { return kPortCount / cells / ports; }
    PortRange CellAt(std::size_t row, std::size_t column) const;
};

// The widest shape that fits a window with room for the port numbers: of 16 rows, or of 8 where
// the window is too low to show those of both protocols at once.
MapShape ShapeForWindow(const WindowSize &window);

// What there is among the ports of a cell.
struct CellMarks {
    bool declared = false;
    bool held = false;
    bool collides = false;
    std::string_view source = {};  // the only one of its claims; empty where there are several
    auto operator<=>(const CellMarks &) const = default;

    bool Free() const { return !declared && !held; }
};

// The ports of one protocol.
class PortMap {
  public:
    // Only these claims are in the picture, and of the ports in conflict (a set) those they reach.
    PortMap(const std::vector<PortClaim> &claims, const PortRanges &collide,
            std::uint32_t protocol);

    CellMarks MarksOf(const PortRange &cell) const;

  private:
    std::array<std::uint8_t, kPortCount> marks_{};  // of each port, a bit for each source
};

// The rows of a protocol's picture, with the first port of each in front.
std::string MapText(const PortMap &map, const MapShape &shape, bool colour);

// What the signs mean, and with colour what the colours mean, in lines of at most so many columns.
std::string MapLegend(const MapShape &shape, std::size_t columns, bool colour);

}  // namespace tavo::tool

#endif

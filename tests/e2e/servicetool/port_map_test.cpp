// The picture of the port space: its shape, characters, colours and legend.
#include "picture/port_map.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "patterns.h"

namespace tavo::test {

using namespace tool;

namespace {

constexpr std::string_view kPlain = "\x1b[0m";

// 64 ports per character, as on a terminal of 80 columns.
constexpr MapShape kShape = {64, 64};

PortClaim Declared(std::uint32_t first, std::uint32_t last, std::uint32_t protocol = TAVO_PROTO_TCP,
                   int source = TAVO_PORT_CHECK_FW_SERVICE) {
    return {{first, last}, protocol, source};
}

PortClaim Held(std::uint32_t port, std::uint32_t protocol = TAVO_PROTO_TCP) {
    return {{port, port}, protocol, TAVO_PORT_CHECK_RUNTIME};
}

std::string FirstRow(const std::vector<PortClaim> &claims, const PortRanges &collide = {},
                     bool colour = false) {
    const std::string text = MapText(PortMap(claims, collide, TAVO_PROTO_TCP), kShape, colour);
    return text.substr(0, text.find('\n'));
}

std::string WithoutColour(const std::string &text) {
    return ReplaceMatches(text, "\x1b\\[[0-9;]*m", "");
}

TEST(PortMap, CoversEveryPortOnceAtEveryWidth) {
    for (std::size_t columns = 40; columns <= 300; ++columns) {
        const MapShape shape = ShapeForWindow({columns, 0});
        EXPECT_EQ(shape.Rows(), 16U) << columns;
        EXPECT_LE(6 + shape.cells, columns);
        EXPECT_GT(6 + 2 * shape.cells, columns) << "a wider one would fit";
        std::uint32_t next = 0;
        for (std::size_t row = 0; row < shape.Rows(); ++row) {
            for (std::size_t column = 0; column < shape.cells; ++column) {
                const PortRange cell = shape.CellAt(row, column);
                ASSERT_EQ(cell.first, next);
                ASSERT_EQ(cell.last, cell.first + shape.ports - 1);
                next = cell.last + 1;
            }
        }
        EXPECT_EQ(next, kPortCount) << columns;
    }
}

TEST(PortMap, HasFewerRowsInALowWindow) {
    for (const auto &[lines, rows] : std::vector<std::pair<std::size_t, std::size_t>>{
             {0, 16}, {1, 8}, {25, 8}, {39, 8}, {40, 16}, {500, 16}}) {
        const MapShape shape = ShapeForWindow({80, lines});
        EXPECT_EQ(shape.Rows(), rows) << lines;
        EXPECT_EQ(shape.cells, 64U) << lines;
    }
}

TEST(PortMap, HasAShapeForATerminalOfAnyWidth) {
    for (const std::size_t columns : std::initializer_list<std::size_t>{0, 1, 14, 21, 10000}) {
        const MapShape shape = ShapeForWindow({columns, 25});
        EXPECT_EQ(shape.Rows() * shape.cells * shape.ports, kPortCount) << columns;
    }
}

TEST(PortMap, ShowsWhatThereIsAmongThePortsOfACell) {
    const std::vector<PortClaim> claims = {Declared(0, 0), Declared(127, 129), Held(200),
                                           Held(300),      Declared(319, 319), Declared(320, 383)};
    EXPECT_EQ(FirstRow(claims), "    0 dddhBd" + std::string(58, '.'));
}

TEST(PortMap, ShowsAConflictBeforeAnythingElse) {
    EXPECT_EQ(FirstRow({Declared(64, 64), Held(65), Declared(66, 66)}, {{66, 66}}).substr(0, 9),
              "    0 .!.");
}

TEST(PortMap, ShowsAConflictOnlyOfClaimsThatAreInThePicture) {
    EXPECT_EQ(FirstRow({Declared(64, 64)}, {{0, 0}, {128, 128}}).substr(0, 9), "    0 .d.");
}

TEST(PortMap, ShowsOneProtocolOnly) {
    EXPECT_EQ(FirstRow({Declared(0, 0, TAVO_PROTO_UDP), Held(64, TAVO_PROTO_UDP)}),
              "    0 " + std::string(64, '.'));
}

TEST(PortMap, BeginsEachRowWithItsFirstPort) {
    std::string expected;
    for (int row = 0; row < 16; ++row) {
        const std::string port = std::to_string(row * 4096);
        const char sign = row == 15 ? 'h' : '.';
        expected += std::string(5 - port.size(), ' ') + port + ' ' + std::string(63, '.') + sign;
        expected += '\n';
    }
    EXPECT_EQ(MapText(PortMap({Held(65535)}, {}, TAVO_PROTO_TCP), kShape, false), expected);
}

TEST(PortMap, ColoursCellsByTheirSource) {
    const std::vector<PortClaim> claims = {
        Declared(0, 0, TAVO_PROTO_TCP, TAVO_PORT_CHECK_PORT_FORWARD),
        Declared(64, 191, TAVO_PROTO_TCP, TAVO_PORT_CHECK_FW_SERVICE),
        Declared(192, 192, TAVO_PROTO_TCP, TAVO_PORT_CHECK_SYS_KEY),
        Held(256),
        Declared(320, 320, TAVO_PROTO_TCP, TAVO_PORT_CHECK_SYS_KEY),
        Declared(321, 321, TAVO_PROTO_TCP, TAVO_PORT_CHECK_FW_SERVICE),
        Held(384),
    };
    const std::string coloured = FirstRow(claims, {{384, 384}}, true);
    const std::string end(kPlain);
    EXPECT_EQ(coloured, "    0 \x1b[35md" + end + "\x1b[34mdd" + end + "\x1b[36md" + end +
                            "\x1b[32mh" + end + "\x1b[33md" + end + "\x1b[1;31m!" + end +
                            std::string(57, '.'));
    EXPECT_EQ(WithoutColour(coloured), FirstRow(claims, {{384, 384}}));
}

TEST(PortMap, EndsEachRowWithoutColour) {
    EXPECT_EQ(FirstRow({Declared(0, kHighestPort)}, {}, true),
              "    0 \x1b[34m" + std::string(64, 'd') + std::string(kPlain));
}

TEST(PortMap, HasALegendWithTheNumberOfPortsOfACell) {
    EXPECT_EQ(MapLegend(kShape, 80, false),
              "64 ports a sign: . free, d declared, h held, B both among them, ! in conflict\n");
    EXPECT_EQ(WithoutColour(MapLegend(kShape, 80, true)),
              MapLegend(kShape, 80, false) +
                  "Coloured by source: forward, service, setting, "
                  "socket, several, in conflict\n");
    EXPECT_NE(MapLegend(kShape, 80, true).find("\x1b[36msetting" + std::string(kPlain) + ","),
              std::string::npos);
}

TEST(PortMap, BreaksItsLegendToFitTheTerminal) {
    EXPECT_EQ(
        MapLegend(kShape, 40, false),
        "64 ports a sign: . free, d declared,\n  h held, B both among them,\n  ! in conflict\n");
    for (std::size_t columns = 40; columns < 100; ++columns) {
        const std::string legend = WithoutColour(MapLegend(kShape, columns, true));
        for (std::size_t begin = 0; begin < legend.size();) {
            const std::size_t end = legend.find('\n', begin);
            EXPECT_LE(end - begin, columns) << legend;
            begin = end + 1;
        }
    }
}

}  // namespace
}  // namespace tavo::test

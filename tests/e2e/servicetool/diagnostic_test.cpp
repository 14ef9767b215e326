#include "output/report.h"

#include <gmock/gmock.h>

#include <utility>

namespace tavo::tool {
namespace {

Diagnostic PortTooHigh() {
    return {"web.sc",     7,
            12,           Severity::kError,
            "port-range", "port 70000 is above 65535",
            "",           AroundSpot("dst.ports=\"70000\"", 11)};
}

TEST(DiagnosticText, PointsAtTheSpot) {
    EXPECT_EQ(DiagnosticText(PortTooHigh(), false, 80),
              "web.sc:7:12: error: port 70000 is above 65535 [port-range]\n"
              "    dst.ports=\"70000\"\n"
              "               ^\n");
}

TEST(DiagnosticText, EndsWithTheFixWhereThereIsOne) {
    Diagnostic diagnostic = PortTooHigh();
    diagnostic.severity = Severity::kWarning;
    diagnostic.fix = "write 7000";
    EXPECT_EQ(DiagnosticText(diagnostic, false, 80),
              "web.sc:7:12: warning: port 70000 is above 65535 [port-range]\n"
              "    dst.ports=\"70000\"\n"
              "               ^\n"
              "    fix: write 7000\n");
}

TEST(DiagnosticText, HasNoPlaceForAFileAsAWhole) {
    const Diagnostic diagnostic{"web.sc",     0,           0,  Severity::kError,
                                "unreadable", "is a pipe", "", {}};
    EXPECT_EQ(DiagnosticText(diagnostic, false, 80), "web.sc: error: is a pipe [unreadable]\n");
}

TEST(DiagnosticText, NamesTheProgramWhereItIsAboutNoFile) {
    const Diagnostic diagnostic{"", 0, 0, Severity::kError, "usage", "FILE is required", "", {}};
    EXPECT_EQ(DiagnosticText(diagnostic, false, 80),
              "servicetool: error: FILE is required [usage]\n");
}

TEST(DiagnosticText, ColoursWhatIsAlsoSaidInWords) {
    EXPECT_EQ(DiagnosticText(PortTooHigh(), true, 80),
              "web.sc:7:12: \x1b[1;31merror:\x1b[0m port 70000 is above 65535 [port-range]\n"
              "    dst.ports=\"70000\"\n"
              "               \x1b[1;32m^\x1b[0m\n");
    Diagnostic warning = PortTooHigh();
    warning.severity = Severity::kWarning;
    EXPECT_THAT(DiagnosticText(warning, true, 80), testing::HasSubstr("\x1b[1;33mwarning:\x1b[0m"));
}

TEST(DiagnosticText, EscapesEveryTextFromOutside) {
    const Diagnostic diagnostic{"a\nb",      1,
                                2,           Severity::kError,
                                "rule",      "has \x1b in it",
                                "take \x07", AroundSpot("\x1b\tx", 2)};
    EXPECT_EQ(DiagnosticText(diagnostic, false, 80),
              "a\\nb:1:2: error: has \\x1b in it [rule]\n"
              "    \\x1b\\tx\n"
              "          ^\n"
              "    fix: take \\x07\n");
}

TEST(DiagnosticText, AlignsTheCaretBelowWideCharacters) {
    Diagnostic diagnostic = PortTooHigh();
    diagnostic.source = AroundSpot("\xE6\xBC\xA2\xC3\xBCx", 5);
    EXPECT_THAT(DiagnosticText(diagnostic, false, 80),
                testing::EndsWith("\n    \xE6\xBC\xA2\xC3\xBCx\n       ^\n"));
}

TEST(DiagnosticText, PointsAfterALineWhereSomethingIsMissing) {
    Diagnostic diagnostic = PortTooHigh();
    diagnostic.source = AroundSpot("title=", 6);
    EXPECT_THAT(DiagnosticText(diagnostic, false, 80),
                testing::EndsWith("\n    title=\n          ^\n"));
}

// The two lines that show the position: the source line and the caret.
std::pair<std::string, std::string> Shown(const std::string &line, std::size_t spot,
                                          std::size_t columns) {
    Diagnostic diagnostic = PortTooHigh();
    diagnostic.source = AroundSpot(line, spot);
    const std::string text = DiagnosticText(diagnostic, false, columns);
    const std::size_t source = text.find('\n') + 1;
    const std::size_t caret = text.find('\n', source) + 1;
    return {text.substr(source, caret - source - 1),
            text.substr(caret, text.find('\n', caret) - caret)};
}

TEST(DiagnosticText, KeepsALineThatJustFits) {
    const std::string line = std::string(35, 'a') + "X";
    EXPECT_EQ(Shown(line, 35, 40).first, "    " + line);
    EXPECT_EQ(Shown(line, 36, 41).first, "    " + line) << "the caret needs a column";
    EXPECT_EQ(Shown(line, 36, 40).first, "    ..." + line.substr(4));
}

TEST(DiagnosticText, CutsTheLineAroundTheSpotToTheColumns) {
    const auto [source, caret] = Shown(std::string(50, 'a') + "X" + std::string(50, 'b'), 50, 40);
    EXPECT_EQ(source, "    ..." + std::string(15, 'a') + "X" + std::string(14, 'b') + "...");
    EXPECT_EQ(source.find('X'), caret.find('^'));
}

TEST(DiagnosticText, CutsByColumnsAndNotByBytes) {
    std::string wide;
    for (int i = 0; i < 18; ++i) {
        wide += "\xE6\xBC\xA2";  // two columns each
    }
    EXPECT_EQ(Shown(wide, 0, 40).first, "    " + wide);
    EXPECT_EQ(Shown(wide, 0, 39).first, "    " + wide.substr(0, 16 * 3) + "...");
    EXPECT_EQ(Shown(wide, wide.size(), 40).first, "    ..." + wide.substr(3 * 2));
    EXPECT_EQ(Shown(wide, wide.size(), 40).second, "    " + std::string(35, ' ') + "^");
}

TEST(DiagnosticText, CutsNoEscapeInTwo) {
    EXPECT_EQ(Shown("a" + std::string(9, '\x1b'), 0, 35).first,
              "    a\\x1b\\x1b\\x1b\\x1b\\x1b\\x1b...");
}

TEST(DiagnosticText, LeavesSomethingToSeeOnAnyTerminal) {
    EXPECT_EQ(Shown(std::string(50, 'a'), 0, 1).first, "    " + std::string(23, 'a') + "...");
}

TEST(AroundSpot, KeepsALineOfOrdinaryLengthWhole) {
    const std::string line(400, 'x');
    const SourceLine source = AroundSpot(line, 399);
    EXPECT_EQ(source.text, line);
    EXPECT_EQ(source.spot, 399U);
    EXPECT_FALSE(source.cut_before);
    EXPECT_FALSE(source.cut_after);
}

TEST(AroundSpot, CutsALongLineOnBothSides) {
    const std::string line = std::string(1000, 'a') + "X" + std::string(1000, 'b');
    const SourceLine source = AroundSpot(line, 1000);
    EXPECT_EQ(source.text, std::string(200, 'a') + "X" + std::string(199, 'b'));
    EXPECT_EQ(source.spot, 200U);
    EXPECT_TRUE(source.cut_before);
    EXPECT_TRUE(source.cut_after);
}

TEST(AroundSpot, ShowsTheCutsAndKeepsTheCaretRight) {
    Diagnostic diagnostic = PortTooHigh();
    diagnostic.source = AroundSpot(std::string(1000, 'a') + "X" + std::string(1000, 'b'), 1000);
    EXPECT_THAT(DiagnosticText(diagnostic, false, 500),
                testing::EndsWith("    ..." + std::string(200, 'a') + "X" + std::string(199, 'b') +
                                  "...\n    " + std::string(203, ' ') + "^\n"));
}

TEST(AroundSpot, KeepsTheEndsOfALongLineWhereTheSpotIsNear) {
    const std::string line(1000, 'a');
    EXPECT_FALSE(AroundSpot(line, 10).cut_before);
    EXPECT_TRUE(AroundSpot(line, 10).cut_after);
    EXPECT_TRUE(AroundSpot(line, 990).cut_before);
    EXPECT_FALSE(AroundSpot(line, 990).cut_after);
    EXPECT_EQ(AroundSpot(line, 1000).spot, 200U);
}

TEST(AroundSpot, CutsBetweenCharacters) {
    std::string line;
    for (int i = 0; i < 200; ++i) {
        line += "\xE6\xBC\xA2";
    }
    const SourceLine source = AroundSpot(line, 301);
    EXPECT_EQ(source.text.size() % 3, 0U);
    EXPECT_EQ(source.text.substr(0, 3), "\xE6\xBC\xA2");
    EXPECT_EQ(source.text[source.spot], line[301]);
}

}  // namespace
}  // namespace tavo::tool

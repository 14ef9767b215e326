#include "output/table.h"

#include <gmock/gmock.h>

namespace tavo::tool {
namespace {

Table TwoRows() {
    Table table({"NAME", "TITLE"});
    table.Row({"a-long-name", "Web"});
    table.Row({"b", "Files and folders"});
    return table;
}

TEST(Table, AlignsColumnsAndEndsLinesWithoutBlanks) {
    EXPECT_EQ(TwoRows().Text(true, 0),
              "NAME         TITLE\n"
              "a-long-name  Web\n"
              "b            Files and folders\n");
}

TEST(Table, LeavesTheHeaderOutAndItsWidthWithIt) {
    Table table({"NAME", "TITLE"});
    table.Row({"b", "Web"});
    EXPECT_EQ(table.Text(false, 0), "b  Web\n");
}

TEST(Table, ShowsAHyphenForWhatIsUnknown) {
    Table table({"NAME", "TITLE"});
    table.Row({"", ""});
    EXPECT_EQ(table.Text(false, 0), "-  -\n");
}

TEST(Table, CutsTheLastColumnVisiblyWhereTheTerminalIsTooNarrow) {
    EXPECT_EQ(TwoRows().Text(false, 24),
              "a-long-name  Web\n"
              "b            Files an...\n");
    EXPECT_EQ(TwoRows().Text(false, 30),
              "a-long-name  Web\n"
              "b            Files and folders\n");
}

TEST(Table, KeepsAReadableRestOfTheLastColumn) {
    EXPECT_EQ(TwoRows().Text(false, 5),
              "a-long-name  Web\n"
              "b            Files...\n");
}

TEST(Table, EscapesCells) {
    Table table({"NAME", "TITLE"});
    table.Row({"a\x1b[2J", "b\nc"});
    EXPECT_EQ(table.Text(false, 0), "a\\x1b[2J  b\\nc\n");
}

TEST(Table, AlignsByColumnsAndNotByBytes) {
    Table table({"N", "T"});
    table.Row({"\xC3\xBC", "x"});
    table.Row({"\xE6\xBC\xA2", "x"});
    EXPECT_EQ(table.Text(false, 0), "\xC3\xBC   x\n\xE6\xBC\xA2  x\n");
}

}  // namespace
}  // namespace tavo::tool

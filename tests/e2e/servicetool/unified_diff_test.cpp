// Diffs in the format that diff -u prints and patch accepts.
#include "change/installed_file.h"

#include <gmock/gmock.h>

#include <random>

#include "run_program.h"
#include "temporary_folder.h"

namespace tavo::test {

using namespace tool;

namespace {

using testing::EndsWith;

const std::string kHead = "--- a/etc/x\n+++ b/etc/x\n";

std::string Numbers(int first, int last) {
    std::string text;
    for (int i = first; i <= last; ++i) {
        text += std::to_string(i) + '\n';
    }
    return text;
}

TEST(UnifiedDiff, IsEmptyWhereNothingDiffers) {
    EXPECT_EQ(UnifiedDiff("a\n", "a\n", "/x"), "");
    EXPECT_EQ(UnifiedDiff({}, {}, "/x"), "");
}

TEST(UnifiedDiff, ShowsThreeLinesAroundAChange) {
    std::string after = Numbers(1, 20);
    after.replace(after.find("10\n"), 3, "ten\nmore\n");
    EXPECT_EQ(UnifiedDiff(Numbers(1, 20), after, "/etc/x"),
              kHead + "@@ -7,7 +7,8 @@\n 7\n 8\n 9\n-10\n+ten\n+more\n 11\n 12\n 13\n");
}

TEST(UnifiedDiff, JoinsChangesWithUpToSixLinesBetween) {
    const auto without = [](int line) {
        return Numbers(1, 4) + Numbers(6, line - 1) + Numbers(line + 1, 20);
    };
    EXPECT_EQ(UnifiedDiff(Numbers(1, 20), without(12), "/etc/x"),
              kHead +
                  "@@ -2,14 +2,12 @@\n 2\n 3\n 4\n-5\n 6\n 7\n 8\n 9\n 10\n 11\n-12\n 13\n 14\n"
                  " 15\n");
    EXPECT_EQ(UnifiedDiff(Numbers(1, 20), without(13), "/etc/x"),
              kHead +
                  "@@ -2,7 +2,6 @@\n 2\n 3\n 4\n-5\n 6\n 7\n 8\n"
                  "@@ -10,7 +9,6 @@\n 10\n 11\n 12\n-13\n 14\n 15\n 16\n");
}

TEST(UnifiedDiff, NamesNoFileForOneThatIsNotThere) {
    EXPECT_EQ(UnifiedDiff({}, "a\nb\n", "/etc/x"),
              "--- /dev/null\n+++ b/etc/x\n@@ -0,0 +1,2 @@\n+a\n+b\n");
    EXPECT_EQ(UnifiedDiff("a\n", {}, "/etc/x"), "--- a/etc/x\n+++ /dev/null\n@@ -1 +0,0 @@\n-a\n");
}

TEST(UnifiedDiff, ReportsOfAMissingNewline) {
    EXPECT_EQ(UnifiedDiff("a\nb", "a\nb\n", "/etc/x"),
              kHead + "@@ -1,2 +1,2 @@\n a\n-b\n\\ No newline at end of file\n+b\n");
}

TEST(UnifiedDiff, ReportsTheSizesOfFilesThatAreTooLarge) {
    EXPECT_EQ(UnifiedDiff(Numbers(1, 20000), "a\n", "/etc/x"),
              kHead + "(20000 lines before, 1 line after: too many to be shown)\n");
}

TEST(UnifiedDiff, IsQuickForFilesThatHaveNothingInCommon) {
    EXPECT_THAT(UnifiedDiff(Numbers(1, 10000), Numbers(10001, 20000), "/etc/x"),
                EndsWith("+20000\n"));
}

TEST(UnifiedDiff, IsTakenByPatch) {
    if (RunProgram({"sh", "-c", "command -v patch"}).status != 0) {
        GTEST_SKIP() << "patch is not installed";
    }
    const TemporaryFolder folder;
    std::mt19937 random(7);  // NOLINT(*-msc51-cpp): the same texts in every run
    const auto text = [&random] {
        std::string lines;
        for (auto i = random() % 30; i > 0; --i) {
            lines += std::string(1, static_cast<char>('a' + random() % 6)) +
                     (i > 1 || random() % 3 ? "\n" : "");
        }
        return lines;
    };
    for (int round = 0; round < 50; ++round) {
        const std::string before = text();
        const std::string after = text();
        WriteFile(folder / "x", before);
        WriteFile(folder / "diff", UnifiedDiff(before, after, "/x"));
        RunProgram({"patch", "-s", "-F0", folder / "x", folder / "diff"});
        if (!after.empty()) {
            EXPECT_EQ(ReadFile(folder / "x"), after) << ReadFile(folder / "diff");
        }
    }
}

TEST(ShownDiff, EscapesLinesAndColoursThem) {
    const std::string diff = "@@ -1 +1 @@\n-\x1b\n+b\\\n\\ No newline at end of file\n";
    EXPECT_EQ(ShownDiff(diff, false),
              "@@ -1 +1 @@\n-\\x1b\n+b\\\\\n\\ No newline at end of file\n");
    EXPECT_EQ(ShownDiff(diff, true),
              "\x1b[36m@@ -1 +1 @@\x1b[0m\n\x1b[31m-\\x1b\x1b[0m\n\x1b[32m+b\\\\\x1b[0m\n"
              "\\ No newline at end of file\n");
}

}  // namespace
}  // namespace tavo::test

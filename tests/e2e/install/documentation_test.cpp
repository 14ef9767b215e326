// Checks that the documentation describes only what exists.
#include <filesystem>
#include <string>

#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "lint/lint_rules.h"
#include "patterns.h"
#include "temporary_folder.h"

namespace tavo::test {

using namespace tool;

namespace {

namespace fs = std::filesystem;

using ::testing::HasSubstr;

const fs::path kSource = TAVO_SOURCE_DIR;

TEST(Documentation, LinksLeadSomewhere) {
    std::vector<fs::path> pages = {"README.md", "CONTRIBUTING.md", "CHANGELOG.md"};
    for (const auto &entry : fs::directory_iterator(kSource / "docs")) {
        pages.push_back(fs::path("docs") / entry.path().filename());
    }
    int links = 0;
    for (const fs::path &page : pages) {
        const std::string text = ReadFile(kSource / page);
        for (const Groups &link : AllMatches(text, R"(\]\(([^)#:]+)(#[^)]*)?\))")) {
            EXPECT_TRUE(fs::exists(kSource / page.parent_path() / link[1]))
                << page << ": " << link[1];
            ++links;
        }
    }
    EXPECT_GT(links, 5);
}

TEST(Documentation, ServiceFilePageExplainsEveryRuleOfLint) {
    const std::string page = ReadFile(kSource / "docs/service-files.md");
    for (const LintRule &rule : kLintRules) {
        EXPECT_THAT(page, HasSubstr("`" + std::string(rule.name) + "`"));
    }
}

TEST(Documentation, ArchitecturePageNamesEveryFolderOfTheSources) {
    const std::string page = ReadFile(kSource / "docs/architecture.md");
    for (const char *parent : {"src", "platform", "tools"}) {
        for (const auto &entry : fs::directory_iterator(kSource / parent)) {
            if (entry.is_directory()) {
                EXPECT_THAT(page,
                            HasSubstr("`" + fs::relative(entry.path(), kSource).string() + "/`"));
            }
        }
    }
}

TEST(Documentation, ManualNamesEveryFunctionOfTheHeader) {
    const std::string header = ReadFile(kSource / "include/tavoserviceconf.h");
    const std::string page = ReadFile(kSource / "man/tavoserviceconf.3");
    constexpr char kDeclaration[] = R"(\nTAVO_API [a-zA-Z0-9_ *\n]*?(\w+)(\(|\[))";
    int names = 0;
    for (const Groups &declared : AllMatches(header, kDeclaration)) {
        EXPECT_TRUE(HasMatch(page, "\\b" + declared[1] + "\\b")) << declared[1];
        ++names;
    }
    EXPECT_GT(names, 20);
}

}  // namespace
}  // namespace tavo::test

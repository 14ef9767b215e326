// Checks that the documentation describes only what exists.
#include <filesystem>
#include <regex>
#include <string>

#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "lint/lint_rules.h"
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
    const std::regex link(R"(\]\(([^)#:]+)(#[^)]*)?\))");
    int links = 0;
    for (const fs::path &page : pages) {
        const std::string text = ReadFile(kSource / page);
        for (std::sregex_iterator it(text.begin(), text.end(), link), end; it != end;
             ++it, ++links) {
            EXPECT_TRUE(fs::exists(kSource / page.parent_path() / (*it)[1].str()))
                << page << ": " << (*it)[1];
        }
    }
    EXPECT_GT(links, 5);
}

TEST(Documentation, ServiceFilePageTellsEveryRuleOfLint) {
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
    const std::regex declaration(R"(\nTAVO_API [a-zA-Z0-9_ *\n]*?(\w+)(\(|\[))");
    int names = 0;
    for (std::sregex_iterator it(header.begin(), header.end(), declaration), end; it != end;
         ++it, ++names) {
        const std::string name = (*it)[1];
        EXPECT_TRUE(std::regex_search(page, std::regex("\\b" + name + "\\b"))) << name;
    }
    EXPECT_GT(names, 20);
}

}  // namespace
}  // namespace tavo::test

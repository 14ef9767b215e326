// The rules of lint for files, sections, lines and keys: messages, positions and suggestions.
#include "lint/lint.h"

#include <gmock/gmock.h>

#include <set>
#include <string>

#include "lint/lint_rules.h"
#include "lint_findings.h"

namespace tavo::test {

using namespace tool;

namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST(Lint, FindsNothingInAGoodFile) {
    EXPECT_THAT(Findings("# The web service\n"
                         "\n"
                         "[global]\n"
                         "version=\"1\"\n"
                         "support_key=\"web\"\n"
                         "run_key=\"web\"\n"
                         "; next\n"
                         "[web.Admin_1-a]\n"
                         "title_key = \"web:app:title\"\r\n"
                         "title = \"Web # 1; 'it' \xC3\xBC\"\n"
                         "desc_key=app:desc\n"
                         "desc=Pages\n"
                         "desc_extra=\n"
                         "port_forward=\" YES \"\n"
                         "src.ports=\"1024:65535\"\n"
                         "dst.ports=\"80, 443 ,6000:6010/ TCP , udp \"\n"
                         "[b]\ntitle=b\ndesc=b\nport_forward=no\ndst.ports=0:79/"),
                IsEmpty());
}

TEST(Lint, NeedsNoNewlineAtTheEndAndTakesAByteOrderMark) {
    EXPECT_THAT(Findings("\xEF\xBB\xBF[web]\ntitle=a\ndesc=b\ndst.ports=80"), IsEmpty());
}

TEST(Lint, GivesTheNameOfTheFile) {
    EXPECT_EQ(LintText("", "some file").diagnostics.at(0).file, "some file");
}

TEST(Lint, GivesTheLineItIsAbout) {
    const Diagnostic finding = LintText("[web]\r\ntitel=a\r\n", "").diagnostics.back();
    EXPECT_EQ(finding.source.text, "titel=a");
    EXPECT_EQ(finding.source.spot, 0U);
}

// ---- The file and its sections

TEST(LintFile, WithoutSectionIsAnError) {
    const std::string finding =
        "1:1 error no-section: the file has no section, so no service | start each service with a "
        "line [NAME]";
    EXPECT_THAT(Findings(""), ElementsAre(finding));
    EXPECT_THAT(Findings("\n# nothing\n"), ElementsAre(finding));
    EXPECT_THAT(Findings("title=a\n"),
                ElementsAre(finding,
                            "1:1 warning key-outside-section: a key before the first section is "
                            "not read"));
}

TEST(LintFile, WithNothingButGlobalIsAnError) {
    EXPECT_THAT(Findings("# a\n[global]\nversion=1\n"),
                ElementsAre("1:1 error only-global: the only section is [global], so there is no "
                            "service | add a section [NAME] for each service"));
}

TEST(LintSection, NameOfOtherCharactersIsAnErrorAtTheFirstOfThem) {
    const std::string says =
        " contains characters other than letters, digits, \"-\", \".\" and \"_\" | write ";
    const std::string rest = "\n"s + kTitle + kDesc + kPorts;
    EXPECT_THAT(
        Findings("[web admin]" + rest),
        ElementsAre("1:5 error section-name: section name \"web admin\"" + says + "[web-admin]"));
    EXPECT_THAT(
        Findings("[web/admin]" + rest),
        ElementsAre("1:5 error section-name: section name \"web/admin\"" + says + "[web-admin]"));
    EXPECT_THAT(Findings("  [ web ]" + rest),
                ElementsAre("1:4 error section-name: section name \" web \"" + says + "[web]"));
    EXPECT_THAT(Findings("[w\xC3\xBC]" + rest),
                ElementsAre("1:3 error section-name: section name \"w\xC3\xBC\" contains "
                            "characters other than letters, digits, \"-\", \".\" and \"_\""));
}

TEST(LintSection, WithoutNameIsAnError) {
    EXPECT_THAT(Findings("[]\n"s + kTitle + kDesc + kPorts),
                ElementsAre("1:2 error section-name: the section has no name"));
}

TEST(LintSection, BadNameIsReportedForEachHeader) {
    EXPECT_THAT(
        Findings("[a b]\n"s + kTitle + kDesc + kPorts + "[a b]\n"),
        ElementsAre(testing::StartsWith("1:3 error section-name"),
                    testing::StartsWith("5:3 error section-name"),
                    "5:2 warning duplicate-section: section [a b] already starts in line 1; "
                    "both are read as one"));
}

TEST(LintSection, LongNameIsCut) {
    const std::string name = std::string(254, 'n') + "XY";
    EXPECT_THAT(
        Findings("[" + name + "]\n" + kTitle + kDesc + kPorts),
        ElementsAre("1:257 warning text-truncated: the section's name has 256 bytes; it is cut to "
                    "255 and ends in \"...nnnnnnnnnnnX\""));
    EXPECT_THAT(Findings("[" + name.substr(1) + "]\n" + kTitle + kDesc + kPorts), IsEmpty());
}

TEST(LintSection, WithoutKeysIsAnError) {
    EXPECT_THAT(Findings("[web]\n# title=a\n[b]\ntitle=a\ndesc=b\ndst.ports=1\n"),
                ElementsAre("1:2 error empty-section: section [web] has no key"));
}

TEST(LintSection, LacksEachRequiredKeyAtItsHeader) {
    EXPECT_THAT(Findings("[web]\nport_forward=no\n"),
                ElementsAre("1:2 error missing-title: section [web] lacks title | add a line "
                            "title=\"TEXT\"",
                            "1:2 error missing-desc: section [web] lacks desc | add a line "
                            "desc=\"TEXT\"",
                            "1:2 error missing-dst-ports: section [web] lacks dst.ports | add a "
                            "line dst.ports=\"PORTS/PROTOCOLS\""));
    EXPECT_THAT(Findings("[web]\n"s + kTitle + kPorts),
                ElementsAre(testing::StartsWith("1:2 error missing-desc:")));
}

TEST(LintSection, TwiceIsReadAsOne) {
    EXPECT_THAT(
        Findings("[web]\n"s + kTitle + "[b]\n" + kTitle + kDesc + "dst.ports=81\n[web]\n" + kDesc +
                 kPorts),
        ElementsAre("7:2 warning duplicate-section: section [web] already starts in line 1; "
                    "both are read as one"));
}

TEST(LintSection, NamesThatDifferOnlyInCaseAreDoubtful) {
    const std::string rest = "\n"s + kTitle + kDesc + "dst.ports=8";
    EXPECT_THAT(
        Findings("[web]" + rest + "0\n[Web]" + rest + "1\n"),
        ElementsAre("5:2 warning name-case: section [Web] differs from [web] in line 1 only "
                    "in case"));
}

TEST(LintSection, GlobalInCapitalsIsAService) {
    EXPECT_THAT(Findings("[Global]\n"s + kTitle + kDesc + kPorts),
                ElementsAre("1:2 warning name-case: [Global] differs from [global] in case, so it "
                            "is read as a service | write [global]"));
}

TEST(LintSection, EmptyGlobalIsNotRead) {
    EXPECT_THAT(
        Findings(GoodFileAnd("[global]\n")),
        ElementsAre("5:2 warning empty-global: section [global] has no key and is not read"));
}

// ---- Lines and keys

TEST(LintKey, GivenTwiceNamesTheLineThatCounts) {
    EXPECT_THAT(Findings(GoodFileAnd("title=b\n[web]\ntitle=c\n")),
                ElementsAre("2:1 warning duplicate-key: title is repeated in line 7, which takes "
                            "effect | remove one of the two",
                            "5:1 warning duplicate-key: title is repeated in line 7, which takes "
                            "effect | remove one of the two",
                            testing::StartsWith("6:2 warning duplicate-section")));
}

TEST(LintKey, OnlyTheLineThatCountsIsChecked) {
    EXPECT_THAT(Findings("[web]\n"s + kTitle + kDesc + "dst.ports=x\n" + kPorts),
                ElementsAre(testing::StartsWith("4:1 warning duplicate-key")));
    EXPECT_THAT(Findings(GoodFileAnd("dst.ports=x\n")),
                ElementsAre(testing::StartsWith("4:1 warning duplicate-key"),
                            testing::StartsWith("5:11 error port-syntax")));
}

TEST(LintKey, UnknownIsNotRead) {
    EXPECT_THAT(Findings(GoodFileAnd("colour=blue\n")),
                ElementsAre("5:1 warning unknown-key: key \"colour\" is unknown in the section of "
                            "a service and is not read"));
    EXPECT_THAT(Findings(GoodFileAnd("[global]\ncolour=blue\n")),
                ElementsAre("6:1 warning unknown-key: key \"colour\" is unknown in [global] and is "
                            "not read"));
}

TEST(LintKey, UnknownSuggestsWhatIsSimilar) {
    const std::pair<const char *, const char *> cases[] = {
        {"Title", "write title"},
        {"dst_ports", "write dst.ports"},
        {"dstports", "write dst.ports"},
        {"src.port", "write src.ports"},
        {"portforward", "write port_forward"},
        {"decs", "write desc"},
        {"version", "move it to section [global]"},
    };
    for (const auto &[key, fix] : cases) {
        EXPECT_THAT(Findings(GoodFileAnd(key + "=1\n"s)),
                    ElementsAre(testing::EndsWith(" and is not read | "s + fix)))
            << key;
    }
    EXPECT_THAT(Findings(GoodFileAnd("[global]\nversion=1\ntitle=a\nsuport_key=a\n")),
                ElementsAre(testing::EndsWith("| move it to the section of a service"),
                            testing::EndsWith("| write support_key")));
}

TEST(LintLine, BeforeTheFirstSectionIsNotRead) {
    EXPECT_THAT(Findings("version=1\n" + GoodFileAnd("")),
                ElementsAre("1:1 warning key-outside-section: a key before the first section is "
                            "not read"));
}

TEST(LintLine, OfNoKindIsNotRead) {
    EXPECT_THAT(
        Findings(GoodFileAnd("  hello\n[half\n=value\n")),
        ElementsAre("5:3 warning stray-line: neither a comment, a section nor key=value, so the "
                    "line is not read",
                    "6:1 warning stray-line: a section header ends with \"]\"; this line does not "
                    "and is not read",
                    "7:1 warning stray-line: there is no key before the \"=\", so the line is not "
                    "read"));
}

TEST(LintLine, WithANulByteIsNotRead) {
    EXPECT_THAT(Findings(GoodFileAnd("desc_extra=a\0b\n"s)),
                ElementsAre("5:13 warning nul-byte: a line that contains a NUL byte is not read"));
}

// ---- The result as a whole

TEST(LintResult, CountsAndNamesTheServices) {
    const LintResult result = LintText("[global]\nversion=1\n[a]\ntitle=x\n[b]\n"s + kTitle +
                                           kDesc + kPorts + "[b]\n[c d]\n" + kTitle,
                                       "f");
    EXPECT_EQ(result.errors, 5U);
    EXPECT_EQ(result.warnings, 1U);
    ASSERT_THAT(result.services, SizeIs(3));
    EXPECT_EQ(result.services[0].name, "a");
    EXPECT_FALSE(result.services[0].readable);
    EXPECT_EQ(result.diagnostics.at(result.services[0].first_error.value()).rule, "missing-desc");
    EXPECT_EQ(result.services[1].name, "b");
    EXPECT_TRUE(result.services[1].readable);
    EXPECT_EQ(result.services[1].first_error, std::nullopt);
    EXPECT_EQ(result.services[2].name, "c d");
    EXPECT_EQ(result.diagnostics.at(result.services[2].first_error.value()).rule, "section-name");
}

TEST(LintResult, ErrorsOfASectionReopenedLaterBelongToIt) {
    const LintResult result = LintText(
        "[a]\n"s + kTitle + kDesc + "[b]\n" + kTitle + kDesc + kPorts + "[a]\ndst.ports=x\n", "f");
    ASSERT_THAT(result.services, SizeIs(2));
    EXPECT_FALSE(result.services[0].readable);
    EXPECT_TRUE(result.services[1].readable);
}

TEST(LintResult, ListsABoundedNumberAndCountsTheRest) {
    std::string text = GoodFileAnd("");
    for (int i = 0; i < 1500; ++i) {
        text += "stray\n[s" + std::to_string(i) + "]\n";
    }
    const LintResult result = LintText(text, "f");
    EXPECT_EQ(result.errors, 1500U);
    EXPECT_EQ(result.warnings, 1500U);
    ASSERT_THAT(result.diagnostics, SizeIs(2001));
    EXPECT_EQ(result.diagnostics.back().rule, "more-problems");
    EXPECT_EQ(result.diagnostics.back().message, "500 errors and 500 warnings are not listed");
    EXPECT_EQ(result.diagnostics.back().line, 0U);
    EXPECT_FALSE(result.services.back().readable);
    EXPECT_EQ(result.services.back().first_error, std::nullopt);
}

TEST(LintRules, AreNamedOnce) {
    std::set<std::string_view> names;
    for (const LintRule &rule : kLintRules) {
        EXPECT_TRUE(names.insert(rule.name).second) << rule.name;
    }
}

}  // namespace
}  // namespace tavo::test

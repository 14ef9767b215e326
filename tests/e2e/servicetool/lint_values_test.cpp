// The rules of lint for values other than port lists.
#include <gmock/gmock.h>

#include <string>

#include "lint_findings.h"

namespace tavo::test {
namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(LintText, CutTextSaysWhatIsLeft) {
    const std::string text = std::string(120, 'a') + "1234567890";
    for (const char *key : {"title", "desc", "desc_extra"}) {
        EXPECT_THAT(Findings("[web]\n"s + (key == "title"s ? "" : kTitle) +
                             (key == "desc"s ? "" : kDesc) + kPorts + key + "=\"" + text + "\"\n"),
                    testing::Contains(testing::EndsWith(
                        " warning text-truncated: "s + key +
                        " has 130 bytes; it is cut to 127 and ends in \"...aaaaa1234567\"")));
    }
    EXPECT_THAT(Findings(GoodFileAnd("desc_extra=\"" + text.substr(3) + "\"\n")), IsEmpty());
}

TEST(LintText, PointsAtTheFirstByteThatIsLost) {
    EXPECT_THAT(Findings(GoodFileAnd("desc_extra=" + std::string(128, 'x') + "\n")),
                ElementsAre(testing::StartsWith("5:139 warning text-truncated")));
}

TEST(LintText, KeysOfTheFileAreCutToo) {
    EXPECT_THAT(
        Findings(GoodFileAnd("[global]\nsupport_key=" + std::string(128, 'x') +
                             "\nrun_key=" + std::string(128, 'x') + "\n")),
        ElementsAre(testing::StartsWith("6:140 warning text-truncated: support_key has 128"),
                    testing::StartsWith("7:136 warning text-truncated: run_key has 128")));
}

TEST(LintText, EmptyIsDoubtful) {
    EXPECT_THAT(Findings("[web]\ntitle=\"\"\ndesc=\n"s + kPorts),
                ElementsAre("2:8 warning empty-text: title is empty",
                            "3:6 warning empty-text: desc is empty"));
}

TEST(LintText, OfBlanksIsDoubtful) {
    EXPECT_THAT(Findings("[web]\ntitle=\"  \"\n"s + kDesc + kPorts),
                ElementsAre("2:8 warning empty-text: title contains only blanks"));
}

TEST(LintText, WithControlCharactersIsDoubtful) {
    EXPECT_THAT(Findings(GoodFileAnd("desc_extra=a\x1b[31m\x1b[0m\n")),
                ElementsAre("5:13 warning control-byte: desc_extra contains a control character"));
    EXPECT_THAT(Findings(GoodFileAnd("desc_extra=\"a\tb\"\n")),
                ElementsAre("5:14 warning control-byte: desc_extra contains a control character"));
}

TEST(LintText, ThatIsNoUtf8IsDoubtful) {
    EXPECT_THAT(
        Findings(GoodFileAnd("desc_extra=a\xFF\xFF\n")),
        ElementsAre("5:13 warning broken-utf-8: desc_extra contains a byte that is not UTF-8"));
}

TEST(LintQuotes, MustStandOnBothSides) {
    EXPECT_THAT(
        Findings(GoodFileAnd("desc_extra=\"abc\n")),
        ElementsAre("5:12 warning quotes: the opening quote has no closing one at the end of the "
                    "line and is read as part of the value | end the line with a quote, or remove "
                    "this one"));
    EXPECT_THAT(Findings(GoodFileAnd("desc_extra=abc\"\n")),
                ElementsAre("5:15 warning quotes: the closing quote has no opening one and is read "
                            "as part of the value | start the value with a quote, or remove this "
                            "one"));
    EXPECT_THAT(Findings(GoodFileAnd("desc_extra=\"\n")),
                ElementsAre(testing::StartsWith("5:12 warning quotes: the opening")));
}

TEST(LintQuotes, AreDoubleOnes) {
    EXPECT_THAT(
        Findings(GoodFileAnd("desc_extra='abc'\n")),
        ElementsAre("5:12 warning quotes: single quotes are read as part of the value | use "
                    "double quotes"));
}

TEST(LintQuotes, ExplainABadPortList) {
    EXPECT_THAT(PortFindings("\"80/tcp"),
                ElementsAre(testing::StartsWith("4:11 warning quotes: the opening"),
                            "4:11 error port-syntax: \"\"80\" is not a port number"));
}

TEST(LintComment, AfterAValueIsPartOfIt) {
    EXPECT_THAT(
        Findings(GoodFileAnd("desc_extra=abc # why\n")),
        ElementsAre("5:16 warning trailing-comment: what looks like a comment is read as "
                    "part of the value | put the comment on a line of its own, or the value "
                    "in quotes"));
    EXPECT_THAT(Findings(GoodFileAnd("desc_extra=abc ; why\n")),
                ElementsAre(testing::StartsWith("5:16 warning trailing-comment")));
    EXPECT_THAT(Findings(GoodFileAnd("desc_extra=C# and a;b\n")), IsEmpty());
    EXPECT_THAT(Findings(GoodFileAnd("desc_extra=\"abc # why\"\n")), IsEmpty());
}

TEST(LintPortForward, IsYesOrNo) {
    const std::pair<const char *, const char *> cases[] = {
        {"true", "write yes"},        {"1", "write yes"},      {"ON", "write yes"},
        {"false", "write no"},        {"0", "write no"},       {"off", "write no"},
        {"maybe", "write yes or no"}, {"", "write yes or no"},
    };
    for (const auto &[value, fix] : cases) {
        EXPECT_THAT(Findings(GoodFileAnd("port_forward="s + value + "\n")),
                    ElementsAre("5:14 warning port-forward-value: \""s + value +
                                "\" is neither yes nor no and counts as no | " + fix));
    }
}

TEST(LintPortForward, IsComparedInItsFirst31Bytes) {
    EXPECT_THAT(Findings(GoodFileAnd("port_forward=yes" + std::string(28, ' ') + "not\n")),
                ElementsAre(testing::HasSubstr("is neither yes nor no and counts as yes")));
    EXPECT_THAT(Findings(GoodFileAnd("port_forward=\"" + std::string(29, ' ') + "yes\"\n")),
                ElementsAre(testing::HasSubstr("counts as no")));
}

TEST(LintVersion, IsAWholeNumber) {
    const std::pair<const char *, const char *> cases[] = {
        {"1.0", "\"1.0\" is not a version number and is read as 1 | write 1"},
        {"two", "\"two\" is not a version number and is read as 0 | write 1"},
        {"", "\"\" is not a version number and is read as 0 | write 1"},
        {"-2", "\"-2\" is not a version number and is read as -2 | write 1"},
        {"4294967298", "\"4294967298\" is not a version number and is read as 2 | write 2"},
    };
    for (const auto &[value, says] : cases) {
        EXPECT_THAT(Findings(GoodFileAnd("[global]\nversion="s + value + "\n")),
                    ElementsAre("6:9 warning version-number: "s + says));
    }
}

TEST(LintReference, WithoutColonHasNoEffect) {
    EXPECT_THAT(
        Findings(GoodFileAnd("title_key=a\ndesc_key=b\n")),
        ElementsAre("5:11 warning reference: title_key without a colon has no effect: title "
                    "takes its place | write SECTION:KEY or SOURCE:SECTION:KEY",
                    "6:10 warning reference: desc_key without a colon has no effect: desc "
                    "takes its place | write SECTION:KEY or SOURCE:SECTION:KEY"));
}

TEST(LintReference, HasThreePartsAtMost) {
    EXPECT_THAT(Findings(GoodFileAnd("title_key=a:b:c:d\n")),
                ElementsAre("5:16 warning reference: this colon is read as part of the key: a "
                            "reference has three parts at most"));
}

TEST(LintReference, HasNoEmptyPart) {
    EXPECT_THAT(Findings(GoodFileAnd("title_key=:: \ndesc_key=a:\n")),
                ElementsAre("5:11 warning reference: the source of title_key is empty",
                            "5:12 warning reference: the section of title_key is empty",
                            "5:13 warning reference: the key of title_key is empty",
                            "6:12 warning reference: the key of desc_key is empty"));
}

TEST(LintReference, PartsAreCutEachToItsOwnSize) {
    const auto long_by = [](std::size_t size) { return std::string(size, 'x'); };
    EXPECT_THAT(
        Findings(GoodFileAnd("title_key=" + long_by(256) + ":" + long_by(64) + ":" + long_by(128))),
        ElementsAre(
            testing::StartsWith("5:266 warning text-truncated: the source of title_key has 256 "
                                "bytes; it is cut to 255"),
            testing::StartsWith("5:331 warning text-truncated: the section of title_key has 64 "
                                "bytes; it is cut to 63"),
            testing::StartsWith("5:460 warning text-truncated: the key of title_key has 128 "
                                "bytes; it is cut to 127")));
    EXPECT_THAT(
        Findings(GoodFileAnd("title_key=" + long_by(255) + ":" + long_by(63) + ":" + long_by(127))),
        IsEmpty());
}

}  // namespace
}  // namespace tavo::test

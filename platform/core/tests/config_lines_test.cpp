#include "config_lines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <random>
#include <string>
#include <vector>

namespace tavo {

void PrintTo(ConfigLineKind kind, std::ostream *out) {
    const char *names[] = {"blank", "comment", "section", "key=value", "other"};
    *out << names[static_cast<int>(kind)];
}

namespace {

using enum ConfigLineKind;
using namespace std::string_literals;
using namespace std::string_view_literals;

struct Case {
    std::string text;
    ConfigLineKind kind;
    std::string name = {};
    std::string raw_value = {};
    std::string value = {};
};

const Case kCases[] = {
    {"", kBlank},
    {" \t\v\f\r ", kBlank},
    {"\r", kBlank},

    {"#", kComment},
    {"# a comment", kComment},
    {"; another", kComment},
    {" \t# after blanks", kComment},
    {";[section]", kComment},
    {"#key=value", kComment},

    {"[name]", kSection, "name"},
    {"  [name]\t", kSection, "name"},
    {"[name]\r", kSection, "name"},
    {"[ a name ]", kSection, " a name "},
    {"[]", kSection, ""},
    {"[[]]", kSection, "[]"},
    {"[a]b]", kSection, "a]b"},
    {"[a] # [b]", kSection, "a] # [b"},
    {"[a=b]", kSection, "a=b"},
    {"[a\rb]", kSection, "a\rb"},
    {"[\xC3\xA4\xFF]", kSection, "\xC3\xA4\xFF"},

    {"[", kOther},
    {"]", kOther},
    {"[name", kOther},
    {"name]", kOther},
    {"[name] x", kOther},
    {"x [name]", kOther},
    {"word", kOther},
    {"=", kOther},
    {"=value", kOther},
    {" \t = value", kOther},
    {"\xEF\xBB\xBF[name]", kOther},
    {"\0"s, kOther},
    {" \0 "s, kOther},
    {"#\0"s, kOther},
    {"[na\0me]"s, kOther},
    {"key=val\0ue"s, kOther},
    {"key=value\0"s, kOther},

    {"key=value", kKeyValue, "key", "value", "value"},
    {" key\t= value ", kKeyValue, "key", "value", "value"},
    {"a key = a value", kKeyValue, "a key", "a value", "a value"},
    {"key=", kKeyValue, "key", "", ""},
    {"key= ", kKeyValue, "key", "", ""},
    {"key=a=b", kKeyValue, "key", "a=b", "a=b"},
    {"key==", kKeyValue, "key", "=", "="},
    {"key=value # no comment", kKeyValue, "key", "value # no comment", "value # no comment"},
    {"key=a\\n\\\"", kKeyValue, "key", "a\\n\\\"", "a\\n\\\""},
    {"key=#", kKeyValue, "key", "#", "#"},
    {"ke#y=v", kKeyValue, "ke#y", "v", "v"},
    {"[key=value", kKeyValue, "[key", "value", "value"},
    {"[key]=value", kKeyValue, "[key]", "value", "value"},
    {"key=[value]", kKeyValue, "key", "[value]", "[value]"},
    {"dst.ports=\"80,443/tcp\"", kKeyValue, "dst.ports", "\"80,443/tcp\"", "80,443/tcp"},
    {"key=\"\"", kKeyValue, "key", "\"\"", ""},
    {"key=\"", kKeyValue, "key", "\"", "\""},
    {"key=\"a", kKeyValue, "key", "\"a", "\"a"},
    {"key=a\"", kKeyValue, "key", "a\"", "a\""},
    {"key=\"\"a\"\"", kKeyValue, "key", "\"\"a\"\"", "\"a\""},
    {"key=\" a \" ", kKeyValue, "key", "\" a \"", " a "},
    {"key='a'", kKeyValue, "key", "'a'", "'a'"},
    {"key=a\rb", kKeyValue, "key", "a\rb", "a\rb"},
    {"\"key\"=v", kKeyValue, "\"key\"", "v", "v"},
    {"\xFF\xFE=\x80", kKeyValue, "\xFF\xFE", "\x80", "\x80"},
    {"k\xC2\xA0=\xC2\xA0v", kKeyValue, "k\xC2\xA0", "\xC2\xA0v", "\xC2\xA0v"},
};

void ExpectLine(const ConfigLine &line, const Case &expected) {
    SCOPED_TRACE(testing::PrintToString(expected.text));
    EXPECT_EQ(line.kind, expected.kind);
    EXPECT_EQ(line.text, expected.text);
    EXPECT_EQ(line.name, expected.name);
    EXPECT_EQ(line.raw_value, expected.raw_value);
    EXPECT_EQ(line.value, expected.value);
}

TEST(ConfigLine, IsClassifiedByItsEndsAndTheFirstEqualsSign) {
    for (const Case &expected : kCases) {
        ExpectLine(ParseConfigLine(expected.text), expected);
    }
}

TEST(ConfigLineReader, ReturnsTheLinesInOrder) {
    std::string text;
    for (const Case &line : kCases) {
        text += line.text + "\n";
    }
    ConfigLineReader reader(text);
    ConfigLine line;
    std::size_t number = 0;
    std::size_t begin = 0;
    for (const Case &expected : kCases) {
        ASSERT_TRUE(reader.Next(line));
        // A carriage return at the end of a line is part of the line end.
        Case seen = expected;
        seen.text.resize(seen.text.size() - (seen.text.ends_with('\r') ? 1 : 0));
        ExpectLine(line, seen);
        EXPECT_EQ(line.number, ++number);
        EXPECT_EQ(line.begin, begin);
        begin += expected.text.size() + 1;
        EXPECT_EQ(line.end, begin);
    }
    EXPECT_FALSE(reader.Next(line));
}

TEST(ConfigLineReader, LeavesTheLineUnchangedAtTheEnd) {
    ConfigLineReader reader("[a]");
    ConfigLine line;
    ASSERT_TRUE(reader.Next(line));
    EXPECT_FALSE(reader.Next(line));
    EXPECT_EQ(line.name, "a");
    EXPECT_FALSE(reader.NextSection(line));
    EXPECT_EQ(line.name, "a");
}

TEST(ConfigLineReader, CountsColumnsInBytesFromOne) {
    ConfigLineReader reader("\xEF\xBB\xBF  [s]\n\tk\xC3\xB6y = \" v \"\r\n");
    ConfigLine line;
    ASSERT_TRUE(reader.Next(line));
    EXPECT_EQ(line.ColumnOf(line.text), 1u);
    EXPECT_EQ(line.ColumnOf(line.name), 4u);
    ASSERT_TRUE(reader.Next(line));
    EXPECT_EQ(line.number, 2u);
    EXPECT_EQ(line.ColumnOf(line.name), 2u);
    EXPECT_EQ(line.ColumnOf(line.raw_value), 9u);
    EXPECT_EQ(line.ColumnOf(line.value), 10u);
}

TEST(ConfigLineReader, KnowsTheColumnOfAnEmptyValue) {
    const ConfigLine line = ParseConfigLine(" key = ");
    EXPECT_EQ(line.ColumnOf(line.raw_value), 7u);
    EXPECT_EQ(line.ColumnOf(line.value), 7u);
}

std::vector<std::string> Texts(std::string_view text) {
    std::vector<std::string> texts;
    ConfigLineReader reader(text);
    for (ConfigLine line; reader.Next(line);) {
        texts.emplace_back(line.text);
    }
    return texts;
}

TEST(ConfigLineReader, EndsLinesAtLfAndCrLf) {
    using testing::ElementsAre;
    EXPECT_THAT(Texts(""), ElementsAre());
    EXPECT_THAT(Texts("\n"), ElementsAre(""));
    EXPECT_THAT(Texts("a"), ElementsAre("a"));
    EXPECT_THAT(Texts("a\n"), ElementsAre("a"));
    EXPECT_THAT(Texts("a\nb"), ElementsAre("a", "b"));
    EXPECT_THAT(Texts("a\r\nb\r\n"), ElementsAre("a", "b"));
    EXPECT_THAT(Texts("a\r\r\n"), ElementsAre("a\r"));
    EXPECT_THAT(Texts("a\rb\n"), ElementsAre("a\rb"));
    EXPECT_THAT(Texts("\r\n\r\n"), ElementsAre("", ""));
    EXPECT_THAT(Texts("a\r"), ElementsAre("a\r"));
}

TEST(ConfigLineReader, SkipsOneByteOrderMarkAtTheStartOnly) {
    using testing::ElementsAre;
    EXPECT_THAT(Texts("\xEF\xBB\xBF"), ElementsAre());
    EXPECT_THAT(Texts("\xEF\xBB\xBF\xEF\xBB\xBF"), ElementsAre("\xEF\xBB\xBF"));
    EXPECT_THAT(Texts("\n\xEF\xBB\xBF"), ElementsAre("", "\xEF\xBB\xBF"));
    EXPECT_THAT(Texts("\xEF\xBB"), ElementsAre("\xEF\xBB"));
    ConfigLineReader reader("\xEF\xBB\xBF[s]\n");
    ConfigLine line;
    ASSERT_TRUE(reader.Next(line));
    EXPECT_EQ(line.kind, kSection);
    EXPECT_EQ(line.begin, 3u);
    EXPECT_EQ(line.end, 7u);
}

TEST(ConfigLineReader, RejectsOnlyTheLineWithANul) {
    ConfigLineReader reader("a=1\nb=\0002\n[c]\n"sv);
    std::vector<ConfigLineKind> kinds;
    for (ConfigLine line; reader.Next(line);) {
        kinds.push_back(line.kind);
    }
    EXPECT_THAT(kinds, testing::ElementsAre(kKeyValue, kOther, kSection));
}

TEST(ConfigLineReader, SkipsToSectionsAndContinuesAfterThem) {
    ConfigLineReader reader("k=[x]\n [y\n\t[a]\nk=1\n[b] x\nl=2\n[c]");
    ConfigLine line;
    ASSERT_TRUE(reader.NextSection(line));
    EXPECT_EQ(line.name, "a");
    EXPECT_EQ(line.text, "\t[a]");
    ASSERT_TRUE(reader.Next(line));
    EXPECT_EQ(line.name, "k");
    ASSERT_TRUE(reader.NextSection(line));
    EXPECT_EQ(line.name, "c");
    EXPECT_FALSE(reader.NextSection(line));
    EXPECT_FALSE(reader.Next(line));
}

// Random texts of the bytes that matter to the grammar.
std::string RandomText(std::mt19937 &random) {
    constexpr std::string_view kBytes("[[[]]]\n\n\n\r =#;ab\"\0\t\xEF\xBB\xBF", 22);
    std::uniform_int_distribution<std::size_t> size(0, 40);
    std::uniform_int_distribution<std::size_t> byte(0, kBytes.size() - 1);
    std::string text(size(random), ' ');
    for (char &c : text) {
        c = kBytes[byte(random)];
    }
    return text;
}

TEST(ConfigLineReader, SkipsToTheSectionsThatAWalkOverAllLinesFinds) {
    for (unsigned int seed = 1; seed <= 20000; ++seed) {
        std::mt19937 random(seed);
        const std::string text = RandomText(random);
        SCOPED_TRACE("seed " + std::to_string(seed) + ": " + testing::PrintToString(text));
        ConfigLineReader walker(text);
        ConfigLineReader hopper(text);
        ConfigLine hopped;
        for (ConfigLine walked; walker.Next(walked);) {
            if (walked.kind == kSection) {
                ASSERT_TRUE(hopper.NextSection(hopped));
                ASSERT_EQ(hopped.begin, walked.begin);
                ASSERT_EQ(hopped.end, walked.end);
                ASSERT_EQ(hopped.name, walked.name);
                ASSERT_EQ(hopped.text, walked.text);
            }
        }
        ASSERT_FALSE(hopper.NextSection(hopped));
    }
}

TEST(ConfigLineReader, LosesNoByteBetweenItsLines) {
    for (unsigned int seed = 1; seed <= 20000; ++seed) {
        std::mt19937 random(seed);
        const std::string text = RandomText(random);
        SCOPED_TRACE("seed " + std::to_string(seed) + ": " + testing::PrintToString(text));
        std::size_t end = text.starts_with("\xEF\xBB\xBF") ? 3 : 0;
        ConfigLineReader reader(text);
        for (ConfigLine line; reader.Next(line);) {
            ASSERT_EQ(line.begin, end);
            ASSERT_EQ(line.text.data(), text.data() + line.begin);
            ASSERT_TRUE(text.substr(line.begin + line.text.size()).starts_with("\n") ||
                        text.substr(line.begin + line.text.size()).starts_with("\r\n") ||
                        line.begin + line.text.size() == text.size());
            end = line.end;
        }
        ASSERT_EQ(end, text.size());
    }
}

TEST(TrimBlanks, RemovesTheSixBlanksFromBothEnds) {
    EXPECT_EQ(TrimBlanks(" \t\n\v\f\ra b \t\n\v\f\r"), "a b");
    EXPECT_EQ(TrimBlanks("\xA0 a\0"sv), "\xA0 a\0"sv);
    EXPECT_EQ(TrimBlanks("   "), "");
    EXPECT_EQ(TrimBlanks(""), "");
}

}  // namespace
}  // namespace tavo

#include "output/text.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <initializer_list>
#include <string>

namespace tavo::tool {
namespace {

using namespace std::string_view_literals;

TEST(Escaped, LeavesTextAsItIs) {
    EXPECT_EQ(Escaped("Web server: \"a\" = 'b' \xC3\xBC \xE6\xBC\xA2 \xF0\x9F\x98\x80"),
              "Web server: \"a\" = 'b' \xC3\xBC \xE6\xBC\xA2 \xF0\x9F\x98\x80");
}

TEST(Escaped, NamesControlBytes) {
    EXPECT_EQ(Escaped("a\nb\tc\rd\x1b[31m\x7f\0e"sv), "a\\nb\\tc\\rd\\x1b[31m\\x7f\\x00e");
}

TEST(Escaped, DoublesTheBackslashSoThatNothingElseLooksTheSame) {
    EXPECT_EQ(Escaped("\\x1b"), "\\\\x1b");
}

TEST(Escaped, NamesControlCharactersBeyondAscii) {
    EXPECT_EQ(Escaped("a\xC2\x9B"
                      "31m"),
              "a\\u009b31m");
    EXPECT_EQ(Escaped("\xE2\x80\xAE"
                      "cba"),
              "\\u202ecba");
    EXPECT_EQ(Escaped("\xE2\x80\xA8"), "\\u2028");
    EXPECT_EQ(Escaped("\xEF\xBB\xBFtext"), "\\ufefftext");
}

std::string Utf8Of(char32_t code) {
    const auto tail = [code](int shift) {
        return static_cast<char>(0x80 | (code >> shift & 0x3F));
    };
    if (code < 0x80) {
        return {static_cast<char>(code)};
    }
    if (code < 0x800) {
        return {static_cast<char>(0xC0 | code >> 6), tail(0)};
    }
    if (code < 0x10000) {
        return {static_cast<char>(0xE0 | code >> 12), tail(6), tail(0)};
    }
    return {static_cast<char>(0xF0 | code >> 18), tail(12), tail(6), tail(0)};
}

TEST(Escaped, NamesWhatIsInvisibleOrTurnsTextAround) {
    for (const char32_t code : std::initializer_list<char32_t>{
             0xAD,   0x34F,  0x61C,  0x115F, 0x1160, 0x17B4, 0x17B5, 0x180B, 0x180F, 0x200B, 0x200E,
             0x200F, 0x202A, 0x202E, 0x2060, 0x206F, 0x3164, 0xFEFF, 0xFFA0, 0xFFF0, 0xFFFB}) {
        char escaped[8];
        std::snprintf(escaped, sizeof(escaped), "\\u%04x", static_cast<unsigned>(code));
        EXPECT_EQ(Escaped(Utf8Of(code)), escaped);
    }
    EXPECT_EQ(Escaped(Utf8Of(0xE0000) + Utf8Of(0xE0FFF)), "\\U000e0000\\U000e0fff");
    EXPECT_EQ(Escaped(Utf8Of(0x1BCA0) + Utf8Of(0x1D17A)), "\\U0001bca0\\U0001d17a");
}

TEST(Escaped, LeavesTheNeighboursOfInvisibleCharacters) {
    for (const char32_t code : std::initializer_list<char32_t>{
             0xA0,   0xAC,   0xAE,   0x34E,  0x350,   0x61B,  0x61D,  0x115E, 0x1161,
             0x17B3, 0x17B6, 0x180A, 0x1810, 0x200A,  0x200C, 0x200D, 0x2010, 0x2027,
             0x202F, 0x205F, 0x2070, 0x3163, 0x3165,  0xFE00, 0xFE0F, 0xFEFE, 0xFF9F,
             0xFFA1, 0xFFEF, 0xFFFC, 0xFFFD, 0xDFFFF, 0xE1000}) {
        EXPECT_EQ(Escaped(Utf8Of(code)), Utf8Of(code)) << std::hex << static_cast<unsigned>(code);
    }
}

TEST(Escaped, LeavesJoinersToTheWordsThatNeedThem) {
    EXPECT_EQ(Escaped("\xD9\x85\xE2\x80\x8C\xD8\xAE"), "\xD9\x85\xE2\x80\x8C\xD8\xAE");
}

TEST(Escaped, NamesEachByteThatIsNoUtf8) {
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"\xFF", "\\xff"},
        {"a\xC3", "a\\xc3"},                           // cut short
        {"\xC3(", "\\xc3("},                           // no continuation byte
        {"\x80", "\\x80"},                             // a continuation byte alone
        {"\xC0\xAF", "\\xc0\\xaf"},                    // over-long
        {"\xE0\x80\xAF", "\\xe0\\x80\\xaf"},           // over-long
        {"\xED\xA0\x80", "\\xed\\xa0\\x80"},           // a surrogate
        {"\xF4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},  // beyond the last code point
        {"\xF0\x9F\x98", "\\xf0\\x9f\\x98"},           // cut short
    };
    for (const auto &[text, escaped] : cases) {
        EXPECT_EQ(Escaped(text), escaped);
    }
}

TEST(DisplayWidth, CountsColumnsOfATerminal) {
    EXPECT_EQ(DisplayWidth(""), 0U);
    EXPECT_EQ(DisplayWidth("abc"), 3U);
    EXPECT_EQ(DisplayWidth("\xC3\xBC"), 1U);
    EXPECT_EQ(DisplayWidth("\xE6\xBC\xA2\xE5\xAD\x97"), 4U);  // two wide characters
    EXPECT_EQ(DisplayWidth("e\xCC\x81"), 1U);                 // a combining accent
}

TEST(FirstColumns, NeverSplitsACharacter) {
    EXPECT_EQ(FirstColumns("abc", 2), "ab");
    EXPECT_EQ(FirstColumns("abc", 3), "abc");
    EXPECT_EQ(FirstColumns("\xE6\xBC\xA2\xE5\xAD\x97", 3), "\xE6\xBC\xA2");
    EXPECT_EQ(FirstColumns("\xC3\xBC\xC3\xBC", 1), "\xC3\xBC");
}

TEST(Quoted, CutsLongTextVisibly) {
    EXPECT_EQ(Quoted("short"), "\"short\"");
    EXPECT_EQ(Quoted(std::string(60, 'x')), '"' + std::string(60, 'x') + '"');
    EXPECT_EQ(Quoted(std::string(61, 'x')), '"' + std::string(60, 'x') + "...\"");
    EXPECT_EQ(Quoted(std::string(59, 'x') + "\xC3\xBC"), '"' + std::string(59, 'x') + "...\"");
}

TEST(Utf8Text, NamesOnlyWhatIsNoUtf8) {
    EXPECT_EQ(Utf8Text("\xC3\xBC\x1b\\\xFF"), "\xC3\xBC\x1b\\\\xff");
}

TEST(LowerFirst, GivesMessagesOfOthersOurForm) {
    EXPECT_EQ(LowerFirst("Permission denied"), "permission denied");
    EXPECT_EQ(LowerFirst("It failed."), "it failed");
    EXPECT_EQ(LowerFirst("FILE is required"), "FILE is required");
    EXPECT_EQ(LowerFirst(""), "");
}

TEST(Counted, DistinguishesOneFromMany) {
    EXPECT_EQ(Counted(1, "error"), "1 error");
    EXPECT_EQ(Counted(0, "error"), "0 errors");
    EXPECT_EQ(Counted(2, "error"), "2 errors");
}

}  // namespace
}  // namespace tavo::tool

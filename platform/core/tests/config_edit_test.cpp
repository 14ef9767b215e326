// Sets a key in every short text, without files.
#include "config_edit.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "config_lines.h"
#include "short_texts.h"

namespace tavo {
namespace {

std::string Quoted(const std::string &text) {
    return '"' + text + '"';
}

ConfigLine LineOf(std::string_view text) {
    return ParseConfigLine(text.substr(0, text.find('\n')));
}

// The line of key k after setting the value in a section that consists of `line`.
std::string Set(const std::string &line, const std::string &value, KeptLines kept) {
    TLIBCSzHash *keys = TLIBCSzHashAlloc(1);
    TLIBCSzHashSetValue(keys, "k", value.c_str());
    TextBuffer out;
    EXPECT_TRUE(SetSectionKeys("[s]\n" + line + "\n", "s", keys, OtherKeys::kTakeOut,
                               MissingSection::kAdd, kept, out));
    TLIBCSzHashFree(keys);
    return std::string(out.View().substr(4));
}

TEST(SetSectionKeysTest, ReadsBackAQuotedTextForEveryOldLine) {
    const std::vector<std::string> texts = test::ShortTexts(3);
    for (const std::string &old : texts) {
        for (const std::string &line : {"k=" + old, "k = " + Quoted(old)}) {
            for (const std::string &text : texts) {
                const std::string after = Set(line, Quoted(text), KeptLines::kSameValue);
                ASSERT_EQ(LineOf(after).value, text) << line;
            }
        }
    }
}

TEST(SetSectionKeysTest, KeepsOnlyLinesWithExactlyTheTextInSameTextMode) {
    const std::vector<std::string> texts = test::ShortTexts(3);
    for (const std::string &old : texts) {
        for (const std::string &line : {"k=" + old, "k = " + Quoted(old)}) {
            for (const std::string &text : texts) {
                const std::string after = Set(line, text, KeptLines::kSameText);
                ASSERT_EQ(LineOf(after).raw_value, TrimBlanks(text)) << line;
            }
        }
    }
}

TEST(SetSectionKeysTest, KeepsEveryLineThatIsWrittenBack) {
    for (const std::string &text : test::ShortTexts(5)) {
        for (const std::string &line : {"k=" + text, " k\t= " + Quoted(text) + " "}) {
            const std::string value(LineOf(line).value);
            const std::string back = NeedsQuotes(value) ? Quoted(value) : value;
            ASSERT_EQ(Set(line, back, KeptLines::kSameValue), line + "\n");
            ASSERT_EQ(LineOf("k=" + back).value, value);
        }
    }
}

}  // namespace
}  // namespace tavo

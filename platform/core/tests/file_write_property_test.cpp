// Random files and random changes, checked with a slow and simple reader: the section has the
// requested contents, and every byte outside the section is unchanged.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "file_support.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

// ---- The slow reader ----------------------------------------------------------------------------

struct Line {
    enum Kind { kGap, kHeader, kKey, kOther } kind;  // a gap is a blank line or a comment
    std::string bytes, name, value;
};

std::string Trimmed(const std::string &text) {
    constexpr char kBlanks[] = " \t\n\v\f\r";
    const std::size_t first = text.find_first_not_of(kBlanks);
    return first == std::string::npos
               ? ""
               : text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string Unquoted(const std::string &text) {
    const bool quoted = text.size() > 1 && text.front() == '"' && text.back() == '"';
    return quoted ? text.substr(1, text.size() - 2) : text;
}

Line ReadLine(const std::string &bytes) {
    const std::string text = Trimmed(bytes);
    const std::size_t equals = text.find('=');
    if (bytes.find('\0') != std::string::npos) {
        return {Line::kOther, bytes, "", ""};
    }
    if (text.empty() || text[0] == '#' || text[0] == ';') {
        return {Line::kGap, bytes, "", ""};
    }
    if (text.front() == '[' && text.back() == ']') {
        return {Line::kHeader, bytes, text.substr(1, text.size() - 2), ""};
    }
    if (equals == std::string::npos || equals == 0) {
        return {Line::kOther, bytes, "", ""};
    }
    return {Line::kKey, bytes, Trimmed(text.substr(0, equals)),
            Unquoted(Trimmed(text.substr(equals + 1)))};
}

// The lines before the first header (without a name), or a header and the lines after it.
struct Block {
    bool is_section = false;
    std::string name;
    std::vector<Line> lines;

    std::string Bytes() const {
        std::string bytes;
        for (const Line &line : lines) {
            bytes += line.bytes;
        }
        return bytes;
    }
};

std::vector<Block> ReadBlocks(std::string text) {
    if (text.starts_with("\xEF\xBB\xBF")) {
        text.erase(0, 3);
    }
    std::vector<Block> blocks(1);
    while (!text.empty()) {
        const Line line = ReadLine(text.substr(0, text.find('\n') + 1));
        const Line last = line.bytes.empty() ? ReadLine(text) : line;
        text.erase(0, last.bytes.size());
        if (last.kind == Line::kHeader) {
            blocks.push_back({true, last.name, {}});
        }
        blocks.back().lines.push_back(last);
    }
    return blocks;
}

bool HasSection(const std::vector<Block> &blocks, const std::string &section) {
    for (const Block &block : blocks) {
        if (block.is_section && block.name == section) {
            return true;
        }
    }
    return false;
}

using KeyMap = std::map<std::string, std::string>;

KeyMap KeysOf(const std::vector<Block> &blocks, const std::string &section) {
    KeyMap keys;
    for (const Block &block : blocks) {
        for (const Line &line : block.lines) {
            if (block.is_section && block.name == section && line.kind == Line::kKey) {
                keys[line.name] = line.value;
            }
        }
    }
    return keys;
}

// All bytes outside the section, block by block.
Strings BlocksBeside(const std::vector<Block> &blocks, const std::string &section) {
    Strings beside;
    for (const Block &block : blocks) {
        if (!block.is_section || block.name != section) {
            beside.push_back(block.Bytes());
        }
    }
    return beside;
}

// The lines of the section that are not keys.
Strings OtherLinesOf(const std::vector<Block> &blocks, const std::string &section) {
    Strings others;
    for (const Block &block : blocks) {
        for (const Line &line : block.lines) {
            if (block.is_section && block.name == section && line.kind != Line::kKey) {
                others.push_back(line.bytes);
            }
        }
    }
    return others;
}

// ---- Random files and changes -------------------------------------------------------------------

class Dice {
  public:
    explicit Dice(unsigned int seed) : random_(seed) {}

    std::size_t Below(std::size_t count) {
        return std::uniform_int_distribution<std::size_t>(0, count - 1)(random_);
    }
    bool OneIn(std::size_t count) { return Below(count) == 0; }

    const std::string &Of(const Strings &choices) { return choices[Below(choices.size())]; }

  private:
    std::mt19937 random_;
};

const Strings kNames = {"s", "t", "S", "", " s ", "a]b"};
const Strings kKeyNames = {"a", "b", "a b", "A", "dst.ports", "[k", "\xC3\xA4"};
const Strings kValues = {"",   "1",   "\"1\"", "\"",   "\"\"1\"\"", "80,443/tcp", "a=b",
                         "x]", "# v", " 1",    "\"\"", "\xFF",      "1\r"};
const Strings kUnknownLines = {"word", "=1", "[open", std::string("a\0=1", 4), "] x", "== "};
const Strings kGapLines = {"", " \t", "# a comment", ";[s]", "  # k=v", "#"};
const Strings kBlanks = {"", "", "", " ", "\t", " \t "};

std::string RandomLine(Dice &dice) {
    switch (dice.Below(6)) {
        case 0:
            return dice.Of(kBlanks) + "[" + dice.Of(kNames) + "]" + dice.Of(kBlanks);
        case 1:
            return dice.Of(kGapLines);
        case 2:
            return dice.Of(kUnknownLines);
        default:
            return dice.Of(kBlanks) + dice.Of(kKeyNames) + dice.Of(kBlanks) + "=" +
                   dice.Of(kBlanks) + dice.Of(kValues) + dice.Of(kBlanks);
    }
}

std::string RandomFile(Dice &dice) {
    const std::string usual_end = dice.OneIn(2) ? "\n" : "\r\n";
    std::string text = dice.OneIn(8) ? "\xEF\xBB\xBF" : "";
    for (std::size_t lines = dice.Below(16); lines > 0; --lines) {
        text += RandomLine(dice) + (dice.OneIn(8) ? "\n" : usual_end);
    }
    if (dice.OneIn(4)) {
        text += RandomLine(dice);
    }
    return text;
}

Keys RandomKeys(Dice &dice) {
    KeyMap keys;
    for (std::size_t count = dice.Below(5); count > 0; --count) {
        const std::string &key = dice.Of(kKeyNames);
        const std::string &value = dice.Of(kValues);
        // "[k=x]" would be read as a section header.
        keys[key] = key == "[k" && value == "x]" ? "x" : value;
    }
    return {keys.begin(), keys.end()};
}

// ---- The properties -----------------------------------------------------------------------------

class FileWriteProperty : public testing::Test {
  protected:
    static constexpr unsigned int kRuns = 3000;

    // Flushing costs nothing in a memory file system.
    static void SetUpTestSuite() {
        if (access("/dev/shm", W_OK) == 0) {
            setenv("TMPDIR", "/dev/shm", 1);
        }
    }
    static void TearDownTestSuite() { unsetenv("TMPDIR"); }

    template <typename Property>
    void ForRandomFiles(Property property) {
        for (unsigned int seed = 1; seed <= kRuns && !HasFailure(); ++seed) {
            Dice dice(seed);
            const std::string before = RandomFile(dice);
            path_ = folder_.Write("file", before);
            SCOPED_TRACE("seed " + std::to_string(seed) + ": " + testing::PrintToString(before));
            property(dice, before, dice.Of(kNames));
            EXPECT_THAT(folder_.Entries(), testing::ElementsAre("file"));
        }
    }

    ino_t FileNumber() const {
        struct stat status = {};
        stat(path_.c_str(), &status);
        return status.st_ino;
    }

    // Calls `write` and compares the keys of the section, as read, with `wanted`.
    template <typename Write>
    void ExpectWritten(const std::string &before, const std::string &section, const KeyMap &wanted,
                       Write write) {
        const std::vector<Block> old_blocks = ReadBlocks(before);
        EXPECT_EQ(write(path_.c_str(), section.c_str()), 0);
        const std::string after = ReadFile(path_);
        SCOPED_TRACE("after: " + testing::PrintToString(after));
        const std::vector<Block> new_blocks = ReadBlocks(after);
        EXPECT_EQ(KeysOf(new_blocks, section), wanted);
        if (HasSection(old_blocks, section)) {
            EXPECT_EQ(BlocksBeside(new_blocks, section), BlocksBeside(old_blocks, section));
            ExpectSameOtherLines(new_blocks, old_blocks, section);
        } else {
            EXPECT_THAT(after, testing::StartsWith(before));
            EXPECT_EQ(new_blocks.size(), old_blocks.size() + 1);
        }
    }

    // If the last line had no line end, it may get one.
    static void ExpectSameOtherLines(const std::vector<Block> &new_blocks,
                                     const std::vector<Block> &old_blocks,
                                     const std::string &section) {
        Strings new_lines = OtherLinesOf(new_blocks, section);
        Strings old_lines = OtherLinesOf(old_blocks, section);
        if (!old_lines.back().ends_with('\n')) {
            old_lines.back() = Trimmed(old_lines.back());
            new_lines.back() = Trimmed(new_lines.back());
        }
        EXPECT_EQ(new_lines, old_lines);
    }

    TemporaryFolder folder_;
    std::string path_;
};

KeyMap AsRead(const Keys &keys) {
    KeyMap read;
    for (const auto &[key, value] : keys) {
        read[key] = Unquoted(Trimmed(value));
    }
    return read;
}

// The value that is read for a key after it was set: an existing line with the same value is kept.
KeyMap AsReadOver(const Keys &keys, const KeyMap &old) {
    KeyMap read = AsRead(keys);
    for (const auto &[key, value] : keys) {
        const auto there = old.find(key);
        if (there != old.end() && there->second == value && Unquoted(value) == value) {
            read[key] = value;
        }
    }
    return read;
}

TEST_F(FileWriteProperty, ReadersAgreeWithTheSlowReader) {
    ForRandomFiles([&](Dice &, const std::string &before, const std::string &section) {
        const Keys keys = SectionOf(path_, section);
        EXPECT_EQ(KeyMap(keys.begin(), keys.end()), KeysOf(ReadBlocks(before), section));
        Strings names;
        for (const Block &block : ReadBlocks(before)) {
            const bool known = std::find(names.begin(), names.end(), block.name) != names.end();
            if (block.is_section && !known) {
                names.push_back(block.name);
            }
        }
        EXPECT_EQ(SectionNamesOf(path_), names);
    });
}

TEST_F(FileWriteProperty, SetSectionLeavesTheKeysOfTheTable) {
    ForRandomFiles([&](Dice &dice, const std::string &before, const std::string &section) {
        const Keys keys = RandomKeys(dice);
        const Table table(keys);
        const KeyMap old = KeysOf(ReadBlocks(before), section);
        ExpectWritten(before, section, AsReadOver(keys, old), [&](auto *path, auto *name) {
            return TLIBCFileSetSection(path, name, nullptr, table.Get(), 0);
        });
    });
}

TEST_F(FileWriteProperty, AddSectionAddsToTheExistingKeys) {
    ForRandomFiles([&](Dice &dice, const std::string &before, const std::string &section) {
        const Keys keys = RandomKeys(dice);
        const Table table(keys);
        const KeyMap old = KeysOf(ReadBlocks(before), section);
        KeyMap wanted = AsReadOver(keys, old);
        wanted.insert(old.begin(), old.end());
        ExpectWritten(before, section, wanted, [&](auto *path, auto *name) {
            return TLIBCFileAddSection(path, name, table.Get(), 0);
        });
    });
}

TEST_F(FileWriteProperty, SetSectionValueChangesOneKey) {
    ForRandomFiles([&](Dice &dice, const std::string &before, const std::string &section) {
        const std::vector<Block> blocks = ReadBlocks(before);
        const Keys keys = {{dice.Of({"a", "b", "new"}), dice.Of(kValues)}};
        const auto set = [&](const char *path, const char *name) {
            return TLIBCFileSetSectionValue(path, name, keys[0].first.c_str(),
                                            keys[0].second.c_str());
        };
        if (!HasSection(blocks, section)) {
            EXPECT_EQ(set(path_.c_str(), section.c_str()), -1);
            EXPECT_EQ(ReadFile(path_), before);
            return;
        }
        KeyMap wanted = AsRead(keys);
        const KeyMap old = KeysOf(blocks, section);
        wanted.insert(old.begin(), old.end());
        ExpectWritten(before, section, wanted, set);
    });
}

TEST_F(FileWriteProperty, RemoveSectionLeavesOnlyTheCommentsOfTheNextSection) {
    ForRandomFiles([&](Dice &, const std::string &before, const std::string &section) {
        // The rest of a block, which moves to the block before it, is the text after the last
        // significant line, without leading blank lines.
        std::string expected = before.starts_with("\xEF\xBB\xBF") ? "\xEF\xBB\xBF" : "";
        for (const Block &block : ReadBlocks(before)) {
            std::string kept;
            for (const Line &line : block.lines) {
                const bool means = line.kind != Line::kGap;
                const bool blank = Trimmed(line.bytes).empty();
                kept = means || (blank && kept.empty()) ? "" : kept + line.bytes;
            }
            expected += block.is_section && block.name == section ? kept : block.Bytes();
        }
        EXPECT_EQ(TLIBCFileRemoveSection(path_.c_str(), section.c_str()), 0);
        EXPECT_EQ(ReadFile(path_), expected);
    });
}

// A value that is read with quotes must be written with another pair of quotes.
Keys HandedBack(Keys keys) {
    for (auto &[key, value] : keys) {
        value = Unquoted(value) == value ? value : '"' + value + '"';
    }
    return keys;
}

TEST_F(FileWriteProperty, WritingBackTheValuesReadWritesNothing) {
    ForRandomFiles([&](Dice &, const std::string &before, const std::string &section) {
        const ino_t file = FileNumber();
        if (HasSection(ReadBlocks(before), section)) {
            const Table table(HandedBack(SectionOf(path_, section)));
            EXPECT_EQ(TLIBCFileSetSection(path_.c_str(), section.c_str(), nullptr, table.Get(), 0),
                      0);
        }
        EXPECT_EQ(ReadFile(path_), before);
        EXPECT_EQ(FileNumber(), file);
    });
}

TEST_F(FileWriteProperty, WritingTheSameAgainWritesNothing) {
    ForRandomFiles([&](Dice &dice, const std::string &, const std::string &section) {
        const Table table(RandomKeys(dice));
        const auto set = [&] {
            return TLIBCFileSetSection(path_.c_str(), section.c_str(), nullptr, table.Get(), 0);
        };
        EXPECT_EQ(set(), 0);
        const std::string once = ReadFile(path_);
        const ino_t file = FileNumber();
        EXPECT_EQ(set(), 0);
        EXPECT_EQ(ReadFile(path_), once);
        EXPECT_EQ(FileNumber(), file);
    });
}

}  // namespace
}  // namespace tavo::test

#include <functional>
#include <string>

#include "file_support.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::Pair;
using namespace std::string_literals;

// Each case writes `before`, makes one successful call and expects exactly `after`.
class FileWrite : public testing::Test {
  protected:
    using Call = std::function<int(const char *path)>;

    std::string After(const std::string &before, const Call &call) {
        const std::string path = folder_.Write("file", before);
        EXPECT_SUCCESS(0, call(path.c_str()));
        EXPECT_THAT(folder_.Entries(), ElementsAre("file"));
        return ReadFile(path);
    }

    std::string Set(const std::string &before, const std::string &section, const Keys &keys) {
        const Table table(keys);
        return After(before, [&](const char *path) {
            return TLIBCFileSetSection(path, section.c_str(), nullptr, table.Get(), 0);
        });
    }

    std::string Add(const std::string &before, const std::string &section, const Keys &keys) {
        const Table table(keys);
        return After(before, [&](const char *path) {
            return TLIBCFileAddSection(path, section.c_str(), table.Get(), 0);
        });
    }

    std::string SetValue(const std::string &before, const std::string &section,
                         const std::string &key, const std::string &value) {
        return After(before, [&](const char *path) {
            return TLIBCFileSetSectionValue(path, section.c_str(), key.c_str(), value.c_str());
        });
    }

    std::string Remove(const std::string &before, const std::string &section) {
        return After(before, [&](const char *path) {
            return TLIBCFileRemoveSection(path, section.c_str());
        });
    }

    // The call fails with `code`, and the file is unchanged.
    void Refuses(unsigned int code, const std::string &before, const Call &call) {
        const std::string path = folder_.Write("file", before);
        EXPECT_FAILURE(code, call(path.c_str()));
        EXPECT_EQ(ReadFile(path), before);
        EXPECT_THAT(folder_.Entries(), ElementsAre("file"));
    }

    TemporaryFolder folder_;
};

using FileSetSection = FileWrite;
using FileAddSection = FileWrite;
using FileSetSectionValue = FileWrite;
using FileRemoveSection = FileWrite;

// ---- TLIBCFileSetSectionValue -------------------------------------------------------------------

TEST_F(FileSetSectionValue, ChangesTheLineOfTheKeyAndNothingElse) {
    EXPECT_EQ(SetValue("k=0\n# c\n[s]\n a = 1\nk =\t\"2\" \n\n[t]\nk=3\n", "s", "k", "new"),
              "k=0\n# c\n[s]\n a = 1\nk=new\n\n[t]\nk=3\n");
}

TEST_F(FileSetSectionValue, WritesTheValueAsGiven) {
    EXPECT_EQ(SetValue("[s]\nk=1\n", "s", "k", ""), "[s]\nk=\n");
    EXPECT_EQ(SetValue("[s]\nk=1\n", "s", "k", " a "), "[s]\nk= a \n");
    EXPECT_EQ(SetValue("[s]\nk=1\n", "s", "k", "\"a\""), "[s]\nk=\"a\"\n");
    EXPECT_EQ(SetValue("[s]\nk=1\n", "s", "k", "a=b#c;d\\"), "[s]\nk=a=b#c;d\\\n");
    EXPECT_EQ(SetValue("[s]\nk=1\n", "s", "k", "\xFF\xC3"), "[s]\nk=\xFF\xC3\n");
    EXPECT_EQ(SetValue("[s]\nk=1\n", "s", "k", "a\rb\r"), "[s]\nk=a\rb\r\n");
}

TEST_F(FileSetSectionValue, KeepsTheSpellingOfALineWithExactlyTheText) {
    for (const std::string &line : {"  k =\t1 "s, "k = 1\r"s, "k=1"s}) {
        const std::string text = "[s]\n" + line + "\n";
        EXPECT_EQ(SetValue(text, "s", "k", "1"), text);
    }
    EXPECT_EQ(SetValue("[s]\nk = \"1\"\n", "s", "k", "\"1\""), "[s]\nk = \"1\"\n");
    EXPECT_EQ(SetValue("[s]\nk = 1\n", "s", "k", "\"1\""), "[s]\nk=\"1\"\n");
    EXPECT_EQ(SetValue("[s]\nk = \n", "s", "k", ""), "[s]\nk = \n");
    EXPECT_EQ(SetValue("[s]\nk=1\n", "s", "k", " 1 "), "[s]\nk=1\n");
    // If this counted as a new value, every call would add a carriage return.
    EXPECT_EQ(SetValue("[s]\nk=1\r\n", "s", "k", "1\r"), "[s]\nk=1\r\n");
}

TEST_F(FileSetSectionValue, ReplacesALineThatIsOnlyReadLikeTheText) {
    EXPECT_EQ(SetValue("[s]\nk = \"1\" \r\n", "s", "k", "1"), "[s]\nk=1\r\n");
    EXPECT_EQ(SetValue("[s]\nk=\"\"1\"\"\n", "s", "k", "\"1\""), "[s]\nk=\"1\"\n");
    EXPECT_EQ(SetValue("[s]\nk = \"\"\n", "s", "k", ""), "[s]\nk=\n");
    EXPECT_EQ(SetValue("[s]\nk=\" 1 \"\n", "s", "k", " 1 "), "[s]\nk= 1 \n");
}

TEST_F(FileSetSectionValue, ChangesTheLastOfEqualKeys) {
    EXPECT_EQ(SetValue("[s]\nk=1\nk=2\na=3\n", "s", "k", "1"), "[s]\nk=1\nk=1\na=3\n");
    EXPECT_EQ(SetValue("[s]\nk=1\n[t]\nk=2\n[s]\nk=3\n[u]\nk=4\n", "s", "k", "x"),
              "[s]\nk=1\n[t]\nk=2\n[s]\nk=x\n[u]\nk=4\n");
    EXPECT_EQ(SetValue("[s]\nk=1\n[t]\nk=2\n[s]\na=3\n", "s", "k", "x"),
              "[s]\nk=x\n[t]\nk=2\n[s]\na=3\n");
}

TEST_F(FileSetSectionValue, AddsANewKeyAfterTheLastSignificantLine) {
    EXPECT_EQ(SetValue("[s]\n\n# c\n[t]\n", "s", "k", "1"), "[s]\nk=1\n\n# c\n[t]\n");
    EXPECT_EQ(SetValue("[s]\n# a\na=1\n# c\n\n; d\n[t]\n", "s", "k", "1"),
              "[s]\n# a\na=1\nk=1\n# c\n\n; d\n[t]\n");
    EXPECT_EQ(SetValue("[s]\nword\n\n[t]\n", "s", "k", "1"), "[s]\nword\nk=1\n\n[t]\n");
    EXPECT_EQ(SetValue("[s]\na=1\n[t]\n[s]\n\n[u]\n", "s", "k", "1"),
              "[s]\na=1\n[t]\n[s]\nk=1\n\n[u]\n");
    EXPECT_EQ(SetValue("[s]\nx\0\n\n"s, "s", "k", "1"), "[s]\nx\0\nk=1\n\n"s);
}

TEST_F(FileSetSectionValue, EndsALastLineWithoutNewlineBeforeItAppends) {
    EXPECT_EQ(SetValue("[s]", "s", "k", "1"), "[s]\nk=1\n");
    EXPECT_EQ(SetValue("[s]\na=1", "s", "k", "1"), "[s]\na=1\nk=1\n");
    EXPECT_EQ(SetValue("[s]\r\na=1", "s", "k", "1"), "[s]\r\na=1\r\nk=1\r\n");
    EXPECT_EQ(SetValue("[s]\n# c", "s", "k", "1"), "[s]\nk=1\n# c");
    EXPECT_EQ(SetValue("[s]\nk=1", "s", "k", "2"), "[s]\nk=2");
}

TEST_F(FileSetSectionValue, KeepsLineEndsAndUsesTheFirstOneForNewLines) {
    EXPECT_EQ(SetValue("[s]\r\nk=1\nl=2\r\n", "s", "k", "x"), "[s]\r\nk=x\nl=2\r\n");
    EXPECT_EQ(SetValue("[s]\nk=1\r\n", "s", "k", "x"), "[s]\nk=x\r\n");
    EXPECT_EQ(SetValue("[s]\r\na=1\n", "s", "k", "x"), "[s]\r\na=1\nk=x\r\n");
    EXPECT_EQ(SetValue("[s]\na=1\r\n", "s", "k", "x"), "[s]\na=1\r\nk=x\n");
    EXPECT_EQ(SetValue("\xEF\xBB\xBF\r\n[s]\n", "s", "k", "x"), "\xEF\xBB\xBF\r\n[s]\nk=x\r\n");
}

TEST_F(FileSetSectionValue, KeepsAByteOrderMark) {
    EXPECT_EQ(SetValue("\xEF\xBB\xBF[s]\nk=1\n", "s", "k", "2"), "\xEF\xBB\xBF[s]\nk=2\n");
}

TEST_F(FileSetSectionValue, RejectsAMissingSection) {
    const auto set = [](const char *path) { return TLIBCFileSetSectionValue(path, "s", "k", "1"); };
    Refuses(kBadParameterCode, "", set);
    Refuses(kBadParameterCode, "k=1\n[S]\nk=1\n[s\nk=1\n# [s]\n", set);
}

// ---- TLIBCFileSetSection ------------------------------------------------------------------------

TEST_F(FileSetSection, SetsExactlyTheKeysOfTheTable) {
    EXPECT_EQ(Set("[s]\na=1\nb=2\n# c\nc=3\nword\n\n[t]\na=9\n", "s",
                  {{"c", "x"}, {"new", "y"}, {"a", "1"}, {"newer", "z"}}),
              "[s]\na=1\n# c\nc=x\nword\nnew=y\nnewer=z\n\n[t]\na=9\n");
}

TEST_F(FileSetSection, RemovesEveryLineOfAKeyThatTheTableLacks) {
    EXPECT_EQ(Set("[s]\na=1\nb=2\na=3\n[t]\na=9\n[s]\na=4\n", "s", {{"b", "2"}}),
              "[s]\nb=2\n[t]\na=9\n[s]\n");
}

TEST_F(FileSetSection, KeepsEarlierLinesOfAKeyThatTheTableHas) {
    EXPECT_EQ(Set("[s]\na=1\na=2\n", "s", {{"a", "3"}}), "[s]\na=1\na=3\n");
}

TEST_F(FileSetSection, InsertsNewKeysAtThePositionOfTheLastKey) {
    EXPECT_EQ(Set("[s]\na=1\n\n# c\nb=2\n\n[t]\n", "s", {{"x", "1"}, {"y", "2"}}),
              "[s]\n\n# c\nx=1\ny=2\n\n[t]\n");
    EXPECT_EQ(Set("[s]\na=1", "s", {{"x", "1"}}), "[s]\nx=1\n");
}

TEST_F(FileSetSection, LeavesTheHeaderOfASectionForAnEmptyTable) {
    EXPECT_EQ(Set("[s]\na=1\n# c\n\n[t]\nb=2\n", "s", {}), "[s]\n# c\n\n[t]\nb=2\n");
}

TEST_F(FileSetSection, AddsAMissingSection) {
    EXPECT_EQ(Set("[t]\na=1\n", "s", {{"b", "2"}, {"a", "3"}}), "[t]\na=1\n\n[s]\nb=2\na=3\n");
    EXPECT_EQ(Set("", "s", {}), "[s]\n");
}

TEST_F(FileSetSection, ChangesNothingWhenTheValuesReadAreWrittenBack) {
    const std::string text =
        "\xEF\xBB\xBF# c\r\n  [s]  \r\n a = \"1\" \nb=\"\"2\"\"\r\nb = '3'\r\n=no\nc\0=1\n[k]=[v\n"
        "[t]\n[s]\nd=\ne=\"\n"s;
    const std::string path = folder_.Write("file", text);
    const Table table(SectionOf(path, "s"));
    EXPECT_THAT(table.Entries(), ElementsAre(Pair("a", "1"), Pair("b", "'3'"), Pair("[k]", "[v"),
                                             Pair("d", ""), Pair("e", "\"")));
    EXPECT_EQ(Set(text, "s", table.Entries()), text);
}

TEST_F(FileSetSection, KeepsTheSpellingOfALineThatIsReadAsTheValue) {
    for (const std::string &line : {"k = \"1\""s, " k=1"s}) {
        EXPECT_EQ(Set("[s]\n" + line + "\n", "s", {{"k", "1"}}), "[s]\n" + line + "\n");
        EXPECT_EQ(Add("[s]\n" + line + "\n", "s", {{"k", "1"}}), "[s]\n" + line + "\n");
    }
    EXPECT_EQ(Set("[s]\nk=\" 1 \"\n", "s", {{"k", " 1 "}}), "[s]\nk=\" 1 \"\n");
}

TEST_F(FileSetSection, ReplacesALineThatIsOnlyReadLikeTheQuotedValue) {
    for (const std::string &line : {"k=1"s, "k=\"\"1\"\""s, "k = \"\"1\"\" \t"s}) {
        EXPECT_EQ(Set("[s]\n" + line + "\n", "s", {{"k", "\"1\""}}), "[s]\nk=\"1\"\n");
        EXPECT_EQ(Add("[s]\n" + line + "\n", "s", {{"k", "\"1\""}}), "[s]\nk=\"1\"\n");
    }
    EXPECT_EQ(Set("[s]\nk=\"\"\"\"\n", "s", {{"k", "\"\""}}), "[s]\nk=\"\"\n");
    EXPECT_EQ(Set("[s]\nk =\"1\"\n", "s", {{"k", "\"1\""}}), "[s]\nk =\"1\"\n");
    EXPECT_EQ(Set("[s]\nk =\"\"1\"\"\n", "s", {{"k", "\"\"1\"\""}}), "[s]\nk =\"\"1\"\"\n");
}

// Without the quotes the line would be read as a section header.
TEST_F(FileSetSection, AcceptsAKeptLineThatItCouldNotWrite) {
    const std::string text = "[s]\n[a=\"b]\"\nk=1\n";
    const Table read(SectionOf(folder_.Write("file", text), "s"));
    Keys keys = read.Entries();
    ASSERT_THAT(keys, ElementsAre(Pair("[a", "b]"), Pair("k", "1")));
    keys[1].second = "2";
    EXPECT_EQ(Set(text, "s", keys), "[s]\n[a=\"b]\"\nk=2\n");
    EXPECT_EQ(Add(text, "s", keys), "[s]\n[a=\"b]\"\nk=2\n");
    keys[0].second = "c]";
    Refuses(kBadParameterCode, text, [&](const char *path) {
        return TLIBCFileSetSection(path, "s", nullptr, Table(keys).Get(), 0);
    });
    Refuses(kBadParameterCode, "[t]\n", [&](const char *path) {
        return TLIBCFileSetSection(path, "s", nullptr, read.Get(), 0);
    });
}

TEST_F(FileSetSection, IgnoresThePlatformsArguments) {
    const Table table{{"a", "1"}};
    EXPECT_EQ(After("",
                    [&](const char *path) {
                        return TLIBCFileSetSection(path, "s", "reserved", table.Get(), -1);
                    }),
              "[s]\na=1\n");
}

TEST_F(FileSetSection, IsLinearInTheKeys) {
    std::string before = "[s]\n";
    std::string after = "[s]\n";
    Keys keys;
    for (int i = 0; i < 20000; ++i) {
        const std::string key = "key" + std::to_string(i);
        before += key + "=1\n";
        after += key + "=2\n";
        keys.emplace_back(key, "2");
    }
    EXPECT_EQ(Set(before, "s", keys), after);
    EXPECT_EQ(Set("", "s", keys), after);
}

// ---- TLIBCFileAddSection ------------------------------------------------------------------------

TEST_F(FileAddSection, AppendsTheSectionAfterABlankLine) {
    const Keys keys = {{"a", "1"}, {"b", "\"2\""}};
    EXPECT_EQ(Add("[t]\nc=3\n", "s", keys), "[t]\nc=3\n\n[s]\na=1\nb=\"2\"\n");
    EXPECT_EQ(Add("[t]\nc=3", "s", keys), "[t]\nc=3\n\n[s]\na=1\nb=\"2\"\n");
    EXPECT_EQ(Add("# c\n", "s", keys), "# c\n\n[s]\na=1\nb=\"2\"\n");
    EXPECT_EQ(Add("[t]\n\n", "s", keys), "[t]\n\n[s]\na=1\nb=\"2\"\n");
    EXPECT_EQ(Add("[t]\n \t", "s", keys), "[t]\n \t\n[s]\na=1\nb=\"2\"\n");
    EXPECT_EQ(Add("[t]\n \t\n", "s", keys), "[t]\n \t\n[s]\na=1\nb=\"2\"\n");
    EXPECT_EQ(Add("\n", "s", keys), "\n[s]\na=1\nb=\"2\"\n");
}

TEST_F(FileAddSection, BeginsAnEmptyFile) {
    EXPECT_EQ(Add("", "s", {{"a", "1"}}), "[s]\na=1\n");
    EXPECT_EQ(Add("\xEF\xBB\xBF", "s", {{"a", "1"}}), "\xEF\xBB\xBF[s]\na=1\n");
}

TEST_F(FileAddSection, EndsLinesLikeTheFirstLine) {
    EXPECT_EQ(Add("[t]\r\na=1\n", "s", {{"a", "1"}}), "[t]\r\na=1\n\r\n[s]\r\na=1\r\n");
    EXPECT_EQ(Add("[t]\na=1\r\n", "s", {{"a", "1"}}), "[t]\na=1\r\n\n[s]\na=1\n");
    EXPECT_EQ(Add("\r\n", "s", {{"a", "1"}}), "\r\n[s]\r\na=1\r\n");
    EXPECT_EQ(Add("[t]", "s", {{"a", "1"}}), "[t]\n\n[s]\na=1\n");
}

TEST_F(FileAddSection, AddsAHeaderAloneForAnEmptyTable) {
    EXPECT_EQ(Add("[t]\n", "s", {}), "[t]\n\n[s]\n");
    EXPECT_EQ(Add("[s]\na=1\n", "s", {}), "[s]\na=1\n");
}

TEST_F(FileAddSection, AddsToAnExistingSectionInPlace) {
    EXPECT_EQ(Add("[s]\na=1\nb=2\n\n[t]\n", "s", {{"b", "3"}, {"c", "4"}}),
              "[s]\na=1\nb=3\nc=4\n\n[t]\n");
    EXPECT_EQ(Add("[s]\n\n[t]\n", "s", {{"a", "1"}}), "[s]\na=1\n\n[t]\n");
}

TEST_F(FileAddSection, AcceptsNamesOfAnyBytesButNewlines) {
    for (const std::string &name : {""s, " a "s, "a]b"s, "[]"s, "#"s, "a=b"s, "a\rb"s, "\xFF"s}) {
        const std::string path = folder_ / "file";
        EXPECT_EQ(Add("", name, {{"a", "1"}}), "[" + name + "]\na=1\n");
        EXPECT_THAT(SectionNamesOf(path), ElementsAre(name));
        EXPECT_THAT(SectionOf(path, name), ElementsAre(Pair("a", "1")));
    }
}

TEST_F(FileAddSection, AcceptsKeysThatAreReadBackUnchanged) {
    for (const std::string &key : {"a b"s, "[a"s, "[a]"s, "a#"s, "\"a\""s, "\xEF\xBB\xBF"s}) {
        EXPECT_EQ(Add("", "s", {{key, "1"}}), "[s]\n" + key + "=1\n");
        EXPECT_THAT(SectionOf(folder_ / "file", "s"), ElementsAre(Pair(key, "1")));
    }
}

// ---- TLIBCFileRemoveSection ---------------------------------------------------------------------

TEST_F(FileRemoveSection, RemovesTheHeaderTheKeysAndTheBlankLinesAfterThem) {
    EXPECT_EQ(Remove("[a]\nx=1\n\n[s]\n# c\nk=1\n\nword\nl=2\n\n \t\n[b]\ny=2\n", "s"),
              "[a]\nx=1\n\n[b]\ny=2\n");
    EXPECT_EQ(Remove("[s]\nk=1\n[b]\n", "s"), "[b]\n");
    EXPECT_EQ(Remove("[a]\n\n[s]\nk=1\n", "s"), "[a]\n\n");
    EXPECT_EQ(Remove("[a]\n[s]\nk=1", "s"), "[a]\n");
    EXPECT_EQ(Remove("k=0\n[s]", "s"), "k=0\n");
    EXPECT_EQ(Remove("[s]\nx\0\n\n[b]\n"s, "s"), "[b]\n");
}

TEST_F(FileRemoveSection, LeavesCommentsAfterItToTheNextSection) {
    EXPECT_EQ(Remove("[s]\nk=1\n\n# leads b\n\n[b]\n", "s"), "# leads b\n\n[b]\n");
    EXPECT_EQ(Remove("[s]\n# leads b\n[b]\n", "s"), "# leads b\n[b]\n");
    EXPECT_EQ(Remove("[s]\nk=1\n; the end", "s"), "; the end");
}

TEST_F(FileRemoveSection, RemovesEveryBlock) {
    EXPECT_EQ(Remove("[s]\na=1\n[t]\nb=2\n[s]\n[s]\n# c\n[u]\nd=4\n[s]\n", "s"),
              "[t]\nb=2\n# c\n[u]\nd=4\n");
}

TEST_F(FileRemoveSection, EmptiesTheFileOfItsOnlySection) {
    EXPECT_EQ(Remove("[s]\na=1\n\n", "s"), "");
    EXPECT_EQ(Remove("\xEF\xBB\xBF[s]\r\na=1\r\n", "s"), "\xEF\xBB\xBF");
}

TEST_F(FileRemoveSection, SucceedsWithoutTheSection) {
    for (const std::string &text : {""s, "k=1\n[S]\na=1\n# [s]\n[s\n"s}) {
        EXPECT_EQ(Remove(text, "s"), text);
    }
}

// ---- All writers --------------------------------------------------------------------------------

struct Writer {
    const char *name;
    std::function<int(const char *path, const char *section, const char *key, const char *value)>
        call;
};

const Writer kKeyWriters[] = {
    {"TLIBCFileSetSection",
     [](const char *path, const char *section, const char *key, const char *value) {
         return TLIBCFileSetSection(path, section, nullptr, Table{{key, value}}.Get(), 0);
     }},
    {"TLIBCFileAddSection",
     [](const char *path, const char *section, const char *key, const char *value) {
         return TLIBCFileAddSection(path, section, Table{{key, value}}.Get(), 0);
     }},
    {"TLIBCFileSetSectionValue",
     [](const char *path, const char *section, const char *key, const char *value) {
         return TLIBCFileSetSectionValue(path, section, key, value);
     }},
};

TEST_F(FileWrite, RejectsTextThatWouldNotBeReadBack) {
    struct Bad {
        const char *section, *key, *value;
    };
    const Bad cases[] = {
        {"s\n", "k", "v"},  {"s]\n[t", "k", "v"}, {"\n", "k", "v"},     {"s", "", "v"},
        {"s", " ", "v"},    {"s", "k ", "v"},     {"s", "\tk", "v"},    {"s", "k\r", "v"},
        {"s", "k\nl", "v"}, {"s", "k=l", "v"},    {"s", "=", "v"},      {"s", "#k", "v"},
        {"s", ";k", "v"},   {"s", "[k", "v]"},    {"s", "[k", "v] "},   {"s", "[k", "]\r"},
        {"s", "k", "v\n"},  {"s", "k", "\n"},     {"s", "k", "v\nl=w"}, {"s", "k", "v\r\nl=w"},
    };
    for (const Writer &writer : kKeyWriters) {
        for (const Bad &bad : cases) {
            SCOPED_TRACE(std::string(writer.name) + testing::PrintToString(bad.section) +
                         testing::PrintToString(bad.key) + testing::PrintToString(bad.value));
            Refuses(kBadParameterCode, "[s]\nk=1\n", [&](const char *path) {
                return writer.call(path, bad.section, bad.key, bad.value);
            });
        }
    }
    Refuses(kBadParameterCode, "[s]\n",
            [](const char *path) { return TLIBCFileRemoveSection(path, "s\n"); });
}

TEST_F(FileWrite, RejectsAWholeTableForOneInvalidKey) {
    const Table table{{"a", "1"}, {"b", "2\n"}};
    Refuses(kBadParameterCode, "[s]\n", [&](const char *path) {
        return TLIBCFileSetSection(path, "s", nullptr, table.Get(), 0);
    });
}

TEST_F(FileWrite, RejectsInvalidArguments) {
    const Table table{{"a", "1"}};
    for (const char *path : {static_cast<const char *>(nullptr), ""}) {
        EXPECT_FAILURE(kBadParameterCode, TLIBCFileSetSection(path, "s", nullptr, table.Get(), 0));
        EXPECT_FAILURE(kBadParameterCode, TLIBCFileAddSection(path, "s", table.Get(), 0));
        EXPECT_FAILURE(kBadParameterCode, TLIBCFileSetSectionValue(path, "s", "k", "v"));
        EXPECT_FAILURE(kBadParameterCode, TLIBCFileRemoveSection(path, "s"));
    }
    const Call calls[] = {
        [&](const char *path) {
            return TLIBCFileSetSection(path, nullptr, nullptr, table.Get(), 0);
        },
        [](const char *path) { return TLIBCFileSetSection(path, "s", nullptr, nullptr, 0); },
        [&](const char *path) { return TLIBCFileAddSection(path, nullptr, table.Get(), 0); },
        [](const char *path) { return TLIBCFileAddSection(path, "s", nullptr, 0); },
        [](const char *path) { return TLIBCFileSetSectionValue(path, nullptr, "k", "v"); },
        [](const char *path) { return TLIBCFileSetSectionValue(path, "s", nullptr, "v"); },
        [](const char *path) { return TLIBCFileSetSectionValue(path, "s", "k", nullptr); },
        [](const char *path) { return TLIBCFileRemoveSection(path, nullptr); },
    };
    for (const Call &call : calls) {
        Refuses(kBadParameterCode, "[s]\nk=1\n", call);
    }
}

TEST_F(FileWrite, CreatesNoFile) {
    const std::string absent = folder_ / "absent";
    const std::string below_file = folder_.Write("file", "") + "/absent";
    for (const std::string &path : {absent, below_file}) {
        for (const Writer &writer : kKeyWriters) {
            EXPECT_FAILURE(kMissingCode, writer.call(path.c_str(), "s", "k", "v")) << writer.name;
        }
        EXPECT_FAILURE(kMissingCode, TLIBCFileRemoveSection(path.c_str(), "s"));
    }
    EXPECT_THAT(folder_.Entries(), ElementsAre("file"));
}

}  // namespace
}  // namespace tavo::test

#include <string>

#include "file_support.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using namespace std::string_literals;

class FileRead : public testing::Test {
  protected:
    const char *File(std::string_view text) {
        path_ = folder_.Write("file", text);
        return path_.c_str();
    }

    TemporaryFolder folder_;
    std::string path_;
};

using FileEnumSection = FileRead;
using FileGetSection = FileRead;
using FileGetKeyValue = FileRead;
using FileCheckKeyValue = FileRead;
using FileReadLines = FileRead;

// ---- TLIBCFileEnumSection -----------------------------------------------------------------------

TEST_F(FileEnumSection, AppendsTheNamesInFileOrder) {
    StringList names({"before"});
    const char *path = File("k=v\n[b]\nk=[no]\n# [no]\n [ a ] \n[]\n[c]");
    EXPECT_SUCCESS(4, TLIBCFileEnumSection(path, names.Address()));
    EXPECT_THAT(names.Items(), ElementsAre("before", "b", " a ", "", "c"));
}

TEST_F(FileEnumSection, ListsEachSectionOnceAtItsFirstPosition) {
    StringList names;
    const char *path = File("[b]\n[a]\n[b]\n[]\n[A]\n[]\n[a]\n");
    EXPECT_SUCCESS(4, TLIBCFileEnumSection(path, names.Address()));
    EXPECT_THAT(names.Items(), ElementsAre("b", "a", "", "A"));
}

TEST_F(FileEnumSection, AppendsANameThatIsAlreadyInTheList) {
    StringList names({"a"});
    EXPECT_SUCCESS(1, TLIBCFileEnumSection(File("[a]\n"), names.Address()));
    EXPECT_THAT(names.Items(), ElementsAre("a", "a"));
}

TEST_F(FileEnumSection, DistinguishesThousandsOfNames) {
    std::string text;
    Strings expected;
    for (int i = 0; i < 5000; ++i) {
        expected.push_back("section-" + std::to_string(i));
        text += "[" + expected.back() + "]\n[section-0]\n";
    }
    StringList names;
    EXPECT_SUCCESS(5000, TLIBCFileEnumSection(File(text), names.Address()));
    EXPECT_EQ(names.Items(), expected);
}

TEST_F(FileEnumSection, FindsNoneInAFileWithoutSections) {
    StringList names({"before"});
    for (const std::string &text : {""s, "k=v\n"s, "\xEF\xBB\xBF"s, "[a\n"s, "[a\0]\n"s}) {
        EXPECT_SUCCESS(0, TLIBCFileEnumSection(File(text), names.Address()));
    }
    EXPECT_THAT(names.Items(), ElementsAre("before"));
}

TEST_F(FileEnumSection, SkipsAByteOrderMark) {
    StringList names;
    EXPECT_SUCCESS(1, TLIBCFileEnumSection(File("\xEF\xBB\xBF[a]\r\n"), names.Address()));
    EXPECT_THAT(names.Items(), ElementsAre("a"));
}

TEST_F(FileEnumSection, RejectsInvalidArguments) {
    StringList names({"before"});
    TLIBCSzList *none = nullptr;
    EXPECT_FAILURE(kBadParameterCode, TLIBCFileEnumSection(nullptr, names.Address()));
    EXPECT_FAILURE(kBadParameterCode, TLIBCFileEnumSection("", names.Address()));
    EXPECT_FAILURE(kBadParameterCode, TLIBCFileEnumSection(File("[a]"), nullptr));
    EXPECT_FAILURE(kBadParameterCode, TLIBCFileEnumSection(File("[a]"), &none));
    EXPECT_EQ(none, nullptr);
    EXPECT_THAT(names.Items(), ElementsAre("before"));
}

// ---- TLIBCFileGetSection ------------------------------------------------------------------------

TEST_F(FileGetSection, FillsTheTableInFileOrder) {
    Table table{{"old", "gone"}};
    const char *path =
        File("z=0\n[a]\nx=1\n[s]\nb = 2\n\n# c=3\na=\"4\"\nword\n=5\nc=\n[t]\nd=6\n");
    EXPECT_SUCCESS(3, TLIBCFileGetSection(path, "s", table.Address()));
    EXPECT_THAT(table.Entries(), ElementsAre(Pair("b", "2"), Pair("a", "4"), Pair("c", "")));
}

TEST_F(FileGetSection, UsesTheLastOfEqualKeys) {
    Table table;
    const char *path = File("[s]\na=1\nb=2\na=3\nA=4\n");
    EXPECT_SUCCESS(3, TLIBCFileGetSection(path, "s", table.Address()));
    EXPECT_THAT(table.Entries(), ElementsAre(Pair("a", "3"), Pair("b", "2"), Pair("A", "4")));
}

TEST_F(FileGetSection, JoinsSectionsOfOneName) {
    Table table;
    const char *path = File("[s]\na=1\nb=2\n[t]\na=no\n[s]\n[s]\na=3\nc=4\n");
    EXPECT_SUCCESS(3, TLIBCFileGetSection(path, "s", table.Address()));
    EXPECT_THAT(table.Entries(), ElementsAre(Pair("a", "3"), Pair("b", "2"), Pair("c", "4")));
}

TEST_F(FileGetSection, ReadsCrLfAndALastLineWithoutNewline) {
    Table table;
    const char *path = File("\xEF\xBB\xBF[s]\r\na=1\r\nb=\"2\"");
    EXPECT_SUCCESS(2, TLIBCFileGetSection(path, "s", table.Address()));
    EXPECT_THAT(table.Entries(), ElementsAre(Pair("a", "1"), Pair("b", "2")));
}

TEST_F(FileGetSection, ComparesNamesExactly) {
    Table table;
    const char *path = File("[s]\na=1\n[ s ]\nb=2\n[S]\nc=3\n[]\nd=4\n");
    EXPECT_SUCCESS(1, TLIBCFileGetSection(path, " s ", table.Address()));
    EXPECT_THAT(table.Entries(), ElementsAre(Pair("b", "2")));
    EXPECT_SUCCESS(1, TLIBCFileGetSection(path, "", table.Address()));
    EXPECT_THAT(table.Entries(), ElementsAre(Pair("d", "4")));
}

TEST_F(FileGetSection, SkipsALineWithANul) {
    Table table;
    const char *path = File("[s]\na=1\0\nb\0=2\n[t\0]\nc=3\n"s);
    EXPECT_SUCCESS(1, TLIBCFileGetSection(path, "s", table.Address()));
    EXPECT_THAT(table.Entries(), ElementsAre(Pair("c", "3")));
}

TEST_F(FileGetSection, FindsNothingInAnAbsentOrEmptySection) {
    const char *path = File("a=1\n[s]\n# b=2\n\n[t]\nc=3\n");
    for (const char *section : {"s", "absent", "", "s]\n[t", "[s]"}) {
        Table table{{"old", "gone"}};
        EXPECT_SUCCESS(0, TLIBCFileGetSection(path, section, table.Address())) << section;
        EXPECT_THAT(table.Entries(), IsEmpty());
    }
}

// The table keeps its memory for the texts, which grows with the sections.
TEST_F(FileGetSection, FillsATableWithOneSectionAfterTheOther) {
    Table table;
    const std::string value(5000, 'v');
    const char *path = File("[s]\na=1\nb=2\n[large]\n#" + value + "\nc=" + value + "\n[t]\nd=3");
    for (int round = 0; round < 2; ++round) {
        EXPECT_SUCCESS(2, TLIBCFileGetSection(path, "s", table.Address()));
        EXPECT_THAT(table.Entries(), ElementsAre(Pair("a", "1"), Pair("b", "2")));
        EXPECT_SUCCESS(1, TLIBCFileGetSection(path, "large", table.Address()));
        EXPECT_THAT(table.Entries(), ElementsAre(Pair("c", value)));
        EXPECT_SUCCESS(1, TLIBCFileGetSection(path, "t", table.Address()));
        EXPECT_THAT(table.Entries(), ElementsAre(Pair("d", "3")));
    }
}

TEST_F(FileGetSection, FindsEveryKeyOfMany) {
    std::string text = "[s]\n";
    for (const char *value : {"old", "new"}) {
        for (int i = 0; i < 100; ++i) {
            text += "key" + std::to_string(i) + " = \"" + value + std::to_string(i) + "\"\n";
        }
    }
    Table table;
    EXPECT_SUCCESS(100, TLIBCFileGetSection(File(text), "s", table.Address()));
    for (int i = 0; i < 100; ++i) {
        EXPECT_STREQ(TLIBCSzHashGetValue(table.Get(), ("key" + std::to_string(i)).c_str()),
                     ("new" + std::to_string(i)).c_str());
    }
}

TEST_F(FileGetSection, LeavesATableThatCanBeChanged) {
    Table table;
    EXPECT_SUCCESS(2, TLIBCFileGetSection(File("[s]\na=1\nb=2\n"), "s", table.Address()));
    const char *a = TLIBCSzHashGetValue(table.Get(), "a");
    EXPECT_EQ(TLIBCSzHashSetValue(table.Get(), "b", "changed"), 0);
    EXPECT_EQ(TLIBCSzHashSetValue(table.Get(), "b", "changed again"), 0);
    EXPECT_EQ(TLIBCSzHashSetValue(table.Get(), "c", a), 0);
    EXPECT_STREQ(a, "1");
    EXPECT_THAT(table.Entries(),
                ElementsAre(Pair("a", "1"), Pair("b", "changed again"), Pair("c", "1")));
}

TEST_F(FileGetSection, KeepsTheHandle) {
    Table table;
    const TLIBCSzHash *handle = table.Get();
    EXPECT_SUCCESS(1, TLIBCFileGetSection(File("[s]\na=1\n"), "s", table.Address()));
    EXPECT_EQ(table.Get(), handle);
}

TEST_F(FileGetSection, EmptiesTheTableOnFailure) {
    const char *path = File("[s]\na=1\n");
    const auto fails_with = [](unsigned int code, const char *file, const char *section) {
        Table table{{"old", "gone"}};
        EXPECT_FAILURE(code, TLIBCFileGetSection(file, section, table.Address()));
        EXPECT_THAT(table.Entries(), IsEmpty());
    };
    fails_with(kBadParameterCode, nullptr, "s");
    fails_with(kBadParameterCode, "", "s");
    fails_with(kBadParameterCode, path, nullptr);
    fails_with(kMissingCode, (folder_ / "absent").c_str(), "s");
    fails_with(kUnusableCode, folder_.Path().c_str(), "s");
}

TEST_F(FileGetSection, RejectsAMissingTable) {
    TLIBCSzHash *none = nullptr;
    EXPECT_FAILURE(kBadParameterCode, TLIBCFileGetSection(File("[s]\n"), "s", nullptr));
    EXPECT_FAILURE(kBadParameterCode, TLIBCFileGetSection(File("[s]\n"), "s", &none));
    EXPECT_EQ(none, nullptr);
}

// ---- TLIBCFileGetKeyValue -----------------------------------------------------------------------

TEST_F(FileGetKeyValue, ReadsKeysOutsideSections) {
    const char *path = File("# settings\na=1\nb = \"two\" \na=3\nempty=\n[s]\na=4\nc=5\n");
    char text[16];
    EXPECT_SUCCESS(1, TLIBCFileGetKeyValue(path, "a", text, sizeof(text)));
    EXPECT_STREQ(text, "3");
    EXPECT_SUCCESS(1, TLIBCFileGetKeyValue(path, "b", text, sizeof(text)));
    EXPECT_STREQ(text, "two");
    EXPECT_SUCCESS(1, TLIBCFileGetKeyValue(path, "empty", text, sizeof(text)));
    EXPECT_STREQ(text, "");
}

TEST_F(FileGetKeyValue, EmptiesTheBufferForAnAbsentKey) {
    const char *path = File("a=1\n\0b=2\n[s]\nc=3\n"s);
    for (const char *key : {"A", "b", "c", "", "a=1"}) {
        char text[] = "preset";
        EXPECT_SUCCESS(0, TLIBCFileGetKeyValue(path, key, text, sizeof(text))) << key;
        EXPECT_STREQ(text, "");
    }
}

TEST_F(FileGetKeyValue, TruncatesTheValueToFit) {
    const char *path = File("a=12345\n");
    char text[8] = "preset!";
    EXPECT_SUCCESS(1, TLIBCFileGetKeyValue(path, "a", text, 4));
    EXPECT_STREQ(text, "123");
    EXPECT_EQ(text[4], 'e');  // after the end of the buffer
    EXPECT_SUCCESS(1, TLIBCFileGetKeyValue(path, "a", text, 5));
    EXPECT_STREQ(text, "1234");
    EXPECT_SUCCESS(1, TLIBCFileGetKeyValue(path, "a", text, 6));
    EXPECT_STREQ(text, "12345");
    EXPECT_SUCCESS(1, TLIBCFileGetKeyValue(path, "a", text, 1));
    EXPECT_STREQ(text, "");
}

TEST_F(FileGetKeyValue, EmptiesTheBufferOnFailure) {
    const auto fails_with = [](unsigned int code, const char *path, const char *key) {
        char text[] = "preset";
        EXPECT_FAILURE(code, TLIBCFileGetKeyValue(path, key, text, sizeof(text)));
        EXPECT_STREQ(text, "");
    };
    fails_with(kBadParameterCode, nullptr, "a");
    fails_with(kBadParameterCode, "", "a");
    fails_with(kBadParameterCode, File("a=1\n"), nullptr);
    fails_with(kMissingCode, (folder_ / "absent").c_str(), "a");
    fails_with(kUnusableCode, folder_.Path().c_str(), "a");
}

TEST_F(FileGetKeyValue, RejectsABufferWithoutSpace) {
    char text[] = "preset";
    EXPECT_FAILURE(kBadParameterCode, TLIBCFileGetKeyValue(File("a=1\n"), "a", nullptr, 8));
    EXPECT_FAILURE(kBadParameterCode, TLIBCFileGetKeyValue(File("a=1\n"), "a", text, 0));
    EXPECT_FAILURE(kBadParameterCode, TLIBCFileGetKeyValue(File("a=1\n"), "a", text, -1));
    EXPECT_STREQ(text, "preset");
}

// ---- TLIBCFileCheckKeyValue ---------------------------------------------------------------------

TEST_F(FileCheckKeyValue, ComparesTheEffectiveValue) {
    const char *path = File("a=no\na=\"Yes\"\nempty=\n[s]\nb=yes\n");
    EXPECT_SUCCESS(1, TLIBCFileCheckKeyValue(path, "a", "Yes", 0));
    EXPECT_SUCCESS(0, TLIBCFileCheckKeyValue(path, "a", "yes", 0));
    EXPECT_SUCCESS(0, TLIBCFileCheckKeyValue(path, "a", "no", 0));
    EXPECT_SUCCESS(0, TLIBCFileCheckKeyValue(path, "a", "Ye", 0));
    EXPECT_SUCCESS(0, TLIBCFileCheckKeyValue(path, "b", "yes", 0));
    EXPECT_SUCCESS(1, TLIBCFileCheckKeyValue(path, "empty", "", 0));
    EXPECT_SUCCESS(0, TLIBCFileCheckKeyValue(path, "absent", "", 0));
}

TEST_F(FileCheckKeyValue, IgnoresTheCaseOfAsciiLettersWhenAsked) {
    const char *path = File("a=aZ@[`{ \xC4\n");
    EXPECT_SUCCESS(1, TLIBCFileCheckKeyValue(path, "a", "Az@[`{ \xC4", 1));
    EXPECT_SUCCESS(1, TLIBCFileCheckKeyValue(path, "a", "Az@[`{ \xC4", -1));
    EXPECT_SUCCESS(0, TLIBCFileCheckKeyValue(path, "a", "Az@[`{ \xE4", 1));
    EXPECT_SUCCESS(0, TLIBCFileCheckKeyValue(path, "a", "az`{@[ \xC4", 1));
    EXPECT_SUCCESS(0, TLIBCFileCheckKeyValue(path, "a", "az", 1));
    EXPECT_SUCCESS(0, TLIBCFileCheckKeyValue(path, "A", "az@[`{ \xC4", 1));
}

TEST_F(FileCheckKeyValue, ReturnsNotEqualAndSetsTheErrorOnFailure) {
    const auto fails_with = [](unsigned int code, const char *path, const char *key,
                               const char *value) {
        EXPECT_EQ(ResultAndError([&] { return TLIBCFileCheckKeyValue(path, key, value, 0); }),
                  std::make_pair(0, code));
    };
    fails_with(kBadParameterCode, nullptr, "a", "1");
    fails_with(kBadParameterCode, "", "a", "1");
    fails_with(kBadParameterCode, File("a=1\n"), nullptr, "1");
    fails_with(kBadParameterCode, File("a=1\n"), "a", nullptr);
    fails_with(kMissingCode, (folder_ / "absent").c_str(), "a", "1");
    fails_with(kUnusableCode, folder_.Path().c_str(), "a", "1");
}

// ---- TLIBCFileReadLines -------------------------------------------------------------------------

TEST_F(FileReadLines, AppendsTheLinesWithoutTheirEnds) {
    StringList lines({"before"});
    const char *path = File("one\n\n two \r\n\r\n\r\nx\ry\nlast");
    EXPECT_SUCCESS(7, TLIBCFileReadLines(path, lines.Address()));
    EXPECT_THAT(lines.Items(), ElementsAre("before", "one", "", " two ", "", "", "x\ry", "last"));
}

TEST_F(FileReadLines, CountsALastLineOnlyIfItExists) {
    StringList lines;
    EXPECT_SUCCESS(0, TLIBCFileReadLines(File(""), lines.Address()));
    EXPECT_SUCCESS(1, TLIBCFileReadLines(File("a\n"), lines.Address()));
    EXPECT_SUCCESS(1, TLIBCFileReadLines(File("\n"), lines.Address()));
    EXPECT_SUCCESS(1, TLIBCFileReadLines(File("b\r"), lines.Address()));
    EXPECT_THAT(lines.Items(), ElementsAre("a", "", "b\r"));
}

TEST_F(FileReadLines, TruncatesALineAtANul) {
    StringList lines;
    const char *path = File("a\0b\n\0\nc\0\r\nd"s);
    EXPECT_SUCCESS(4, TLIBCFileReadLines(path, lines.Address()));
    EXPECT_THAT(lines.Items(), ElementsAre("a", "", "c", "d"));
}

TEST_F(FileReadLines, KeepsAByteOrderMarkAsPartOfTheFirstLine) {
    StringList lines;
    EXPECT_SUCCESS(1, TLIBCFileReadLines(File("\xEF\xBB\xBF"
                                              "a\n"),
                                         lines.Address()));
    EXPECT_THAT(lines.Items(), ElementsAre("\xEF\xBB\xBF"
                                           "a"));
}

// These files report no size and return about a page per read.
TEST_F(FileReadLines, ReadsTheTablesOfProcCompletely) {
    StringList lines;
    const int count = TLIBCFileReadLines("/proc/self/smaps", lines.Address());
    EXPECT_GT(count, 200);
    EXPECT_THAT(lines.Items(), testing::Contains(testing::EndsWith(" [stack]")));
}

TEST_F(FileReadLines, RejectsInvalidArguments) {
    StringList lines({"before"});
    TLIBCSzList *none = nullptr;
    EXPECT_FAILURE(kBadParameterCode, TLIBCFileReadLines(nullptr, lines.Address()));
    EXPECT_FAILURE(kBadParameterCode, TLIBCFileReadLines("", lines.Address()));
    EXPECT_FAILURE(kBadParameterCode, TLIBCFileReadLines(File("a"), nullptr));
    EXPECT_FAILURE(kBadParameterCode, TLIBCFileReadLines(File("a"), &none));
    EXPECT_THAT(lines.Items(), ElementsAre("before"));
}

}  // namespace
}  // namespace tavo::test

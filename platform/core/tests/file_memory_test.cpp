// Every allocation of every function on configuration files fails in turn.
#include <functional>
#include <string>

#include "failing_allocation.h"
#include "file_support.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Larger than the loader's built-in buffer, with more names than the index stores without memory.
std::string LargeText() {
    std::string text = "k=v\n" + std::string(10'000, '#') + "\n";
    for (int i = 0; i < 40; ++i) {
        text += "[s" + std::to_string(i) + "]\na=1\nb=2\n";
    }
    return text;
}

class FileMemory : public testing::Test {
  protected:
    // Makes each allocation of `call` fail in turn, expects the call to fail with 0x200, and calls
    // `unchanged` to check that nothing changed. Returns the number of allocations.
    template <typename Call, typename Unchanged>
    static int ForEachFailure(int success, Call call, Unchanged unchanged) {
        return ForEachFailingAllocation([&](FailingAllocation &fail) {
            SetEarlierError();
            const int result = fail.During(call);
            if (fail.Hit()) {
                EXPECT_EQ(result, -1);
                EXPECT_EQ(TLIBCErrGet(), kOutOfMemoryCode);
                unchanged();
            } else {
                EXPECT_EQ(result, success);
            }
        });
    }

    // The same for a function that appends `count` strings to a list; the list must be unchanged.
    static int ForEachFailureToAppend(int (*append)(const char *path, TLIBCSzList **list),
                                      const std::string &path, int count) {
        return ForEachFailingAllocation([&](FailingAllocation &fail) {
            StringList list({"before"});
            SetEarlierError();
            const int result = fail.During([&] { return append(path.c_str(), list.Address()); });
            EXPECT_EQ(result, fail.Hit() ? -1 : count);
            EXPECT_EQ(TLIBCErrGet(), fail.Hit() ? kOutOfMemoryCode : kEarlierCode);
            EXPECT_EQ(TLIBCSzListCount(*list.Address()), fail.Hit() ? 1 : 1 + count);
            EXPECT_STREQ(TLIBCSzListGet(*list.Address(), 0), "before");
        });
    }

    // A writer that fails leaves the file and its folder unchanged.
    void ExpectWriterFails(const std::string &before, const std::string &after,
                           const std::function<int(const char *path)> &call) {
        const std::string path = folder_.Write("file", before);
        const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
            folder_.Write("file", before);
            SetEarlierError();
            const int result = fail.During([&] { return call(path.c_str()); });
            EXPECT_EQ(result, fail.Hit() ? -1 : 0);
            EXPECT_EQ(TLIBCErrGet(), fail.Hit() ? kOutOfMemoryCode : kEarlierCode);
            EXPECT_EQ(ReadFile(path), fail.Hit() ? before : after);
            EXPECT_THAT(folder_.Entries(), ElementsAre("file"));
        });
        EXPECT_GT(allocations, 0);
    }

    TemporaryFolder folder_;
};

TEST_F(FileMemory, EnumSectionLeavesTheListUnchanged) {
    const std::string path = folder_.Write("file", LargeText());
    EXPECT_GT(ForEachFailureToAppend(TLIBCFileEnumSection, path, 40), 40);
}

TEST_F(FileMemory, GetSectionEmptiesTheTable) {
    // A section that is longer than the first block of a table.
    const std::string value(2000, 'v');
    const std::string section = "[long]\na=" + value + "\nb=" + value + "\nc=" + value;
    const std::string path = folder_.Write("file", LargeText() + section);
    Table table;
    const int allocations = ForEachFailure(
        3, [&] { return TLIBCFileGetSection(path.c_str(), "long", table.Address()); },
        [&] { EXPECT_THAT(table.Entries(), IsEmpty()); });
    EXPECT_GE(allocations, 3);
}

TEST_F(FileMemory, GetSectionKeepsShortTextsInOneBlock) {
    const std::string path = folder_.Write("file", "[s]\na=1\nb=2\nc=3\n");
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        Table fresh;
        const int result =
            fail.During([&] { return TLIBCFileGetSection(path.c_str(), "s", fresh.Address()); });
        EXPECT_EQ(result, fail.Hit() ? -1 : 3);
    });
    EXPECT_EQ(allocations, 3) << "the block, and arrays of two and four keys";
}

TEST_F(FileMemory, GetKeyValueEmptiesTheBuffer) {
    const std::string path = folder_.Write("file", LargeText());
    char text[8];
    const int allocations = ForEachFailure(
        1,
        [&] {
            strcpy(text, "preset");
            return TLIBCFileGetKeyValue(path.c_str(), "k", text, sizeof(text));
        },
        [&] { EXPECT_STREQ(text, ""); });
    EXPECT_EQ(allocations, 1);
}

TEST_F(FileMemory, CheckKeyValueReturnsNotEqual) {
    const std::string path = folder_.Write("file", LargeText());
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        SetEarlierError();
        const int result =
            fail.During([&] { return TLIBCFileCheckKeyValue(path.c_str(), "k", "v", 0); });
        EXPECT_EQ(result, fail.Hit() ? 0 : 1);
        EXPECT_EQ(TLIBCErrGet(), fail.Hit() ? kOutOfMemoryCode : kEarlierCode);
    });
    EXPECT_EQ(allocations, 1);
}

TEST_F(FileMemory, ReadLinesLeavesTheListUnchanged) {
    const std::string path = folder_.Write("file", "a\nb\nc\nd\n");
    EXPECT_GT(ForEachFailureToAppend(TLIBCFileReadLines, path, 4), 4);
}

// The readers are called once for each section of each file, so for a small file they allocate
// memory only for their results.
TEST_F(FileMemory, ReadersOfASmallFileNeedNone) {
    const std::string path = folder_.Write("file", "k=v\n[s]\n[t]\n[s]\na=1\n");
    char text[8];
    Table table;
    StringList names;
    WithoutMemory([&] {
        TLIBCFileGetKeyValue(path.c_str(), "k", text, sizeof(text));
        TLIBCFileCheckKeyValue(path.c_str(), "k", "v", 0);
        TLIBCFileGetSection(path.c_str(), "absent", table.Address());
        TLIBCFileExist(path.c_str());
        return TLIBCFileTouch(path.c_str());
    });
}

TEST_F(FileMemory, SetSectionLeavesTheFileUnchanged) {
    const Table table{{"a", "3"}, {"c", "4"}};
    ExpectWriterFails("[s]\na=1\nb=2\n", "[s]\na=3\nc=4\n", [&](const char *path) {
        return TLIBCFileSetSection(path, "s", nullptr, table.Get(), 0);
    });
}

TEST_F(FileMemory, SetSectionWithManyKeysLeavesTheFileUnchanged) {
    Keys keys;
    std::string after = "[s]\n";
    for (int i = 0; i < 40; ++i) {
        keys.emplace_back("k" + std::to_string(i), "v");
        after += keys.back().first + "=v\n";
    }
    const Table table(keys);
    ExpectWriterFails("", after, [&](const char *path) {
        return TLIBCFileSetSection(path, "s", nullptr, table.Get(), 0);
    });
}

TEST_F(FileMemory, AddSectionLeavesTheFileUnchanged) {
    const Table table{{"a", "1"}};
    ExpectWriterFails(LargeText(), LargeText() + "\n[s]\na=1\n", [&](const char *path) {
        return TLIBCFileAddSection(path, "s", table.Get(), 0);
    });
}

TEST_F(FileMemory, SetSectionValueLeavesTheFileUnchanged) {
    ExpectWriterFails("[s]\na=1\n", "[s]\na=2\n", [](const char *path) {
        return TLIBCFileSetSectionValue(path, "s", "a", "2");
    });
}

TEST_F(FileMemory, RemoveSectionLeavesTheFileUnchanged) {
    ExpectWriterFails("[s]\na=1\n[t]\n", "[t]\n",
                      [](const char *path) { return TLIBCFileRemoveSection(path, "s"); });
}

}  // namespace
}  // namespace tavo::test

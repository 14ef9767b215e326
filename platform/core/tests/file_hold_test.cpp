#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <random>
#include <thread>

#include "failing_allocation.h"
#include "file_support.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

class FileHold : public testing::Test {
  protected:
    FileHold() { TLIBCErrSetEx(0, nullptr, 0); }
    ~FileHold() override { TLIBCFileRelease(); }

    std::string Value(const std::string &path) const {
        Table table;
        TLIBCFileGetSection(path.c_str(), "s", table.Address());
        const char *value = TLIBCSzHashGetValue(table.Get(), "key");
        return value == nullptr ? "none" : value;
    }

    TemporaryFolder folder_;
    const std::string path_ = folder_.Write("held", "top=a\n[s]\nkey=old\n");
};

TEST_F(FileHold, ReadsTheSnapshotUntilItIsReleased) {
    ASSERT_EQ(TLIBCFileHold(path_.c_str()), 0);
    folder_.Write("held", "top=b\n[t]\n[s]\nkey=new\n");
    EXPECT_EQ(Value(path_), "old");
    StringList names;
    EXPECT_EQ(TLIBCFileEnumSection(path_.c_str(), names.Address()), 1);
    StringList lines;
    EXPECT_EQ(TLIBCFileReadLines(path_.c_str(), lines.Address()), 3);
    EXPECT_EQ(TLIBCFileCheckKeyValue(path_.c_str(), "top", "a", 0), 1);

    TLIBCFileRelease();
    EXPECT_EQ(Value(path_), "new");
}

TEST_F(FileHold, SurvivesTheRemovalOfTheFile) {
    ASSERT_EQ(TLIBCFileHold(path_.c_str()), 0);
    ASSERT_EQ(std::remove(path_.c_str()), 0);
    EXPECT_EQ(Value(path_), "old");
}

TEST_F(FileHold, IsForThatPathOnly) {
    ASSERT_EQ(TLIBCFileHold(path_.c_str()), 0);
    EXPECT_EQ(Value(folder_.Write("other", "[s]\nkey=other\n")), "other");
    folder_.Write("held", "[s]\nkey=new\n");
    EXPECT_EQ(Value(folder_ / "./held"), "new");
    Table table;
    EXPECT_EQ(TLIBCFileGetSection(nullptr, "s", table.Address()), -1);
}

TEST_F(FileHold, IsForThisThreadOnly) {
    ASSERT_EQ(TLIBCFileHold(path_.c_str()), 0);
    folder_.Write("held", "[s]\nkey=new\n");
    std::string seen;
    std::thread([&] { seen = Value(path_); }).join();
    EXPECT_EQ(seen, "new");
}

TEST_F(FileHold, DoesNotBindWriters) {
    ASSERT_EQ(TLIBCFileHold(path_.c_str()), 0);
    folder_.Write("held", "[s]\nkey=new\n[added]\n");
    EXPECT_EQ(TLIBCFileSetSectionValue(path_.c_str(), "s", "key", "newer"), 0);
    EXPECT_EQ(ReadFile(path_), "[s]\nkey=newer\n[added]\n");
    EXPECT_EQ(Value(path_), "newer");
}

TEST_F(FileHold, EndsWhenTheFileIsChangedByAnotherPath) {
    ASSERT_EQ(TLIBCFileHold((folder_ / "./held").c_str()), 0);
    EXPECT_EQ(TLIBCFileSetSectionValue(path_.c_str(), "s", "key", "new"), 0);
    EXPECT_EQ(Value(folder_ / "./held"), "new");
    EXPECT_EQ(TLIBCFileHold(path_.c_str()), 0);
}

TEST_F(FileHold, SurvivesARejectedChangeAndAChangeOfAnotherFile) {
    const std::string other = folder_.Write("other", "[s]\nkey=1\n");
    ASSERT_EQ(TLIBCFileHold(path_.c_str()), 0);
    folder_.Write("held", "[s]\nkey=new\n");
    EXPECT_EQ(TLIBCFileSetSectionValue(other.c_str(), "s", "key", "2"), 0);
    EXPECT_EQ(TLIBCFileSetSectionValue(path_.c_str(), "s", "bad\nkey", "2"), -1);
    EXPECT_EQ(Value(path_), "old");
}

// If there is no memory to compare the paths, the file counts as changed.
TEST_F(FileHold, EndsWithEveryChangeWhenMemoryRunsOut) {
    ForEachFailingAllocation([&](FailingAllocation &fail) {
        folder_.Write("held", "[s]\nkey=old\n");
        ASSERT_EQ(TLIBCFileHold(path_.c_str()), 0);
        const int result =
            fail.During([&] { return TLIBCFileSetSectionValue(path_.c_str(), "s", "key", "new"); });
        EXPECT_EQ(Value(path_), result == 0 ? "new" : "old");
        TLIBCFileRelease();
    });
}

TEST_F(FileHold, RejectsASecondHold) {
    ASSERT_EQ(TLIBCFileHold(path_.c_str()), 0);
    folder_.Write("held", "[s]\nkey=new\n");
    EXPECT_EQ(TLIBCFileHold(path_.c_str()), -1);
    EXPECT_EQ(TLIBCErrGet(), 0U);
    EXPECT_EQ(Value(path_), "old");
}

TEST_F(FileHold, HoldsNothingAndKeepsTheErrorStateOnFailure) {
    TLIBCErrSetEx(0x123, "earlier.cpp", 45);
    EXPECT_EQ(TLIBCFileHold(nullptr), -1);
    const std::string later = folder_ / "later";
    EXPECT_EQ(TLIBCFileHold(later.c_str()), -1);
    EXPECT_EQ(TLIBCFileHold(folder_.Path().c_str()), -1);
    EXPECT_EQ(TLIBCErrGet(), 0x123U);
    EXPECT_STREQ(TLIBCErrorGetFile(), "earlier.cpp");
    EXPECT_EQ(TLIBCErrorGetLine(), 45);
    folder_.Write("later", "[s]\nkey=new\n");
    EXPECT_EQ(Value(later), "new");
    EXPECT_EQ(TLIBCFileHold(later.c_str()), 0);
}

TEST_F(FileHold, ReleasingNothingHasNoEffect) {
    TLIBCFileRelease();
    TLIBCFileRelease();
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

class FileHoldNext : public FileHold {
  protected:
    ~FileHoldNext() override { close(opened_); }

    // Calls TLIBCFileHoldNext for a file of the folder.
    int Next(const std::string &path) const { return TLIBCFileHoldNext(opened_, path.c_str()); }

    const std::string next_ = folder_.Write("next", "[s]\nkey=next\n");
    const int opened_ = open(folder_.Path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
};

TEST_F(FileHoldNext, ReplacesTheHeldFile) {
    ASSERT_EQ(TLIBCFileHold(path_.c_str()), 0);
    ASSERT_EQ(Next(next_), 0);
    folder_.Write("held", "[s]\nkey=new\n");
    folder_.Write("next", "[s]\nkey=new\n");
    EXPECT_EQ(Value(path_), "new");
    EXPECT_EQ(Value(next_), "next");
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_F(FileHoldNext, OpensTheNameInTheFolder) {
    ASSERT_EQ(TLIBCFileHold(path_.c_str()), 0);
    ASSERT_EQ(Next("/elsewhere/next"), 0);
    EXPECT_EQ(Value("/elsewhere/next"), "next");
    ASSERT_EQ(Next("held"), 0);
    EXPECT_EQ(Value("held"), "old");
}

TEST_F(FileHoldNext, HoldsFilesOfAnySizeOneAfterTheOther) {
    const std::string large =
        folder_.Write("large", std::string(100'000, '#') + "\n[s]\nkey=large\n");
    ASSERT_EQ(TLIBCFileHold(large.c_str()), 0);
    ASSERT_EQ(Next(next_), 0);
    EXPECT_EQ(Value(next_), "next");
    ASSERT_EQ(Next(large), 0);
    EXPECT_EQ(Value(large), "large");
}

TEST_F(FileHoldNext, FailsIfNoFileIsHeld) {
    EXPECT_EQ(Next(next_), -1);
    EXPECT_EQ(TLIBCErrGet(), 0U);
    EXPECT_EQ(TLIBCFileHold(next_.c_str()), 0);
    EXPECT_EQ(TLIBCFileHoldNext(opened_, nullptr), -1);
    EXPECT_EQ(Value(next_), "next");
}

TEST_F(FileHoldNext, HoldsNothingAndKeepsTheErrorStateOnFailure) {
    TLIBCErrSetEx(0x123, "earlier.cpp", 45);
    for (const char *path : {"/missing", "", "/"}) {
        ASSERT_EQ(TLIBCFileHold(path_.c_str()), 0);
        EXPECT_EQ(Next(path), -1) << path;
    }
    EXPECT_EQ(TLIBCErrGet(), 0x123U);
    EXPECT_STREQ(TLIBCErrorGetFile(), "earlier.cpp");
    EXPECT_EQ(TLIBCErrorGetLine(), 45);
    EXPECT_EQ(TLIBCFileHold(path_.c_str()), 0);
}

TEST_F(FileHoldNext, FailsWithEveryFailedAllocation) {
    const std::string large = folder_.Write("large", std::string(100'000, '#') + "\n[s]\nkey=x\n");
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        ASSERT_EQ(TLIBCFileHold(path_.c_str()), 0);
        const int result = fail.During([&] { return Next(large); });
        EXPECT_EQ(result, fail.Hit() ? -1 : 0);
        EXPECT_EQ(TLIBCErrGet(), 0U);
        EXPECT_EQ(Value(large), "x");
        TLIBCFileRelease();
    });
    EXPECT_EQ(allocations, 2) << "the path and the text";
}

// A held file reads the same as the file itself, whatever its text.
TEST_F(FileHold, ReadsLikeTheFile) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const Strings pieces = {"[a]\n",
                            "[b]\r\n",
                            " [a] \n",
                            "[]\n",
                            "k=1\n",
                            "k = \"2\"\n",
                            "l=3\n",
                            "# [a]\n",
                            "[a\n",
                            "\n",
                            "=x\n",
                            "\xEF\xBB\xBFm=4\n",
                            std::string("n\0=5\n", 5)};
    for (int round = 0; round < 500; ++round) {
        std::string text;
        for (int lines = static_cast<int>(random() % 30); lines > 0; --lines) {
            text += pieces[random() % pieces.size()];
        }
        const std::string path = folder_.Write("random", text);
        const auto read = [&] {
            StringList names;
            TLIBCFileEnumSection(path.c_str(), names.Address());
            Keys everything;
            Strings sections = names.Items();
            sections.emplace_back("absent");
            for (const std::string &section : sections) {
                Table table;
                const int count =
                    TLIBCFileGetSection(path.c_str(), section.c_str(), table.Address());
                everything.emplace_back(section, std::to_string(count));
                for (const auto &entry : table.Entries()) {
                    everything.push_back(entry);
                }
            }
            return everything;
        };
        const Keys unheld = read();
        ASSERT_EQ(TLIBCFileHold(path.c_str()), 0);
        EXPECT_EQ(read(), unheld) << text;
        TLIBCFileRelease();
    }
}

TEST_F(FileHold, FailsWithEveryFailedAllocation) {
    std::string text = std::string(100000, '#') + "\n[s]\nkey=x\n";
    for (int i = 0; i < 40; ++i) {
        text += "[" + std::to_string(i) + "]\n";
    }
    const std::string large = folder_.Write("large", text);
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        TLIBCErrSetEx(0, nullptr, 0);
        const int result = fail.During([&] { return TLIBCFileHold(large.c_str()); });
        EXPECT_EQ(result, fail.Hit() ? -1 : 0);
        EXPECT_EQ(TLIBCErrGet(), 0U);
        EXPECT_EQ(Value(large), "x");
        TLIBCFileRelease();
    });
    EXPECT_GT(allocations, 6) << "the hold, its path, the text, and the growing map";
}

}  // namespace
}  // namespace tavo::test

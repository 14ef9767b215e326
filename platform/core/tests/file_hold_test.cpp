#include <gtest/gtest.h>

#include <cstdio>
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

TEST_F(FileHold, OutlivesTheFile) {
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
    EXPECT_EQ(Value(path_), "old");
}

TEST_F(FileHold, RefusesASecondHold) {
    ASSERT_EQ(TLIBCFileHold(path_.c_str()), 0);
    folder_.Write("held", "[s]\nkey=new\n");
    EXPECT_EQ(TLIBCFileHold(path_.c_str()), -1);
    EXPECT_EQ(TLIBCErrGet(), kBadParameterCode);
    EXPECT_EQ(Value(path_), "old");
}

TEST_F(FileHold, HoldsNothingWhenItFails) {
    EXPECT_EQ(TLIBCFileHold(nullptr), -1);
    EXPECT_EQ(TLIBCErrGet(), kBadParameterCode);
    const std::string later = folder_ / "later";
    EXPECT_EQ(TLIBCFileHold(later.c_str()), -1);
    EXPECT_EQ(TLIBCErrGet(), kMissingCode);
    EXPECT_EQ(TLIBCFileHold(folder_.Path().c_str()), -1);
    EXPECT_EQ(TLIBCErrGet(), kUnusableCode);
    folder_.Write("later", "[s]\nkey=new\n");
    EXPECT_EQ(Value(later), "new");
    EXPECT_EQ(TLIBCFileHold(later.c_str()), 0);
}

TEST_F(FileHold, ReleasingNothingIsNothing) {
    TLIBCFileRelease();
    TLIBCFileRelease();
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_F(FileHold, ReportsEveryFailedAllocation) {
    const std::string large = folder_.Write("large", std::string(100000, '#') + "\n[s]\nkey=x\n");
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        TLIBCErrSetEx(0, nullptr, 0);
        const int result = fail.During([&] { return TLIBCFileHold(large.c_str()); });
        EXPECT_EQ(result, fail.Hit() ? -1 : 0);
        EXPECT_EQ(TLIBCErrGet(), fail.Hit() ? kOutOfMemoryCode : 0U);
        EXPECT_EQ(Value(large), "x");
        TLIBCFileRelease();
    });
    EXPECT_EQ(allocations, 3);
}

}  // namespace
}  // namespace tavo::test

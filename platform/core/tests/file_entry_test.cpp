#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "file_support.h"
#include "ordinary_user.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

class FileEntry : public testing::Test {
  protected:
    struct stat StatusOf(const std::string &path) {
        struct stat status = {};
        EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
        return status;
    }

    std::string Link(const std::string &target, std::string_view name) {
        std::string link = folder_ / name;
        EXPECT_EQ(symlink(target.c_str(), link.c_str()), 0);
        return link;
    }

    std::string Pipe() {
        std::string pipe = folder_ / "pipe";
        EXPECT_EQ(mkfifo(pipe.c_str(), 0600), 0);
        return pipe;
    }

    TemporaryFolder folder_;
};

using FileExist = FileEntry;
using FileTouch = FileEntry;

TEST_F(FileExist, IsOneForAnEntryOfAnyKind) {
    const std::string file = folder_.Write("file", "");
    for (const std::string &path :
         {file, folder_.Path(), Pipe(), Link(file, "link"), std::string("/dev/null")}) {
        EXPECT_SUCCESS(1, TLIBCFileExist(path.c_str())) << path;
    }
}

TEST_F(FileExist, IsZeroWithoutAnErrorForAMissingEntry) {
    const std::string file = folder_.Write("file", "");
    for (const std::string &path : {folder_ / "absent", file + "/below", Link("absent", "dangling"),
                                    Link("loop", "loop"), std::string()}) {
        EXPECT_SUCCESS(0, TLIBCFileExist(path.c_str())) << path;
    }
    EXPECT_SUCCESS(0, TLIBCFileExist(nullptr));
}

TEST_F(FileTouch, CreatesAnEmptyFileThatEveryoneMayRead) {
    const mode_t mask = umask(002);
    EXPECT_SUCCESS(0, TLIBCFileTouch((folder_ / "one").c_str()));
    umask(077);
    EXPECT_SUCCESS(0, TLIBCFileTouch((folder_ / "two").c_str()));
    umask(mask);
    EXPECT_EQ(StatusOf(folder_ / "one").st_mode, S_IFREG | 0644u);
    EXPECT_EQ(StatusOf(folder_ / "two").st_mode, S_IFREG | 0600u);
    EXPECT_EQ(StatusOf(folder_ / "one").st_size, 0);
}

TEST_F(FileTouch, SetsTheTimesOfAnEntryAndKeepsItsText) {
    const std::string file = folder_.Write("file", "text");
    for (const std::string &path : {file, folder_.Path(), Pipe()}) {
        const struct timespec past[2] = {{1000, 0}, {1000, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), past, 0), 0);
        EXPECT_SUCCESS(0, TLIBCFileTouch(path.c_str()));
        EXPECT_GT(StatusOf(path).st_mtime, 1000) << path;
        EXPECT_GT(StatusOf(path).st_atime, 1000) << path;
    }
    EXPECT_EQ(ReadFile(file), "text");
}

TEST_F(FileTouch, CreatesNothingForADanglingLink) {
    EXPECT_FAILURE(kMissingCode, TLIBCFileTouch(Link("absent", "dangling").c_str()));
    EXPECT_THAT(folder_.Entries(), testing::ElementsAre("dangling"));
}

TEST_F(FileTouch, ReportsTheCauseOfAFailure) {
    const std::string file = folder_.Write("file", "");
    EXPECT_FAILURE(kBadParameterCode, TLIBCFileTouch(nullptr));
    EXPECT_FAILURE(kBadParameterCode, TLIBCFileTouch(""));
    EXPECT_FAILURE(kMissingCode, TLIBCFileTouch((folder_ / "absent/file").c_str()));
    EXPECT_FAILURE(kMissingCode, TLIBCFileTouch((file + "/below").c_str()));
    EXPECT_FAILURE(kUnusableCode, TLIBCFileTouch(Link("loop", "loop").c_str()));
    EXPECT_FAILURE(kUnusableCode, TLIBCFileTouch((folder_ / std::string(300, 'n')).c_str()));
}

TEST_F(FileTouch, NeedsWritePermission) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can create files of two users";
    }
    const std::string file = folder_.Write("file", "");
    ASSERT_EQ(chmod(folder_.Path().c_str(), 0755), 0);
    for (const std::string &path : {file, folder_ / "new"}) {
        EXPECT_EQ(AsOrdinaryUser([&] { return TLIBCFileTouch(path.c_str()); }),
                  std::make_pair(-1, kUnusableCode));
    }
    EXPECT_THAT(folder_.Entries(), testing::ElementsAre("file"));
}

}  // namespace
}  // namespace tavo::test

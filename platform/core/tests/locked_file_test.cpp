// Tests the lock itself: its time limit is too long to wait for through the public functions.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "file_replace.h"
#include "open_watch.h"
#include "temporary_folder.h"

namespace tavo {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

class LockedFileTest : public testing::Test {
  protected:
    test::TemporaryFolder folder_;
    std::string path_ = folder_.Write("file", "text");
};

TEST_F(LockedFileTest, GivesUpAtTheTimeLimit) {
    LockedFile holder;
    ASSERT_TRUE(holder.Lock(path_.c_str()));
    TLIBCErrSetEx(0, nullptr, 0);
    const steady_clock::time_point start = steady_clock::now();
    LockedFile waiter;
    EXPECT_FALSE(waiter.Lock(path_.c_str(), milliseconds(120)));
    EXPECT_GE(steady_clock::now() - start, milliseconds(120));
    EXPECT_LT(steady_clock::now() - start, milliseconds(5000));
    EXPECT_EQ(TLIBCErrGet(), 0x900u);
}

TEST_F(LockedFileTest, ReportsAFolderThatDisappearedWhileItWaited) {
    const std::string folder = folder_ / "folder";
    ASSERT_EQ(mkdir(folder.c_str(), 0700), 0);
    FolderLock holder;
    ASSERT_EQ(holder.Take(folder.c_str(), milliseconds(0)), LockResult::kTaken);
    const test::OpenWatch lock_file(folder + "/.tavo-write/lock");
    std::thread remover([&] {
        EXPECT_TRUE(lock_file.WaitForOpen());
        std::filesystem::rename(folder, folder_ / "gone");
    });
    FolderLock waiter;
    EXPECT_EQ(waiter.Take(folder.c_str(), milliseconds(1000)), LockResult::kFailed);
    EXPECT_EQ(TLIBCErrGet(), 0x700u);
    remover.join();
}

TEST_F(LockedFileTest, TakesAFreeLockWithoutWaiting) {
    LockedFile file;
    EXPECT_TRUE(file.Lock(path_.c_str(), milliseconds(0)));
}

TEST_F(LockedFileTest, IsOneLockForAllFilesOfAFolder) {
    LockedFile holder;
    LockedFile waiter;
    ASSERT_TRUE(holder.Lock(path_.c_str()));
    EXPECT_FALSE(waiter.Lock(folder_.Write("other", "").c_str(), milliseconds(0)));
}

TEST_F(LockedFileTest, GivingUpDoesNotAffectTheHolder) {
    LockedFile holder;
    ASSERT_TRUE(holder.Lock(path_.c_str()));
    for (int turn = 0; turn < 2; ++turn) {
        LockedFile waiter;
        EXPECT_FALSE(waiter.Lock(path_.c_str(), milliseconds(0)));
    }
}

TEST_F(LockedFileTest, EndsWithItsHolderEvenIfAChildInheritedIt) {
    pid_t child = -1;
    {
        LockedFile holder;
        ASSERT_TRUE(holder.Lock(path_.c_str()));
        child = fork();
        if (child == 0) {
            pause();
        }
    }
    LockedFile next;
    EXPECT_TRUE(next.Lock(path_.c_str(), milliseconds(0)));
    kill(child, SIGKILL);
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
}

TEST_F(LockedFileTest, SeesTheFileThatHasTheNameUnderTheLock) {
    LockedFile file;
    ASSERT_TRUE(file.Lock(path_.c_str()));
    ASSERT_EQ(rename(folder_.Write("other", "later").c_str(), path_.c_str()), 0);
    FileText text;
    ASSERT_TRUE(file.Read(text));
    EXPECT_EQ(text.View(), "later");
}

TEST_F(LockedFileTest, RejectsALinkThatReplacedTheFileMeanwhile) {
    LockedFile file;
    ASSERT_TRUE(file.Lock(path_.c_str()));
    ASSERT_EQ(unlink(path_.c_str()), 0);
    ASSERT_EQ(symlink("/etc/passwd", path_.c_str()), 0);
    FileText text;
    EXPECT_FALSE(file.Read(text));
    EXPECT_EQ(TLIBCErrGet(), 0x900u);
}

TEST_F(LockedFileTest, ReportsAFileThatDisappearedMeanwhile) {
    LockedFile file;
    ASSERT_TRUE(file.Lock(path_.c_str()));
    ASSERT_EQ(unlink(path_.c_str()), 0);
    FileText text;
    EXPECT_FALSE(file.Read(text));
    EXPECT_EQ(TLIBCErrGet(), 0x700u);
}

TEST_F(LockedFileTest, RenamesOverNothingButAFile) {
    {
        LockedFile file;
        FileText text;
        ASSERT_TRUE(file.Lock(path_.c_str()) && file.Read(text));
        ASSERT_EQ(unlink(path_.c_str()), 0);
        ASSERT_EQ(mkdir(path_.c_str(), 0700), 0);
        EXPECT_FALSE(file.Replace("new"));
        EXPECT_EQ(TLIBCErrGet(), 0x2800u);
    }
    EXPECT_EQ(folder_.Entries(), std::vector<std::string>{"file"});
}

}  // namespace
}  // namespace tavo

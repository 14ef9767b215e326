// The lock of a folder's writers, taken by a caller, and the entries that may be in its place.
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>

#include "failing_allocation.h"
#include "file_support.h"
#include "open_watch.h"
#include "ordinary_user.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;

struct Unlock {
    void operator()(TLIBCFolderLock *lock) const { TLIBCFolderLockRelease(lock); }
};
using Lock = std::unique_ptr<TLIBCFolderLock, Unlock>;

Lock Take(const std::string &folder) {
    return Lock(TLIBCFolderLockTake(folder.c_str()));
}

int TakeAndRelease(const std::string &folder) {
    return Take(folder) == nullptr ? -1 : 0;
}

int Change(const std::string &path) {
    return TLIBCFileSetSectionValue(path.c_str(), "s", "k", "2");
}

class FolderLockTest : public testing::Test {
  protected:
    // Runs `change` in a thread while the lock of the folder is held. Calls `meanwhile` after
    // `change` has tried to take the lock and has not ended for a moment. Returns the result of
    // `change`.
    template <typename Work, typename Meanwhile>
    int Blocked(Work change, Meanwhile meanwhile) const {
        std::atomic<int> result{-2};
        const OpenWatch lock_file(folder_ + "/.tavo-write/lock");
        std::thread writer([&] { result = change(); });
        EXPECT_TRUE(lock_file.WaitForOpen());
        std::this_thread::sleep_for(milliseconds(100));
        EXPECT_EQ(result, -2) << "it did not wait";
        meanwhile();
        writer.join();
        return result;
    }

    // A second folder next to the locked one, with the same file.
    std::string Replacement() {
        std::filesystem::create_directory(parent_ / "copy");
        parent_.Write("copy/file", kBefore);
        return parent_ / "copy";
    }

    static constexpr char kBefore[] = "[s]\nk=1\n";
    static constexpr char kAfter[] = "[s]\nk=2\n";

    TemporaryFolder parent_;
    const std::string folder_ = [this] {
        std::filesystem::create_directory(parent_ / "folder");
        return parent_ / "folder";
    }();
    const std::string file_ = parent_.Write("folder/file", kBefore);
};

TEST_F(FolderLockTest, KeepsWritersOutUntilItIsReleased) {
    Lock lock = Take(folder_);
    ASSERT_NE(lock, nullptr);
    EXPECT_EQ(Blocked([&] { return Change(file_); },
                      [&] {
                          EXPECT_EQ(ReadFile(file_), kBefore);
                          lock.reset();
                      }),
              0);
    EXPECT_EQ(ReadFile(file_), kAfter);
    EXPECT_THAT(Entries(folder_), ElementsAre("file"));
}

TEST_F(FolderLockTest, IsAFileThatOtherUsersCannotOpen) {
    const mode_t umask_before = umask(0);
    const Lock lock = Take(folder_);
    umask(umask_before);
    struct stat staging = {};
    struct stat file = {};
    ASSERT_EQ(lstat((folder_ + "/.tavo-write").c_str(), &staging), 0);
    ASSERT_EQ(lstat((folder_ + "/.tavo-write/lock").c_str(), &file), 0);
    EXPECT_EQ(staging.st_mode, static_cast<mode_t>(S_IFDIR | 0700));
    EXPECT_EQ(file.st_mode, static_cast<mode_t>(S_IFREG | 0600));
    const int fd = open((folder_ + "/.tavo-write/lock").c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(flock(fd, LOCK_EX | LOCK_NB), -1);
    close(fd);
}

TEST_F(FolderLockTest, LeavesNothing) {
    EXPECT_SUCCESS(0, TakeAndRelease(folder_));
    EXPECT_THAT(Entries(folder_), ElementsAre("file"));
}

TEST_F(FolderLockTest, IsTakenThroughALink) {
    ASSERT_EQ(symlink("folder", (parent_ / "link").c_str()), 0);
    Lock lock = Take(parent_ / "link");
    ASSERT_NE(lock, nullptr);
    EXPECT_EQ(Blocked([&] { return Change(file_); }, [&] { lock.reset(); }), 0);
}

TEST_F(FolderLockTest, NeedsAFolder) {
    EXPECT_FAILURE(kBadParameterCode, TLIBCFolderLockTake(nullptr) == nullptr ? -1 : 0);
    EXPECT_FAILURE(kBadParameterCode, TakeAndRelease(""));
    EXPECT_FAILURE(kMissingCode, TakeAndRelease(folder_ + "/absent"));
    EXPECT_FAILURE(kMissingCode, TakeAndRelease(file_));
    TLIBCFolderLockRelease(nullptr);
}

// Any user who may read the folder can lock the folder itself.
TEST_F(FolderLockTest, IsNotBlockedByAUserWithoutRights) {
    const int fd = open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(flock(fd, LOCK_EX | LOCK_NB), 0);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_SUCCESS(0, Change(file_));
    EXPECT_SUCCESS(0, TakeAndRelease(folder_));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    close(fd);
}

TEST_F(FolderLockTest, IsNotTakenByAUserWithoutRights) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    ASSERT_EQ(chmod(parent_.Path().c_str(), 0755), 0);
    EXPECT_EQ(AsOrdinaryUser([&] { return TakeAndRelease(folder_); }),
              std::make_pair(-1, kUnusableCode));
    const Lock lock = Take(folder_);
    EXPECT_EQ(AsOrdinaryUser([&] { return TakeAndRelease(folder_); }),
              std::make_pair(-1, kUnusableCode));
    EXPECT_EQ(AsOrdinaryUser([&] {
                  return open((folder_ + "/.tavo-write/lock").c_str(), O_RDONLY | O_CLOEXEC);
              }).first,
              -1);
}

// A call that only reads does not wait for a lock that it cannot get.
TEST_F(FolderLockTest, IsNotNeededForAChangeThatChangesNothing) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    ASSERT_EQ(chmod(parent_.Path().c_str(), 0755), 0);
    const Lock lock = Take(folder_);
    EXPECT_EQ(
        AsOrdinaryUser([&] { return TLIBCFileSetSectionValue(file_.c_str(), "s", "k", "1"); }),
        std::make_pair(0, kEarlierCode));
    EXPECT_EQ(AsOrdinaryUser([&] { return Change(file_); }), std::make_pair(-1, kUnusableCode));
    EXPECT_EQ(ReadFile(file_), kBefore);
}

TEST_F(FolderLockTest, RemovesALeftoverThatOthersCouldOpen) {
    for (const uid_t owner : {geteuid(), geteuid() == 0 ? kOrdinaryUser : geteuid()}) {
        std::filesystem::create_directory(folder_ + "/.tavo-write");
        ASSERT_EQ(chmod((folder_ + "/.tavo-write").c_str(), 0777), 0);
        ASSERT_EQ(chown((folder_ + "/.tavo-write").c_str(), owner, getegid()), 0);
        parent_.Write("folder/.tavo-write/lock", "");
        parent_.Write("folder/.tavo-write/new", "half a te");
        const Lock lock = Take(folder_);
        ASSERT_NE(lock, nullptr);
        EXPECT_THAT(Entries(folder_ + "/.tavo-write"), ElementsAre("lock"));
        struct stat staging = {};
        ASSERT_EQ(lstat((folder_ + "/.tavo-write").c_str(), &staging), 0);
        EXPECT_EQ(staging.st_mode & 07777, 0700u);
        EXPECT_EQ(staging.st_uid, geteuid());
    }
    EXPECT_THAT(Entries(folder_), ElementsAre("file"));
}

TEST_F(FolderLockTest, RejectsAnEntryThatIsNotALock) {
    std::filesystem::create_directories(folder_ + "/.tavo-write/lock");
    EXPECT_FAILURE(kUnusableCode, TakeAndRelease(folder_));
    EXPECT_TRUE(std::filesystem::is_directory(folder_ + "/.tavo-write/lock"));
    std::filesystem::remove(folder_ + "/.tavo-write/lock");
    parent_.Write("victim", "");
    ASSERT_EQ(symlink("../../victim", (folder_ + "/.tavo-write/lock").c_str()), 0);
    EXPECT_FAILURE(kUnusableCode, TakeAndRelease(folder_));
    std::filesystem::remove_all(folder_ + "/.tavo-write");
    ASSERT_EQ(mkfifo((folder_ + "/.tavo-write").c_str(), 0600), 0);
    EXPECT_FAILURE(kUnusableCode, TakeAndRelease(folder_));
    EXPECT_THAT(Entries(folder_), ElementsAre(".tavo-write", "file"));
}

TEST_F(FolderLockTest, IsReleasedWhenItsHolderIsKilled) {
    int ready[2];
    ASSERT_EQ(pipe2(ready, O_CLOEXEC), 0);
    const pid_t holder = fork();
    if (holder == 0) {
        const bool taken = TLIBCFolderLockTake(folder_.c_str()) != nullptr;
        if (taken && write(ready[1], "1", 1) == 1) {
            pause();
        }
        _exit(1);
    }
    char taken = 0;
    ASSERT_EQ(read(ready[0], &taken, 1), 1);
    close(ready[0]);
    close(ready[1]);
    EXPECT_EQ(Blocked([&] { return Change(file_); }, [&] { kill(holder, SIGKILL); }), 0);
    EXPECT_EQ(waitpid(holder, nullptr, 0), holder);
    EXPECT_THAT(Entries(folder_), ElementsAre("file"));
}

TEST_F(FolderLockTest, StaysLockedWhenAChildReleasesIt) {
    Lock lock = Take(folder_);
    const pid_t child = fork();
    if (child == 0) {
        TLIBCFolderLockRelease(lock.release());
        _exit(0);
    }
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_EQ(Blocked([&] { return Change(file_); }, [&] { lock.reset(); }), 0);
}

TEST_F(FolderLockTest, IsReleasedByAnotherThread) {
    Lock lock = Take(folder_);
    std::thread([&] { lock.reset(); }).join();
    EXPECT_SUCCESS(0, Change(file_));
}

TEST_F(FolderLockTest, AWaitingWriterContinuesInTheReplacementFolder) {
    const std::string copy = Replacement();
    Lock lock = Take(folder_);
    EXPECT_EQ(Blocked([&] { return Change(file_); },
                      [&] {
                          std::filesystem::rename(folder_, parent_ / "old");
                          std::this_thread::sleep_for(milliseconds(100));
                          std::filesystem::rename(copy, folder_);
                          lock.reset();
                      }),
              0);
    EXPECT_EQ(ReadFile(file_), kAfter);
    EXPECT_THAT(Entries(folder_), ElementsAre("file"));
}

TEST_F(FolderLockTest, ReleasesTheLockOfARemovedFolder) {
    Lock lock = Take(folder_);
    std::filesystem::remove_all(folder_);
    SetEarlierError();
    lock.reset();
    EXPECT_EQ(TLIBCErrGet(), kEarlierCode);
    EXPECT_THAT(parent_.Entries(), testing::IsEmpty());
}

TEST_F(FolderLockTest, ReleasingRemovesItsCopyInAReplacement) {
    Lock lock = Take(folder_);
    std::filesystem::copy(folder_, parent_ / "copy", std::filesystem::copy_options::recursive);
    std::filesystem::remove_all(folder_);
    std::filesystem::rename(parent_ / "copy", folder_);
    EXPECT_THAT(Entries(folder_), ElementsAre(".tavo-write", "file"));
    lock.reset();
    EXPECT_THAT(Entries(folder_), ElementsAre("file"));
}

TEST_F(FolderLockTest, FailsWithEveryFailedAllocation) {
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        SetEarlierError();
        TLIBCFolderLock *lock = fail.During([&] { return TLIBCFolderLockTake(folder_.c_str()); });
        EXPECT_EQ(lock == nullptr, fail.Hit());
        EXPECT_EQ(TLIBCErrGet(), fail.Hit() ? kOutOfMemoryCode : kEarlierCode);
        TLIBCFolderLockRelease(lock);
        EXPECT_THAT(Entries(folder_), ElementsAre("file"));
    });
    EXPECT_GT(allocations, 0);
}

}  // namespace
}  // namespace tavo::test

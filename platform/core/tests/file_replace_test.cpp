// Tests the effect of a change on the file as a folder entry, and the permissions and locks that a
// change needs.
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "file_support.h"
#include "ordinary_user.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;

constexpr char kBefore[] = "[s]\nk=1\n";
constexpr char kAfter[] = "[s]\nk=2\n";

int Change(const std::string &path, const char *value = "2") {
    return TLIBCFileSetSectionValue(path.c_str(), "s", "k", value);
}

struct stat StatusOf(const std::string &path) {
    struct stat status = {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status;
}

std::size_t OpenDescriptors() {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto &entry :
         std::filesystem::directory_iterator("/proc/self/fd")) {
        ++count;
    }
    return count;
}

// Holds the lock of the writers in a folder.
class HeldLock {
  public:
    explicit HeldLock(const std::string &folder) : staging_(folder + "/.tavo-write") {
        mkdir(staging_.c_str(), 0700);
        fd_ = open((staging_ + "/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        held_ = flock(fd_, LOCK_EX | LOCK_NB) == 0;
    }
    ~HeldLock() {
        if (held_) {
            unlink((staging_ + "/lock").c_str());
            rmdir(staging_.c_str());
        }
        close(fd_);
    }
    HeldLock(const HeldLock &) = delete;
    HeldLock &operator=(const HeldLock &) = delete;

    bool Held() const { return held_; }

  private:
    std::string staging_;
    int fd_ = -1;
    bool held_ = false;
};

class FileReplace : public testing::Test {
  protected:
    std::string Link(const std::string &target, std::string_view name) {
        std::string link = folder_ / name;
        EXPECT_EQ(symlink(target.c_str(), link.c_str()), 0);
        return link;
    }

    std::string Folder(std::string_view name) {
        std::string path = folder_ / name;
        EXPECT_EQ(mkdir(path.c_str(), 0777), 0);
        return path;
    }

    TemporaryFolder folder_;
};

TEST_F(FileReplace, RenamesANewFileOverTheOldOne) {
    const std::string file = folder_.Write("file", kBefore);
    const int old = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    const ino_t number = StatusOf(file).st_ino;
    EXPECT_SUCCESS(0, Change(file));
    EXPECT_EQ(ReadFile(file), kAfter);
    EXPECT_NE(StatusOf(file).st_ino, number);
    char text[32] = {};
    EXPECT_EQ(read(old, text, sizeof(text)), static_cast<ssize_t>(std::string(kBefore).size()));
    EXPECT_STREQ(text, kBefore);
    struct stat status = {};
    EXPECT_EQ(fstat(old, &status), 0);
    EXPECT_EQ(status.st_nlink, 0u);
    close(old);
}

TEST_F(FileReplace, LeavesAFileThatNeedsNoChange) {
    const std::string file = folder_.Write("file", kBefore);
    const struct stat before = StatusOf(file);
    EXPECT_SUCCESS(0, Change(file, "1"));
    EXPECT_SUCCESS(0, TLIBCFileRemoveSection(file.c_str(), "t"));
    const struct stat after = StatusOf(file);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_ctim.tv_sec, before.st_ctim.tv_sec);
    EXPECT_EQ(after.st_ctim.tv_nsec, before.st_ctim.tv_nsec);
}

TEST_F(FileReplace, FollowsSymbolicLinksToTheFile) {
    Folder("folder");
    const std::string file = folder_.Write("folder/file", kBefore);
    Link("folder/file", "relative");
    Link(folder_ / "relative", "absolute");
    const std::string chain = Link("folder/../absolute", "chain");
    EXPECT_SUCCESS(0, Change(chain));
    EXPECT_EQ(ReadFile(file), kAfter);
    EXPECT_TRUE(S_ISREG(StatusOf(file).st_mode));
    EXPECT_EQ(std::filesystem::read_symlink(chain), "folder/../absolute");
    EXPECT_EQ(std::filesystem::read_symlink(folder_ / "relative"), "folder/file");
    EXPECT_THAT(folder_.Entries(), ElementsAre("absolute", "chain", "folder", "relative"));
}

TEST_F(FileReplace, FollowsLinksOnTheWayToTheFile) {
    Folder("folder");
    const std::string file = folder_.Write("folder/file", kBefore);
    Link("folder", "link");
    EXPECT_SUCCESS(0, Change(folder_ / "link/file"));
    EXPECT_EQ(ReadFile(file), kAfter);
}

TEST_F(FileReplace, WorksOnANameWithoutAFolder) {
    folder_.Write("file", kBefore);
    const std::filesystem::path here = std::filesystem::current_path();
    std::filesystem::current_path(folder_.Path());
    EXPECT_SUCCESS(0, Change("file"));
    std::filesystem::current_path(here);
    EXPECT_EQ(ReadFile(folder_ / "file"), kAfter);
    EXPECT_THAT(folder_.Entries(), ElementsAre("file"));
}

TEST_F(FileReplace, KeepsTheMode) {
    for (const mode_t mode : {0644u, 0600u, 0444u, 0000u, 0777u, 06755u, 01640u}) {
        const std::string file = folder_.Write("file", kBefore);
        ASSERT_EQ(chmod(file.c_str(), mode), 0);
        if (geteuid() == 0) {
            EXPECT_SUCCESS(0, Change(file));
            EXPECT_EQ(StatusOf(file).st_mode & 07777, mode);
        }
        unlink(file.c_str());
    }
}

TEST_F(FileReplace, KeepsOwnerAndModeOfAnotherUsersFile) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can change the owner of a file";
    }
    const std::string file = folder_.Write("file", kBefore);
    ASSERT_EQ(chown(file.c_str(), 1234, 5678), 0);
    ASSERT_EQ(chmod(file.c_str(), 06750), 0);
    EXPECT_SUCCESS(0, Change(file));
    EXPECT_EQ(StatusOf(file).st_uid, 1234u);
    EXPECT_EQ(StatusOf(file).st_gid, 5678u);
    EXPECT_EQ(StatusOf(file).st_mode & 07777, 06750u);
}

TEST_F(FileReplace, KeepsTheGroupInASetGroupIdFolder) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can change the owner of a file";
    }
    const std::string file = folder_.Write("file", kBefore);
    ASSERT_EQ(chown(folder_.Path().c_str(), 0, 5678), 0);
    ASSERT_EQ(chmod(folder_.Path().c_str(), 02755), 0);
    EXPECT_SUCCESS(0, Change(file));
    EXPECT_EQ(StatusOf(file).st_gid, 0u);
}

TEST_F(FileReplace, FailsIfTheUserCannotRestoreTheOwner) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can create files of two users";
    }
    const std::string file = folder_.Write("file", kBefore);
    ASSERT_EQ(chmod(folder_.Path().c_str(), 0777), 0);
    EXPECT_EQ(AsOrdinaryUser([&] { return Change(file); }), std::make_pair(-1, kUnusableCode));
    EXPECT_EQ(ReadFile(file), kBefore);
    EXPECT_THAT(folder_.Entries(), ElementsAre("file"));
}

TEST_F(FileReplace, FailsIfTheUserMayNotChangeTheFolder) {
    const std::string file = folder_.Write("file", kBefore);
    ASSERT_EQ(chown(file.c_str(), geteuid() == 0 ? kOrdinaryUser : geteuid(), getegid()), 0);
    ASSERT_EQ(chmod(folder_.Path().c_str(), 0555), 0);
    EXPECT_EQ(AsOrdinaryUser([&] { return Change(file); }), std::make_pair(-1, kUnusableCode));
    EXPECT_EQ(ReadFile(file), kBefore);
    // A change that changes nothing needs only read permission.
    EXPECT_EQ(AsOrdinaryUser([&] { return Change(file, "1"); }), std::make_pair(0, kEarlierCode));
    ASSERT_EQ(chmod(folder_.Path().c_str(), 0755), 0);
    EXPECT_THAT(folder_.Entries(), ElementsAre("file"));
}

TEST_F(FileReplace, FailsIfOnlyPartOfTheTextFits) {
    const std::string before = kBefore + std::string(20'000, '#');
    const std::string file = folder_.Write("file", before);
    struct rlimit old_limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old_limit), 0);
    const struct rlimit limit = {5000, old_limit.rlim_max};
    const auto old_handler = signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    const std::pair<int, unsigned int> answer = ResultAndError([&] { return Change(file); });
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &old_limit), 0);
    signal(SIGXFSZ, old_handler);
    EXPECT_EQ(answer, std::make_pair(-1, kUnusableCode));
    EXPECT_EQ(ReadFile(file), before);
    EXPECT_THAT(folder_.Entries(), ElementsAre("file"));
}

TEST_F(FileReplace, RemovesLeftoversOfAKilledWriterEvenIfNothingChanges) {
    for (const char *value : {"2", "1"}) {
        const std::string file = folder_.Write("file", kBefore);
        folder_.Write("other", "");
        Folder(".tavo-write");
        folder_.Write(".tavo-write/new", "half a te");
        folder_.Write(".tavo-write/old", "[s]\nk=0\n");
        EXPECT_SUCCESS(0, Change(file, value));
        EXPECT_THAT(folder_.Entries(), ElementsAre("file", "other"));
    }
}

TEST_F(FileReplace, RemovesLeftoversOfAnotherUsersWriter) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can change the owner of a file";
    }
    const std::string file = folder_.Write("file", kBefore);
    ASSERT_EQ(chown(Folder(".tavo-write").c_str(), 1234, 5678), 0);
    EXPECT_SUCCESS(0, Change(file));
    EXPECT_EQ(StatusOf(file).st_uid, 0u);
    EXPECT_THAT(folder_.Entries(), ElementsAre("file"));
}

// Only the names of writers are removed; other files belong to someone.
TEST_F(FileReplace, FailsWithoutTouchingForeignFiles) {
    const std::string file = folder_.Write("file", kBefore);
    Folder(".tavo-write");
    folder_.Write(".tavo-write/mine", "precious");
    EXPECT_FAILURE(kUnusableCode, Change(file));
    EXPECT_EQ(ReadFile(folder_ / ".tavo-write/mine"), "precious");
    EXPECT_EQ(ReadFile(file), kBefore);
}

TEST_F(FileReplace, FollowsNoLinkInPlaceOfItsOwnFolder) {
    const std::string file = folder_.Write("file", kBefore);
    Folder("elsewhere");
    folder_.Write("elsewhere/new", "precious");
    Link("elsewhere", ".tavo-write");
    EXPECT_FAILURE(kUnusableCode, Change(file));
    EXPECT_EQ(ReadFile(folder_ / "elsewhere/new"), "precious");
    EXPECT_EQ(ReadFile(file), kBefore);
    EXPECT_THAT(folder_.Entries(), ElementsAre(".tavo-write", "elsewhere", "file"));
}

TEST_F(FileReplace, FailsOnAFileInPlaceOfItsOwnFolder) {
    const std::string file = folder_.Write("file", kBefore);
    folder_.Write(".tavo-write", "precious");
    EXPECT_FAILURE(kUnusableCode, Change(file));
    EXPECT_EQ(ReadFile(folder_ / ".tavo-write"), "precious");
    EXPECT_EQ(ReadFile(file), kBefore);
}

TEST_F(FileReplace, WaitsForTheHolderOfTheLock) {
    const std::string file = folder_.Write("file", kBefore);
    auto lock = std::make_unique<HeldLock>(folder_.Path());
    ASSERT_TRUE(lock->Held());
    const auto start = std::chrono::steady_clock::now();
    std::thread other([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        EXPECT_EQ(ReadFile(file), kBefore);
        lock.reset();
    });
    EXPECT_SUCCESS(0, Change(file));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(150));
    other.join();
    EXPECT_EQ(ReadFile(file), kAfter);
}

TEST_F(FileReplace, DoesNotWaitForAWriterInAnotherFolder) {
    const std::string file = folder_.Write("file", kBefore);
    const HeldLock lock(Folder("folder"));
    ASSERT_TRUE(lock.Held());
    EXPECT_SUCCESS(0, Change(file));
}

TEST_F(FileReplace, ReadersDoNotWaitForWriters) {
    const std::string file = folder_.Write("file", kBefore);
    const HeldLock lock(folder_.Path());
    ASSERT_TRUE(lock.Held());
    EXPECT_THAT(SectionNamesOf(file), ElementsAre("s"));
}

TEST_F(FileReplace, ReleasesLockAndDescriptorsAfterAnyChange) {
    const std::string file = folder_.Write("file", kBefore);
    Folder("folder");
    const std::size_t descriptors = OpenDescriptors();
    EXPECT_SUCCESS(0, Change(file));
    EXPECT_TRUE(HeldLock(folder_.Path()).Held());
    EXPECT_SUCCESS(0, Change(file));
    EXPECT_TRUE(HeldLock(folder_.Path()).Held());
    EXPECT_FAILURE(kUnusableCode, Change(folder_ / "folder"));
    EXPECT_TRUE(HeldLock(folder_.Path()).Held());
    EXPECT_FAILURE(kBadParameterCode, TLIBCFileSetSectionValue(file.c_str(), "absent", "k", "v"));
    EXPECT_TRUE(HeldLock(folder_.Path()).Held());
    Folder(".tavo-write");
    folder_.Write(".tavo-write/mine", "");
    EXPECT_FAILURE(kUnusableCode, Change(file, "3"));
    unlink((folder_ / ".tavo-write/mine").c_str());
    EXPECT_TRUE(HeldLock(folder_.Path()).Held());
    EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST_F(FileReplace, ThreadsThatWriteOneFileLoseNothing) {
    const std::string file = folder_.Write("file", "");
    constexpr int kThreads = 4;
    constexpr int kSections = 5;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            for (int i = 0; i < kSections; ++i) {
                const std::string name = std::to_string(thread) + "." + std::to_string(i);
                EXPECT_EQ(TLIBCFileAddSection(file.c_str(), name.c_str(), Table().Get(), 0), 0);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(SectionNamesOf(file).size(), std::size_t{kThreads * kSections});
    EXPECT_THAT(folder_.Entries(), ElementsAre("file"));
}

}  // namespace
}  // namespace tavo::test

// Many processes change one file at the same time: no change is lost, and readers see complete
// files.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "child_process.h"
#include "tavocore.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;

constexpr int kWriters = 50;
constexpr int kKeys = 20;

// Adds section `name`; all its keys have the value `name`.
int AddSection(const std::string &path, const std::string &name) {
    TLIBCSzHash *keys = TLIBCSzHashAlloc(kKeys);
    for (int i = 0; i < kKeys; ++i) {
        TLIBCSzHashSetValue(keys, ("key" + std::to_string(i)).c_str(), name.c_str());
    }
    const int result = TLIBCFileAddSection(path.c_str(), name.c_str(), keys, 0);
    TLIBCSzHashFree(keys);
    return result;
}

// Checks that every section of the file has all its keys. Returns the number of sections.
int CheckSections(const std::string &path) {
    TLIBCSzList *names = TLIBCSzListAlloc(kWriters);
    TLIBCSzHash *keys = TLIBCSzHashAlloc(kKeys);
    const int count = TLIBCFileEnumSection(path.c_str(), &names);
    for (int i = 0; i < count; ++i) {
        const char *name = TLIBCSzListGet(names, i);
        EXPECT_EQ(TLIBCFileGetSection(path.c_str(), name, &keys), kKeys) << name;
        EXPECT_STREQ(TLIBCSzHashGetValue(keys, "key0"), name);
        EXPECT_STREQ(TLIBCSzHashGetValue(keys, "key19"), name);
    }
    TLIBCSzHashFree(keys);
    TLIBCSzListFree(names);
    return count;
}

class ManyWriters : public testing::Test {
  protected:
    TemporaryFolder folder_;
    std::string file_ = folder_.Write("file", "");
};

TEST_F(ManyWriters, LoseNothingAndNeverShowAReaderAHalf) {
    std::vector<pid_t> writers;
    for (int i = 0; i < kWriters; ++i) {
        writers.push_back(
            StartChild([&, i] { return AddSection(file_, "writer" + std::to_string(i)); }));
    }
    const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    for (int seen = 0; seen < kWriters && std::chrono::steady_clock::now() < give_up;) {
        const int count = CheckSections(file_);
        ASSERT_GE(count, seen);
        seen = count;
    }
    for (const pid_t writer : writers) {
        EXPECT_EQ(StatusOfChild(writer), 0);
    }
    EXPECT_EQ(CheckSections(file_), kWriters);
    EXPECT_THAT(folder_.Entries(), ElementsAre("file"));
}

// Starts a process that locks the folder like a writer, reports this through a pipe and holds the
// lock for `time`.
pid_t StartHolder(const std::string &folder, std::chrono::milliseconds time) {
    int ready[2];
    EXPECT_EQ(pipe2(ready, O_CLOEXEC), 0);
    const pid_t holder = StartChild([&] {
        mkdir((folder + "/.tavo-write").c_str(), 0700);
        const int fd =
            open((folder + "/.tavo-write/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (flock(fd, LOCK_EX) != 0 || write(ready[1], "1", 1) != 1) {
            return 1;
        }
        std::this_thread::sleep_for(time);
        return 0;
    });
    char told;
    close(ready[1]);
    EXPECT_EQ(read(ready[0], &told, 1), 1);
    close(ready[0]);
    return holder;
}

TEST_F(ManyWriters, WaitForOneThatTakesItsTime) {
    const auto start = std::chrono::steady_clock::now();
    const pid_t holder = StartHolder(folder_.Path(), std::chrono::milliseconds(300));
    EXPECT_EQ(AddSection(file_, "s"), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
    EXPECT_EQ(StatusOfChild(holder), 0);
    EXPECT_EQ(CheckSections(file_), 1);
}

TEST_F(ManyWriters, GoOnWhenTheOneWithTheLockIsKilled) {
    const pid_t holder = StartHolder(folder_.Path(), std::chrono::hours(1));
    std::thread killer([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        kill(holder, SIGKILL);
    });
    EXPECT_EQ(AddSection(file_, "s"), 0);
    killer.join();
    EXPECT_EQ(StatusOfChild(holder), -1);
    EXPECT_EQ(CheckSections(file_), 1);
}

}  // namespace
}  // namespace tavo::test

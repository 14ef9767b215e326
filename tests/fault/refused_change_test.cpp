// Changes of a service file with failing system calls or a full disk. The file must be completely
// the old one or the new one, the result must say which, and the next change must succeed.
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <iterator>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "change_under_fire.h"
#include "patterns.h"
#include "require_appliance.h"

namespace tavo::test {
namespace {

class RefusedChange : public ChangeUnderFire {
  protected:
    // Whether the change may return 0 and report the failure in the log only: an update continues
    // if the installation fails, a section that cannot be stored is not a failure, and one that is
    // not found counts as removed.
    static bool MaySucceedInVain() {
        const std::string &change = GetParam().change;
        return change == "update" || change == "set" || change == "remove-section";
    }

    void ExpectAnswerAgrees(const Outcome &outcome) const {
        ASSERT_TRUE(outcome.result) << outcome.trace;
        const Contents contents = GameContents();
        if (contents == after_ && outcome.result == 0) {
            return;
        }
        EXPECT_TRUE(outcome.result == -1 || MaySucceedInVain());
        const bool half_done = outcome.result == 0 && IsHalfDone(contents);
        EXPECT_TRUE(contents == GetParam().before || half_done);
        EXPECT_FALSE(outcome.code == "0x0" && outcome.log.empty()) << "it says nothing";
    }

    void Refuse(const SystemCall &call, const std::string &error) {
        SCOPED_TRACE(error + " at " + call.line);
        Prepare(GetParam().before);
        const Outcome outcome = Make(GetParam().change, call, error);
        ExpectAnswerAgrees(outcome);
        EXPECT_EQ(outcome.left_open, "0");
        ExpectAllElseUntouched();
        ExpectNextChangeSucceeds(GetParam().change);
        failures_ += outcome.result == 0 ? 0 : 1;
    }

    int failures_ = 0;
};

// Some calls cannot fail, or their result is not used. A wait for a running program does not fail.
// The number of polls depends on timing, and the number of attempts to find a free name on chance.
bool CanBeRefused(const SystemCall &call) {
    static const std::set<std::string> kNever = {"close", "getpid",       "getrandom",
                                                 "poll",  "rt_sigaction", "rt_sigprocmask",
                                                 "wait4", "waitid"};
    return !IsAboutMemory(call) && kNever.count(call.name) == 0;
}

// Removes repeated calls that only read: each is made to fail once.
std::vector<SystemCall> Refusable(const std::vector<SystemCall> &calls) {
    constexpr char kNumbers[] = "0x[0-9a-f]+|[0-9]+";
    std::set<std::string> seen;
    std::vector<SystemCall> refusable;
    for (const SystemCall &call : calls) {
        if (CanBeRefused(call) && (CanChangeAFile(call) ||
                                   seen.insert(ReplaceMatches(call.line, kNumbers, "N")).second)) {
            refusable.push_back(call);
        }
    }
    return refusable;
}

TEST_P(RefusedChange, MakesTheAnswerAndTheFileAgree) {
    static constexpr const char *kErrors[] = {"EIO", "ENOSPC", "EACCES"};
    std::size_t turn = 0;
    for (const SystemCall &call : Refusable(Rehearse(GetParam()))) {
        Refuse(call, kErrors[turn++ % std::size(kErrors)]);
    }
    EXPECT_GT(failures_, 0);
}

INSTANTIATE_TEST_SUITE_P(Changes, RefusedChange, testing::ValuesIn(Scenes()),
                         [](const auto &scene) { return scene.param.name; });

// ---- Rollbacks ----

class RefusedRollback : public ChangeUnderFire {};

// The file is either restored to the store or still in the side copy, and the next removal of the
// section finds it there.
TEST_F(RefusedRollback, LosesNoFile) {
    static constexpr const char *kErrors[] = {"EIO", "ENOSPC", "EACCES"};
    const Contents old = GameFile("7001/tcp");
    std::size_t turn = 0;
    int put_back = 0;
    for (const SystemCall &call : Refusable(RehearseRollback(old))) {
        const std::string error = kErrors[turn++ % std::size(kErrors)];
        SCOPED_TRACE(error + " at " + call.line);
        Prepare(old);
        const Outcome outcome = Make("remove-section", call, error);
        EXPECT_EQ(outcome.result, -1);
        EXPECT_NE(outcome.log, "");
        EXPECT_EQ(outcome.left_open, "0");
        for (int again = 0; again < 2; ++again) {
            const bool stands = GameContents() == old;
            put_back += stands ? 1 : 0;
            EXPECT_EQ(stands ? old : SavedContents("game.sc"), old);
            EXPECT_EQ(stands ? ReadFile(kChatPath) : SavedContents("chat.sc"), kChat);
            EXPECT_EQ(Make("remove-section").result, -1);
        }
    }
    EXPECT_GT(put_back, 50);
}

// ---- Full disks ----

// Mounts a small file system on a folder.
class SmallDisk {
  public:
    SmallDisk(std::string folder, const std::string &size) : folder_(std::move(folder)) {
        EXPECT_EQ(mount("tmpfs", folder_.c_str(), "tmpfs", 0, ("size=" + size).c_str()), 0);
    }
    ~SmallDisk() { umount2(folder_.c_str(), MNT_DETACH); }
    SmallDisk(const SmallDisk &) = delete;
    SmallDisk &operator=(const SmallDisk &) = delete;

    void Grow() const {
        EXPECT_EQ(mount("tmpfs", folder_.c_str(), "tmpfs", MS_REMOUNT, "size=16m"), 0);
    }

  private:
    std::string folder_;
};

// The result of a change on a full disk, and its log line.
struct FullDisk {
    std::string change;
    int result;
    std::string code;  // "" if none is guaranteed
    std::string line;
};

class FullDiskTest : public ChangeUnderFire {
  protected:
    static inline const std::string kOld = GameFile("7001/tcp");

    // The change must return this result and keep the file; with free space on the disk it must
    // succeed.
    void ExpectRefusal(const FullDisk &expected, const SmallDisk &disk) {
        SCOPED_TRACE(expected.change);
        const Outcome outcome = Make(expected.change);
        EXPECT_EQ(outcome.result, expected.result);
        EXPECT_TRUE(expected.code.empty() || outcome.code == expected.code) << outcome.code;
        EXPECT_EQ(outcome.left_open, "0");
        EXPECT_THAT(outcome.log, testing::HasSubstr(expected.line));
        EXPECT_EQ(GameContents(), kOld);
        EXPECT_THAT(InTmp(), testing::ElementsAre());
        disk.Grow();
        EXPECT_EQ(Make(expected.change).result, 0);
        EXPECT_NE(GameContents(), kOld);
    }
};

TEST_F(FullDiskTest, OfTheServiceFilesLeavesTheOldFile) {
    for (const FullDisk &expected : std::vector<FullDisk>{
             {"install", -1, "0x3B00", "install configure file fail! from=/packages/game.sc to="},
             {"update", 0, "0x3B00", "check /packages/game.sc conf file port conflict failed=-1"},
             {"set", 0, "", ""},
             {"set-ports", -1, "0x900", ""},
             {"remove-section", -1, "0x900", ""}}) {
        const SmallDisk disk("/usr/local/etc", "512k");
        std::filesystem::create_directory(kPackageServices);
        Prepare(kOld);
        ExpectRefusal(expected, disk);
    }
}

TEST_F(FullDiskTest, OfTheCopiesLeavesTheOldFile) {
    if (ThisProgramLiesInTmp()) {
        GTEST_SKIP() << "/tmp is to be another disk";
    }
    for (const FullDisk &expected : std::vector<FullDisk>{
             {"update", -1, "0x0", "FAILED to copy from file=/usr/local/etc/services.d/game.sc to"},
             {"set", -1, "0x0", "FAILED to copy from file=/usr/local/etc/services.d/game.sc to"},
             {"set-ports", -1, "0x0",
              "FAILED to copy from file=/usr/local/etc/services.d/game.sc to"}}) {
        const SmallDisk disk("/tmp", "128k");
        Prepare(kOld);
        ExpectRefusal(expected, disk);
    }
}

}  // namespace
}  // namespace tavo::test

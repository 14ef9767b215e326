// A writer is killed at each of its system calls, and then each of them fails. In all cases
// the file must be completely the old one or the new one, the writer's result must say which, and
// the next change in the folder must remove all leftovers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "run_program.h"
#include "system_calls.h"
#include "tavocore.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

using testing::AnyOf;
using testing::ElementsAre;

constexpr int kKilled = 128 + 9;

class InjectedFault : public testing::Test {
  protected:
    InjectedFault() {
        std::string filler(20'000, '#');
        old_text_ = filler + "\n[s]\nk=old\n";
        new_text_ = filler + "\n[s]\nk=new\n";
        Restore();
    }

    void Restore() {
        WriteFile(file_, old_text_);
        ASSERT_EQ(chmod(file_.c_str(), 0640), 0);
        ASSERT_THAT(folder_.Entries(), ElementsAre("file"));
        // Owned by another user if possible, so that the new file must get the owner as well.
        if (geteuid() == 0) {
            EXPECT_EQ(chown(file_.c_str(), kOwner, kOwner), 0);
        }
    }

    // Runs the writer, k=new, with a fault.
    ProgramResult RunWriter(const SystemCall &call, const std::string &fault) {
        return RunWithFault(writer_, call, fault);
    }

    // All system calls of the change, in order, recorded in a run without a fault.
    std::vector<SystemCall> CallsOfTheChange() {
        const ProgramResult result = RunTraced(writer_);
        EXPECT_EQ(result.status, 0) << result.err;
        Restore();
        std::vector<SystemCall> calls = CallsBetweenMarks(result.err);
        EXPECT_FALSE(calls.empty()) << result.err;
        return calls;
    }

    // The next change in the folder must succeed and leave only the file.
    void ExpectNextChangeCleansUp() {
        EXPECT_EQ(TLIBCFileSetSectionValue(file_.c_str(), "s", "k", "next"), 0);
        std::string next_text = new_text_;
        next_text.replace(next_text.rfind("new"), 3, "next");
        EXPECT_EQ(ReadFile(file_), next_text);
        EXPECT_THAT(folder_.Entries(), ElementsAre("file"));
    }

    bool FileIs(const std::string &text) const {
        struct stat status = {};
        return ReadFile(file_) == text && stat(file_.c_str(), &status) == 0 &&
               (status.st_mode & 07777) == 0640 && (geteuid() != 0 || status.st_uid == kOwner);
    }

    static constexpr uid_t kOwner = 12345;

    // Checks that the result and the file agree and that a failed change leaves nothing.
    void ExpectAnswerAgrees(const SystemCall &call, const std::string &error,
                            const ProgramResult &result) {
        ASSERT_THAT(result.status, AnyOf(0, 1)) << result.err;
        EXPECT_TRUE(FileIs(result.status == 0 ? new_text_ : old_text_));
        if (result.status != 0) {
            EXPECT_EQ(result.out, (call.name.starts_with("rename") ? "0x2800 " : "0x900 ") + error);
            // Another process may hold a lock that cannot be checked, so its file remains.
            if (call.name != "flock") {
                EXPECT_THAT(folder_.Entries(), ElementsAre("file"));
            }
        } else if (folder_.Entries().size() > 1) {
            EXPECT_THAT(folder_.Entries(), ElementsAre(".tavo-write", "file"));
            EXPECT_THAT(call.name, AnyOf("unlinkat", "openat"))
                << "it was the cleaning that failed";
        }
    }

    // Injects `fault` into each call and checks the outcome.
    template <typename Check>
    int ForEachCall(const std::vector<SystemCall> &calls, const std::string &fault, Check check) {
        for (const SystemCall &call : calls) {
            SCOPED_TRACE(fault + " at " + call.name + " " + std::to_string(call.ordinal));
            check(call, RunWriter(call, fault));
            ExpectNextChangeCleansUp();
            Restore();
        }
        return static_cast<int>(calls.size());
    }

    static int CountOf(const std::string &part, const std::string &text) {
        int count = 0;
        for (std::size_t at = text.find(part); at != std::string::npos;
             at = text.find(part, at + 1)) {
            ++count;
        }
        return count;
    }

    TemporaryFolder folder_;
    std::string file_ = folder_ / "file";
    std::string old_text_;
    std::string new_text_;
    std::vector<std::string> writer_ = {TAVO_FAULT_WRITER, file_, "s", "k", "new"};
};

TEST_F(InjectedFault, TheChangeIsStagedFlushedAndRenamed) {
    std::string names;
    for (const SystemCall &call : CallsOfTheChange()) {
        names += call.name + " ";
    }
    const std::string owner = geteuid() == 0 ? "fchown " : "";
    EXPECT_THAT(names, testing::ContainsRegex("mkdirat .*flock .*write .*" + owner +
                                              "fchmod .*fsync close "
                                              "linkat renameat fsync .*unlinkat .*flock"));
}

TEST_F(InjectedFault, AWriterKilledAtAnyCallLeavesTheOldFileOrTheNewOne) {
    int old_files = 0;
    int new_files = 0;
    const int calls = ForEachCall(CallsOfTheChange(), "SIGKILL",
                                  [&](const SystemCall &, const ProgramResult &result) {
                                      EXPECT_EQ(result.status, kKilled);
                                      old_files += FileIs(old_text_) ? 1 : 0;
                                      new_files += FileIs(new_text_) ? 1 : 0;
                                  });
    EXPECT_EQ(old_files + new_files, calls);
    EXPECT_GT(old_files, 15);
    EXPECT_GT(new_files, 4);
}

class RefusedCall : public InjectedFault, public testing::WithParamInterface<const char *> {};

TEST_P(RefusedCall, MakesTheAnswerAndTheFileAgree) {
    std::vector<SystemCall> calls = CallsOfTheChange();
    std::erase_if(calls, IsAboutMemory);
    int failures = 0;
    ForEachCall(calls, GetParam(), [&](const SystemCall &call, const ProgramResult &result) {
        ExpectAnswerAgrees(call, GetParam(), result);
        failures += result.status;
    });
    EXPECT_GT(failures, 10);
}

INSTANTIATE_TEST_SUITE_P(Errors, RefusedCall, testing::Values("ENOSPC", "EIO", "EROFS", "EACCES"),
                         [](const auto &error) { return std::string(error.param); });

TEST_F(InjectedFault, ASignalThatCutsACallShortIsNoFailure) {
    for (const SystemCall &call : CallsOfTheChange()) {
        static const std::set<std::string> names = {"openat", "read", "write", "flock", "fsync"};
        if (names.count(call.name) > 0) {
            SCOPED_TRACE("EINTR at " + call.name + " " + std::to_string(call.ordinal));
            EXPECT_EQ(RunWriter(call, "EINTR").status, 0);
            EXPECT_TRUE(FileIs(new_text_));
            EXPECT_THAT(folder_.Entries(), ElementsAre("file"));
            Restore();
        }
    }
}

TEST_F(InjectedFault, AFileSystemWithoutHardLinksIsWrittenToAllTheSame) {
    for (const char *error : {"EPERM", "EOPNOTSUPP", "EMLINK", "ENOSYS"}) {
        EXPECT_EQ(RunWriter({"linkat", 1}, error).status, 0) << error;
        EXPECT_TRUE(FileIs(new_text_));
        EXPECT_THAT(folder_.Entries(), ElementsAre("file"));
        Restore();
    }
}

// Waiting is useless if the file system does not support locks.
TEST_F(InjectedFault, AFileSystemWithoutLocksIsNotWaitedFor) {
    for (const char *error : {"ENOSYS", "EOPNOTSUPP", "EINVAL"}) {
        SCOPED_TRACE(error);
        const ProgramResult result = RunTraced(
            writer_, {"-e", "trace=flock", "-e", std::string("inject=flock:error=") + error});
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.out, std::string("0x900 ") + error);
        EXPECT_EQ(CountOf("flock(", result.err), 1) << result.err;
        EXPECT_TRUE(FileIs(old_text_));
        EXPECT_THAT(folder_.Entries(), ElementsAre("file"));
    }
}

TEST_F(InjectedFault, ALockThatTheKernelHasNoRoomForIsWaitedFor) {
    EXPECT_EQ(RunWriter({"flock", 1}, "ENOLCK").status, 0);
    EXPECT_TRUE(FileIs(new_text_));
    EXPECT_THAT(folder_.Entries(), ElementsAre("file"));
}

// If the file system has become read-only, the lock file of a killed writer can no longer be opened
// for writing. A text that is already in the file needs no lock.
TEST_F(InjectedFault, AFileSystemThatIsReadOnlyRefusesNoTextThatIsThere) {
    for (const SystemCall &call : CallsOfTheChange()) {
        if (call.name == "openat" && call.line.find("\"lock\"") != std::string::npos) {
            EXPECT_EQ(
                RunWithFault({TAVO_FAULT_WRITER, file_, "s", "k", "old"}, call, "EROFS").status, 0);
            EXPECT_TRUE(FileIs(old_text_));
            return;
        }
    }
    FAIL() << "it opens no lock file";
}

// Some file systems report a failed write only when the file is closed.
TEST_F(InjectedFault, ATextThatCannotBeClosedIsNotPublished) {
    std::vector<SystemCall> calls = CallsOfTheChange();
    const auto is_fsync = [](const SystemCall &call) { return call.name == "fsync"; };
    const SystemCall close = *(std::find_if(calls.begin(), calls.end(), is_fsync) + 1);
    ASSERT_EQ(close.name, "close");
    EXPECT_EQ(RunWriter(close, "EIO").status, 1);
    EXPECT_TRUE(FileIs(old_text_));
    EXPECT_THAT(folder_.Entries(), ElementsAre("file"));
}

// The second fsync is for the folder, after the rename.
TEST_F(InjectedFault, AFolderThatCannotBeFlushedGetsTheOldFileBack) {
    struct stat before = {};
    ASSERT_EQ(stat(file_.c_str(), &before), 0);
    const ProgramResult result = RunWriter({"fsync", 2}, "EIO");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "0x900 EIO");
    EXPECT_TRUE(FileIs(old_text_));
    struct stat after = {};
    ASSERT_EQ(stat(file_.c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_nlink, 1u);
    EXPECT_THAT(folder_.Entries(), ElementsAre("file"));
}

}  // namespace
}  // namespace tavo::test

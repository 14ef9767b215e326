// Signals to the launcher, and the removal of everything after a run.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/magic.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>

#include "appliance_run.h"

namespace {

using tavo::test::BackgroundRun;
using tavo::test::ProgramResult;
using tavo::test::RunLauncher;
using tavo::test::TemporaryFolder;
using testing::IsEmpty;
using testing::SizeIs;

class Signalled : public testing::TestWithParam<int> {};

INSTANTIATE_TEST_SUITE_P(Signals, Signalled, testing::Values(SIGINT, SIGTERM, SIGHUP, SIGQUIT));

TEST_P(Signalled, EndsTheCommandAndTakesTheFolderAway) {
    BackgroundRun run("echo ready; exec sleep 600");
    ASSERT_EQ(run.ReadLine(), "ready");
    EXPECT_THAT(run.Folders(), SizeIs(1));
    run.Signal(GetParam());
    EXPECT_EQ(run.Wait(), 128 + GetParam());
    EXPECT_TRUE(run.OutputEnds());
    EXPECT_THAT(run.Folders(), IsEmpty());
}

TEST_P(Signalled, ReachesTheCommandWhichMayActOnIt) {
    const std::string number = std::to_string(GetParam());
    BackgroundRun run("trap 'echo caught; exit 3' " + number +
                      "; echo ready; while :; do sleep 0.01; done");
    ASSERT_EQ(run.ReadLine(), "ready");
    run.Signal(GetParam());
    EXPECT_EQ(run.ReadLine(), "caught");
    EXPECT_EQ(run.Wait(), 3);
    EXPECT_THAT(run.Folders(), IsEmpty());
}

TEST_P(Signalled, FindsTheCommandHoweverEarlyItComes) {
    BackgroundRun run("exec sleep 600");
    while (run.Folders().empty()) {
    }
    run.Signal(GetParam());
    EXPECT_EQ(run.Wait(), 128 + GetParam());
    EXPECT_THAT(run.Folders(), IsEmpty());
}

TEST(Killed, TakesEveryProcessWithIt) {
    BackgroundRun run("sleep 600 & echo ready; sleep 600");
    ASSERT_EQ(run.ReadLine(), "ready");
    run.Signal(SIGKILL);
    EXPECT_EQ(run.Wait(), 128 + SIGKILL);
    EXPECT_TRUE(run.OutputEnds());
}

TEST(Ended, TakesTheProcessesInTheBackgroundWithIt) {
    BackgroundRun run("(while :; do echo > /tmp/$$; done) & sleep 600 & exit 4");
    EXPECT_EQ(run.Wait(), 4);
    EXPECT_TRUE(run.OutputEnds());
    EXPECT_THAT(run.Folders(), IsEmpty());
}

TEST(Ended, LeavesNothing) {
    const TemporaryFolder folder;
    for (const char *script :
         {"true", "exit 3", "kill -KILL $$", "mkdir -p /tmp/a/b; chmod 0 /tmp/a",
          "mkfifo /tmp/pipe; ln -s /nowhere /tmp/link; chmod 0 /etc"}) {
        RunLauncher({"run", "--", "sh", "-c", script}, {"TMPDIR=" + folder.Path()});
        EXPECT_THAT(folder.Entries(), IsEmpty()) << script;
    }
}

TEST(Ended, LeavesNothingWhenTheCommandIsMissing) {
    const TemporaryFolder folder;
    const ProgramResult result =
        RunLauncher({"run", "--", "no-such-command"}, {"TMPDIR=" + folder.Path()});
    EXPECT_EQ(result.status, 127);
    EXPECT_THAT(folder.Entries(), IsEmpty());
}

// Without $TMPDIR the tree is in memory if programs can be stored there; removing it from a disk
// may take longer than the rest of the run.
TEST(Folder, IsInMemoryByDefault) {
    struct statfs about;
    const bool memory = statfs("/dev/shm", &about) == 0 && about.f_type == TMPFS_MAGIC &&
                        (about.f_flags & ST_NOEXEC) == 0 && access("/dev/shm", W_OK) == 0;
    const ProgramResult result =
        RunLauncher({"run", "--", "stat", "--file-system", "--format=%T", "/"}, {"TMPDIR="});
    if (!memory) {
        GTEST_SKIP() << "/dev/shm is not for programs";
    }
    EXPECT_EQ(result.out, "tmpfs\n");
}

TEST(Folder, IsClosedToOtherUsers) {
    BackgroundRun run("echo ready; exec sleep 600");
    ASSERT_EQ(run.ReadLine(), "ready");
    const auto mode = std::filesystem::status(run.TemporaryPath() + "/" + run.Folders().at(0));
    EXPECT_EQ(mode.permissions(), std::filesystem::perms::owner_all);
    run.Signal(SIGTERM);
    EXPECT_EQ(run.Wait(), 128 + SIGTERM);
}

}  // namespace

// Tests of the launcher as a user runs it: what it passes on, what it isolates and what it rejects.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "appliance_run.h"

namespace {

namespace fs = std::filesystem;
using tavo::test::ProgramResult;
using tavo::test::ReadFile;
using tavo::test::RunInside;
using tavo::test::RunLauncher;
using tavo::test::RunProgram;
using tavo::test::RunScriptInside;
using tavo::test::TemporaryFolder;
using testing::HasSubstr;
using testing::StartsWith;

constexpr int kOwnFailure = 125;

void ExpectRefused(const ProgramResult &result, const std::string &why) {
    EXPECT_EQ(result.status, kOwnFailure);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, StartsWith("appliance: "));
    EXPECT_THAT(result.err, HasSubstr(why));
}

TEST(ExitStatus, IsThatOfTheCommand) {
    EXPECT_EQ(RunInside({"true"}).status, 0);
    EXPECT_EQ(RunScriptInside("exit 7").status, 7);
    EXPECT_EQ(RunScriptInside("exit 255").status, 255);
}

TEST(ExitStatus, ReportsTheSignalThatEndedTheCommand) {
    EXPECT_EQ(RunScriptInside("kill -KILL $$").status, 128 + 9);
    EXPECT_EQ(RunScriptInside("kill -TERM $$").status, 128 + 15);
}

TEST(ExitStatus, Is127ForACommandThatDoesNotExist) {
    const ProgramResult result = RunInside({"no-such-command"});
    EXPECT_EQ(result.status, 127);
    EXPECT_EQ(result.err, "appliance: cannot run no-such-command: no such file or directory\n");
    EXPECT_EQ(RunInside({"/no/such/command"}).status, 127);
}

TEST(ExitStatus, Is126ForAFileThatIsNoProgram) {
    const ProgramResult result = RunInside({"/etc/passwd"});
    EXPECT_EQ(result.status, 126);
    EXPECT_EQ(result.err, "appliance: cannot run /etc/passwd: permission denied\n");
}

TEST(PassingThrough, TakesStandardInputToTheCommandAndItsOutputsBack) {
    const ProgramResult result =
        RunProgram({APPLIANCE, "run", "--", "sh", "-c", "cat; echo problem >&2"}, "text\n");
    EXPECT_EQ(result.out, "text\n");
    EXPECT_EQ(result.err, "problem\n");
}

TEST(PassingThrough, LeavesTheArgumentsOfTheCommandAsTheyAre) {
    const ProgramResult result = RunInside(
        {"printf", "<%s>", "--", "--root", "--help", "", "two words", "two\nlines", "--"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "<--><--root><--help><><two words><two\nlines><-->");
}

TEST(PassingThrough, LeavesTheEnvironmentAsItIsButForTheAppliancesOwn) {
    const ProgramResult result = RunProgram(
        {APPLIANCE, "run", "--", "sh", "-c", "echo $GREETING:$HOME:${TMPDIR-none}:$PATH"}, {},
        {"GREETING=hello", "TMPDIR=/var/tmp", "HOME=/home/someone"});
    const std::string bin = fs::path(APPLIANCE).parent_path();
    EXPECT_EQ(result.out, "hello:/root:none:" + bin +
                              ":/usr/tavo/bin:/usr/tavo/sbin:/bin:/usr/bin:/usr/sbin\n");
}

TEST(WorkingDirectory, IsTheSameOneWhereItIsTheSameInside) {
    const std::string bin = fs::path(APPLIANCE).parent_path();
    const std::string run = "cd \"$1\" && \"$0\" run -- pwd";
    EXPECT_EQ(RunProgram({"sh", "-c", run, APPLIANCE, bin}).out, bin + "\n");
    EXPECT_EQ(RunProgram({"sh", "-c", run, APPLIANCE, "/usr/share"}).out, "/usr/share\n");
}

TEST(WorkingDirectory, IsTheRootOtherwise) {
    const TemporaryFolder folder;
    const std::string run = "cd \"$1\" && \"$0\" run -- pwd";
    EXPECT_EQ(RunProgram({"sh", "-c", run, APPLIANCE, folder.Path()}).out, "/\n");
    EXPECT_EQ(RunProgram({"sh", "-c", run, APPLIANCE, "/etc"}).out, "/\n");
}

TEST(Privacy, HasNamespacesOfItsOwn) {
    for (const char *kind : {"pid", "net", "ipc", "uts", "mnt"}) {
        const std::string link = std::string("/proc/self/ns/") + kind;
        const ProgramResult result = RunInside({"readlink", link});
        EXPECT_THAT(result.out, StartsWith(std::string(kind) + ":["));
        EXPECT_NE(result.out, fs::read_symlink(link).string() + "\n");
    }
}

TEST(Privacy, ShowsNoProcessOfTheHost) {
    // The init process and the shell, which expands the pattern itself.
    const ProgramResult result = RunScriptInside("ls -d /proc/[0-9]*; true");
    EXPECT_EQ(result.out, "/proc/1\n/proc/2\n");
}

TEST(Privacy, IsRootOnAHostOfItsOwnName) {
    EXPECT_EQ(RunScriptInside("id -u; id -g; hostname").out, "0\n0\nappliance\n");
}

TEST(Privacy, LeavesAPortFreeThatIsTakenOnTheHost) {
    const int taken = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    auto *name = reinterpret_cast<sockaddr *>(&address);
    ASSERT_EQ(bind(taken, name, length), 0);
    ASSERT_EQ(listen(taken, 1), 0);
    ASSERT_EQ(getsockname(taken, name, &length), 0);
    const std::string port = std::to_string(ntohs(address.sin_port));

    EXPECT_NE(RunProgram({BIND_PORT, port}).status, 0);
    const ProgramResult inside = RunInside({BIND_PORT, port});
    EXPECT_EQ(inside.status, 0) << inside.err;
    close(taken);
}

TEST(Privacy, LetsRootTakeALowPort) {
    EXPECT_EQ(RunInside({BIND_PORT, "80"}).status, 0);
}

TEST(Privacy, ChangesNothingOnTheHost) {
    const std::string name = "/tmp/tavo-appliance-test-" + std::to_string(getpid());
    const ProgramResult result = RunScriptInside("echo changed > /etc/passwd && echo > " + name +
                                                 " && echo > /usr/local/file && echo > /file");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(ReadFile("/etc/passwd"), HasSubstr("root:"));
    for (const std::string &file : {name, std::string("/usr/local/file"), std::string("/file")}) {
        EXPECT_FALSE(fs::exists(file)) << file;
    }
}

TEST(Privacy, CannotWriteToTheFoldersOfTheHost) {
    const std::string bin = fs::path(APPLIANCE).parent_path();
    for (const std::string &folder : {std::string("/usr/bin"), std::string("/usr/sbin"),
                                      std::string("/usr/lib"), std::string("/usr/share"), bin}) {
        const ProgramResult result = RunInside({"touch", folder + "/tavo-file"});
        EXPECT_NE(result.status, 0) << folder;
        EXPECT_THAT(result.err, HasSubstr("Read-only file system")) << folder;
    }
}

TEST(Root, KeepsTheFilesOfTheRun) {
    const TemporaryFolder folder;
    const ProgramResult result =
        RunLauncher({"run", "--root", folder / "a/b", "--", "sh", "-c", "echo made > /etc/made"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(ReadFile(folder / "a/b/etc/made"), "made\n");
    EXPECT_THAT(ReadFile(folder / "a/b/etc/tavoinfo.conf"), HasSubstr("ftpport=\"21\""));
}

TEST(Root, MayBeAnEmptyFolder) {
    const TemporaryFolder folder;
    EXPECT_EQ(RunLauncher({"run", "--root", folder.Path(), "--", "true"}).status, 0);
    EXPECT_TRUE(fs::exists(folder / "etc/tavoinfo.conf"));
}

TEST(Root, KeepsTheSystemLog) {
    const TemporaryFolder folder;
    const ProgramResult result =
        RunLauncher({"run", "--root", folder / "root", "--", "logger", "-p", "daemon.warning", "-t",
                     "relay", "queue is full"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(ReadFile(folder / "root/run/log/messages"),
                testing::MatchesRegex("daemon\\.warning .* relay: queue is full\n"));
    EXPECT_FALSE(fs::exists(folder / "root/run/log/socket"));
}

TEST(Root, LosesNoMessageOfACommandThatEndsAtOnce) {
    const TemporaryFolder folder;
    std::string lines;
    for (int i = 0; i < 1000; ++i) {
        lines += "line " + std::to_string(i) + "\n";
    }
    const std::string file = folder.Write("lines", lines);
    const ProgramResult result = RunLauncher({"run", "--with", file + ":/lines", "--root",
                                              folder / "root", "--", "logger", "-f", "/lines"});
    EXPECT_EQ(result.status, 0) << result.err;
    const std::string messages = ReadFile(folder / "root/run/log/messages");
    EXPECT_EQ(std::count(messages.begin(), messages.end(), '\n'), 1000);
    EXPECT_THAT(messages, testing::EndsWith("line 999\n"));
}

TEST(Root, MayEndInASlashAndTakeFiles) {
    const TemporaryFolder folder;
    const std::string file = folder.Write("my.sc", "[my]\n");
    const ProgramResult result =
        RunLauncher({"run", "--root", folder / "new/root/", "--with", file, "--", "true"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(ReadFile(folder / "new/root/usr/local/etc/services.d/my.sc"), "[my]\n");
}

TEST(Root, RefusesAFolderThatHoldsSomething) {
    const TemporaryFolder folder;
    folder.Write("mine", "text");
    ExpectRefused(RunLauncher({"run", "--root", folder.Path(), "--", "true"}),
                  folder.Path() + ": must be an empty folder, or not exist yet");
    EXPECT_THAT(folder.Entries(), testing::ElementsAre("mine"));
    ExpectRefused(RunLauncher({"run", "--root", folder / "mine", "--", "true"}),
                  "must be an empty folder");
    EXPECT_EQ(ReadFile(folder / "mine"), "text");
}

TEST(Root, RefusesAFolderThatCannotBeMade) {
    const TemporaryFolder folder;
    const std::string root = folder.Write("file", "") + "/root";
    ExpectRefused(RunLauncher({"run", "--root", root, "--", "true"}),
                  "appliance: --root " + root + ": not a directory\n");
}

TEST(Root, IsTheLastOneGiven) {
    const TemporaryFolder folder;
    EXPECT_EQ(
        RunLauncher({"run", "--root", folder / "a", "--root", folder / "b", "--", "true"}).status,
        0);
    EXPECT_THAT(folder.Entries(), testing::ElementsAre("b"));
}

TEST(With, PlacesAServiceFileAmongThoseOfThePackages) {
    const TemporaryFolder folder;
    const std::string file = folder.Write("my.sc", "[my]\n");
    const ProgramResult result =
        RunLauncher({"run", "--with", file, "--", "cat", "/usr/local/etc/services.d/my.sc"});
    EXPECT_EQ(result.out, "[my]\n");
}

TEST(With, PlacesAFileAtItsTarget) {
    const TemporaryFolder folder;
    const std::string settings = folder.Write("a:b", "ftpport=\"2121\"\n");
    const std::string program = folder.Write("program", "#!/bin/sh\necho ran\n");
    fs::permissions(program, fs::perms::owner_all);
    const ProgramResult result = RunLauncher({"run", "--with", settings + ":/etc/tavoinfo.conf",
                                              program + ":/opt/new/../run", "--", "sh", "-c",
                                              "cat /etc/tavoinfo.conf; /opt/run"});
    EXPECT_EQ(result.out, "ftpport=\"2121\"\nran\n") << result.err;
}

TEST(With, FollowsALinkedFolderOfTheAppliance) {
    const TemporaryFolder folder;
    const std::string file = folder.Write("units", "tavorelayd\n");
    const ProgramResult result = RunLauncher(
        {"run", "--with", file + ":/var/run/active-units", "--", "cat", "/run/active-units"});
    EXPECT_EQ(result.out, "tavorelayd\n") << result.err;
}

TEST(With, ReplacesALinkAndNotTheFileItNames) {
    const TemporaryFolder folder;
    const std::string file = folder.Write("mail.sc", "[my]\n");
    const ProgramResult result = RunLauncher(
        {"run", "--with", file, "--", "sh", "-c",
         "cat /usr/local/etc/services.d/mail.sc; wc -l < /usr/local/packages/mail/mail.sc"});
    EXPECT_EQ(result.out.substr(0, 5), "[my]\n");
    EXPECT_GT(std::stoi(result.out.substr(5)), 10);
}

TEST(Run, LeavesOutLinksToProgramsThatTheHostLacks) {
    const TemporaryFolder build;
    const fs::path original = fs::path(APPLIANCE).parent_path().parent_path();
    const fs::path share = fs::path(build.Path()) / "share/tavo-appliance";
    fs::create_directories(share / "source");
    fs::create_directory(build / "bin");
    fs::copy_file(APPLIANCE, build / "bin/appliance");
    fs::copy_file(original / "share/tavo-appliance/folders", share / "folders");
    fs::copy(fs::canonical(original / "share/tavo-appliance/root"), share / "root",
             fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    fs::create_symlink("../usr/bin/no-such-program", share / "root/bin/no-such-program");
    fs::create_symlink("no-such-file", share / "root/bin/of-the-template");
    const std::string script =
        "for name in env no-such-program of-the-template; do"
        " test -L /bin/$name && echo $name; done; true";
    const ProgramResult result =
        RunProgram({build / "bin/appliance", "run", "--", "sh", "-c", script});
    EXPECT_EQ(result.out, "env\nof-the-template\n") << result.err;
}

TEST(With, NeverFollowsALinkOutOfTheTree) {
    const TemporaryFolder build;
    const std::string file = build.Write("file", "text");
    const std::string root = build / "share/tavo-appliance/root";
    fs::create_directories(root);
    fs::create_directory(build / "source");
    fs::create_directory(build / "outside");
    fs::create_directory(build / "bin");
    fs::create_symlink(build / "source", build / "share/tavo-appliance/source");
    fs::create_symlink(build / "outside", root + "/link");
    fs::copy_file(APPLIANCE, build / "bin/appliance");
    ExpectRefused(
        RunProgram({build / "bin/appliance", "run", "--with", file + ":/link/file", "--", "true"}),
        "the target leads through an absolute link");
    EXPECT_TRUE(fs::is_empty(build / "outside"));
}

TEST(With, RefusesWhatCannotBePlaced) {
    const TemporaryFolder folder;
    const std::string file = folder.Write("file", "");
    const auto with = [](const std::string &text) {
        return RunLauncher({"run", "--with", text, "--", "true"});
    };
    ExpectRefused(with(folder / "absent"), folder / "absent" + " does not exist");
    ExpectRefused(with(folder.Path() + ":/x"), folder.Path() + " is not a file");
    ExpectRefused(with(file + ":/etc/"), "the target must name a file");
    ExpectRefused(with(file + ":/usr/bin/x"), "/usr/bin/x is in a folder of the host");
    ExpectRefused(with(file + ":/usr/bin/../bin/x"), "/usr/bin/x is in a folder of the host");
    ExpectRefused(with(file + ":/etc"), "--with " + file + ":/etc: /etc is a folder\n");
    ExpectRefused(with(file + ":/etc/passwd/x"),
                  "appliance: --with " + file + ":/etc/passwd/x: not a directory\n");
    const std::string endless = "/etc/" + std::string(300, 'a');
    ExpectRefused(with(file + ":" + endless),
                  "appliance: --with " + file + ":" + endless + ": file name too long\n");
    fs::create_symlink("circle", folder / "circle");
    ExpectRefused(with(folder / "circle"), "circle: too many levels of symbolic links\n");
}

TEST(Refusal, NamesTheCommandThatIsMissing) {
    ExpectRefused(RunLauncher({"run"}), "-- COMMAND is required");
    ExpectRefused(RunLauncher({"run", "--"}), "-- COMMAND is required");
    ExpectRefused(RunLauncher({}), "appliance: a subcommand is required: run (see ");
    ExpectRefused(RunLauncher({"--", "true"}), "appliance: a subcommand is required: run (see ");
}

TEST(Refusal, NamesAnArgumentThatItDoesNotKnow) {
    ExpectRefused(RunLauncher({"run", "--colour", "--", "true"}),
                  "appliance: unknown option --colour (see appliance run --help)\n");
    ExpectRefused(RunLauncher({"--colour"}), "appliance: unknown option --colour (see ");
    ExpectRefused(RunLauncher({"walk", "--", "true"}), "appliance: unknown subcommand walk");
}

TEST(Refusal, ReportsThatTheSeparatorIsMissingBeforeTheCommand) {
    ExpectRefused(RunLauncher({"run", "true", "7"}),
                  "appliance: unexpected argument true: COMMAND must follow --, as in appliance "
                  "run -- true\n");
}

TEST(Refusal, NamesTheTemporaryFolderThatCannotBeUsed) {
    const TemporaryFolder folder;
    const std::string file = folder.Write("file", "");
    const auto in = [](const std::string &temporary) {
        return RunLauncher({"run", "--", "true"}, {"TMPDIR=" + temporary});
    };
    const std::string failure = "appliance: cannot make a folder for the appliance in ";
    ExpectRefused(in("/nowhere"), failure + "/nowhere: no such file or directory\n");
    ExpectRefused(in(file), failure + file + ": not a directory\n");
    ExpectRefused(in("/proc"), failure + "/proc: no such file or directory\n");
}

TEST(Refusal, ReportsHowToInstallBubblewrap) {
    ExpectRefused(RunLauncher({"run", "--", "true"}, {"PATH="}),
                  "bubblewrap is not installed: apt-get install bubblewrap\n");
}

TEST(Refusal, ReportsWhatToSwitchOnWhereNamespacesAreNotAllowed) {
    const TemporaryFolder folder;
    const std::string bwrap =
        folder.Write("bwrap", "#!/bin/sh\necho 'bwrap: No permissions' >&2\nexit 1\n");
    fs::permissions(bwrap, fs::perms::owner_all);
    const ProgramResult result =
        RunLauncher({"run", "--", "true"}, {"PATH=" + folder.Path(), "TMPDIR=" + folder.Path()});
    EXPECT_EQ(result.status, kOwnFailure);
    EXPECT_THAT(result.err, StartsWith("bwrap: No permissions\nappliance: "));
    EXPECT_THAT(result.err, HasSubstr("kernel.unprivileged_userns_clone=1"));
    EXPECT_THAT(folder.Entries(), testing::ElementsAre("bwrap"));
}

TEST(Refusal, ReportsWhereItLooksForTheTemplate) {
    const TemporaryFolder folder;
    fs::create_directory(folder / "bin");
    fs::copy_file(APPLIANCE, folder / "bin/appliance");
    ExpectRefused(RunProgram({folder / "bin/appliance", "run", "--", "true"}),
                  "no appliance template in " + folder / "share/tavo-appliance");
}

TEST(Version, IsThatOfTheProject) {
    const ProgramResult result = RunLauncher({"--version"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "appliance " APPLIANCE_VERSION "\n");
    EXPECT_EQ(result.err, "");
}

TEST(Help, ShowsUsageAndExamples) {
    const ProgramResult result = RunLauncher({"run", "--help"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    for (const char *text : {"Usage: appliance run", "--root DIR", "--with FILE", "Examples:"}) {
        EXPECT_THAT(result.out, HasSubstr(text));
    }
}

// All runs use the same settings file and the same port at the same time.
void ExpectPrivateSideBySide(int runs) {
    std::vector<ProgramResult> results(static_cast<std::size_t>(runs));
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < results.size(); ++i) {
        threads.emplace_back([i, &results] {
            results[i] = RunScriptInside("echo " + std::to_string(i) +
                                         " > /etc/tavoinfo.conf; sleep 0.3; '" BIND_PORT
                                         "' 4000 && cat /etc/tavoinfo.conf");
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    for (std::size_t i = 0; i < results.size(); ++i) {
        EXPECT_EQ(results[i].status, 0) << results[i].err;
        EXPECT_EQ(results[i].out, std::to_string(i) + "\n");
    }
}

TEST(SideBySide, TwoDoNotMeet) {
    ExpectPrivateSideBySide(2);
}

TEST(SideBySide, TwentyDoNotMeet) {
    ExpectPrivateSideBySide(20);
}

// Prints the start time but does not check it, because the machine may be busy.
TEST(StartTime, IsShown) {
    using Clock = std::chrono::steady_clock;
    std::vector<double> milliseconds;
    for (int i = 0; i < 11; ++i) {
        const auto start = Clock::now();
        ASSERT_EQ(RunInside({"true"}).status, 0);
        milliseconds.push_back(
            std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    }
    std::sort(milliseconds.begin(), milliseconds.end());
    std::cout << "appliance run -- true: " << milliseconds[milliseconds.size() / 2] << " ms\n";
}

}  // namespace

// Runs real programs with an input and a time limit. A program that exceeds its limit takes one
// second here, and up to two more if it ignores SIGTERM.
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <string_view>
#include <thread>

#include "exec_support.h"
#include "values_support.h"

namespace tavo::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// Longer than any of the programs runs.
constexpr int kAmple = 60;

// A script in its own temporary folder.
class Script {
  public:
    explicit Script(const std::string &commands, const std::string &interpreter = "/bin/sh")
        : path_(folder_.Write("script", "#!" + interpreter + "\n" + commands + "\n")) {
        chmod(path_.c_str(), 0755);
    }

    // The argument of the script is its folder.
    int Run(std::string_view input = {}, int seconds = kAmple) const {
        return TLIBCExecInput(path_.c_str(), folder_.Path().c_str(), input.data(), input.size(),
                              seconds);
    }

    bool Has(const std::string &name) const { return std::filesystem::exists(folder_ / name); }
    std::string Read(const std::string &name) const { return ReadFile(folder_ / name); }

  private:
    TemporaryFolder folder_;
    std::string path_;
};

std::string Megabytes(std::size_t count) {
    std::string text(count << 20, '\0');
    for (std::size_t i = 0; i < text.size(); ++i) {
        text[i] = static_cast<char>(i % 251);
    }
    return text;
}

// Whether a process runs; a zombie does not.
bool Runs(const std::string &pid) {
    const std::string path = "/proc/" + std::to_string(std::stoi(pid)) + "/stat";
    if (!std::filesystem::exists(path)) {
        return false;
    }
    const std::string stat = ReadFile(path);
    return stat[stat.rfind(')') + 2] != 'Z';
}

bool EndsSoon(const std::string &pid) {
    for (int i = 0; i < 500 && Runs(pid); ++i) {
        std::this_thread::sleep_for(milliseconds(10));
    }
    return !Runs(pid);
}

std::ptrdiff_t OpenDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// Temporarily limits the descriptors of the process to those below `number`.
class DescriptorLimit {
  public:
    explicit DescriptorLimit(int number) {
        getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit fewer = {static_cast<rlim_t>(number), before_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &fewer);
    }
    ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &before_); }
    DescriptorLimit(const DescriptorLimit &) = delete;
    DescriptorLimit &operator=(const DescriptorLimit &) = delete;

  private:
    rlimit before_;
};

// ---- Common behaviour

TEST(ExecInput, ReturnsTheStatusOrTheSignal) {
    for (const int status : {0, 1, 127, 255}) {
        EXPECT_RESULT(Script("exit " + std::to_string(status)).Run(), status, "");
    }
    for (const int signal : {SIGKILL, SIGPIPE, SIGTERM}) {
        EXPECT_RESULT(Script("kill -" + std::to_string(signal) + " $$").Run(), 128 + signal, "");
    }
}

TEST(ExecInput, PassesOneArgumentOrNone) {
    EXPECT_EQ(
        OutputOf([] { TLIBCExecInput("/usr/bin/printf", "<two words>", nullptr, 0, kAmple); }),
        "<two words>");
    EXPECT_RESULT(TLIBCExecInput("/usr/bin/printf", "", nullptr, 0, kAmple), 0, "");
    EXPECT_RESULT(TLIBCExecInput("/bin/sh", nullptr, "exit 3", 6, kAmple), 3, "");
}

TEST(ExecInput, ReportsAProgramThatCannotBeRun) {
    const TemporaryFolder folder;
    const std::string plain = folder.Write("plain", "#!/bin/sh\n");
    EXPECT_RESULT(TLIBCExecInput("/missing", nullptr, "", 0, 1), -1, "0x700 exec.cpp");
    EXPECT_RESULT(TLIBCExecInput(plain.c_str(), nullptr, "", 0, 1), -1, "0x900 exec.cpp");
    EXPECT_RESULT(Script("", "/missing").Run(), -1, "0x900 exec.cpp");
}

TEST(ExecInput, RejectsInvalidArguments) {
    EXPECT_RESULT(TLIBCExecInput(nullptr, "a", "", 0, 1), -1, "0xD00 exec.cpp");
    EXPECT_RESULT(TLIBCExecInput("/bin/true", "a", nullptr, 1, 1), -1, "0xD00 exec.cpp");
    for (const int seconds : {0, -1}) {
        EXPECT_RESULT(TLIBCExecInput("/bin/true", "a", "", 0, seconds), -1, "0xD00 exec.cpp");
    }
}

TEST(ExecInput, ReportsThatMemoryRanOut) {
    const Script script("touch $1/ran");
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        TLIBCErrSetEx(0, nullptr, 0);
        const int result = fail.During([&] { return script.Run("input"); });
        EXPECT_EQ(result, fail.Hit() ? -1 : 0);
        EXPECT_EQ(RecordedError(), fail.Hit() ? "0x200 exec.cpp" : "");
    });
    EXPECT_GT(allocations, 0);
}

// ---- The input

TEST(ExecInput, ArrivesByteForByte) {
    for (const std::string &input :
         {std::string(), std::string("a=b\nc\0\0\xFF", 8), Megabytes(8)}) {
        const Script script("cat > $1/input");
        EXPECT_RESULT(script.Run(input), 0, "");
        EXPECT_TRUE(script.Read("input") == input) << input.size();
    }
}

TEST(ExecInput, MayBeLeftUnread) {
    const std::string input = Megabytes(8);
    EXPECT_RESULT(Script("exit 3").Run(input), 3, "");
    EXPECT_RESULT(Script("head -c 1 > /dev/null; exit 4").Run(input), 4, "");
    EXPECT_RESULT(Script("exec <&-; exit 5").Run(input), 5, "");
}

TEST(ExecInput, IsSeparateForEachProgram) {
    EXPECT_EQ(Script("printf 'changed' 1<>/proc/self/fd/0").Run("input"), 0);
    const Script script("cat > $1/input");
    EXPECT_EQ(script.Run("input"), 0);
    EXPECT_EQ(script.Read("input"), "input");
}

TEST(ExecInput, IsNotUsedAsAMissingOutput) {
    const Script script(
        "cat > $1/input; out=$(readlink /proc/$$/fd/1); err=$(readlink /proc/$$/fd/2); "
        "echo $out $err > $1/outputs");
    for (const char *input : {"/dev/zero", ""}) {
        {
            const Descriptor other_input(STDIN_FILENO, input);
            const Descriptor closed_output(STDOUT_FILENO, "");
            const Descriptor closed_errors(STDERR_FILENO, "");
            script.Run("input");
        }
        EXPECT_EQ(script.Read("input"), "input");
        EXPECT_EQ(script.Read("outputs"), "/dev/null /dev/null\n");
    }
}

TEST(ExecInput, LeavesNoDescriptorOpenInTheProgramOrTheCaller) {
    const std::ptrdiff_t before = OpenDescriptors();
    // Descriptor 3 is the listed folder.
    EXPECT_EQ(OutputOf([] { TLIBCExecInput("/bin/ls", "/proc/self/fd", "input", 5, kAmple); }),
              "0\n1\n2\n3\n");
    EXPECT_EQ(Script("exit 1").Run("input"), 1);
    EXPECT_EQ(TLIBCExecInput("/missing", nullptr, "input", 5, kAmple), -1);
    EXPECT_EQ(OpenDescriptors(), before);
}

// ---- The limit

TEST(ExecInput, RunsTheProgramInItsOwnGroup) {
    constexpr char kPrintGroup[] = "cut -d ' ' -f 5 /proc/$$/stat";
    const Script leads("test $(" + std::string(kPrintGroup) + ") = $$");
    EXPECT_EQ(leads.Run(), 0);
    EXPECT_EQ(OutputOf([&] { TLIBCExec("/bin/sh", "-c", kPrintGroup, nullptr, nullptr); }),
              std::to_string(getpgrp()) + "\n")
        << "only with a limit";
}

TEST(ExecInput, EndsTheWholeGroupAtTheTimeLimit) {
    const Script script(
        "trap '' TERM; sleep 600 & echo $! > $1/child; "
        "(sleep 600 & echo $! > $1/grandchild; wait) & echo $$ > $1/self; while :; do wait; done");
    const auto start = steady_clock::now();
    EXPECT_RESULT(script.Run({}, 1), -1, "0x900 exec.cpp");
    EXPECT_GE(steady_clock::now() - start, milliseconds(3000)) << "the limit and the grace period";
    EXPECT_LT(steady_clock::now() - start, milliseconds(30000));
    for (const char *process : {"self", "child", "grandchild"}) {
        EXPECT_TRUE(EndsSoon(script.Read(process))) << process;
    }
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "no zombie";
}

TEST(ExecInput, FailsEvenIfTheProgramExitsAfterSigterm) {
    const Script script(
        "trap 'touch $1/asked; exit 0' TERM; (trap '' TERM; exec sleep 600) & echo $! > $1/child; "
        "while :; do wait; done");
    const auto start = steady_clock::now();
    EXPECT_RESULT(script.Run({}, 1), -1, "0x900 exec.cpp");
    EXPECT_LT(steady_clock::now() - start, milliseconds(2900)) << "without the whole grace period";
    EXPECT_TRUE(script.Has("asked"));
    EXPECT_TRUE(EndsSoon(script.Read("child")));
}

TEST(ExecInput, EndsAProgramThatLeftItsGroup) {
    const Script script("setpgrp(0, getpgrp(getppid())) or die; sleep(600);", "/usr/bin/perl");
    EXPECT_RESULT(script.Run({}, 1), -1, "0x900 exec.cpp");
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
}

TEST(ExecInput, KeepsChildrenOfAProgramThatEndsInTime) {
    const Script script("sleep 600 & echo $! > $1/daemon");
    EXPECT_RESULT(script.Run(), 0, "");
    const std::string daemon = script.Read("daemon");
    EXPECT_TRUE(Runs(daemon));
    kill(std::stoi(daemon), SIGKILL);
}

// The memory file with the input uses the last available descriptor.
TEST(ExecInput, EnforcesTheLimitWithoutAFreeDescriptor) {
    const int next = dup(STDERR_FILENO);
    close(next);
    const DescriptorLimit one_more(next + 1);
    EXPECT_RESULT(TLIBCExecInput("/bin/sleep", "0.1", "input", 5, kAmple), 0, "");
    EXPECT_RESULT(TLIBCExecInput("/bin/sleep", "600", "input", 5, 1), -1, "0x900 exec.cpp");
}

TEST(ExecInput, ReportsAnInputThatCannotBeStored) {
    const DescriptorLimit none(STDERR_FILENO + 1);
    EXPECT_RESULT(TLIBCExecInput("/bin/true", nullptr, "input", 5, kAmple), -1, "0x900 exec.cpp");
}

// ---- The caller's signals

TEST(ExecInput, WorksInACallerThatIgnoresItsChildren) {
    const SignalAction child(SIGCHLD, SIG_IGN);
    EXPECT_RESULT(Script("exit 3").Run(), 3, "");
    EXPECT_RESULT(Script("sleep 0.2; exit 4").Run(), 4, "");
    EXPECT_RESULT(Script("exec sleep 600").Run({}, 1), -1, "0x900 exec.cpp");
    EXPECT_EQ(ActionOf(SIGCHLD).sa_handler, SIG_IGN);
}

TEST(ExecInput, KeepsWaitingAfterASignal) {
    const SignalAction alarm(SIGALRM, [](int) {});
    const itimerval often = {{0, 5000}, {0, 5000}};
    const itimerval never = {};
    setitimer(ITIMER_REAL, &often, nullptr);
    const int in_time = Script("sleep 0.3; exit 3").Run();
    const int late = Script("exec sleep 600").Run({}, 1);
    setitimer(ITIMER_REAL, &never, nullptr);
    EXPECT_EQ(in_time, 3);
    EXPECT_EQ(late, -1);
}

TEST(ExecInput, ReportsAStatusThatTheCallerCollected) {
    const SignalAction user(SIGUSR1, [](int) { waitpid(-1, nullptr, 0); });
    const auto start = steady_clock::now();
    EXPECT_RESULT(Script("kill -USR1 $PPID; sleep 0.3; exit 3").Run(), -1, "0x900 exec.cpp");
    EXPECT_LT(steady_clock::now() - start, milliseconds(30000)) << "before the time limit";
}

}  // namespace
}  // namespace tavo::test

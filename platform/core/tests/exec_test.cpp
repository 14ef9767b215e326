// Runs real programs and checks their results and what they inherit from the caller.
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "exec_support.h"
#include "temporary_folder.h"
#include "values_support.h"

namespace {

using namespace tavo::test;

int Shell(const char *script) {
    return TLIBCExec("/bin/sh", "-c", script, nullptr, nullptr);
}

// A program in its own temporary folder that prints its arguments as [a][b].
class ArgumentPrinter {
  public:
    ArgumentPrinter()
        : path_(folder_.Write("printer",
                              "#!/bin/sh\nfor a in \"$@\"; do printf '[%s]' \"$a\"; done\n")) {
        chmod(path_.c_str(), 0755);
    }

    const char *Path() const { return path_.c_str(); }

  private:
    TemporaryFolder folder_;
    std::string path_;
};

// ---- Results

TEST(Exec, ReturnsTheExitStatus) {
    EXPECT_RESULT(TLIBCExec("/bin/true", nullptr, nullptr, nullptr, nullptr), 0, "");
    EXPECT_RESULT(TLIBCExec("/bin/false", nullptr, nullptr, nullptr, nullptr), 1, "");
    for (const int status : {0, 1, 2, 126, 127, 128, 254, 255}) {
        const std::string script = "exit " + std::to_string(status);
        EXPECT_RESULT(Shell(script.c_str()), status, "");
    }
}

TEST(Exec, Returns128PlusTheSignal) {
    for (const int signal : {SIGHUP, SIGINT, SIGKILL, SIGPIPE, SIGTERM, SIGUSR1}) {
        const std::string script = "kill -" + std::to_string(signal) + " $$";
        EXPECT_RESULT(Shell(script.c_str()), 128 + signal, "");
    }
}

TEST(Exec, RejectsAMissingProgramName) {
    EXPECT_RESULT(TLIBCExec(nullptr, "a", nullptr, nullptr, nullptr), -1, "0xD00 exec.cpp");
    EXPECT_RESULT(TLIBCExecl(nullptr, 0, "a", nullptr), -1, "0xD00 exec.cpp");
}

TEST(Exec, ReportsAMissingProgram) {
    const TemporaryFolder folder;
    const std::string dangling = folder / "dangling";
    ASSERT_EQ(symlink("nowhere", dangling.c_str()), 0);
    for (const std::string &path :
         {folder / "missing", dangling, std::string("/bin/sh/below"), std::string()}) {
        EXPECT_RESULT(TLIBCExec(path.c_str(), nullptr, nullptr, nullptr, nullptr), -1,
                      "0x700 exec.cpp");
        EXPECT_RESULT(TLIBCExecl(path.c_str(), 0, nullptr), -1, "0x700 exec.cpp");
    }
}

TEST(Exec, SearchesNoPath) {
    EXPECT_RESULT(TLIBCExecl("sh", 0, nullptr), -1, "0x700 exec.cpp");
}

TEST(Exec, ReportsAFileThatCannotRun) {
    const TemporaryFolder folder;
    const std::string plain = folder.Write("plain", "#!/bin/sh\nexit 0\n");
    const std::string no_interpreter = folder.Write("no_interpreter", "#!/missing\n");
    const std::string no_format = folder.Write("no_format", "exit 0\n");
    const std::string empty = folder.Write("empty", "");
    for (const std::string &path : {no_interpreter, no_format, empty}) {
        ASSERT_EQ(chmod(path.c_str(), 0755), 0);
    }
    for (const std::string &path : {plain, no_interpreter, no_format, empty, folder.Path()}) {
        SCOPED_TRACE(path);
        EXPECT_RESULT(TLIBCExecl(path.c_str(), 0, nullptr), -1, "0x900 exec.cpp");
    }
}

TEST(Exec, ReportsAnArgumentThatTheKernelRejects) {
    const std::string argument(1 << 20, 'x');
    EXPECT_RESULT(TLIBCExecl("/bin/true", 0, argument.c_str(), nullptr), -1, "0x900 exec.cpp");
}

TEST(Exec, LeavesNoZombieAfterAFailedStart) {
    EXPECT_EQ(TLIBCExecl("/missing", 0, nullptr), -1);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(Exec, ReportsThatMemoryRanOut) {
    const TemporaryFolder folder;
    const std::string ran = folder / "ran";
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        unlink(ran.c_str());
        TLIBCErrSetEx(0, nullptr, 0);
        const int result = fail.During(
            [&] { return TLIBCExec("/bin/touch", ran.c_str(), nullptr, nullptr, nullptr); });
        EXPECT_EQ(result, fail.Hit() ? -1 : 0);
        EXPECT_EQ(RecordedError(), fail.Hit() ? "0x200 exec.cpp" : "");
        EXPECT_EQ(TLIBCFileExist(ran.c_str()), fail.Hit() ? 0 : 1);
    });
    EXPECT_GE(allocations, 2);
}

TEST(Execl, ReportsThatMemoryRanOut) {
    const TemporaryFolder folder;
    const std::string ran = folder / "ran";
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        unlink(ran.c_str());
        TLIBCErrSetEx(0, nullptr, 0);
        const int result =
            fail.During([&] { return TLIBCExecl("/bin/touch", 0, ran.c_str(), nullptr); });
        EXPECT_EQ(result, fail.Hit() ? -1 : 0);
        EXPECT_EQ(RecordedError(), fail.Hit() ? "0x200 exec.cpp" : "");
        EXPECT_EQ(TLIBCFileExist(ran.c_str()), fail.Hit() ? 0 : 1);
    });
    EXPECT_GE(allocations, 3) << "one more than Exec, for the vector";
}

// ---- Arguments and environment

TEST(Exec, PassesArgumentsUnchanged) {
    const ArgumentPrinter printer;
    EXPECT_EQ(
        OutputOf([&] { TLIBCExec(printer.Path(), "a b", "", "$HOME * 'x' \"y\"", "\n\xFF;"); }),
        "[a b][][$HOME * 'x' \"y\"][\n\xFF;]");
}

TEST(Exec, EndsTheArgumentsAtTheFirstNull) {
    const ArgumentPrinter printer;
    const auto exec = [&](const char *a, const char *b, const char *c, const char *d) {
        return OutputOf([&] { TLIBCExec(printer.Path(), a, b, c, d); });
    };
    EXPECT_EQ(exec(nullptr, nullptr, nullptr, nullptr), "");
    EXPECT_EQ(exec(nullptr, "b", "c", "d"), "");
    EXPECT_EQ(exec("a", "b", nullptr, "d"), "[a][b]");
    EXPECT_EQ(exec("a", "b", "c", "d"), "[a][b][c][d]");
}

TEST(Execl, PassesAnyNumberOfArguments) {
    const ArgumentPrinter printer;
    EXPECT_EQ(OutputOf([&] { TLIBCExecl(printer.Path(), 0, nullptr); }), "");
    EXPECT_EQ(OutputOf([&] { TLIBCExecl(printer.Path(), 0, "", nullptr); }), "[]");
    EXPECT_EQ(OutputOf([&] {
                  TLIBCExecl(printer.Path(), 0, "1", "2", "3", "4", "5", "6", "7", "8", "9", "10",
                             "11", "12", nullptr);
              }),
              "[1][2][3][4][5][6][7][8][9][10][11][12]");
}

TEST(Execl, IgnoresTheOptions) {
    for (const int options : {0, 187, -1}) {
        EXPECT_RESULT(TLIBCExecl("/bin/sh", options, "-c", "exit 7", nullptr), 7, "");
    }
}

TEST(Exec, NamesTheProgramByItsPath) {
    const auto command_line = [] { TLIBCExecl("/bin/cat", 0, "/proc/self/cmdline", nullptr); };
    EXPECT_EQ(OutputOf(command_line), std::string("/bin/cat\0/proc/self/cmdline\0", 28));
}

TEST(Exec, PassesTheEnvironment) {
    setenv("TAVO_EXEC_TEST", "a value", 1);
    EXPECT_EQ(Shell("test \"$TAVO_EXEC_TEST\" = 'a value'"), 0);
    unsetenv("TAVO_EXEC_TEST");
    EXPECT_EQ(Shell("test -z \"$TAVO_EXEC_TEST\""), 0);
}

// ---- Descriptors

TEST(Exec, ProvidesAnEmptyInput) {
    const TemporaryFolder folder;
    const Descriptor input(STDIN_FILENO, folder.Write("input", "not for the program"));
    EXPECT_EQ(OutputOf([] { TLIBCExecl("/bin/cat", 0, nullptr); }), "");
    EXPECT_EQ(lseek(STDIN_FILENO, 0, SEEK_CUR), 0);
}

TEST(Exec, ProvidesAnInputIfTheCallerHasNone) {
    const Descriptor input(STDIN_FILENO, "");
    EXPECT_EQ(Shell("test \"$(readlink /proc/$$/fd/0)\" = /dev/null"), 0);
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1) << "still closed in the caller";
}

TEST(Exec, LetsTheProgramWriteToTheCallersOutputs) {
    const TemporaryFolder folder;
    {
        const Descriptor output(STDOUT_FILENO, folder / "out");
        const Descriptor errors(STDERR_FILENO, folder / "err");
        Shell("echo to out; echo to err >&2");
    }
    EXPECT_EQ(ReadFile(folder / "out"), "to out\n");
    EXPECT_EQ(ReadFile(folder / "err"), "to err\n");
}

TEST(Exec, KeepsACloseOnExecOutput) {
    EXPECT_EQ(OutputOf([] {
                  fcntl(STDOUT_FILENO, F_SETFD, FD_CLOEXEC);
                  Shell("echo kept");
                  EXPECT_EQ(fcntl(STDOUT_FILENO, F_GETFD), FD_CLOEXEC);
              }),
              "kept\n");
}

TEST(Exec, ProvidesOutputsIfTheCallerHasNone) {
    int outputs = 0;
    int errors = 0;
    {
        const Descriptor closed_output(STDOUT_FILENO, "");
        const Descriptor closed_errors(STDERR_FILENO, "");
        outputs = Shell("test \"$(readlink /proc/$$/fd/1)\" = /dev/null && echo x");
        errors = Shell("test \"$(readlink /proc/$$/fd/2)\" = /dev/null && echo x >&2");
    }
    EXPECT_EQ(outputs, 0);
    EXPECT_EQ(errors, 0);
}

TEST(Exec, PassesNoOtherDescriptor) {
    const Descriptor low(3, "/dev/zero");
    const Descriptor middle(57, "/dev/zero");
    const Descriptor high(600, "/dev/zero");
    EXPECT_EQ(Shell("for fd in 3 57 600; do test -e /proc/$$/fd/$fd && exit 1; done; exit 0"), 0);
    for (const int number : {3, 57, 600}) {
        EXPECT_EQ(fcntl(number, F_GETFD), 0) << "still open in the caller";
    }
}

// ---- Signals

bool IsBlocked(int signal) {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return sigismember(&mask, signal) == 1;
}

void Block(int how, const std::vector<int> &signals) {
    sigset_t mask;
    sigemptyset(&mask);
    for (const int signal : signals) {
        sigaddset(&mask, signal);
    }
    pthread_sigmask(how, &mask, nullptr);
}

void DoNothing(int) {}

// The signals in one line of /proc/PID/status, without 32 and 33, which libc uses itself and makes
// every program that it starts ignore.
unsigned long SignalsIn(const std::string &status, const std::string &line) {
    const std::string mask = status.substr(status.find(line) + line.size());
    return std::strtoul(mask.c_str(), nullptr, 16) & ~0x180000000ul;
}

TEST(Exec, StartsTheProgramWithStandardSignals) {
    const SignalAction pipe(SIGPIPE, SIG_IGN);
    const SignalAction interrupt(SIGINT, SIG_IGN);
    const SignalAction child(SIGCHLD, SIG_IGN);
    const SignalAction hangup(SIGHUP, DoNothing);
    Block(SIG_BLOCK, {SIGTERM, SIGUSR1, SIGRTMIN});
    const std::string status =
        OutputOf([] { TLIBCExecl("/bin/cat", 0, "/proc/self/status", nullptr); });
    Block(SIG_UNBLOCK, {SIGTERM, SIGUSR1, SIGRTMIN});
    ASSERT_THAT(status, testing::HasSubstr("SigBlk:"));
    EXPECT_EQ(SignalsIn(status, "SigBlk:"), 0u);
    EXPECT_EQ(SignalsIn(status, "SigIgn:"), 0u);
    EXPECT_EQ(SignalsIn(status, "SigCgt:"), 0u);
}

TEST(Exec, LeavesTheCallersSignalsUnchanged) {
    const SignalAction pipe(SIGPIPE, SIG_IGN);
    const SignalAction child(SIGCHLD, DoNothing, SA_RESTART);
    Block(SIG_BLOCK, {SIGUSR1});
    EXPECT_EQ(Shell("exit 3"), 3);
    EXPECT_EQ(TLIBCExecl("/missing", 0, nullptr), -1);
    EXPECT_TRUE(IsBlocked(SIGUSR1));
    EXPECT_FALSE(IsBlocked(SIGCHLD));
    Block(SIG_UNBLOCK, {SIGUSR1});
    EXPECT_EQ(ActionOf(SIGPIPE).sa_handler, SIG_IGN);
    EXPECT_EQ(ActionOf(SIGCHLD).sa_handler, DoNothing);
    EXPECT_TRUE(ActionOf(SIGCHLD).sa_flags & SA_RESTART);
}

TEST(Exec, LeavesTheChildSignalBlocked) {
    Block(SIG_BLOCK, {SIGCHLD});
    EXPECT_EQ(Shell("exit 3"), 3);
    EXPECT_TRUE(IsBlocked(SIGCHLD));
    Block(SIG_UNBLOCK, {SIGCHLD});
}

TEST(Exec, WorksInACallerThatIgnoresItsChildren) {
    const SignalAction child(SIGCHLD, SIG_IGN);
    EXPECT_RESULT(Shell("exit 3"), 3, "");
    EXPECT_EQ(ActionOf(SIGCHLD).sa_handler, SIG_IGN);
    EXPECT_RESULT(TLIBCExecl("/missing", 0, nullptr), -1, "0x700 exec.cpp");
    EXPECT_EQ(ActionOf(SIGCHLD).sa_handler, SIG_IGN);
}

TEST(Exec, WorksInACallerThatLetsTheKernelReapItsChildren) {
    for (void (*handler)(int) : {SIG_DFL, static_cast<void (*)(int)>(DoNothing)}) {
        const SignalAction child(SIGCHLD, handler, SA_NOCLDWAIT | SA_RESTART);
        EXPECT_RESULT(Shell("exit 3"), 3, "");
        EXPECT_EQ(ActionOf(SIGCHLD).sa_handler, handler);
        EXPECT_TRUE(ActionOf(SIGCHLD).sa_flags & SA_NOCLDWAIT);
        EXPECT_TRUE(ActionOf(SIGCHLD).sa_flags & SA_RESTART);
    }
}

volatile sig_atomic_t g_waits = 0;

void WaitForEveryChild(int) {
    const int error = errno;
    while (waitpid(-1, nullptr, WNOHANG) > 0) {
    }
    g_waits = g_waits + 1;
    errno = error;
}

TEST(Exec, KeepsTheStatusFromAHandlerThatWaitsForEveryChild) {
    const SignalAction child(SIGCHLD, WaitForEveryChild);
    g_waits = 0;
    for (int status = 0; status < 30; ++status) {
        EXPECT_RESULT(Shell(("exit " + std::to_string(status)).c_str()), status, "");
    }
    EXPECT_EQ(g_waits, 30) << "each call of the handler is delayed, none is lost";
}

void InstallChildHandler(int) {
    signal(SIGCHLD, DoNothing);
}

TEST(Exec, KeepsAHandlerThatTheCallerInstalledMeanwhile) {
    const SignalAction child(SIGCHLD, SIG_IGN);
    const SignalAction user(SIGUSR1, InstallChildHandler);
    EXPECT_EQ(Shell("kill -USR1 $PPID; exit 3"), 3);
    EXPECT_EQ(ActionOf(SIGCHLD).sa_handler, DoNothing);
}

std::string g_handler_runs;

void TakeAnyStatus(int) {
    close(open(g_handler_runs.c_str(), O_CREAT | O_WRONLY, 0600));
    waitpid(-1, nullptr, 0);
}

TEST(Exec, ReportsAStatusThatTheCallerCollected) {
    const TemporaryFolder folder;
    g_handler_runs = folder / "handler_runs";
    const std::string script =
        "kill -USR1 $PPID; until test -e " + g_handler_runs + "; do sleep 0.01; done; exit 3";
    const SignalAction user(SIGUSR1, TakeAnyStatus);
    EXPECT_RESULT(Shell(script.c_str()), -1, "0x900 exec.cpp");
}

TEST(Exec, KeepsWaitingAfterASignal) {
    const SignalAction alarm(SIGALRM, DoNothing);
    const itimerval often = {{0, 5000}, {0, 5000}};
    const itimerval never = {};
    setitimer(ITIMER_REAL, &often, nullptr);
    const int status = Shell("sleep 0.2; exit 3");
    setitimer(ITIMER_REAL, &never, nullptr);
    EXPECT_EQ(status, 3);
}

// ---- Other effects on the caller

TEST(Exec, SeparatesTheCallsOfManyThreads) {
    const SignalAction child(SIGCHLD, SIG_IGN);
    std::vector<std::thread> threads;
    for (int number = 1; number <= 8; ++number) {
        threads.emplace_back([number] {
            const std::string script = "exit " + std::to_string(number);
            for (int call = 0; call < 15; ++call) {
                EXPECT_EQ(Shell(script.c_str()), number);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(ActionOf(SIGCHLD).sa_handler, SIG_IGN);
}

int g_forks = 0;

TEST(Exec, DoesNotForkTheCaller) {
    pthread_atfork([] { ++g_forks; }, nullptr, nullptr);
    EXPECT_EQ(Shell("exit 3"), 3);
    EXPECT_EQ(g_forks, 0);
}

TEST(Exec, WorksInACallerWithMuchMemory) {
    const std::size_t size = std::size_t{1} << 28;
    void *memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    std::memset(memory, 1, size);
    EXPECT_EQ(Shell("exit 3"), 3);
    munmap(memory, size);
}

TEST(Exec, WaitsForTheProgramToEnd) {
    const TemporaryFolder folder;
    const std::string script = "sleep 0.1; echo done > " + folder / "result";
    EXPECT_EQ(Shell(script.c_str()), 0);
    EXPECT_EQ(ReadFile(folder / "result"), "done\n");
}

}  // namespace

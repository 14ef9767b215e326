// The program that injects faults into the system calls of another one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "run_program.h"

namespace tavo::test {
namespace {

// Runs a script of the shell, whose echo makes one write, with a fault.
ProgramResult Inject(const std::string &call, const std::string &ordinal, const std::string &fault,
                     const std::string &script) {
    return RunProgram({FAULT_INJECTOR, call, ordinal, fault, "/bin/bash", "-c", script});
}

TEST(FaultInjector, MakesOneCallFail) {
    const ProgramResult result =
        Inject("write", "2", "ENOSPC", "for i in 1 2 3; do echo $i 2> /dev/null; done");
    EXPECT_EQ(result.out, "1\n3\n");
    EXPECT_EQ(result.status, 0);
}

TEST(FaultInjector, MakesAllLaterCallsFailToo) {
    const ProgramResult result =
        Inject("write", "2+", "ENOSPC", "for i in 1 2 3; do echo $i 2> /dev/null; done");
    EXPECT_EQ(result.out, "1\n");
    EXPECT_EQ(result.status, 1) << "that of the last echo";
}

TEST(FaultInjector, FailsWithTheNamedError) {
    EXPECT_THAT(Inject("write", "1", "ENOSPC", "echo 1").err,
                testing::HasSubstr("No space left on device"));
    EXPECT_THAT(Inject("write", "1", "ELOOP", "echo 1").err,
                testing::HasSubstr("Too many levels of symbolic links"));
}

TEST(FaultInjector, KillsAtACall) {
    const ProgramResult result = Inject("write", "2", "SIGKILL", "echo 1; echo 2; echo 3");
    EXPECT_EQ(result.out, "1\n");
    EXPECT_EQ(result.status, 128 + 9);
}

TEST(FaultInjector, SparesThePrograms) {
    const ProgramResult result =
        Inject("write", "1+", "EIO", "/bin/echo child; (echo subshell); echo own 2> /dev/null");
    EXPECT_EQ(result.out, "child\nsubshell\n");
}

TEST(FaultInjector, WaitsForTheChildrenOfTheProgram) {
    const ProgramResult result = Inject("write", "1", "SIGKILL", "(sleep 0.2; echo late) & echo 1");
    EXPECT_EQ(result.out, "late\n");
    EXPECT_EQ(result.status, 128 + 9);
}

TEST(FaultInjector, SaysIfTheCallIsNotReached) {
    const ProgramResult result = Inject("write", "2", "EIO", "echo 1");
    EXPECT_EQ(result.out, "1\n");
    EXPECT_EQ(result.err, "fault_injector: write was not called so often\n");
    EXPECT_EQ(result.status, 125);
}

TEST(FaultInjector, RefusesWhatItCannotInject) {
    for (const auto &[call, ordinal, fault] : std::vector<std::array<std::string, 3>>{
             {"no_such_call", "1", "EIO"},
             {"execve", "1", "EIO"},
             {"write", "0", "EIO"},
             {"write", "one", "EIO"},
             {"write", "1", "ENOSUCH"},
         }) {
        const ProgramResult result = Inject(call, ordinal, fault, "echo 1");
        EXPECT_EQ(result.status, 125) << call << ordinal << fault;
        EXPECT_EQ(result.out, "");
    }
}

}  // namespace
}  // namespace tavo::test

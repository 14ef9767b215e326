// Records the system calls of a program with strace, and injects faults into them.
//
// The program calls getppid, which is called nowhere else, before and after the calls of interest.
#ifndef TAVO_TESTS_FAULT_SYSTEM_CALLS_H
#define TAVO_TESTS_FAULT_SYSTEM_CALLS_H

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "run_program.h"

namespace tavo::test {

// The `ordinal`th call of that name by the program, and the line that strace prints for it.
struct SystemCall {
    std::string name;
    int ordinal;
    std::string line = {};
};

// The calls between the marks, in order; none if a mark is missing.
inline std::vector<SystemCall> CallsBetweenMarks(const std::string &trace) {
    std::istringstream lines(trace);
    std::map<std::string, int> counts;
    std::vector<SystemCall> calls;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("---")) {
            continue;  // a signal
        }
        const std::string name = line.substr(0, line.find('('));
        ++counts[name];
        if (counts["getppid"] == 1 && name != "getppid") {
            calls.push_back({name, counts[name], line});
        }
    }
    return counts["getppid"] == 2 ? calls : std::vector<SystemCall>();
}

// Runs the program under strace; the trace is returned as standard error.
inline ProgramResult RunTraced(const std::vector<std::string> &program,
                               const std::vector<std::string> &options = {}) {
    std::vector<std::string> command = {"strace", "-qq"};
    command.insert(command.end(), options.begin(), options.end());
    command.insert(command.end(), program.begin(), program.end());
    // The leak check does not work in a traced program.
    return RunProgram(command, "", {"ASAN_OPTIONS=detect_leaks=0"});
}

// Runs the program with that call failing with `fault`, or killed there if it is "SIGKILL"; with
// "+" as `following`, also at all later calls of that name. The programs that it starts are spared.
// The test fails if the program does not make that call.
inline ProgramResult RunWithFault(const std::vector<std::string> &program, const SystemCall &call,
                                  const std::string &fault, const std::string &following = "") {
    constexpr int kNotInjected = 125;
    std::vector<std::string> command = {FAULT_INJECTOR, call.name,
                                        std::to_string(call.ordinal) + following, fault};
    command.insert(command.end(), program.begin(), program.end());
    // The leak check would take a third of the time.
    ProgramResult result = RunProgram(command, "", {"ASAN_OPTIONS=detect_leaks=0"});
    EXPECT_NE(result.status, kNotInjected) << result.err;
    return result;
}

// Whether the call only allocates or frees memory: how the allocator handles a failure is outside
// of the library.
inline bool IsAboutMemory(const SystemCall &call) {
    static const std::set<std::string> names = {"brk",    "mmap",    "munmap",
                                                "mremap", "madvise", "mprotect"};
    return names.count(call.name) > 0;
}

// Whether the call does more than read: it writes, starts a program or waits for one.
inline bool CanChangeAFile(const SystemCall &call) {
    static const std::set<std::string> kLook = {
        "access",     "close",      "faccessat2",   "fcntl",          "flock",     "fstat",
        "futex",      "getdents64", "getpid",       "getrandom",      "lseek",     "memfd_create",
        "newfstatat", "pidfd_open", "poll",         "pread64",        "prlimit64", "read",
        "readlink",   "recvfrom",   "rt_sigaction", "rt_sigprocmask", "sendto",    "setsockopt",
        "socket",     "waitid"};
    const bool only_reads = call.name == "openat" &&
                            call.line.find("O_RDONLY") != std::string::npos &&
                            call.line.find("O_CREAT") == std::string::npos;
    return !only_reads && !IsAboutMemory(call) && kLook.count(call.name) == 0;
}

}  // namespace tavo::test

#endif

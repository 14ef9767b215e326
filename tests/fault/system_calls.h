// Records the system calls of a program with strace and injects faults into them.
//
// The program calls getppid, which is called nowhere else, before and after the calls of interest.
#ifndef TAVO_TESTS_FAULT_SYSTEM_CALLS_H
#define TAVO_TESTS_FAULT_SYSTEM_CALLS_H

#include <gtest/gtest.h>

#include <algorithm>
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

// The options for strace to inject `fault` into that call; with "+" as `following`, also into all
// later calls of that name.
inline std::vector<std::string> Injection(const SystemCall &call, const std::string &fault,
                                          const std::string &following = "") {
    return {
        "-e", "trace=" + call.name, "-e",
        "inject=" + call.name + ":" + fault + ":when=" + std::to_string(call.ordinal) + following};
}

// The same for a program that starts no other one, which strace then stops only at calls of that
// name. (Faults would also be injected into the programs that it starts.)
inline std::vector<std::string> QuickInjection(const SystemCall &call, const std::string &fault,
                                               const std::string &following = "") {
    std::vector<std::string> options = Injection(call, fault, following);
    options.insert(options.end(), {"-f", "--seccomp-bpf"});
    return options;
}

// Whether strace injected the fault. A killed program does not return from the call.
inline bool WasInjected(const std::string &trace) {
    return trace.find("(INJECTED)") != std::string::npos ||
           trace.find("+++ killed by SIGKILL +++") != std::string::npos;
}

// Runs the program under strace; the output of strace is returned as standard error. The test fails
// if a fault must be injected and the program does not make that call.
inline ProgramResult RunTraced(const std::vector<std::string> &options,
                               const std::vector<std::string> &program) {
    std::vector<std::string> command = {"strace", "-qq"};
    command.insert(command.end(), options.begin(), options.end());
    command.insert(command.end(), program.begin(), program.end());
    // The leak check does not work in a traced program.
    ProgramResult result = RunProgram(command, "", {"ASAN_OPTIONS=detect_leaks=0"});
    const auto injection = std::find_if(options.begin(), options.end(), [](const auto &option) {
        return option.starts_with("inject=");
    });
    if (injection != options.end()) {
        EXPECT_TRUE(WasInjected(result.err)) << *injection << " was not reached:\n" << result.err;
    }
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

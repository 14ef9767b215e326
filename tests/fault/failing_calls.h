// Runs a program with each of its system calls failing in turn, with each error. The checks must
// pass whichever call fails.
#ifndef TAVO_TESTS_FAULT_FAILING_CALLS_H
#define TAVO_TESTS_FAULT_FAILING_CALLS_H

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "system_calls.h"

namespace tavo::test {

// The errors with which a system call can fail to look up something that exists.
inline const std::vector<std::string> &LookingErrors() {
    static const std::vector<std::string> errors = {"ENOMEM", "ENOSPC", "EIO",
                                                    "EMFILE", "EINTR",  "EACCES"};
    return errors;
}

// All system calls of a program, from its start.
inline std::vector<SystemCall> CallsOf(const std::string &trace) {
    std::istringstream lines(trace);
    std::map<std::string, int> counts;
    std::vector<SystemCall> calls;
    for (std::string line; std::getline(lines, line);) {
        const std::size_t bracket = line.find('(');
        if (bracket != std::string::npos && !line.starts_with("---")) {
            const std::string name = line.substr(0, bracket);
            calls.push_back({name, ++counts[name], line});
        }
    }
    return calls;
}

// The system calls of a program after its last library was loaded.
inline std::vector<SystemCall> CallsOnceLoaded(const std::vector<std::string> &program) {
    std::vector<SystemCall> calls = CallsOf(RunTraced(program).err);
    const auto last = std::find_if(calls.rbegin(), calls.rend(), [](const SystemCall &call) {
        return call.name == "openat" && call.line.find(".so") != std::string::npos;
    });
    calls.erase(calls.begin(), last.base());
    return calls;
}

#ifdef TAVO_SANITIZED
constexpr bool kInstrumented = true;
#else
constexpr bool kInstrumented = false;
#endif

// Whether a call can fail with the error and the program is responsible for the outcome. The kernel
// never fails brk with an error number: it returns the old break. In an instrumented program the
// sanitizer makes the calls for memory and ends the program if one fails.
inline bool CanFail(const SystemCall &call, const std::string &error) {
    static const std::set<std::string> kNever = {
        "brk",     "close",     "execve", "exit_group",   "futex",          "getpid",
        "getppid", "getrandom", "munmap", "rt_sigaction", "rt_sigprocmask", "rt_sigreturn",
        "wait4",   "waitid"};
    return kNever.count(call.name) == 0 &&
           (!IsAboutMemory(call) || (!kInstrumented && error == "ENOMEM"));
}

// Runs the program with each call failing in turn and calls check(call, error, result). `calls` are
// those of a run without faults. Each call fails with each error; in an instrumented program, which
// takes several times longer to start, with one of the errors in turn. Returns the number of runs.
template <typename Check>
int ForEachFailingCall(const std::vector<std::string> &program,
                       const std::vector<SystemCall> &calls, Check check) {
    int runs = 0;
    std::size_t turn = 0;
    for (const SystemCall &call : calls) {
        const std::string &in_turn = LookingErrors()[turn++ % LookingErrors().size()];
        for (const std::string &error : LookingErrors()) {
            if (CanFail(call, error) && (!kInstrumented || error == in_turn)) {
                SCOPED_TRACE(error + " at " + call.line);
                check(call, error, RunWithFault(program, call, error));
                ++runs;
            }
        }
    }
    return runs;
}

}  // namespace tavo::test

#endif

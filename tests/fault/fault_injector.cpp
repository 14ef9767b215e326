// Runs a program and makes one of its system calls fail, or kills it there.
//
//     fault_injector CALL N[+] FAULT PROGRAM [ARGUMENT...]
//
// The fault is injected into the Nth system call of that name by the main thread of the program,
// with N+ also into all later ones. FAULT is the name of an error (EIO) or of the signal SIGKILL.
// Programs that the program starts run unharmed; the injector ends after the last of them. It exits
// with the status of the program, or 128 + n if signal n ended it, or with 125 if the fault was not
// injected.
//
// A filter reports the calls of that name to the injector, see seccomp_unotify(2). Unlike under a
// tracer, the program stops at no other call.
#include <poll.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

namespace {

constexpr int kNotInjected = 125;

[[noreturn]] void Fail(const std::string &what) {
    std::fprintf(stderr, "fault_injector: %s\n", what.c_str());
    std::_Exit(kNotInjected);
}

struct Fault {
    std::string name;
    int call;
    unsigned long first;
    bool repeat;
    int error;  // 0: SIGKILL

    // Whether the nth call gets the fault.
    bool Hits(unsigned long nth) const { return repeat ? nth >= first : nth == first; }
};

int ErrorNumber(const std::string &name) {
    for (int number = 1; number < 200; ++number) {
        const char *known = strerrorname_np(number);
        if (known != nullptr && name == known) {
            return number;
        }
    }
    Fail(name + " is not an error");
}

Fault ParseFault(char **arguments) {
    Fault fault = {};
    fault.name = arguments[0];
    fault.call = seccomp_syscall_resolve_name(arguments[0]);
    char *rest = nullptr;
    fault.first = std::strtoul(arguments[1], &rest, 10);
    fault.repeat = *rest == '+';
    fault.error = std::strcmp(arguments[2], "SIGKILL") == 0 ? 0 : ErrorNumber(arguments[2]);
    if (fault.call < 0 || fault.call == SCMP_SYS(execve) || fault.first == 0) {
        Fail(fault.name + " " + arguments[1] + " is not a call that can fail");
    }
    return fault;
}

struct Program {
    scmp_filter_ctx filter;
    char **arguments;
};

// From here on the program waits at each call of that name. Shares the memory and the descriptors
// of the injector until the program is executed, so that the injector gets the descriptor from
// which it reads the calls.
int Execute(void *of) {
    const Program &program = *static_cast<Program *>(of);
    if (seccomp_load(program.filter) == 0) {
        execvp(program.arguments[0], program.arguments);
    }
    _exit(127);
}

pid_t Start(Program *program) {
    alignas(16) static std::array<char, 64 * 1024> stack;
    return clone(Execute, stack.data() + stack.size(),
                 CLONE_VM | CLONE_VFORK | CLONE_FILES | SIGCHLD, program);
}

// Whether a call waits for its answer. False when no program is left that could make one.
bool WaitForCall(int calls) {
    pollfd ready = {calls, POLLIN, 0};
    while (poll(&ready, 1, -1) < 0 && errno == EINTR) {
    }
    return (ready.revents & POLLIN) != 0;
}

// Answers the calls until no program is left that could make one.
void Supervise(int calls, pid_t program, const Fault &fault, std::atomic<bool> *injected) {
    seccomp_notif *call = nullptr;
    seccomp_notif_resp *answer = nullptr;
    if (seccomp_notify_alloc(&call, &answer) != 0) {
        Fail("out of memory");
    }
    for (unsigned long count = 0; WaitForCall(calls);) {
        std::memset(call, 0, sizeof *call);
        if (seccomp_notify_receive(calls, call) != 0) {
            continue;  // the caller was killed while it waited
        }
        *answer = {.id = call->id, .val = 0, .error = 0, .flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE};
        if (static_cast<pid_t>(call->pid) == program && fault.Hits(++count)) {
            *injected = true;
            answer->flags = 0;
            answer->error = -fault.error;
            if (fault.error == 0) {
                kill(program, SIGKILL);
            }
        }
        seccomp_notify_respond(calls, answer);
    }
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 5) {
        Fail("usage: fault_injector CALL N[+] FAULT PROGRAM [ARGUMENT...]");
    }
    const Fault fault = ParseFault(argv + 1);
    Program program = {seccomp_init(SCMP_ACT_ALLOW), argv + 4};
    if (program.filter == nullptr ||
        seccomp_rule_add(program.filter, SCMP_ACT_NOTIFY, fault.call, 0) != 0) {
        Fail("the filter cannot be built");
    }
    // Children that outlive the program also wait at their calls.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const pid_t started = Start(&program);
    const int calls = seccomp_notify_fd(program.filter);
    if (started < 0 || calls < 0) {
        Fail("the filter cannot be installed");
    }
    std::atomic<bool> injected = false;
    std::thread(Supervise, calls, started, std::cref(fault), &injected).detach();
    int result = 0;
    int status = 0;
    for (pid_t ended = 0; (ended = wait(&status)) > 0;) {
        if (ended == started) {
            result = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
    }
    if (!injected) {
        Fail(fault.name + " was not called so often");
    }
    std::_Exit(result);
}

// Work that is done in a process of its own.
#ifndef TAVO_TESTS_SUPPORT_CHILD_PROCESS_H
#define TAVO_TESTS_SUPPORT_CHILD_PROCESS_H

#include <sys/wait.h>
#include <unistd.h>

namespace tavo::test {

// Starts a process that runs `work` and exits with its result. Its id; -1 when it cannot be
// started.
template <typename Work>
pid_t StartChild(Work work) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(work());
    }
    return child;
}

// Waits for a process to end. Its exit status; -1 when it did not exit by itself.
inline int StatusOfChild(pid_t child) {
    int status = -1;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The exit status of a process that runs `work`.
template <typename Work>
int StatusInChild(Work work) {
    return StatusOfChild(StartChild(work));
}

}  // namespace tavo::test

#endif

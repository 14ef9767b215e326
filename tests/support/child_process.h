// Runs functions in child processes.
#ifndef TAVO_TESTS_SUPPORT_CHILD_PROCESS_H
#define TAVO_TESTS_SUPPORT_CHILD_PROCESS_H

#include <sys/wait.h>
#include <unistd.h>

namespace tavo::test {

// Starts a process that runs `work` and exits with its result. Returns its id, or -1 if it cannot
// be started.
template <typename Work>
pid_t StartChild(Work work) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(work());
    }
    return child;
}

// Waits for a process to end. Returns its exit status, or -1 if it did not exit normally.
inline int StatusOfChild(pid_t child) {
    int status = -1;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Runs `work` in a child process and returns the exit status.
template <typename Work>
int StatusInChild(Work work) {
    return StatusOfChild(StartChild(work));
}

}  // namespace tavo::test

#endif

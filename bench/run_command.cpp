#include "run_command.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

extern "C" char **environ;

namespace tavo::bench {

double ProcessorSeconds() {
    double seconds = 0;
    for (const int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        rusage usage;
        getrusage(who, &usage);
        for (const timeval &time : {usage.ru_utime, usage.ru_stime}) {
            seconds += static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
        }
    }
    return seconds;
}

int RunSilently(const std::vector<std::string> &command) {
    std::vector<char *> arguments;
    for (const std::string &word : command) {
        arguments.push_back(const_cast<char *>(word.c_str()));
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    pid_t child = 0;
    int status = -1;
    if (posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ) == 0) {
        waitpid(child, &status, 0);
    }
    posix_spawn_file_actions_destroy(&actions);
    return status >= 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace tavo::bench

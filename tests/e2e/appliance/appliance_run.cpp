#include "appliance_run.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace tavo::test {

ProgramResult RunLauncher(std::vector<std::string> arguments,
                          const std::vector<std::string> &environment) {
    arguments.insert(arguments.begin(), APPLIANCE);
    return RunProgram(arguments, {}, environment);
}

ProgramResult RunInside(const std::vector<std::string> &command) {
    std::vector<std::string> arguments = {"run", "--"};
    arguments.insert(arguments.end(), command.begin(), command.end());
    return RunLauncher(arguments);
}

ProgramResult RunScriptInside(const std::string &script) {
    return RunInside({"sh", "-c", script});
}

BackgroundRun::BackgroundRun(const std::string &script) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0 || (pid_ = fork()) < 0) {
        throw std::system_error(errno, std::generic_category(), "cannot start " APPLIANCE);
    }
    if (pid_ == 0) {
        dup2(ends[1], STDOUT_FILENO);
        setenv("TMPDIR", temporary_.Path().c_str(), 1);
        execl(APPLIANCE, APPLIANCE, "run", "--", "sh", "-c", script.c_str(), nullptr);
        _exit(125);
    }
    close(ends[1]);
    output_ = ends[0];
}

BackgroundRun::~BackgroundRun() {
    if (pid_ > 0) {
        Signal(SIGKILL);
        Wait();
    }
    close(output_);
}

std::string BackgroundRun::ReadLine() {
    std::string line;
    char c;
    while (read(output_, &c, 1) == 1 && c != '\n') {
        line += c;
    }
    return line;
}

bool BackgroundRun::OutputEnds() {
    pollfd event = {output_, POLLIN, 0};
    char c;
    return poll(&event, 1, 10000) == 1 && read(output_, &c, 1) == 0;
}

void BackgroundRun::Signal(int signal) const {
    kill(pid_, signal);
}

int BackgroundRun::Wait() {
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace tavo::test

#include "change/program_output.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <sstream>
#include <system_error>
#include <utility>

#include "input/input_file.h"

namespace tavo::tool {
namespace {

int real_stderr = -1;  // -1 while standard error is not redirected

// Duplicates a descriptor, close-on-exec.
int CopyOf(int descriptor) {
    std::fflush(descriptor == STDERR_FILENO ? stderr : stdout);
    return fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
}

}  // namespace

ProgramOutput::ProgramOutput() : stdout_(CopyOf(STDOUT_FILENO)) {
    if (!stdout_.IsOpen() && errno != EBADF) {
        throw std::system_error(errno, std::generic_category(),
                                "the output of programs cannot be kept apart");
    }
    real_stderr = CopyOf(STDERR_FILENO);
    caught_.Reset(memfd_create("program-output", MFD_CLOEXEC));
    if (stdout_.IsOpen()) {
        dup2(caught_.IsOpen() ? caught_.Get() : STDERR_FILENO, STDOUT_FILENO);
    }
    if (caught_.IsOpen() && real_stderr >= 0) {
        dup2(caught_.Get(), STDERR_FILENO);
    }
}

int ProgramOutput::StandardError() {
    return real_stderr >= 0 ? real_stderr : STDERR_FILENO;
}

// Without a copy, a descriptor was closed before.
std::vector<std::string> ProgramOutput::End() {
    if (real_stderr >= 0) {
        dup2(real_stderr, STDERR_FILENO);
        close(std::exchange(real_stderr, -1));
    }
    if (stdout_.IsOpen()) {
        dup2(stdout_.Get(), STDOUT_FILENO);
        stdout_.Reset();
    }
    std::vector<std::string> lines;
    if (caught_.IsOpen()) {
        std::istringstream caught(
            ReadRegularFile("/proc/self/fd/" + std::to_string(caught_.Get())).text);
        for (std::string line; std::getline(caught, line);) {
            lines.push_back(line);
        }
        caught_.Reset();
    }
    return lines;
}

std::string LastWordOf(std::string_view program, const std::vector<std::string> &lines) {
    const std::string path = std::string(program) + ": ";
    const std::string name = path.substr(path.rfind('/', program.size()) + 1);
    const auto line = std::find_if(lines.rbegin(), lines.rend(), [&](const std::string &one) {
        return one.starts_with(path) || one.starts_with(name);
    });
    return line == lines.rend() ? "" : *line;
}

}  // namespace tavo::tool

#include "change/program_output.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

namespace tavo::tool {
namespace {

int real_stderr = -1;  // -1 while standard error is not redirected

// Duplicates a descriptor, close-on-exec.
int CopyOf(int descriptor) {
    std::fflush(descriptor == STDERR_FILENO ? stderr : stdout);
    return fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
}

// Restores the descriptor `place` from its copy and closes the copy. Without a copy, the descriptor
// was closed before.
void PutBack(int &copy, int place) {
    if (copy >= 0) {
        dup2(copy, place);
        close(std::exchange(copy, -1));
    }
}

}  // namespace

ProgramOutput::ProgramOutput() : stdout_(CopyOf(STDOUT_FILENO)) {
    if (stdout_ < 0 && errno != EBADF) {
        throw std::system_error(errno, std::generic_category(),
                                "the output of programs cannot be kept apart");
    }
    real_stderr = CopyOf(STDERR_FILENO);
    caught_ = memfd_create("program-output", MFD_CLOEXEC);
    if (stdout_ >= 0) {
        dup2(caught_ >= 0 ? caught_ : STDERR_FILENO, STDOUT_FILENO);
    }
    if (caught_ >= 0 && real_stderr >= 0) {
        dup2(caught_, STDERR_FILENO);
    }
}

int ProgramOutput::StandardError() {
    return real_stderr >= 0 ? real_stderr : STDERR_FILENO;
}

std::vector<std::string> ProgramOutput::End() {
    PutBack(real_stderr, STDERR_FILENO);
    PutBack(stdout_, STDOUT_FILENO);
    if (caught_ < 0) {
        return {};
    }
    const std::string caught = Caught();
    close(std::exchange(caught_, -1));
    std::vector<std::string> lines;
    for (std::size_t start = 0; start < caught.size();) {
        const std::size_t end = std::min(caught.find('\n', start), caught.size());
        lines.push_back(caught.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

std::string ProgramOutput::Caught() const {
    std::string caught;
    char buffer[4096];
    for (ssize_t got;
         (got = pread(caught_, buffer, sizeof(buffer), static_cast<off_t>(caught.size()))) > 0;) {
        caught.append(buffer, static_cast<std::size_t>(got));
    }
    return caught;
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

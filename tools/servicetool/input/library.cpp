#include "input/library.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "input/input_file.h"
#include "output/text.h"
#include "tavoserviceconf.h"

namespace tavo::tool {
namespace {

bool shows_log = false;

bool changes = false;  // a change is made

int real_stderr = -1;  // -1 while standard error is not redirected

// Duplicates a descriptor, close-on-exec.
int CopyOf(int descriptor) {
    std::fflush(descriptor == STDERR_FILENO ? stderr : stdout);
    return fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
}

}  // namespace

void ForgetFailure() {
    TLIBCErrSetEx(0, nullptr, 0);
}

std::string SystemReason(unsigned int code) {
    switch (code) {
        case TLIBC_ERR_NO_MEMORY:
            return "out of memory";
        case TLIBC_ERR_NO_FILE:
            return "a file does not exist";
        case TLIBC_ERR_FILE_UNUSABLE:
            return "a file cannot be opened or used";
        case TAVO_ERR_LIST_DIRECTORY:
            return "a folder cannot be listed";
        case TLIBC_ERR_RENAME:
            return "a file cannot be renamed";
        default:
            return {};
    }
}

void ThrowIfSystemFailed(const std::string &what, unsigned int code) {
    if (code == TLIBC_ERR_NO_MEMORY) {
        throw std::bad_alloc();
    }
    if (const std::string reason = SystemReason(code); !reason.empty()) {
        throw std::runtime_error(what + ": " + reason);
    }
}

void ShowLibraryLog(bool show) {
    openlog("servicetool", LOG_PID, LOG_USER);
    shows_log = show;
}

bool KeepsLog() {
    return shows_log || changes;
}

// Called by the library, which exceptions must not pass through.
void PrintLogLine(std::string_view line) noexcept {
    if (!shows_log) {
        return;
    }
    try {
        const std::string text = "log: " + Escaped(line) + '\n';
        const int output = real_stderr >= 0 ? real_stderr : STDERR_FILENO;
        [[maybe_unused]] const ssize_t written = write(output, text.data(), text.size());
    } catch (const std::bad_alloc &) {
        // The line is lost, but the failure itself is reported.
    }
}

ProgramOutput::ProgramOutput() : stdout_(CopyOf(STDOUT_FILENO)) {
    if (!stdout_.IsOpen() && errno != EBADF) {
        throw std::system_error(errno, std::generic_category(),
                                "the output of programs cannot be kept apart");
    }
    changes = true;
    real_stderr = CopyOf(STDERR_FILENO);
    caught_.Reset(memfd_create("program-output", MFD_CLOEXEC));
    if (stdout_.IsOpen()) {
        dup2(caught_.IsOpen() ? caught_.Get() : STDERR_FILENO, STDOUT_FILENO);
    }
    if (caught_.IsOpen() && real_stderr >= 0) {
        dup2(caught_.Get(), STDERR_FILENO);
    }
}

// Without a copy, a descriptor was closed before.
std::vector<std::string> ProgramOutput::End() {
    changes = false;
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

}  // namespace tavo::tool

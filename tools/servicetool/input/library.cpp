#include "input/library.h"

#include <unistd.h>

#include <stdexcept>

#include "change/program_output.h"
#include "output/text.h"
#include "tavoserviceconf.h"

namespace tavo::tool {
namespace {

bool shows_log = false;

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
    shows_log = show;
}

// Called by the library, which exceptions must not pass through.
void PrintLogLine(std::string_view line) noexcept {
    if (!shows_log) {
        return;
    }
    try {
        const std::string text = "log: " + Escaped(line) + '\n';
        [[maybe_unused]] const ssize_t written =
            write(ProgramOutput::StandardError(), text.data(), text.size());
    } catch (const std::bad_alloc &) {
        // The line is lost, but the failure itself is reported.
    }
}

}  // namespace tavo::tool

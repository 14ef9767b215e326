#include "input/library_failure.h"

#include <new>
#include <stdexcept>

#include "tavocore.h"

namespace tavo::tool {
namespace {

constexpr unsigned int kOutOfMemory = 0x200;
constexpr unsigned int kFileMissing = 0x700;
constexpr unsigned int kFileUnusable = 0x900;
constexpr unsigned int kFolderUnlisted = 0x2A00;
constexpr unsigned int kNotRenamed = 0x2800;

}  // namespace

std::string SystemReason(unsigned int code) {
    switch (code) {
        case kOutOfMemory:
            return "out of memory";
        case kFileMissing:
            return "a file does not exist";
        case kFileUnusable:
            return "a file cannot be opened or used";
        case kFolderUnlisted:
            return "a folder cannot be listed";
        case kNotRenamed:
            return "a file cannot be renamed";
        default:
            return {};
    }
}

void ForgetFailure() {
    TLIBCErrSetEx(0, nullptr, 0);
}

void ThrowIfSystemFailed(const std::string &what) {
    const unsigned int code = TLIBCErrGet();
    if (code == kOutOfMemory) {
        throw std::bad_alloc();
    }
    if (const std::string reason = SystemReason(code); !reason.empty()) {
        throw std::runtime_error(what + ": " + reason);
    }
}

}  // namespace tavo::tool

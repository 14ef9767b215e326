#include "input/library_failure.h"

#include <new>
#include <stdexcept>

#include "tavocore.h"
#include "tavoserviceconf.h"

namespace tavo::tool {
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

void ForgetFailure() {
    TLIBCErrSetEx(0, nullptr, 0);
}

void ThrowIfSystemFailed(const std::string &what) {
    const unsigned int code = TLIBCErrGet();
    if (code == TLIBC_ERR_NO_MEMORY) {
        throw std::bad_alloc();
    }
    if (const std::string reason = SystemReason(code); !reason.empty()) {
        throw std::runtime_error(what + ": " + reason);
    }
}

}  // namespace tavo::tool

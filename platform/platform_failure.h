// Reporting of failures in the platform libraries: record an error code with the source file and
// line, return the failure value.
#ifndef TAVO_PLATFORM_PLATFORM_FAILURE_H
#define TAVO_PLATFORM_PLATFORM_FAILURE_H

#include "tavocore.h"

namespace tavo {

// The failure value of any function here: -1, NULL or false.
struct Failure {
    operator int() const { return -1; }
    operator bool() const { return false; }
    template <typename T>
    operator T *() const {
        return nullptr;
    }
};

inline Failure Fail(unsigned int code, const char *file, int line) {
    TLIBCErrSetEx(code, file, line);
    return {};
}

}  // namespace tavo

// Reports a failure in one line: return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
#define TAVO_PLATFORM_FAIL(code) ::tavo::Fail((code), __FILE_NAME__, __LINE__)

#endif

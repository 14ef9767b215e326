// Reporting of failures in the platform libraries other than the core: record an error code with
// the source file and line, return -1.
#ifndef TAVO_PLATFORM_PLATFORM_FAILURE_H
#define TAVO_PLATFORM_PLATFORM_FAILURE_H

#include "tavocore.h"

namespace tavo {

inline int Fail(unsigned int code, const char *file, int line) {
    TLIBCErrSetEx(code, file, line);
    return -1;
}

}  // namespace tavo

// Reports a failure in one line: return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
#define TAVO_PLATFORM_FAIL(code) ::tavo::Fail((code), __FILE_NAME__, __LINE__)

#endif

// How the platform libraries above the core fail: record an error code with this place, give -1.
#ifndef TAVO_PLATFORM_PLATFORM_FAILURE_H
#define TAVO_PLATFORM_PLATFORM_FAILURE_H

#include "tavocore.h"

namespace tavo {

constexpr unsigned int kOutOfMemory = 0x200;
constexpr unsigned int kFileUnusable = 0x900;
constexpr unsigned int kBadParameter = 0xD00;

inline int Fail(unsigned int code, const char *file, int line) {
    TLIBCErrSetEx(code, file, line);
    return -1;
}

}  // namespace tavo

// Lets a step fail in one line: return TAVO_PLATFORM_FAIL(tavo::kBadParameter);
#define TAVO_PLATFORM_FAIL(code) ::tavo::Fail((code), __FILE_NAME__, __LINE__)

#endif

// Checks for an installer whether a file may be placed into a directory.
#include <cstdio>
#include <cstring>

#include "support/failure.h"
#include "support/presence.h"
#include "support/service_directory.h"
#include "tavoserviceconf.h"

int TAVOServiceConfFileVerify(const char *szFile, const char *szDir) {
    if (szFile == nullptr || szDir == nullptr) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    const tavo::Presence source = tavo::PresenceOf(szFile);
    if (source != tavo::Presence::kPresent) {
        return TAVO_SET_ERROR(source == tavo::Presence::kAbsent ? TLIBC_ERR_NO_FILE
                                                                : TLIBC_ERR_FILE_UNUSABLE);
    }
    const char *slash = std::strrchr(szFile, '/');
    char target[tavo::kPathSize];
    const int length = std::snprintf(target, sizeof(target), "%s/%s", szDir,
                                     slash != nullptr ? slash + 1 : szFile);
    if (length < 0 || static_cast<std::size_t>(length) >= sizeof(target)) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    // A dangling symbolic link counts as absent, which is kept.
    switch (tavo::PresenceOf(target)) {
        case tavo::Presence::kPresent:
            return TAVO_SET_ERROR(TAVO_ERR_ALREADY_INSTALLED);
        case tavo::Presence::kUnknown:
            return TAVO_SET_ERROR(TLIBC_ERR_FILE_UNUSABLE);
        default:
            return 0;
    }
}

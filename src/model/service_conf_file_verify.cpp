// Tells an installer whether a file may be placed into a directory.
#include <cstdio>
#include <cstring>

#include "support/failure.h"
#include "support/service_directory.h"
#include "tavoserviceconf.h"

int TAVOServiceConfFileVerify(const char *szFile, const char *szDir) {
    if (szFile == nullptr || szDir == nullptr) {
        return TAVO_SET_ERROR(tavo::kErrorBadParameter);
    }
    if (TLIBCFileExist(szFile) != 1) {
        return TAVO_SET_ERROR(tavo::kErrorNoFile);
    }
    const char *szSlash = std::strrchr(szFile, '/');
    char szTarget[tavo::kPathSize];
    const int nLength = std::snprintf(szTarget, sizeof(szTarget), "%s/%s", szDir,
                                      szSlash != nullptr ? szSlash + 1 : szFile);
    if (nLength < 0 || static_cast<std::size_t>(nLength) >= sizeof(szTarget)) {
        return TAVO_SET_ERROR(tavo::kErrorBadParameter);
    }
    // A symbolic link to nothing does not exist for this question, which is kept.
    if (TLIBCFileExist(szTarget) == 1) {
        return TAVO_SET_ERROR(tavo::kErrorAlreadyInstalled);
    }
    return 0;
}

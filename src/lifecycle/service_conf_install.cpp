// The exported functions that install a service file.
#include <libgen.h>

#include <cstring>

#include "support/failure.h"
#include "support/owners.h"
#include "tavoserviceconf.h"

int TAVOServiceConfInstall(const char *szSrcPath, int nLocation) {
    if (szSrcPath == nullptr) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    const tavo::OwnedText copy(strdup(szSrcPath));
    if (copy == nullptr) {
        return TAVO_FAIL(TLIBC_ERR_NO_MEMORY, "FAILED to duplicate string=%s", szSrcPath);
    }
    TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
    const int result = ServiceConfInstall(basename(copy.get()), szSrcPath, nLocation, &conflicts);
    TAVOServiceConfPortsFree(conflicts);
    return result;
}

int TAVOServiceConfInstallBaseName(const char *szBaseName, const char *szSrcPath, int nLocation,
                                   TAVO_SERVICE_CONF_PORT **ppConflictPorts) {
    return ServiceConfInstall(szBaseName, szSrcPath, nLocation, ppConflictPorts);
}

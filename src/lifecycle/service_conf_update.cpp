// Replaces an installed service file by a new version and tells who acts on its ports what changed.
//
// The old content is kept in /tmp until they were told. What goes wrong later than that is logged
// and never rolled back: a package that is updated must not be held up by the firewall.
#include <sys/stat.h>
#include <unistd.h>

#include "lifecycle/temporary_copy.h"
#include "support/failure.h"
#include "support/service_directory.h"
#include "support/text.h"
#include "tavoserviceconf.h"

namespace {

// A file that is not installed yet has no old content.
int MakeBackup(const char *szBaseName, const char *szInstalled, tavo::TemporaryCopy &backup) {
    if (TLIBCFileExist(szInstalled) != 1) {
        return 0;
    }
    char szBackup[tavo::kPathSize];
    tavo::PrintText(szBackup, "/tmp/servicetool.update.%s.old", szBaseName);
    if (backup.Make(szInstalled, szBackup) != 0) {
        return TAVO_LOG("FAILED to copy from file=%s to backup path=%s", szInstalled, szBackup);
    }
    return 0;
}

// Whether the ports of the new file collide. An installation that fails leaves this one line, and
// the update goes on.
bool Install(const char *szBaseName, const char *szSrcPath, int nLocation,
             TAVO_SERVICE_CONF_PORT **ppConflictPorts) {
    const int nResult = ServiceConfInstall(szBaseName, szSrcPath, nLocation, ppConflictPorts);
    if (nResult == 1) {
        TAVO_LOG("%s conf file port conflict with existed conf file setting=%s", szSrcPath,
                 szBaseName);
    } else if (nResult != 0) {
        TAVO_LOG("check %s conf file port conflict failed=%d", szSrcPath, nResult);
    }
    return nResult == 1;
}

void DeleteBackup(const TAVO_SERVICE_CONF_NOTIFY &notify) {
    if (*notify.szOldConfPath != '\0') {
        unlink(notify.szOldConfPath);
    }
}

}  // namespace

int TAVOServiceConfUpdateBaseNameWithoutNotify(const char *szBaseName, const char *szSrcPath,
                                               int nLocation,
                                               TAVO_SERVICE_CONF_PORT **ppConflictPorts,
                                               TAVO_SERVICE_CONF_NOTIFY *pNotify) {
    if (szBaseName == nullptr || szSrcPath == nullptr || pNotify == nullptr) {
        return TAVO_SET_ERROR(tavo::kErrorBadParameter);
    }
    char szInstalled[tavo::kPathSize];
    if (GetInstallPath(szBaseName, nLocation, szInstalled, sizeof(szInstalled)) < 0) {
        return TAVO_LOG("FAILED to get installed path of file=%s type=%d", szBaseName, nLocation);
    }
    tavo::TemporaryCopy backup;
    if (MakeBackup(szBaseName, szInstalled, backup) < 0) {
        return -1;
    }
    const bool conflict = Install(szBaseName, szSrcPath, nLocation, ppConflictPorts);
    *pNotify = {};
    tavo::CopyText(pNotify->szOldConfPath, backup.Path());
    tavo::CopyText(pNotify->szNewConfPath, szInstalled);
    pNotify->blNotifyFw = 1;
    pNotify->blNotifyPf = 1;
    backup.Keep();
    return conflict ? 1 : 0;
}

int TAVOServiceConfUpdateBaseName(const char *szBaseName, const char *szSrcPath, int nLocation,
                                  TAVO_SERVICE_CONF_PORT **ppConflictPorts) {
    TAVO_SERVICE_CONF_NOTIFY notify = {};
    const int nResult = TAVOServiceConfUpdateBaseNameWithoutNotify(szBaseName, szSrcPath, nLocation,
                                                                   ppConflictPorts, &notify);
    if (nResult < 0) {
        TAVO_LOG("FAILED to install .sc");
        DeleteBackup(notify);
        return -1;
    }
    const int nTold = TLIBServiceConfUpdateServNotify(&notify);
    if (nTold < 0) {
        TAVO_LOG("FAILED to notify");
    }
    DeleteBackup(notify);
    return nTold < 0 ? -1 : nResult;
}

// Replaces an installed service file by a new version and tells who acts on its ports what changed.
//
// The old content is kept in /tmp until they were told. What goes wrong later than that is logged
// and never rolled back: a package that is updated must not be held up by the firewall.
#include "lifecycle/set_param.h"
#include "lifecycle/store_lock.h"
#include "lifecycle/temporary_copy.h"
#include "support/failure.h"
#include "support/service_directory.h"
#include "support/text.h"
#include "tavoserviceconf.h"

namespace {

// A file that is not installed yet has no old content.
int MakeBackup(const char *szBaseName, const char *szInstalled, tavo::TemporaryCopy &backup) {
    const int nFound = tavo::LookForFile(szInstalled);
    if (nFound < 1) {
        return nFound;
    }
    char szBackup[tavo::kPathSize];
    tavo::PrintText(szBackup, "/tmp/servicetool.update.%s.old", szBaseName);
    if (backup.Make(szInstalled, szBackup) != 0) {
        if (backup.MetFolder()) {
            TAVO_LOG("Folder %s has the name of a copy and is not empty", szBackup);
        }
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

// The update itself: 0 or 1, or -1 for a failure.
int Update(const char *szBaseName, const char *szSrcPath, int nLocation,
           TAVO_SERVICE_CONF_PORT **ppConflictPorts, TAVO_SERVICE_CONF_NOTIFY &notify,
           tavo::TemporaryCopy &backup) {
    char szInstalled[tavo::kPathSize];
    if (GetInstallPath(szBaseName, nLocation, szInstalled, sizeof(szInstalled)) < 0) {
        return TAVO_LOG("FAILED to get installed path of file=%s type=%d", szBaseName, nLocation);
    }
    const tavo::StoreLock lock(tavo::StoreOfDirectory(nLocation == TAVO_SERVICE_CONF_DIR_SYSTEM
                                                          ? tavo::kSystemServiceDirectory
                                                          : tavo::kPackageServiceDirectory));
    if (!lock.IsHeld()) {
        return TAVO_FAIL_STATE(TLIBC_ERR_FILE_UNUSABLE, "Failed to lock %s to update %s",
                               lock.Missing(), szInstalled);
    }
    if (MakeBackup(szBaseName, szInstalled, backup) < 0) {
        return -1;
    }
    const bool conflict = Install(szBaseName, szSrcPath, nLocation, ppConflictPorts);
    notify = {};
    tavo::CopyText(notify.szOldConfPath, backup.Path());
    tavo::CopyText(notify.szNewConfPath, szInstalled);
    notify.blNotifyFw = 1;
    notify.blNotifyPf = 1;
    return conflict ? 1 : 0;
}

}  // namespace

int TAVOServiceConfUpdateBaseNameWithoutNotify(const char *szBaseName, const char *szSrcPath,
                                               int nLocation,
                                               TAVO_SERVICE_CONF_PORT **ppConflictPorts,
                                               TAVO_SERVICE_CONF_NOTIFY *pNotify) {
    if (szBaseName == nullptr || szSrcPath == nullptr || pNotify == nullptr) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    tavo::TemporaryCopy backup;
    const int nResult = Update(szBaseName, szSrcPath, nLocation, ppConflictPorts, *pNotify, backup);
    if (nResult >= 0) {
        backup.Keep();
    }
    return nResult;
}

int TAVOServiceConfUpdateBaseName(const char *szBaseName, const char *szSrcPath, int nLocation,
                                  TAVO_SERVICE_CONF_PORT **ppConflictPorts) {
    TAVO_SERVICE_CONF_NOTIFY notify = {};
    tavo::TemporaryCopy backup;
    const int nResult =
        szBaseName == nullptr || szSrcPath == nullptr
            ? TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER)
            : Update(szBaseName, szSrcPath, nLocation, ppConflictPorts, notify, backup);
    if (nResult < 0) {
        return TAVO_LOG("FAILED to install .sc");
    }
    if (TLIBServiceConfUpdateServNotify(&notify) < 0) {
        return TAVO_LOG("FAILED to notify");
    }
    return nResult;
}

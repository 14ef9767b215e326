// Removes an installed service file and tells who acts on its ports which of them went away.
#include <sys/types.h>
#include <unistd.h>

#include "lifecycle/set_param.h"
#include "lifecycle/store_lock.h"
#include "lifecycle/temporary_copy.h"
#include "support/failure.h"
#include "support/service_directory.h"
#include "support/text.h"
#include "tavoserviceconf.h"

namespace {

// Bits of nCheckFlags with which the content of the removed file goes along.
constexpr uint32_t kSendsContent = TAVO_PORT_CHECK_DEFAULT | TAVO_PORT_CHECK_PORT_FORWARD;

// Whoever removes a file by its name wants everybody told.
constexpr uint32_t kEverybody = kSendsContent | TAVO_PORT_CHECK_FW_SERVICE;

// A copy that fails goes unnoticed: a file must not stay because it cannot be read.
int MakeBackup(const tavo::Target &target, tavo::TemporaryCopy &backup) {
    char szBackup[tavo::kPathSize];
    tavo::PrintText(szBackup, "/tmp/servicetool.remove.%s.%d", target.FileName(),
                    static_cast<int>(getpid()));
    if (backup.Make(target.Path(), szBackup) == -1) {
        return TAVO_LOG("Failed to do command [cp]");
    }
    if (backup.MetFolder()) {
        TAVO_LOG("Folder %s has the name of a copy and is not empty", szBackup);
    }
    return 0;
}

int RemoveFile(const tavo::Target &target, tavo::TemporaryCopy &backup) {
    const tavo::StoreLock lock(tavo::StoreOfDirectory(target.Directory()));
    if (!lock.IsHeld()) {
        return TAVO_FAIL_STATE(TLIBC_ERR_FILE_UNUSABLE, "Failed to lock %s to remove %s",
                               lock.Missing(), target.Path());
    }
    const int nFound = tavo::LookForFile(target.Path());
    if (nFound < 0) {
        return -1;
    }
    if (nFound == 0) {
        return TAVO_SET_ERROR(TLIBC_ERR_NO_FILE);
    }
    if (MakeBackup(target, backup) < 0) {
        return -1;
    }
    if (unlink(target.Path()) < 0) {
        return TAVO_LOG_STATE("remove file %s fail!", target.Path());
    }
    return 0;
}

TAVO_SERVICE_CONF_REMOVE_NOTIFY Notification(uint32_t nCheckFlags,
                                             const tavo::TemporaryCopy &backup) {
    const bool forward = (nCheckFlags & TAVO_PORT_CHECK_PORT_FORWARD) != 0;
    return {
        .pszConfPath = (nCheckFlags & kSendsContent) != 0 ? backup.Path() : nullptr,
        .blNotifyFw = forward,
        .blNotifyPf = forward,
    };
}

}  // namespace

int TAVOServiceConfRemove(const TAVO_SERVICE_CONF_SET_PARAM *pParam) {
    if (!tavo::AllowsRemove(pParam)) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    tavo::TemporaryCopy backup;
    if (RemoveFile(tavo::Target(*pParam), backup) < 0) {
        return -1;
    }
    const auto notify = Notification(pParam->nCheckFlags, backup);
    if (TLIBServiceConfRemoveServNotify(&notify) < 0) {
        return TAVO_LOG("FAILED to notify");
    }
    return 0;
}

int TAVOServiceConfRemoveBaseName(const char *szFileName, int nLocation) {
    if (szFileName == nullptr) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    TAVO_SERVICE_CONF_SET_PARAM param = {};
    param.nRestartMode = TAVO_RESTART_MODE_RESTART;
    param.nRestartFlags = TAVO_RESTART_FIREWALL;
    param.nWriteMode = TAVO_WRITE_MODE_REMOVE;
    param.nCheckFlags = kEverybody;
    tavo::CopyText(param.szFileName, szFileName);
    param.nLocation = static_cast<uint32_t>(nLocation);
    if (TLIBServiceConfRemove(&param) < 0) {
        return TAVO_LOG_STATE("remove configure file fail! file=%s, error=", szFileName);
    }
    return 0;
}

extern "C" {
int TLIBServiceConfRemove(const TAVO_SERVICE_CONF_SET_PARAM *pParam)
    __attribute__((alias("TAVOServiceConfRemove")));
int TLIBServiceConfRemoveBaseName(const char *szFileName, int nLocation)
    __attribute__((alias("TAVOServiceConfRemoveBaseName")));
}

// Removes an installed service file and notifies the listeners of the removed ports.
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>

#include "lifecycle/change.h"
#include "lifecycle/set_param.h"
#include "lifecycle/store_lock.h"
#include "lifecycle/temporary_copy.h"
#include "support/failure.h"
#include "support/service_directory.h"
#include "support/text.h"
#include "tavoserviceconf.h"

namespace tavo {
namespace {

// Bits of nCheckFlags that include the removed content in the notification.
constexpr uint32_t kSendsContent = TAVO_PORT_CHECK_FW_RULES | TAVO_PORT_CHECK_PORT_FORWARD;

// Removal by name notifies all listeners.
constexpr uint32_t kEverybody = kSendsContent | TAVO_PORT_CHECK_FW_SERVICE;

// Fails only if cp cannot be run. Other failures to copy are ignored: a file that cannot be read
// must still be removable.
int CopyForPlugins(const Target &target, TemporaryCopy &old, StepFailure &failure) {
    char copy[kPathSize];
    PrintText(copy, "%s/%s%s.%d", kTemporaryFolder, kRemovedHead, target.FileName(),
              static_cast<int>(getpid()));
    StepFailure unnoticed;
    if (old.Make(target.Path(), copy, TAVO_HERE, unnoticed) == -1) {
        failure = unnoticed;
        return TAVO_LOG("Failed to do command [cp]");
    }
    return 0;
}

int RemoveTarget(const Target &target, TemporaryCopy &old, StepFailure &failure) {
    const StoreLock lock(StoreOfDirectory(target.Directory()));
    if (!lock.IsHeld()) {
        return lock.Fail(TAVO_HERE, "to remove ", target.Path(), failure);
    }
    const int found = LookForFile(target.Path(), TAVO_HERE, failure);
    if (found < 0) {
        return -1;
    }
    if (found == 0) {
        failure.Set(Step::kMissingFile, target.Path(), ENOENT);
        return TAVO_SET_ERROR(TLIBC_ERR_NO_FILE);
    }
    if (CopyForPlugins(target, old, failure) < 0) {
        return -1;
    }
    if (unlink(target.Path()) < 0) {
        failure.Set(Step::kRemove, target.Path(), errno);
        return TAVO_LOG_STATE("remove file %s fail!", target.Path());
    }
    return 0;
}

}  // namespace

int RemoveFile(const SetParam *param, TAVO_SERVICE_CONF_REMOVE_NOTIFY &notify, TemporaryCopy &old,
               StepFailure &failure) {
    if (!AllowsRemove(param)) {
        return failure.RefuseArguments(TAVO_HERE);
    }
    if (RemoveTarget(Target(*param), old, failure) < 0) {
        return -1;
    }
    const bool forward = (param->nCheckFlags & TAVO_PORT_CHECK_PORT_FORWARD) != 0;
    notify = {.pszConfPath = (param->nCheckFlags & kSendsContent) != 0 ? old.Path() : nullptr,
              .blNotifyFw = forward,
              .blNotifyPf = forward};
    return 0;
}

SetParam RemovalOf(const char *name, int location) {
    SetParam param = {};
    param.nRestartMode = TAVO_RESTART_MODE_RESTART;
    param.nRestartFlags = TAVO_RESTART_FIREWALL;
    param.nWriteMode = TAVO_WRITE_MODE_REMOVE;
    param.nCheckFlags = kEverybody;
    CopyText(param.szFileName, name);
    param.nLocation = static_cast<uint32_t>(location);
    return param;
}

}  // namespace tavo

int TAVOServiceConfRemove(const TAVO_SERVICE_CONF_SET_PARAM *pParam) {
    TAVO_SERVICE_CONF_REMOVE_NOTIFY notify = {};
    tavo::TemporaryCopy old;
    tavo::StepFailure failure;
    if (tavo::RemoveFile(pParam, notify, old, failure) < 0) {
        return -1;
    }
    if (TLIBServiceConfRemoveServNotify(&notify) < 0) {
        return TAVO_LOG("FAILED to notify");
    }
    return 0;
}

int TAVOServiceConfRemoveBaseName(const char *szFileName, int nLocation) {
    if (szFileName == nullptr) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    const tavo::SetParam param = tavo::RemovalOf(szFileName, nLocation);
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

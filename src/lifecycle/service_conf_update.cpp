// Replaces an installed service file by a new version and notifies the listeners of the change.
//
// The old content is kept in /tmp until the listeners are notified. Later failures are logged and
// not rolled back: a firewall failure must not prevent the update of a package.
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

// A file that is not installed yet has no old content.
int CopyForPlugins(const char *name, const char *installed, TemporaryCopy &old,
                   StepFailure &failure) {
    const int found = LookForFile(installed, TAVO_HERE, failure);
    if (found < 1) {
        return found;
    }
    char copy[kPathSize];
    PrintText(copy, "%s/%s%s%s", kTemporaryFolder, kUpdatedHead, name, kUpdatedTail);
    if (old.Make(installed, copy, TAVO_HERE, failure) != 0) {
        return TAVO_LOG("FAILED to copy from file=%s to backup path=%s", installed, copy);
    }
    return 0;
}

// Installs the new file. Returns true if its ports are in conflict with others. If the installation
// fails, this is logged and the update continues.
bool Install(const char *name, const char *source, int location, TAVO_SERVICE_CONF_PORT **conflicts,
             StepFailure &failure) {
    const int result = InstallFile(name, source, location, conflicts, failure);
    if (result == 1) {
        TAVO_LOG("%s conf file port conflict with existed conf file setting=%s", source, name);
    } else if (result != 0) {
        TAVO_LOG("check %s conf file port conflict failed=%d", source, result);
    }
    return result == 1;
}

}  // namespace

int UpdateFile(const char *name, const char *source, int location,
               TAVO_SERVICE_CONF_PORT **conflicts, TAVO_SERVICE_CONF_NOTIFY &notify,
               TemporaryCopy &old, StepFailure &failure) {
    char installed[kPathSize];
    if (GetInstallPath(name, location, installed, sizeof(installed)) < 0) {
        failure.Set(Step::kCheckArguments);
        return TAVO_LOG("FAILED to get installed path of file=%s type=%d", name, location);
    }
    const StoreLock lock(StoreOfDirectory(DirectoryByBits(static_cast<uint32_t>(location))));
    if (!lock.IsHeld()) {
        return lock.Fail(TAVO_HERE, "to update ", installed, failure);
    }
    if (CopyForPlugins(name, installed, old, failure) < 0) {
        return -1;
    }
    const bool conflict = Install(name, source, location, conflicts, failure);
    notify = {};
    CopyText(notify.szOldConfPath, old.Path());
    CopyText(notify.szNewConfPath, installed);
    notify.blNotifyFw = 1;
    notify.blNotifyPf = 1;
    return conflict ? 1 : 0;
}

}  // namespace tavo

int TAVOServiceConfUpdateBaseNameWithoutNotify(const char *szBaseName, const char *szSrcPath,
                                               int nLocation,
                                               TAVO_SERVICE_CONF_PORT **ppConflictPorts,
                                               TAVO_SERVICE_CONF_NOTIFY *pNotify) {
    if (szBaseName == nullptr || szSrcPath == nullptr || pNotify == nullptr) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    tavo::TemporaryCopy old;
    tavo::StepFailure failure;
    const int result =
        tavo::UpdateFile(szBaseName, szSrcPath, nLocation, ppConflictPorts, *pNotify, old, failure);
    if (result >= 0) {
        old.Keep();
    }
    return result;
}

int TAVOServiceConfUpdateBaseName(const char *szBaseName, const char *szSrcPath, int nLocation,
                                  TAVO_SERVICE_CONF_PORT **ppConflictPorts) {
    TAVO_SERVICE_CONF_NOTIFY notify = {};
    tavo::TemporaryCopy old;
    tavo::StepFailure failure;
    const int result = szBaseName == nullptr || szSrcPath == nullptr
                           ? TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER)
                           : tavo::UpdateFile(szBaseName, szSrcPath, nLocation, ppConflictPorts,
                                              notify, old, failure);
    if (result < 0) {
        return TAVO_LOG("FAILED to install .sc");
    }
    if (TLIBServiceConfUpdateServNotify(&notify) < 0) {
        return TAVO_LOG("FAILED to notify");
    }
    return result;
}

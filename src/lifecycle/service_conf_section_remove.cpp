// Removes a section from a service file as a transaction: the stores that it touches are copied
// first, and put back when a later step fails.
#include <unistd.h>

#include <cstring>

#include "lifecycle/set_param.h"
#include "lifecycle/side_copy.h"
#include "model/service_file_keys.h"
#include "support/failure.h"
#include "support/held_file.h"
#include "support/owners.h"
#include "tavoserviceconf.h"

namespace {

// Whether the firewall keeps a record of the service that is to go.
constexpr uint32_t kFirewallRecord = 1;

// ---- The section ----

// Whether the names are those of a file that declares no service.
bool DeclaresNothing(const TLIBCSzList *pNames) {
    const int nNames = TLIBCSzListCount(pNames);
    return nNames == 0 ||
           (nNames == 1 && std::strcmp(TLIBCSzListGet(pNames, 0), tavo::kGlobalSection) == 0);
}

// That the emptied file stays is no reason to put the section back.
int DeleteEmptyFile(const char *szPath, TLIBCSzList *pNames) {
    if (TLIBCFileEnumSection(szPath, &pNames) < 0) {
        return TAVO_LOG_STATE("Failed to TLIBCFileEnumSection");
    }
    if (DeclaresNothing(pNames) && unlink(szPath) < 0) {
        TAVO_LOG_STATE("remove file %s fail!", szPath);
    }
    return 0;
}

int TakeOutSection(const char *szPath, const char *szSection, TLIBCSzHash *pKeys) {
    const int nKeys = TLIBCFileGetSection(szPath, szSection, &pKeys);
    if (nKeys < 0) {
        return TAVO_LOG("Failed to get section(%s) from file(%s)", szSection, szPath);
    }
    if (nKeys == 0) {
        TAVO_LOG_STATE("Section (%s) not found!", szSection);
        return 0;
    }
    if (TLIBCFileRemoveSection(szPath, szSection) < 0) {
        return TAVO_LOG_STATE("Remove section (%s) fail!", szSection);
    }
    return 0;
}

// What is not there counts as removed.
int RemoveSection(const tavo::Target &target) {
    const tavo::OwnedTable keys(TLIBCSzHashAlloc(tavo::kInitialCapacity));
    if (keys == nullptr) {
        return TAVO_LOG("Failed to alloc memory");
    }
    const tavo::OwnedNames names(TLIBCSzListAlloc(tavo::kInitialCapacity));
    if (names == nullptr) {
        return TAVO_LOG_STATE("Failed to TLIBCSzListAlloc");
    }
    const int nFound = tavo::LookForFile(target.Path());
    if (nFound < 0) {
        return -1;
    }
    if (nFound == 0) {
        TAVO_LOG_STATE("Configure file (%s) does not exist!", target.Path());
        return 0;
    }
    if (TakeOutSection(target.Path(), target.Section(), keys.get()) < 0) {
        return -1;
    }
    return DeleteEmptyFile(target.Path(), names.get());
}

// ---- The transaction ----

void Restore(const tavo::SetParam &param) {
    if (TLIBServiceConfRestore(&param) < 0) {
        TAVO_LOG_STATE("Restore configure fail!");
    }
}

int Restart(const tavo::SetParam &param) {
    if (TLIBServiceConfServRestart(static_cast<int>(param.nRestartFlags)) < 0) {
        return TAVO_LOG_STATE("Restart service fail");
    }
    return 0;
}

int ChangeStores(const tavo::SetParam &param, const tavo::Target &target) {
    if ((param.nCheckFlags & kFirewallRecord) != 0 &&
        TLIBFwServRemoveRecWrap(target.Section()) < 0) {
        return TAVO_LOG_STATE("Remove service record in firewall rule fail!");
    }
    if (RemoveSection(target) < 0) {
        return TAVO_LOG_STATE("Remove service configure section fail!");
    }
    return 0;
}

enum class Outcome { kRemoved, kRolledBack, kRestartFailed };

// The restart is part of it: the stores stay locked until it is known that they need not be put
// back.
Outcome MakeTransaction(const tavo::SetParam &param, const tavo::Target &target) {
    const tavo::StoreLock lock(tavo::ChosenOf(tavo::StoresOf(param)) |
                               tavo::StoreOfDirectory(target.Directory()));
    if (!lock.IsHeld()) {
        TAVO_FAIL_STATE(TLIBC_ERR_FILE_UNUSABLE, "Failed to lock %s to change %s", lock.Missing(),
                        target.Path());
        return Outcome::kRolledBack;
    }
    if (TLIBServiceConfBackup(&param) < 0) {
        TAVO_LOG_STATE("Backup configure fail!");
        return Outcome::kRolledBack;
    }
    if (ChangeStores(param, target) < 0) {
        Restore(param);
        return Outcome::kRolledBack;
    }
    if (param.nRestartMode == TAVO_RESTART_MODE_RESTART && Restart(param) < 0) {
        Restore(param);
        return Outcome::kRestartFailed;
    }
    if (TLIBServiceBackupConfDelete(&param) < 0) {
        TAVO_LOG_STATE("Delete tmp configure fail!");
    }
    return Outcome::kRemoved;
}

}  // namespace

int TLIBServiceConfSectionRemove(const TAVO_SERVICE_CONF_SET_PARAM *pParam) {
    tavo::ReleaseHeldFile();
    if (!tavo::AllowsRemove(pParam) || tavo::FieldText(pParam->szSectionName).empty()) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    const Outcome outcome = MakeTransaction(*pParam, tavo::Target(*pParam));
    if (outcome == Outcome::kRestartFailed) {
        // The services run on what was restored; nothing more can be done when they do not.
        Restart(*pParam);
    }
    return outcome == Outcome::kRemoved ? 0 : -1;
}

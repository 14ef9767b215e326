// Removes a section from a service file as a transaction: the affected stores are copied first, and
// restored if a later step fails.
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "lifecycle/change.h"
#include "lifecycle/set_param.h"
#include "lifecycle/side_copy.h"
#include "model/service_file_keys.h"
#include "support/failure.h"
#include "support/held_file.h"
#include "support/owners.h"
#include "tavoserviceconf.h"

namespace {

using tavo::Step;
using tavo::StepFailure;

// ---- The section ----

// True if a file with these section names declares no service.
bool DeclaresNothing(const TLIBCSzList *pNames) {
    const int nNames = TLIBCSzListCount(pNames);
    return nNames == 0 ||
           (nNames == 1 && std::strcmp(TLIBCSzListGet(pNames, 0), tavo::kGlobalSection) == 0);
}

// A failure to delete the empty file is only logged: the section is removed, so nothing is rolled
// back.
int DeleteEmptyFile(const char *szPath, TLIBCSzList *pNames, StepFailure &failure) {
    if (TLIBCFileEnumSection(szPath, &pNames) < 0) {
        failure.Set(Step::kReadSection, szPath);
        return TAVO_LOG_STATE("Failed to TLIBCFileEnumSection");
    }
    if (DeclaresNothing(pNames) && unlink(szPath) < 0) {
        failure.Set(Step::kRemove, szPath, errno);
        TAVO_LOG_STATE("remove file %s fail!", szPath);
    }
    return 0;
}

int TakeOutSection(const char *szPath, const char *szSection, TLIBCSzHash *pKeys,
                   StepFailure &failure) {
    const int nKeys = TLIBCFileGetSection(szPath, szSection, &pKeys);
    if (nKeys < 0) {
        failure.Set(Step::kReadSection, szPath);
        return TAVO_LOG("Failed to get section(%s) from file(%s)", szSection, szPath);
    }
    if (nKeys == 0) {
        TAVO_LOG_STATE("Section (%s) not found!", szSection);
        return 0;
    }
    if (failure.During(Step::kWrite, szPath,
                       [&] { return TLIBCFileRemoveSection(szPath, szSection); }) < 0) {
        return TAVO_LOG_STATE("Remove section (%s) fail!", szSection);
    }
    return 0;
}

// ---- The transaction ----

void Restore(const tavo::SetParam &param, tavo::ChangeOutcome &outcome) {
    const int nResult = tavo::RestoreStores(&param, outcome.undo_failure);
    outcome.undo = nResult < 0 ? tavo::Undo::kFailed : tavo::Undo::kDone;
    if (nResult < 0) {
        TAVO_LOG_STATE("Restore configure fail!");
    }
}

int Restart(const tavo::SetParam &param, tavo::ChangeOutcome &outcome) {
    if (tavo::RestartServices(static_cast<int>(param.nRestartFlags), outcome.notified) < 0) {
        const tavo::Notification &firewall = outcome.notified[tavo::Listener::kFirewall];
        if (firewall.failure.HasFailed()) {
            outcome.failure = firewall.failure;
        }
        outcome.failure.Set(Step::kRestart);
        return TAVO_LOG_STATE("Restart service fail");
    }
    return 0;
}

int ChangeStores(const tavo::SetParam &param, const tavo::Target &target,
                 tavo::ChangeOutcome &outcome) {
    if ((param.nCheckFlags & TAVO_PORT_CHECK_FW_RULES) != 0 &&
        tavo::RemoveFirewallRecord(target.Section(), outcome.notified) < 0) {
        outcome.failure = outcome.notified[tavo::Listener::kFirewall].failure;
        return TAVO_LOG_STATE("Remove service record in firewall rule fail!");
    }
    if (tavo::RemoveFromFile(target.Path(), target.Section(), outcome.failure) < 0) {
        return TAVO_LOG_STATE("Remove service configure section fail!");
    }
    return 0;
}

enum class End { kRemoved, kRolledBack, kRestartFailed };

// The transaction includes the restart. The stores stay locked until it is certain that they need
// not be restored.
End MakeTransaction(const tavo::SetParam &param, const tavo::Target &target,
                    tavo::ChangeOutcome &outcome) {
    const tavo::StoreLock lock(tavo::ChosenStores(param) |
                               tavo::StoreOfDirectory(target.Directory()));
    if (!lock.IsHeld()) {
        lock.Fail(TAVO_HERE, "to change ", target.Path(), outcome.failure);
        return End::kRolledBack;
    }
    if (tavo::BackUpStores(&param, outcome.failure) < 0) {
        TAVO_LOG_STATE("Backup configure fail!");
        return End::kRolledBack;
    }
    if (ChangeStores(param, target, outcome) < 0) {
        Restore(param, outcome);
        return End::kRolledBack;
    }
    if (param.nRestartMode == TAVO_RESTART_MODE_RESTART && Restart(param, outcome) < 0) {
        Restore(param, outcome);
        return End::kRestartFailed;
    }
    StepFailure leftover;
    if (tavo::DeleteBackup(&param, leftover) < 0) {
        TAVO_LOG_STATE("Delete tmp configure fail!");
    }
    return End::kRemoved;
}

}  // namespace

int tavo::RemoveFromFile(const char *path, const char *section, StepFailure &failure) {
    const OwnedTable keys(TLIBCSzHashAlloc(kInitialCapacity));
    if (keys == nullptr) {
        failure.Set(Step::kReadSection, "", ENOMEM);
        return TAVO_LOG("Failed to alloc memory");
    }
    const OwnedNames names(TLIBCSzListAlloc(kInitialCapacity));
    if (names == nullptr) {
        failure.Set(Step::kReadSection, "", ENOMEM);
        return TAVO_LOG_STATE("Failed to TLIBCSzListAlloc");
    }
    const int nFound = LookForFile(path, TAVO_HERE, failure);
    if (nFound < 0) {
        return -1;
    }
    if (nFound == 0) {
        TAVO_LOG_STATE("Configure file (%s) does not exist!", path);
        return 0;
    }
    if (TakeOutSection(path, section, keys.get(), failure) < 0) {
        return -1;
    }
    return DeleteEmptyFile(path, names.get(), failure);
}

int tavo::RemoveSection(const SetParam *param, ChangeOutcome &outcome) {
    ReleaseHeldFile();
    if (!AllowsRemove(param) || FieldText(param->szSectionName).empty()) {
        return outcome.failure.RefuseArguments(TAVO_HERE);
    }
    const End end = MakeTransaction(*param, Target(*param), outcome);
    if (end == End::kRestartFailed) {
        // The services must run with the restored stores. A second failure is only logged.
        Restart(*param, outcome);
    }
    return end == End::kRemoved ? 0 : -1;
}

int TLIBServiceConfSectionRemove(const TAVO_SERVICE_CONF_SET_PARAM *pParam) {
    tavo::ChangeOutcome outcome;
    return tavo::RemoveSection(pParam, outcome);
}

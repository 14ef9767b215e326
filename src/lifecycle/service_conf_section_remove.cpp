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

namespace tavo {
namespace {

// ---- The section ----

// True if a file with these section names declares no service.
bool DeclaresNothing(const TLIBCSzList *names) {
    const int count = TLIBCSzListCount(names);
    return count == 0 || (count == 1 && std::strcmp(TLIBCSzListGet(names, 0), kGlobalSection) == 0);
}

// A failure to delete the empty file is only logged: the section is removed, so nothing is rolled
// back.
int DeleteEmptyFile(const char *path, TLIBCSzList *names, StepFailure &failure) {
    if (TLIBCFileEnumSection(path, &names) < 0) {
        failure.Set(Step::kReadSection, path);
        return TAVO_LOG_STATE("Failed to TLIBCFileEnumSection");
    }
    if (DeclaresNothing(names) && unlink(path) < 0) {
        failure.Set(Step::kRemove, path, errno);
        TAVO_LOG_STATE("remove file %s fail!", path);
    }
    return 0;
}

int TakeOutSection(const char *path, const char *section, TLIBCSzHash *keys, StepFailure &failure) {
    const int key_count = TLIBCFileGetSection(path, section, &keys);
    if (key_count < 0) {
        failure.Set(Step::kReadSection, path);
        return TAVO_LOG("Failed to get section(%s) from file(%s)", section, path);
    }
    if (key_count == 0) {
        TAVO_LOG_STATE("Section (%s) not found!", section);
        return 0;
    }
    if (failure.During(Step::kWrite, path, [&] { return TLIBCFileRemoveSection(path, section); }) <
        0) {
        return TAVO_LOG_STATE("Remove section (%s) fail!", section);
    }
    return 0;
}

// ---- The transaction ----

void Restore(const SetParam &param, ChangeOutcome &outcome) {
    const int result = RestoreStores(&param, outcome.undo_failure);
    outcome.undo = result < 0 ? Undo::kFailed : Undo::kDone;
    if (result < 0) {
        TAVO_LOG_STATE("Restore configure fail!");
    }
}

int Restart(const SetParam &param, ChangeOutcome &outcome) {
    if (RestartServices(static_cast<int>(param.nRestartFlags), outcome.notified) < 0) {
        const Notification &firewall = outcome.notified[Listener::kFirewall];
        if (firewall.failure.HasFailed()) {
            outcome.failure = firewall.failure;
        }
        outcome.failure.Set(Step::kRestart);
        return TAVO_LOG_STATE("Restart service fail");
    }
    return 0;
}

int ChangeStores(const SetParam &param, const Target &target, ChangeOutcome &outcome) {
    if ((param.nCheckFlags & TAVO_PORT_CHECK_FW_RULES) != 0 &&
        RemoveFirewallRecord(target.Section(), outcome.notified) < 0) {
        outcome.failure = outcome.notified[Listener::kFirewall].failure;
        return TAVO_LOG_STATE("Remove service record in firewall rule fail!");
    }
    if (RemoveFromFile(target.Path(), target.Section(), outcome.failure) < 0) {
        return TAVO_LOG_STATE("Remove service configure section fail!");
    }
    return 0;
}

enum class End { kRemoved, kRolledBack, kRestartFailed };

// The transaction includes the restart. The stores stay locked until it is certain that they need
// not be restored.
End MakeTransaction(const SetParam &param, const Target &target, ChangeOutcome &outcome) {
    const StoreLock lock(ChosenStores(param) | StoreOfDirectory(target.Directory()));
    if (!lock.IsHeld()) {
        lock.Fail(TAVO_HERE, "to change ", target.Path(), outcome.failure);
        return End::kRolledBack;
    }
    if (BackUpStores(&param, outcome.failure) < 0) {
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
    if (DeleteBackup(&param, leftover) < 0) {
        TAVO_LOG_STATE("Delete tmp configure fail!");
    }
    return End::kRemoved;
}

}  // namespace

int RemoveFromFile(const char *path, const char *section, StepFailure &failure) {
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
    const int found = LookForFile(path, TAVO_HERE, failure);
    if (found < 0) {
        return -1;
    }
    if (found == 0) {
        TAVO_LOG_STATE("Configure file (%s) does not exist!", path);
        return 0;
    }
    if (TakeOutSection(path, section, keys.get(), failure) < 0) {
        return -1;
    }
    return DeleteEmptyFile(path, names.get(), failure);
}

int RemoveSection(const SetParam *param, ChangeOutcome &outcome) {
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

}  // namespace tavo

int TLIBServiceConfSectionRemove(const TAVO_SERVICE_CONF_SET_PARAM *pParam) {
    tavo::ChangeOutcome outcome;
    return tavo::RemoveSection(pParam, outcome);
}

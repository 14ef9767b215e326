// Changes of service files that say what became of them: the step that failed and why, and who was
// notified. The exported functions of the same files are these with only a result and a log.
#ifndef TAVO_SRC_LIFECYCLE_CHANGE_H
#define TAVO_SRC_LIFECYCLE_CHANGE_H

#include "lifecycle/notification.h"
#include "lifecycle/set_param.h"
#include "lifecycle/step_failure.h"
#include "lifecycle/temporary_copy.h"
#include "tavoserviceconf.h"

namespace tavo {

// The stores that a section removal touches, after a step of it failed.
enum class Undo { kNotNeeded, kDone, kFailed };

struct ChangeOutcome {
    StepFailure failure;  // may be set where the result says success: some failures are only logged
    Notifications notified;
    Undo undo = Undo::kNotNeeded;
    StepFailure undo_failure;  // why, with Undo::kFailed
};

// ---- Whole files ----

// As TAVOServiceConfInstallBaseName, also in what it gives. Nobody is notified.
int InstallFile(const char *name, const char *source, int location,
                TAVO_SERVICE_CONF_PORT **conflicts, StepFailure &failure);

// As TAVOServiceConfUpdateBaseNameWithoutNotify, but `old` owns the copy of the old content that
// `notify` names.
int UpdateFile(const char *name, const char *source, int location,
               TAVO_SERVICE_CONF_PORT **conflicts, TAVO_SERVICE_CONF_NOTIFY &notify,
               TemporaryCopy &old, StepFailure &failure);

// As TAVOServiceConfRemove without the notification, which `notify` is filled for. `old` owns the
// copy of the content that it names.
int RemoveFile(const SetParam *param, TAVO_SERVICE_CONF_REMOVE_NOTIFY &notify, TemporaryCopy &old,
               StepFailure &failure);

// The record by which TAVOServiceConfRemoveBaseName removes a file.
SetParam RemovalOf(const char *name, int location);

// ---- Sections ----

// As TLIBServiceConfSectionSet, TLIBServiceConfPortsSet and TLIBServiceConfSectionRemove.
int WriteSection(const SetParam *param, const TAVO_SERVICE_CONF_SECTION *section,
                 ChangeOutcome &outcome);
int WritePorts(const SetParam *param, const TAVO_SERVICE_CONF_PORT *ports, ChangeOutcome &outcome);
int RemoveSection(const SetParam *param, ChangeOutcome &outcome);

// As TAVOServiceConfSectionPortSet.
int SetSectionPorts(int location, const char *file, const char *section,
                    const TAVO_SERVICE_CONF_PORT *ports, ChangeOutcome &outcome);

// Removes a section from one file, and the file with its last service. What is not there counts as
// removed. -1 for a failure, which is logged.
int RemoveFromFile(const char *path, const char *section, StepFailure &failure);

// ---- Stores ----

// As TLIBServiceConfBackup, TLIBServiceConfRestore and TLIBServiceBackupConfDelete.
int BackUpStores(const SetParam *param, StepFailure &failure);
int RestoreStores(const SetParam *param, StepFailure &failure);
int DeleteBackup(const SetParam *param, StepFailure &failure);

}  // namespace tavo

#endif

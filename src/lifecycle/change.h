// Changes of service files with a detailed outcome: the step that failed, the cause, and which
// listeners were notified. The exported functions call these and return only the result.
#ifndef TAVO_SRC_LIFECYCLE_CHANGE_H
#define TAVO_SRC_LIFECYCLE_CHANGE_H

#include "lifecycle/notification.h"
#include "lifecycle/set_param.h"
#include "lifecycle/step_failure.h"
#include "lifecycle/temporary_copy.h"
#include "tavoserviceconf.h"

namespace tavo {

// State of the stores of a section removal after a step of it failed.
enum class Undo { kNotNeeded, kDone, kFailed };

struct ChangeOutcome {
    StepFailure failure;  // may be set on success: some failures are only logged
    Notifications notified;
    Undo undo = Undo::kNotNeeded;
    StepFailure undo_failure;  // the cause, with Undo::kFailed
};

// ---- Whole files ----

// As TAVOServiceConfInstallBaseName, with the same result. No listener is notified.
int InstallFile(const char *name, const char *source, int location,
                TAVO_SERVICE_CONF_PORT **conflicts, StepFailure &failure);

// As TAVOServiceConfUpdateBaseNameWithoutNotify, but `old` owns the copy of the old content, whose
// path is in `notify`.
int UpdateFile(const char *name, const char *source, int location,
               TAVO_SERVICE_CONF_PORT **conflicts, TAVO_SERVICE_CONF_NOTIFY &notify,
               TemporaryCopy &old, StepFailure &failure);

// As TAVOServiceConfRemove, but fills `notify` instead of notifying. `old` owns the copy of the
// removed content, whose path is in `notify`.
int RemoveFile(const SetParam *param, TAVO_SERVICE_CONF_REMOVE_NOTIFY &notify, TemporaryCopy &old,
               StepFailure &failure);

// The record with which TAVOServiceConfRemoveBaseName removes a file.
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

// Removes a section from one file. If it was the last service, the file is removed too. A missing
// file or section counts as removed. Returns -1 on failure, which is logged.
int RemoveFromFile(const char *path, const char *section, StepFailure &failure);

// ---- Stores ----

// As TLIBServiceConfBackup, TLIBServiceConfRestore and TLIBServiceBackupConfDelete.
int BackUpStores(const SetParam *param, StepFailure &failure);
int RestoreStores(const SetParam *param, StepFailure &failure);
int DeleteBackup(const SetParam *param, StepFailure &failure);

}  // namespace tavo

#endif

// Changes whole paths with programs of the appliance, and backs up and restores with them the
// stores that a change affects, so that the change can be undone as a whole: the service files of
// one directory, the firewall rules, the port forwarding rules. A store is locked from its backup
// to its restore or the deletion of its copy, so that no other change modifies it in between.
//
// If cp, mv or rm cannot be run, this is a failure. Their exit status is ignored here, which
// callers rely on. A backup and a restore also check the result (side_copy.cpp).
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "lifecycle/change.h"
#include "lifecycle/path_change.h"
#include "lifecycle/side_copy.h"
#include "support/failure.h"
#include "support/owners.h"
#include "tavoserviceconf.h"

namespace tavo {
namespace {

// ---- Paths ----

constexpr mode_t kFolderMode = 0755;

// Creates the missing folders of a path and returns the path length of the outermost new one; 0 if
// there is none. If this fails, the mkdir program tries again and reports the cause. mkdir -p alone
// would give the folders a mode that depends on the umask, which all threads of the caller share.
std::size_t MakeMissing(std::string_view path) {
    std::size_t first = 0;
    for (std::size_t end = 0; end < path.size();) {
        end = std::min(path.find('/', end + 1), path.size());
        char folder[kPathSize];
        CopyText(folder, path.substr(0, end));
        if (mkdir(folder, kFolderMode) == 0) {
            chmod(folder, kFolderMode);
            first = first == 0 ? std::strlen(folder) : first;
        }
    }
    return first;
}

// Removes the new folders, the innermost first. A folder that is not empty is left.
void RemoveNew(const char *path, std::size_t first) {
    char folder[kPathSize];
    CopyText(folder, path);
    while (first > 0 && std::strlen(folder) >= first && (rmdir(folder) == 0 || errno == ENOENT)) {
        *std::strrchr(folder, '/') = '\0';
    }
}

bool IsFolderOrFile(const struct stat &entry) {
    return S_ISDIR(entry.st_mode) || S_ISREG(entry.st_mode);
}

bool IsEmpty(const char *text) {
    return text == nullptr || *text == '\0';
}

// Replaces `target` by a copy of `source` or by `source` itself. Returns the exit status of the
// program, or -1 on failure. Both paths are trimmed.
int Replace(const char *source, const char *target, bool move, StepFailure &failure) {
    const Step step = move ? Step::kRestore : Step::kBackUp;
    struct stat entry;
    const bool found = stat(source, &entry) == 0;
    if (!found || !IsFolderOrFile(entry)) {
        failure.Set(step, source, found ? EINVAL : errno);
        return TAVO_FAIL_STATE(TAVO_ERR_BAD_SOURCE, "Source path is not valid (src path: %s)",
                               source);
    }
    if (S_ISREG(entry.st_mode) && std::string_view(target).ends_with('/')) {
        // The error code is set after the log line, which shows the previous one. The line must not
        // change.
        TAVO_LOG_STATE("source/target must both be folder or file");
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    // If the target folder still exists, the source would be moved into it. If it is a mount point,
    // rm would delete the mounted files.
    const bool mounted = IsMountPoint(target);
    if (mounted || RemoveTree(target, failure) < 0 || IsFolder(target)) {
        failure.Set(step, target, mounted ? EBUSY : ENOTEMPTY);
        return TAVO_LOG_STATE("Failed to rm -rf %s", target);
    }
    const PathArgument from(source);
    const PathArgument to(target);
    const char *program = move ? kMoveProgram : kCopyProgram;
    const int status = TLIBCExec(program, move ? "-f" : "-rf", from.Get(), to.Get(), nullptr);
    failure.SetProgram(step, program, status, source);
    if (status >= 0) {
        return status;
    }
    return move ? TAVO_LOG_STATE("Failed to mv -f %s %s", source, target)
                : TAVO_LOG_STATE("Failed to cp -rf %s %s", source, target);
}

// ---- Stores ----

// At least one of these bits must be set. TAVO_PORT_CHECK_SYS_KEY selects no store.
constexpr uint32_t kStoreFlags = TAVO_PORT_CHECK_ALL & ~TAVO_PORT_CHECK_RUNTIME;

int CheckParam(const TAVO_SERVICE_CONF_SET_PARAM *param, StepFailure &failure) {
    if (param == nullptr || (param->nCheckFlags & kStoreFlags) == 0 ||
        ((param->nCheckFlags & TAVO_PORT_CHECK_FW_SERVICE) != 0 &&
         (param->nLocation & kEveryServiceFolder) == 0)) {
        return failure.RefuseArguments(TAVO_HERE);
    }
    return 0;
}

enum class AfterFailure { kStop, kContinue };

using StoreChange = int (*)(Store &store, StepFailure &failure);

// Makes the change of each selected store, in store order. A cause that is recorded by a successful
// step is discarded. Returns -1 after a failure.
int ChangeChosen(const SetParam &param, Stores &stores, StoreChange change, AfterFailure after,
                 StepFailure &failure) {
    const StoreSet chosen = ChosenStores(param);
    int result = 0;
    for (Store &store : stores) {
        StepFailure cause;
        if ((chosen & SetOf(store.id)) == 0 || change(store, cause) == 0) {
            continue;
        }
        cause.Set(store.step, store.path);
        failure = failure.HasFailed() ? failure : cause;
        result = -1;
        if (after == AfterFailure::kStop) {
            break;
        }
    }
    return result;
}

// Restores the selected stores, or deletes their copies.
int EndBackup(const SetParam *param, Step step, const char *purpose, StoreChange change,
              AfterFailure after, StepFailure &failure) {
    if (CheckParam(param, failure) < 0) {
        return -1;
    }
    StoreLock lock(ChosenStores(*param), LockPurpose::kUndo);
    if (!lock.IsHeld()) {
        return lock.Fail(TAVO_HERE, purpose, "", failure);
    }
    lock.EndUndo();
    Stores stores = AllStores(step, TAVO_HERE);
    return ChangeChosen(*param, stores, change, after, failure);
}

}  // namespace

// The attribute exists since Linux 5.8. With an older kernel, a mount point is detected only
// because the folder remains after its removal.
bool IsMountPoint(const char *path) {
    struct statx entry;
    return statx(AT_FDCWD, path, AT_SYMLINK_NOFOLLOW, STATX_TYPE, &entry) == 0 &&
           (entry.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

bool IsFolder(const char *path) {
    struct stat entry;
    return stat(path, &entry) == 0 && S_ISDIR(entry.st_mode);
}

int MakeFolder(const char *path, StepFailure &failure) {
    const std::size_t first = MakeMissing(path);
    const int status = TLIBCExec(kMakeDirectoryProgram, "-p", path, nullptr, nullptr);
    if (status != 0) {
        const int error = errno;
        failure.SetProgram(Step::kMakeFolder, kMakeDirectoryProgram, status, path);
        RemoveNew(path, first);
        errno = error;
    }
    return status;
}

int CopyOrMove(const char *source, const char *target, bool move, StepFailure &failure) {
    if (IsEmpty(source) || IsEmpty(target)) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    const OwnedText from(strdup(source));
    const OwnedText to(strdup(target));
    if (from == nullptr || to == nullptr) {
        return TAVO_SET_ERROR(TLIBC_ERR_NO_MEMORY);
    }
    if (TLIBCStrTrimSpace(from.get()) < 0 || TLIBCStrTrimSpace(to.get()) < 0) {
        return TAVO_LOG_STATE("TLIBCStrTrimSpace() failed!");
    }
    if (IsEmpty(from.get()) || IsEmpty(to.get())) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    return Replace(from.get(), to.get(), move, failure);
}

int RemoveTree(const char *path, StepFailure &failure) {
    if (IsEmpty(path)) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    struct stat entry;
    if (stat(path, &entry) < 0 || !IsFolderOrFile(entry)) {
        return 0;
    }
    const int status = TLIBCExec(kRemoveProgram, "-rf", PathArgument(path).Get(), nullptr, nullptr);
    failure.SetProgram(Step::kRemove, kRemoveProgram, status, path);
    return status < 0 ? TAVO_LOG_STATE("Failed to rm -rf %s", path) : 0;
}

int BackUpStores(const SetParam *param, StepFailure &failure) {
    if (CheckParam(param, failure) < 0) {
        return -1;
    }
    StoreLock lock(ChosenStores(*param));
    if (!lock.IsHeld()) {
        return lock.Fail(TAVO_HERE, "for a backup", "", failure);
    }
    Stores stores = AllStores(Step::kBackUp, TAVO_HERE);
    if (ChangeChosen(*param, stores, MakeSideCopy, AfterFailure::kStop, failure) < 0) {
        // An empty name sets the error 0xD00, which callers rely on.
        std::for_each(stores.begin(), stores.end(),
                      [](const Store &copied) { RemovePath(copied.copy); });
        lock.EndUndo();
        return -1;
    }
    lock.KeepForUndo();
    return 0;
}

int RestoreStores(const SetParam *param, StepFailure &failure) {
    return EndBackup(param, Step::kRestore, "for a restore", PutBack, AfterFailure::kStop, failure);
}

int DeleteBackup(const SetParam *param, StepFailure &failure) {
    return EndBackup(param, Step::kDeleteBackup, "to delete a backup", DeleteSideCopy,
                     AfterFailure::kContinue, failure);
}

}  // namespace tavo

int RemovePath(const char *szPath) {
    tavo::StepFailure failure;
    return tavo::RemoveTree(szPath, failure);
}

int CopyOrMovePath(const char *szSrc, const char *szDst, int blMove) {
    tavo::StepFailure failure;
    return tavo::CopyOrMove(szSrc, szDst, blMove != 0, failure) < 0 ? -1 : 0;
}

int TLIBServiceConfBackup(const TAVO_SERVICE_CONF_SET_PARAM *pParam) {
    tavo::StepFailure failure;
    return tavo::BackUpStores(pParam, failure);
}

int TLIBServiceConfRestore(const TAVO_SERVICE_CONF_SET_PARAM *pParam) {
    tavo::StepFailure failure;
    return tavo::RestoreStores(pParam, failure);
}

int TLIBServiceBackupConfDelete(const TAVO_SERVICE_CONF_SET_PARAM *pParam) {
    tavo::StepFailure failure;
    return tavo::DeleteBackup(pParam, failure);
}

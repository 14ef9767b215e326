// Side copies of the stores that a change touches, so that the change can be undone as a whole: the
// service files of one directory, the rules of the firewall, the rules of port forwarding. A store
// is locked from its backup to its restore or the deletion of its copy, so that no other change
// works on what may be replaced.
//
// Of the programs that copy, move and remove, only that one cannot be run counts as a failure here;
// how it ends does not, and never has. A backup and a restore look at that, too (side_copy.cpp).
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "lifecycle/path_change.h"
#include "lifecycle/programs.h"
#include "lifecycle/side_copy.h"
#include "support/failure.h"
#include "support/owners.h"
#include "tavoserviceconf.h"

namespace {

// One of the low four bits of nCheckFlags must be set, also the one that chooses no store.
constexpr uint32_t kStoreFlags = 15;

constexpr uint32_t kDirectories = TAVO_SERVICE_CONF_DIR_SYSTEM | TAVO_SERVICE_CONF_DIR_PACKAGE;

int CheckParam(const TAVO_SERVICE_CONF_SET_PARAM *pParam) {
    if (pParam == nullptr || (pParam->nCheckFlags & kStoreFlags) == 0 ||
        ((pParam->nCheckFlags & TAVO_PORT_CHECK_FW_SERVICE) != 0 &&
         (pParam->nLocation & kDirectories) == 0)) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    return 0;
}

bool IsFolderOrFile(const struct stat &entry) {
    return S_ISDIR(entry.st_mode) || S_ISREG(entry.st_mode);
}

bool IsEmpty(const char *szText) {
    return szText == nullptr || *szText == '\0';
}

// What the program said, or -1 for a failure. Both paths are trimmed.
int Replace(const char *szSrc, const char *szDst, bool move) {
    struct stat source;
    if (stat(szSrc, &source) < 0 || !IsFolderOrFile(source)) {
        return TAVO_FAIL_STATE(TAVO_ERR_BAD_SOURCE, "Source path is not valid (src path: %s)",
                               szSrc);
    }
    if (S_ISREG(source.st_mode) && std::string_view(szDst).ends_with('/')) {
        // The line shows the error state from before, and always has.
        TAVO_LOG_STATE("source/target must both be folder or file");
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    // A folder that cannot be removed must not swallow the source, nor, when something is mounted
    // on it, be emptied in the attempt.
    if (tavo::IsMountPoint(szDst) || RemovePath(szDst) < 0 || tavo::IsFolder(szDst)) {
        return TAVO_LOG_STATE("Failed to rm -rf %s", szDst);
    }
    const tavo::PathArgument from(szSrc);
    const tavo::PathArgument to(szDst);
    if (move) {
        const int nStatus = TLIBCExec(tavo::kMoveProgram, "-f", from.Get(), to.Get(), nullptr);
        return nStatus < 0 ? TAVO_LOG_STATE("Failed to mv -f %s %s", szSrc, szDst) : nStatus;
    }
    const int nStatus = TLIBCExec(tavo::kCopyProgram, "-rf", from.Get(), to.Get(), nullptr);
    return nStatus < 0 ? TAVO_LOG_STATE("Failed to cp -rf %s %s", szSrc, szDst) : nStatus;
}

}  // namespace

namespace tavo {

// Linux 5.8 and later tell; with an older kernel it shows when the folder is still there.
bool IsMountPoint(const char *path) {
    struct statx entry;
    return statx(AT_FDCWD, path, AT_SYMLINK_NOFOLLOW, STATX_TYPE, &entry) == 0 &&
           (entry.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

bool IsFolder(const char *path) {
    struct stat entry;
    return stat(path, &entry) == 0 && S_ISDIR(entry.st_mode);
}

int CopyOrMove(const char *source, const char *target, bool move) {
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
    return Replace(from.get(), to.get(), move);
}

}  // namespace tavo

int RemovePath(const char *szPath) {
    if (IsEmpty(szPath)) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    struct stat entry;
    if (stat(szPath, &entry) < 0 || !IsFolderOrFile(entry)) {
        return 0;
    }
    if (TLIBCExec(tavo::kRemoveProgram, "-rf", tavo::PathArgument(szPath).Get(), nullptr, nullptr) <
        0) {
        return TAVO_LOG_STATE("Failed to rm -rf %s", szPath);
    }
    return 0;
}

int CopyOrMovePath(const char *szSrc, const char *szDst, int blMove) {
    return tavo::CopyOrMove(szSrc, szDst, blMove != 0) < 0 ? -1 : 0;
}

int TLIBServiceConfBackup(const TAVO_SERVICE_CONF_SET_PARAM *pParam) {
    if (CheckParam(pParam) < 0) {
        return -1;
    }
    tavo::Stores stores = tavo::StoresOf(*pParam);
    tavo::StoreLock lock(tavo::ChosenOf(stores));
    if (!lock.IsHeld()) {
        return TAVO_FAIL_STATE(TLIBC_ERR_FILE_UNUSABLE, "Failed to lock %s for a backup",
                               lock.Missing());
    }
    for (tavo::Store &store : stores) {
        if (!store.chosen) {
            continue;
        }
        if (store.NameCopy() < 0 || tavo::MakeSideCopy(store) < 0) {
            // The names that are still empty set 0xD00, which callers have come to read.
            std::for_each(stores.begin(), stores.end(),
                          [](const tavo::Store &copied) { RemovePath(copied.copy); });
            lock.EndUndo();
            return -1;
        }
    }
    lock.KeepForUndo();
    return 0;
}

int TLIBServiceConfRestore(const TAVO_SERVICE_CONF_SET_PARAM *pParam) {
    if (CheckParam(pParam) < 0) {
        return -1;
    }
    tavo::Stores stores = tavo::StoresOf(*pParam);
    tavo::StoreLock lock(tavo::ChosenOf(stores), tavo::LockPurpose::kUndo);
    if (!lock.IsHeld()) {
        return TAVO_FAIL_STATE(TLIBC_ERR_FILE_UNUSABLE, "Failed to lock %s for a restore",
                               lock.Missing());
    }
    lock.EndUndo();
    for (tavo::Store &store : stores) {
        if (!store.chosen) {
            continue;
        }
        if (store.NameCopy() < 0) {
            tavo::SetUnrestored(store.id, true);
            return -1;
        }
        if (tavo::PutBack(store) < 0) {
            return -1;
        }
    }
    return 0;
}

int TLIBServiceBackupConfDelete(const TAVO_SERVICE_CONF_SET_PARAM *pParam) {
    if (CheckParam(pParam) < 0) {
        return -1;
    }
    tavo::Stores stores = tavo::StoresOf(*pParam);
    tavo::StoreLock lock(tavo::ChosenOf(stores), tavo::LockPurpose::kUndo);
    if (!lock.IsHeld()) {
        return TAVO_FAIL_STATE(TLIBC_ERR_FILE_UNUSABLE, "Failed to lock %s to delete a backup",
                               lock.Missing());
    }
    lock.EndUndo();
    int nResult = 0;
    for (tavo::Store &store : stores) {
        if (!store.chosen) {
            continue;
        }
        if (store.NameCopy() < 0 || tavo::DeleteSideCopy(store) < 0) {
            nResult = -1;
        }
    }
    return nResult;
}

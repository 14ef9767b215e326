// The names of copies contain the process id, so that processes do not use each other's copies.
// Process ids are reused, so an existing copy is never assumed to be the process's own. However, it
// may be all that is left of a store: a process that is killed during a restore leaves the store
// missing or empty.
#include "lifecycle/side_copy.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/descriptor.h"
#include "base/owners.h"
#include "lifecycle/path_change.h"
#include "lifecycle/temporary_copy.h"
#include "support/failure.h"
#include "support/presence.h"
#include "support/text.h"
#include "support/writers_lock.h"
#include "tavopf.h"

namespace tavo {
namespace {

constexpr char kFirewallDirectory[] = "/usr/tavo/etc/firewall.d";

// The number of attempts at a step that another program may disturb.
constexpr int kAttempts = 5;
constexpr std::chrono::milliseconds kPauseBetweenCopies{20};

bool IsThere(const char *path) {
    struct stat entry;
    return lstat(path, &entry) == 0 || PresenceAfter(errno) != Presence::kAbsent;
}

bool IsSameFile(const struct stat &one, const struct stat &other) {
    return one.st_ino == other.st_ino && one.st_dev == other.st_dev;
}

// Records a failure of the step on `path` with the current errno. Returns that errno.
int Record(const Store &store, const char *path, StepFailure &failure) {
    const int error = errno;
    failure.Set(store.step, path, error);
    return error;
}

int FailToLookAt(const Store &store, const char *path, StepFailure &failure) {
    return FailToLook(store.step, path, store.operation, failure);
}

int FailToLock(const Store &store, const char *folder, StepFailure &failure) {
    failure.Set(Step::kLock, folder, ENOMEM);
    return TAVO_LOG_STATE_AT(store.operation, "Failed to lock %s", folder);
}

// The folder to lock against the core library's writers; null for a store that only other programs
// write. Those programs would take the lock, which is a folder, for one of their files.
const char *FolderOfWriters(const Store &store, const char *path) {
    const bool services =
        store.id == StoreId::kSystemServices || store.id == StoreId::kPackageServices;
    return services && IsFolder(path) ? path : nullptr;
}

// ---- Names ----

// Finds the location of the store and names its copy. Returns -1 if the location is unknown.
//
// cp would copy a link rather than its target, so the target is used for a store that is a link.
int NameCopy(Store &store, StepFailure &failure) {
    struct stat entry;
    char target[kPathSize] = "";
    const bool found = lstat(store.path, &entry) == 0 &&
                       (!S_ISLNK(entry.st_mode) || realpath(store.path, target) != nullptr);
    if (!found && PresenceAfter(errno) != Presence::kAbsent) {
        return FailToLookAt(store, store.path, failure);
    }
    CopyText(store.place, found && *target != '\0' ? target : store.path);
    PrintText(store.copy, "%s%s%d", store.path, kSideCopyTail, static_cast<int>(getpid()));
    return 0;
}

// ---- The last whole copy ----

// Whether a store or a copy has content that could be lost.
enum class Content { kNone, kSome, kUnknown };

Content ContentOfFolder(const char *path) {
    const OwnedFolder folder(opendir(path));
    if (folder == nullptr) {
        return Content::kUnknown;
    }
    errno = 0;
    while (const dirent *entry = readdir(folder.get())) {
        const char *name = entry->d_name;
        if (std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0 &&
            std::strcmp(name, kWriterFolder) != 0) {
            return Content::kSome;
        }
    }
    return errno == 0 ? Content::kNone : Content::kUnknown;
}

Content ContentOf(const char *path) {
    struct stat entry;
    if (stat(path, &entry) < 0) {
        return errno == ENOENT ? Content::kNone : Content::kUnknown;
    }
    if (S_ISDIR(entry.st_mode)) {
        return ContentOfFolder(path);
    }
    return entry.st_size == 0 ? Content::kNone : Content::kSome;
}

bool MayHoldSome(const char *copy) {
    return IsThere(copy) && ContentOf(copy) != Content::kNone;
}

// Renames a copy to a name that no backup or deletion uses.
int SetAside(const Store &store, StepFailure &failure) {
    char aside[kPathSize];
    struct stat entry;
    int number = 1;
    do {
        PrintText(aside, "%s%s%d.%d", store.path, kUnrestoredTail, static_cast<int>(getpid()),
                  number++);
    } while (lstat(aside, &entry) == 0);
    if (errno != ENOENT) {
        return FailToLookAt(store, aside, failure);
    }
    if (rename(store.copy, aside) < 0) {
        const int error = Record(store, store.copy, failure);
        return TAVO_FAIL_STATE_AT(store.operation, TLIBC_ERR_RENAME,
                                  "Failed to rename %s to %s: %s", store.copy, aside,
                                  std::strerror(error));
    }
    TAVO_LOG_AT(store.operation, "%s may be the only whole copy of %s, kept as %s", store.copy,
                store.path, aside);
    return 0;
}

// ---- Copying ----

// Removes any entry with the name of the copy, so that a restore finds only complete copies.
int ClearSideCopy(const Store &store, StepFailure &failure) {
    if (RemoveTree(store.copy, failure) < 0) {
        return -1;
    }
    if (IsThere(store.copy) && unlink(store.copy) < 0 && IsThere(store.copy)) {
        failure.Set(Step::kRemove, store.copy);
        return TAVO_FAIL_STATE_AT(store.operation, TAVO_ERR_COPY, "Failed to rm -rf %s",
                                  store.copy);
    }
    return 0;
}

// Copies the store and returns the exit status of cp. Writers are locked out, because their
// temporary files would disappear while cp reads the folder.
int CopyWithoutWriters(const Store &store, StepFailure &failure) {
    const WritersLock lock(FolderOfWriters(store, store.place));
    if (lock.OutOfMemory()) {
        return FailToLock(store, store.place, failure);
    }
    return CopyOrMove(store.place, store.copy, false, failure);
}

// The copy includes the staging folder of the lock that was held during copying. Taking the lock of
// the copy clears this folder.
int ClearStagingFolder(const Store &store, const char *copy, StepFailure &failure) {
    const WritersLock lock(FolderOfWriters(store, copy));
    return lock.OutOfMemory() ? FailToLock(store, copy, failure) : 0;
}

constexpr int kInnerFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// Checked again before the mode is set: the entry of the copy may be a link although the entry of
// the store no longer is one.
bool IsLink(int folder, const char *name) {
    struct stat status;
    return fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(status.st_mode);
}

// Sets the modes of the entries in a copied folder to those in the original. Entries that are not
// in both folders are skipped. Closes `folder`. Returns false if a folder cannot be listed.
bool CopyModesInside(int folder, int copy) {
    const OwnedFolder listing(folder < 0 ? nullptr : fdopendir(folder));
    if (listing == nullptr) {
        const int error = errno;
        close(folder);
        errno = error;
        return false;
    }
    for (;;) {
        errno = 0;
        const dirent *entry = readdir(listing.get());
        if (entry == nullptr) {
            return errno == 0;
        }
        const char *name = entry->d_name;
        struct stat status;
        if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0 ||
            fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) < 0 || S_ISLNK(status.st_mode) ||
            IsLink(copy, name) || fchmodat(copy, name, status.st_mode & 07777, 0) < 0) {
            continue;
        }
        if (S_ISDIR(status.st_mode)) {
            const Descriptor inner_copy(openat(copy, name, kInnerFolder));
            if (!CopyModesInside(openat(folder, name, kInnerFolder), inner_copy.Get())) {
                return false;
            }
        }
    }
}

// cp applies the caller's umask to the modes of a copy. The copy may become the store, which other
// users must be able to read.
int CopyModes(const Store &store, StepFailure &failure) {
    struct stat status;
    bool copied = stat(store.place, &status) == 0 && chmod(store.copy, status.st_mode & 07777) == 0;
    if (copied && S_ISDIR(status.st_mode)) {
        const Descriptor copy(open(store.copy, kInnerFolder));
        copied = CopyModesInside(open(store.place, kInnerFolder), copy.Get());
    }
    if (!copied) {
        const int error = Record(store, store.copy, failure);
        return TAVO_FAIL_STATE_AT(store.operation,
                                  error == ENOMEM ? TLIBC_ERR_NO_MEMORY : TAVO_ERR_COPY,
                                  "Failed to copy the modes of %s to %s: %s", store.place,
                                  store.copy, std::strerror(error));
    }
    return 0;
}

int CompleteCopy(const Store &store, StepFailure &failure) {
    return ClearStagingFolder(store, store.copy, failure) < 0 ? -1 : CopyModes(store, failure);
}

int CopyWhole(const Store &store, StepFailure &failure) {
    for (int attempt = 1;; ++attempt) {
        if (ClearSideCopy(store, failure) < 0) {
            return -1;
        }
        const int status = CopyWithoutWriters(store, failure);
        if (status <= 0) {
            return status < 0 ? -1 : CompleteCopy(store, failure);
        }
        if (attempt == kAttempts) {
            TAVO_LOG_AT(store.operation, "Failed to copy %s whole (%d), no way back to it",
                        store.place, status);
            return ClearSideCopy(store, failure);
        }
        Pause(kPauseBetweenCopies);
    }
}

// ---- Putting back ----

// Renames a folder that rm cannot remove.
int MoveAside(const Store &store, StepFailure &failure) {
    const char *place = store.place;
    char aside[kPathSize];
    PrintText(aside, "%s%s%d", place, kReplacedTail, static_cast<int>(getpid()));
    RemovePath(aside);
    if (rename(place, aside) < 0) {
        Record(store, place, failure);
        TAVO_LOG_STATE_AT(store.operation, "Failed to rm -rf %s", place);
        return TAVO_SET_ERROR_AT(store.operation, TLIBC_ERR_RENAME);
    }
    RemovePath(aside);
    if (IsThere(aside)) {
        TAVO_LOG_AT(store.operation, "Failed to rm -rf %s", aside);
    }
    return 0;
}

// Removes the store. If a writer creates its staging folder again in the meantime, rm cannot remove
// the folder, which is empty otherwise. rm is then run again after the writer has finished.
int ClearPlace(const Store &store, StepFailure &failure) {
    const char *place = store.place;
    if (IsMountPoint(place)) {
        failure.Set(store.step, place, EBUSY);
        TAVO_LOG_STATE_AT(store.operation, "Failed to rm -rf %s", place);
        return TAVO_SET_ERROR_AT(store.operation, TLIBC_ERR_RENAME);
    }
    for (int attempt = 1; attempt <= kAttempts; ++attempt) {
        const WritersLock lock(FolderOfWriters(store, place));
        if (lock.OutOfMemory()) {
            failure.Set(Step::kLock, place, ENOMEM);
        }
        if (lock.OutOfMemory() || RemoveTree(place, failure) < 0) {
            return TAVO_LOG_STATE_AT(store.operation, "Failed to rm -rf %s", place);
        }
        if (!IsFolder(place)) {
            return 0;
        }
    }
    return MoveAside(store, failure);
}

// Moves a side copy to the place of its store.
class Return {
  public:
    Return(const Store &store, StepFailure &failure)
        : store_(store), place_(store.place), failure_(failure) {
        CopyText(source_, store.copy);
    }

    // Runs mv, and renames the copy directly if mv fails, so that a failing program does not lose
    // the store. The place is cleared again only if the copy is known to be complete elsewhere: mv
    // across file systems copies, and may fail although the store is complete already.
    int Make() {
        if (lstat(source_, &copy_) < 0) {
            return FailToLookAt(store_, source_, failure_);
        }
        if (ClearStagingFolder(store_, source_, failure_) < 0) {
            return -1;
        }
        bool again = true;
        for (int attempt = 1; again && attempt <= kAttempts; ++attempt) {
            if (ClearPlace(store_, failure_) < 0) {
                return -1;
            }
            const int status = CopyOrMove(source_, place_, true, failure_);
            if (!IsThere(place_)) {
                rename(source_, place_);
            }
            const bool in_place = IsInPlace();
            again = !in_place && (TakeOutOfFolder() || !IsThere(place_));
            if (status < 0) {
                return -1;
            }
            if (in_place) {
                return 0;
            }
        }
        failure_.Set(store_.step, place_, EEXIST);
        return TAVO_FAIL_STATE_AT(store_.operation, TLIBC_ERR_RENAME,
                                  "Failed to put %s in the place of %s", source_, place_);
    }

  private:
    void PrintNested(char (&nested)[2 * kPathSize]) const {
        PrintText(nested, "%s%s", place_, std::strrchr(source_, '/'));
    }

    // True if the copy is now the store. Across file systems mv creates a new file, so the inode
    // can differ.
    bool IsInPlace() const {
        struct stat entry;
        if (lstat(place_, &entry) < 0) {
            return false;
        }
        char nested[2 * kPathSize];
        PrintNested(nested);
        return IsSameFile(entry, copy_) || (!IsThere(source_) && !IsThere(nested));
    }

    // If another program has created a folder in the place of the store, mv moves the copy into it.
    // Moves the copy out again, next to the store. Returns true if it did.
    bool TakeOutOfFolder() {
        char nested[2 * kPathSize];
        PrintNested(nested);
        struct stat entry;
        if (IsThere(source_) || lstat(nested, &entry) < 0) {
            return false;
        }
        PrintText(source_, "%s%s%d", place_, kSideCopyTail, static_cast<int>(getpid()));
        return rename(nested, source_) == 0 && lstat(source_, &copy_) == 0;
    }

    const Store &store_;
    const char *place_;
    StepFailure &failure_;
    char source_[kPathSize];
    struct stat copy_ = {};
};

}  // namespace

StoreSet ChosenStores(const SetParam &param) {
    StoreSet chosen = 0;
    if ((param.nCheckFlags & TAVO_PORT_CHECK_FW_SERVICE) != 0) {
        chosen |= param.nLocation == TAVO_SERVICE_CONF_DIR_SYSTEM ? SetOf(StoreId::kSystemServices)
                  : param.nLocation == TAVO_SERVICE_CONF_DIR_PACKAGE
                      ? SetOf(StoreId::kPackageServices)
                      : 0;
    }
    if ((param.nCheckFlags & TAVO_PORT_CHECK_FW_RULES) != 0) {
        chosen |= SetOf(StoreId::kFirewallRules);
    }
    if ((param.nCheckFlags & TAVO_PORT_CHECK_PORT_FORWARD) != 0 &&
        TAVOPFRuleConfPathGet() != nullptr) {
        chosen |= SetOf(StoreId::kForwardingRules);
    }
    return chosen;
}

const char *PathOf(StoreId store) {
    static constexpr const char *kFolders[] = {kSystemServiceDirectory, kPackageServiceDirectory,
                                               kFirewallDirectory};
    return store == StoreId::kForwardingRules ? TAVOPFRuleConfPathGet()
                                              : kFolders[static_cast<int>(store)];
}

Stores AllStores(Step step, const Place &operation) {
    Stores stores;
    for (int i = 0; i < kStoreCount; ++i) {
        const auto id = static_cast<StoreId>(i);
        stores[static_cast<std::size_t>(i)] = {id, PathOf(id), step, operation};
    }
    return stores;
}

int MakeSideCopy(Store &store, StepFailure &failure) {
    if (NameCopy(store, failure) < 0) {
        return -1;
    }
    const bool last = MayHoldSome(store.copy) &&
                      (IsUnrestored(store.id) || ContentOf(store.place) != Content::kSome);
    if (last && SetAside(store, failure) < 0) {
        // With an empty name the copy is not removed when the backup fails.
        *store.copy = '\0';
        return -1;
    }
    SetUnrestored(store.id, false);
    switch (PresenceOf(store.place)) {
        case Presence::kAbsent:
            return ClearSideCopy(store, failure);
        case Presence::kPresent:
            return CopyWhole(store, failure);
        default:
            return FailToLookAt(store, store.place, failure);
    }
}

int PutBack(Store &store, StepFailure &failure) {
    if (NameCopy(store, failure) < 0) {
        SetUnrestored(store.id, true);
        return -1;
    }
    switch (PresenceOf(store.copy)) {
        case Presence::kAbsent:
            return 0;
        case Presence::kPresent: {
            const int result = Return(store, failure).Make();
            SetUnrestored(store.id, result < 0 && IsThere(store.copy));
            return result;
        }
        default:
            FailToLookAt(store, store.copy, failure);
            SetUnrestored(store.id, true);
            return -1;
    }
}

int DeleteSideCopy(Store &store, StepFailure &failure) {
    if (NameCopy(store, failure) < 0) {
        return -1;
    }
    // The caller may not know that the last restore failed. A copy that may still be needed is
    // renamed instead of deleted.
    if (!IsUnrestored(store.id) || !MayHoldSome(store.copy)) {
        return RemoveTree(store.copy, failure);
    }
    if (SetAside(store, failure) < 0) {
        return -1;
    }
    SetUnrestored(store.id, false);
    return 0;
}

}  // namespace tavo

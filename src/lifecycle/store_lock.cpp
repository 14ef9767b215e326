// The locks are taken with flock on files that are never removed. A table records which of them
// this process holds, since flock supports neither threads nor nested locks of one holder.
#include "lifecycle/store_lock.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>

#include "base/descriptor.h"
#include "support/service_directory.h"

namespace tavo {
namespace {

// Indexed by StoreId.
constexpr const char *kLockFiles[kStoreCount] = {
    TAVO_LOCK_FOLDER "/system-services.lock",
    TAVO_LOCK_FOLDER "/package-services.lock",
    TAVO_LOCK_FOLDER "/firewall-rules.lock",
    TAVO_LOCK_FOLDER "/forwarding-rules.lock",
};

// ---- Lock files ----

bool IsOwn(const struct stat &status) {
    return status.st_uid == geteuid();
}

// Creates the folder if it is missing: /run is empty after each boot of the appliance. A folder of
// another user is not trusted, since its owner could remove the lock files.
Descriptor OpenLockFolder(StepFailure &failure) {
    const bool made = mkdir(TAVO_LOCK_FOLDER, S_IRWXU) == 0 || errno == EEXIST;
    const int error = errno;
    Descriptor folder(open(TAVO_LOCK_FOLDER, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status;
    if (!folder.IsOpen() || fstat(folder.Get(), &status) != 0) {
        failure.Set(Step::kLock, TAVO_LOCK_FOLDER, made ? errno : error);
        return Descriptor(-1);
    }
    if (!IsOwn(status) ||
        ((status.st_mode & 07777) != S_IRWXU && fchmod(folder.Get(), S_IRWXU) != 0)) {
        failure.Set(Step::kLock, TAVO_LOCK_FOLDER);
        return Descriptor(-1);
    }
    return folder;
}

// ---- What this process holds ----

struct Held {
    int descriptor = -1;
    pthread_t owner = {};
    int depth = 0;            // nested locks of the owner
    bool undo = false;        // a backup exists and is not yet restored or deleted
    bool unrestored = false;  // the last restore failed

    bool IsFree() const { return depth == 0 && !undo; }
    bool IsOwn() const { return !IsFree() && pthread_equal(owner, pthread_self()) != 0; }

    void UnlockWhenFree() {
        if (IsFree() && descriptor >= 0) {
            // close alone does not release the lock if a child process has the file open.
            flock(descriptor, LOCK_UN);
            close(descriptor);
            descriptor = -1;
        }
    }
};

std::mutex g_mutex;
Held g_held[kStoreCount];

// A child process has neither the locks nor the side copies, whose names contain the parent's
// process id. It closes the lock files without unlocking them, so that the parent keeps its locks.
void ForgetInChild() {
    for (Held &held : g_held) {
        if (held.descriptor >= 0) {
            close(held.descriptor);
        }
        held = {};
    }
    g_mutex.unlock();
}

[[maybe_unused]] const int g_fork_handlers =
    pthread_atfork([] { g_mutex.lock(); }, [] { g_mutex.unlock(); }, ForgetInChild);

LockAttempt TryTake(int store, LockPurpose purpose) {
    const std::lock_guard<std::mutex> guard(g_mutex);
    Held &held = g_held[store];
    const bool takes_over = purpose == LockPurpose::kUndo && held.undo && held.depth == 0;
    if (held.IsOwn() || takes_over) {
        held.owner = pthread_self();
        ++held.depth;
        return LockAttempt::kLocked;
    }
    if (!held.IsFree()) {
        return LockAttempt::kBusy;
    }
    Descriptor file;
    StepFailure failure;
    const LockAttempt attempt = TryLockFile(kLockFiles[store], file, failure);
    if (attempt == LockAttempt::kLocked) {
        held.descriptor = file.Release();
        held.owner = pthread_self();
        held.depth = 1;
    }
    return attempt;
}

template <typename Change>
void ForEach(StoreSet stores, Change change) {
    const std::lock_guard<std::mutex> guard(g_mutex);
    for (int store = 0; store < kStoreCount; ++store) {
        if ((stores & SetOf(static_cast<StoreId>(store))) != 0) {
            change(g_held[store]);
        }
    }
}

}  // namespace

bool IsCurrent(int folder, const char *name, int descriptor) {
    struct stat locked;
    struct stat current;
    return fstat(descriptor, &locked) == 0 &&
           fstatat(folder, name, &current, AT_SYMLINK_NOFOLLOW) == 0 &&
           locked.st_ino == current.st_ino && locked.st_dev == current.st_dev;
}

LockAttempt TryLockFile(const char *path, Descriptor &locked, StepFailure &failure) {
    const Descriptor folder = OpenLockFolder(failure);
    if (!folder.IsOpen()) {
        return LockAttempt::kFailed;
    }
    const char *name = path + sizeof(TAVO_LOCK_FOLDER);
    constexpr int kFlags = O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    Descriptor file(openat(folder.Get(), name, kFlags, S_IRUSR | S_IWUSR));
    if (file.IsOpen() && flock(file.Get(), LOCK_EX | LOCK_NB) == 0) {
        const bool current = IsCurrent(folder.Get(), name, file.Get());
        locked = current ? std::move(file) : Descriptor(-1);
        return current ? LockAttempt::kLocked : LockAttempt::kBusy;
    }
    if (file.IsOpen() && (errno == EWOULDBLOCK || errno == EINTR)) {
        return LockAttempt::kBusy;
    }
    failure.Set(Step::kLock, path, errno);
    return LockAttempt::kFailed;
}

StoreSet StoreOfDirectory(const char *directory) {
    return SetOf(std::strcmp(directory, kSystemServiceDirectory) == 0 ? StoreId::kSystemServices
                                                                      : StoreId::kPackageServices);
}

StoreLock::StoreLock(StoreSet stores, LockPurpose purpose) {
    for (int store = 0; store < kStoreCount; ++store) {
        const StoreSet one = SetOf(static_cast<StoreId>(store));
        if ((stores & one) == 0) {
            continue;
        }
        if (WaitForLock(kChangeWait, [&] { return TryTake(store, purpose); }) !=
            LockAttempt::kLocked) {
            missing_ = kLockFiles[store];
            Release();
            return;
        }
        taken_ |= one;
    }
}

int StoreLock::Fail(const Place &place, const char *purpose, const char *path,
                    StepFailure &failure) const {
    failure.Set(Step::kLock, missing_);
    return TAVO_FAIL_STATE_AT(place, TLIBC_ERR_FILE_UNUSABLE, "Failed to lock %s %s%s", missing_,
                              purpose, path);
}

StoreLock::~StoreLock() {
    Release();
}

void StoreLock::Release() {
    ForEach(taken_, [](Held &held) {
        // A child that was forked while the lock was held has no lock to release.
        if (held.IsOwn() && held.depth > 0) {
            --held.depth;
        }
        held.UnlockWhenFree();
    });
    taken_ = 0;
}

void StoreLock::KeepForUndo() {
    ForEach(taken_, [](Held &held) { held.undo = true; });
}

void StoreLock::EndUndo() {
    ForEach(taken_, [](Held &held) { held.undo = false; });
}

bool IsUnrestored(StoreId store) {
    bool unrestored = false;
    ForEach(SetOf(store), [&](Held &held) { unrestored = held.unrestored; });
    return unrestored;
}

void SetUnrestored(StoreId store, bool unrestored) {
    ForEach(SetOf(store), [&](Held &held) { held.unrestored = unrestored; });
}

}  // namespace tavo

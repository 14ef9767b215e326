// The writers' lock of a folder is an flock on the file `lock` in the subfolder `.tavo-write`, in
// which writers also stage new texts. The subfolder has mode 0700 and the file 0600: if other users
// could open the lock, for example the folder itself, any of them could block every writer.
//
// Both exist only while they are needed. The holder removes the file, then the subfolder, then
// unlocks. A process that has locked a file therefore checks that the path still refers to that
// file, and that the path of the folder still refers to that folder, because a restore replaces the
// whole folder. If not, it starts over. An empty subfolder is not a lock: any process may remove
// it, and a process that was about to create the file in it also starts over.
//
// A subfolder of another user belongs to a writer of that user, which is waited for, or is a
// leftover. Nothing is staged in it, since its owner could exchange the text: under the lock it is
// removed and created again. If there is a link or a file instead of the subfolder, or the
// subfolder contains files that no writer creates, they are left alone and the lock is refused.
#include "folder_lock.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <string_view>
#include <thread>
#include <utility>

namespace tavo {
namespace {

using std::chrono::steady_clock;

constexpr char kStagingFolder[] = ".tavo-write";
constexpr char kLockFile[] = "lock";
constexpr char kLockPath[] = ".tavo-write/lock";  // relative to the folder

int OpenFolder(int parent, const char *path, int more_flags) {
    const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | more_flags;
    return Uninterrupted([&] { return openat(parent, path, flags); });
}

bool IsSameFile(const struct stat &one, const struct stat &other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

// Returns false for an entry that no writer creates, or that cannot be removed.
bool ClearEntry(int staging, std::string_view name) {
    if (name == "." || name == ".." || name == kLockFile) {
        return true;
    }
    return (name == kStagedNew || name == kStagedOld) && unlinkat(staging, name.data(), 0) == 0;
}

// Removes the leftovers of a killed writer. The entries are read into a buffer on the stack, so
// that changing a small file needs no memory.
bool ClearStaging(int staging) {
    alignas(dirent64) char entries[1024];
    for (;;) {
        const ssize_t got = getdents64(staging, entries, sizeof(entries));
        if (got <= 0) {
            return got == 0;
        }
        for (ssize_t offset = 0; offset < got;) {
            const auto *entry = reinterpret_cast<const dirent64 *>(entries + offset);
            if (!ClearEntry(staging, entry->d_name)) {
                return false;
            }
            offset += entry->d_reclen;
        }
    }
}

unsigned int LockError(int error) {
    return error == ENOMEM ? TLIBC_ERR_NO_MEMORY : TLIBC_ERR_FILE_UNUSABLE;
}

LockResult Failed(Failure) {
    return LockResult::kFailed;
}

}  // namespace

// Polls, because flock itself has no time limit and would wait for a file that its holder removes.
LockResult FolderLock::Take(const char *path, std::chrono::milliseconds wait) {
    constexpr std::chrono::milliseconds kLongestPause{50};
    const steady_clock::time_point deadline = steady_clock::now() + wait;
    bool seen = false;
    for (std::chrono::milliseconds pause{1};; pause = std::min(pause * 2, kLongestPause)) {
        const LockResult result = TryToTake(path);
        if (result == LockResult::kTaken || result == LockResult::kNotAllowed) {
            return result;
        }
        Release();
        if (result == LockResult::kFailed) {
            return result;
        }
        // A folder that disappears meanwhile is being replaced.
        const bool absent = result == LockResult::kAbsent;
        if ((absent && !seen) || steady_clock::now() >= deadline) {
            errno = absent ? ENOENT : EWOULDBLOCK;
            return Failed(TAVO_PLATFORM_FAIL(absent ? TLIBC_ERR_NO_FILE : TLIBC_ERR_FILE_UNUSABLE));
        }
        seen = true;
        std::this_thread::sleep_for(pause);
    }
}

LockResult FolderLock::TryToTake(const char *path) {
    folder_.Reset(OpenFolder(AT_FDCWD, path, 0));
    if (!folder_.IsOpen()) {
        if (FileError(errno) == TLIBC_ERR_NO_FILE) {
            return LockResult::kAbsent;
        }
        return Failed(TAVO_PLATFORM_FAIL(FileError(errno)));
    }
    const bool made = mkdirat(folder_.Get(), kStagingFolder, 0700) == 0;
    if (!made && errno != EEXIST) {
        return ExplainFailedOpen(errno);
    }
    LockResult result = OpenLockFile();
    if (result != LockResult::kTaken) {
        return result;
    }
    if (Uninterrupted([&] { return flock(lock_.Get(), LOCK_EX | LOCK_NB); }) != 0) {
        return ExplainFailedLock(errno);
    }
    result = CheckLockFile(path);
    if (result != LockResult::kTaken) {
        // Closing would not unlock if the caller has forked a child meanwhile.
        flock(lock_.Get(), LOCK_UN);
        return result;
    }
    held_ = true;
    return PrepareStaging(made);
}

LockResult FolderLock::OpenLockFile() {
    constexpr int kFlags = O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    staging_.Reset(OpenFolder(folder_.Get(), kStagingFolder, O_NOFOLLOW));
    if (staging_.IsOpen()) {
        lock_.Reset(Uninterrupted([&] { return openat(staging_.Get(), kLockFile, kFlags, 0600); }));
    }
    return lock_.IsOpen() ? LockResult::kTaken : ExplainFailedOpen(errno);
}

// The reason why there is no open lock file. Removes an empty staging folder.
LockResult FolderLock::ExplainFailedOpen(int error) {
    if (error == ENOENT) {
        return LockResult::kLost;  // its holder removed it between two calls
    }
    struct stat staging;
    const bool present = fstatat(folder_.Get(), kStagingFolder, &staging, AT_SYMLINK_NOFOLLOW) == 0;
    const bool refused = error == EACCES || error == EPERM || error == EROFS;
    refusal_ = error;
    if (refused && !present) {
        return LockResult::kNotAllowed;
    }
    if (refused && staging.st_uid != geteuid()) {
        const bool may_write = faccessat(folder_.Get(), ".", W_OK | X_OK, AT_EACCESS) == 0;
        return may_write ? LockResult::kLost : LockResult::kNotAllowed;
    }
    unlinkat(folder_.Get(), kStagingFolder, AT_REMOVEDIR);
    if (error == EROFS) {
        return LockResult::kNotAllowed;  // there is a leftover, but no process can write
    }
    errno = error;
    return Failed(TAVO_PLATFORM_FAIL(LockError(error)));
}

// Only a lock held elsewhere and a lack of kernel locks (ENOLCK) are temporary. After any other
// failure another process may still hold the lock, and the file is left to the next writer, except
// on a file system without flock, where no process can hold it.
LockResult FolderLock::ExplainFailedLock(int error) const {
    if (error == EWOULDBLOCK || error == ENOLCK) {
        return LockResult::kLost;
    }
    if (error == ENOSYS || error == EOPNOTSUPP || error == EINVAL) {
        RemoveLockFile();
    }
    errno = error;
    return Failed(TAVO_PLATFORM_FAIL(LockError(error)));
}

void FolderLock::RemoveLockFile() const {
    unlinkat(staging_.Get(), kLockFile, 0);
    unlinkat(folder_.Get(), kStagingFolder, AT_REMOVEDIR);
}

// Whether the locked file is still the lock of the folder.
LockResult FolderLock::CheckLockFile(const char *path) const {
    struct stat locked;
    struct stat named;
    if (fstat(lock_.Get(), &locked) != 0 ||
        fstatat(folder_.Get(), kLockPath, &named, AT_SYMLINK_NOFOLLOW) != 0 ||
        !IsSameFile(locked, named) || fstat(folder_.Get(), &locked) != 0 ||
        stat(path, &named) != 0 || !IsSameFile(locked, named)) {
        return LockResult::kLost;
    }
    return LockResult::kTaken;
}

// An untrusted staging folder is removed when the lost attempt is released, so that the next
// attempt creates it again. Some file systems do not show the owner and mode of a folder as
// created, so a folder that was created in this attempt is trusted.
LockResult FolderLock::PrepareStaging(bool made) {
    struct stat status;
    if (!ClearStaging(staging_.Get())) {
        return Failed(TAVO_PLATFORM_FAIL(TLIBC_ERR_FILE_UNUSABLE));
    }
    const bool trusted = made || (fstat(staging_.Get(), &status) == 0 &&
                                  status.st_uid == geteuid() && (status.st_mode & 077) == 0);
    return trusted ? LockResult::kTaken : LockResult::kLost;
}

// Unlocks explicitly: closing would not unlock if the caller has forked a child meanwhile.
void FolderLock::Release() {
    const UnchangedErrno unchanged;
    if (held_) {
        RemoveLockFile();
        flock(lock_.Get(), LOCK_UN);
    }
    Forget();
}

void FolderLock::Forget() {
    held_ = false;
    lock_.Close();
    staging_.Close();
    folder_.Close();
}

}  // namespace tavo

struct TLIBCFolderLock {
    tavo::MallocPtr<char> path;
    pid_t holder;
    tavo::FolderLock lock;
};

namespace tavo {
namespace {

bool HasStagingFolder(const char *path) {
    const Descriptor folder(OpenFolder(AT_FDCWD, path, 0));
    return folder.IsOpen() &&
           faccessat(folder.Get(), kStagingFolder, F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

// If a copy of the folder, made while the lock was held, replaces the folder, it contains a copy of
// the staging folder, which is removed here.
void ClearCopiedStaging(const char *path) {
    const UnchangedErrorState unchanged;
    FolderLock lock;
    if (HasStagingFolder(path)) {
        lock.Take(path, std::chrono::milliseconds(0));
    }
}

void Destroy(TLIBCFolderLock *lock) {
    lock->~TLIBCFolderLock();
    std::free(lock);
}

}  // namespace
}  // namespace tavo

TLIBCFolderLock *TLIBCFolderLockTake(const char *szFolder) {
    using namespace tavo;
    if (szFolder == nullptr || *szFolder == '\0') {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    MallocPtr<char> path(realpath(szFolder, nullptr));
    if (path == nullptr) {
        return TAVO_PLATFORM_FAIL(FileError(errno));
    }
    void *room = std::malloc(sizeof(TLIBCFolderLock));
    if (room == nullptr) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_NO_MEMORY);
    }
    auto *lock = new (room) TLIBCFolderLock{std::move(path), getpid(), {}};
    const LockResult result = lock->lock.Take(lock->path.get(), kLockWait);
    if (result == LockResult::kTaken) {
        return lock;
    }
    if (result == LockResult::kNotAllowed) {
        static_cast<void>(TAVO_PLATFORM_FAIL(TLIBC_ERR_FILE_UNUSABLE));
    }
    Destroy(lock);
    return nullptr;
}

void TLIBCFolderLockRelease(TLIBCFolderLock *pLock) {
    using namespace tavo;
    if (pLock == nullptr) {
        return;
    }
    const MallocPtr<char> path = std::move(pLock->path);
    const bool inherited = pLock->holder != getpid();
    if (inherited) {
        pLock->lock.Forget();
    }
    Destroy(pLock);
    if (!inherited) {
        ClearCopiedStaging(path.get());
    }
}

// The writers' lock of a folder is an flock on the file `lock` in the sub-folder `.tavo-write`, in
// which writers also stage new texts. The sub-folder has mode 0700 and the file 0600: a lock that
// other users could open, such as the folder itself, would let any of them block every writer.
//
// Both exist only while they are needed. The holder removes the file, then the folder, then
// unlocks. So a process that has locked a file checks that the path still names that file, and that
// the path of the folder still names that folder, which a restore replaces as a whole. If not, it
// starts over. An empty sub-folder is nobody's lock: everyone may remove it, and whoever was about
// to make the file in it starts over as well.
//
// A sub-folder of another user is that user's writer, which is waited for, or its leftover. Nothing
// is staged in it, since its owner could exchange the text: under the lock it is removed and made
// anew. A link or a file in place of the sub-folder, and files in it that no writer makes, are left
// alone, and the lock is refused.
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
constexpr char kLockPath[] = ".tavo-write/lock";  // in the folder

int OpenFolder(int parent, const char *path, int more_flags) {
    const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | more_flags;
    return Uninterrupted([&] { return openat(parent, path, flags); });
}

bool IsSameFile(const struct stat &one, const struct stat &other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

// False for an entry that is not a writer's, or that cannot be removed.
bool ClearEntry(int staging, std::string_view name) {
    if (name == "." || name == ".." || name == kLockFile) {
        return true;
    }
    return (name == kStagedNew || name == kStagedOld) && unlinkat(staging, name.data(), 0) == 0;
}

// Removes the leftovers of a killed writer. The entries are read into a buffer on the stack, so
// that a writer of a small file needs no memory.
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

// flock itself can only wait for ever, and would wait for a file that its holder removes.
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
        // A folder that vanishes meanwhile is being replaced.
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
        // Closing would leave it locked in a child that the caller forked meanwhile.
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

// Why there is no open lock file. A staging folder that is left empty is removed.
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
        return LockResult::kNotAllowed;  // a leftover is there, but nobody can write
    }
    errno = error;
    return Failed(TAVO_PLATFORM_FAIL(LockError(error)));
}

// Only a holder, or the lack of room for one more lock (ENOLCK), passes with time. After any other
// failure somebody may still hold the lock, and the file is left to the next writer, except on a
// file system without flock, where nobody can.
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

// Whether the file that was locked is the lock of the folder.
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

// A staging folder that is not trusted goes with the release of the lost attempt, so that the next
// one makes it anew. Not every file system shows the owner and mode that a folder was made with, so
// one that was made in this attempt is trusted.
LockResult FolderLock::PrepareStaging(bool made) {
    struct stat status;
    if (!ClearStaging(staging_.Get())) {
        return Failed(TAVO_PLATFORM_FAIL(TLIBC_ERR_FILE_UNUSABLE));
    }
    const bool trusted = made || (fstat(staging_.Get(), &status) == 0 &&
                                  status.st_uid == geteuid() && (status.st_mode & 077) == 0);
    return trusted ? LockResult::kTaken : LockResult::kLost;
}

// Closing alone would not unlock: a child that the caller forked meanwhile shares the lock.
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

// A copy of the folder that is made while the lock is held, and put in the folder's place, has a
// copy of the staging folder.
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

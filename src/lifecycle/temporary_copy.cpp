#include "lifecycle/temporary_copy.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "lifecycle/path_change.h"
#include "tavocore.h"

namespace tavo {
namespace {

// The exit status of cp if it cannot copy a file.
constexpr int kCopyFailed = 1;

// True if the path is directly in /tmp. Subfolders may belong to other users and are not trusted.
bool LiesInTmp(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    return slash != std::string_view::npos && path.substr(0, slash) == kTemporaryFolder;
}

bool TryLock(int descriptor) {
    return flock(descriptor, LOCK_EX | LOCK_NB) == 0;
}

Room RoomWhen(bool removed) {
    return removed || errno == ENOENT ? Room::kMade : Room::kNone;
}

// Only a regular file of this user with a single link can be the copy of a change in progress. Any
// other entry was planted or is a leftover. A device, which only an administrator can create, is
// not removed.
Room MakeRoom(const char *path) {
    struct stat entry;
    if (lstat(path, &entry) < 0) {
        return RoomWhen(false);
    }
    switch (entry.st_mode & S_IFMT) {
        case S_IFREG:
            if (entry.st_uid == geteuid() && entry.st_nlink == 1) {
                return RemoveUnlockedCopy(path);
            }
            [[fallthrough]];
        case S_IFLNK:
        case S_IFIFO:
        case S_IFSOCK:
            return RoomWhen(unlink(path) == 0);
        case S_IFDIR:
            if (rmdir(path) == 0) {
                return Room::kMade;
            }
            return errno == ENOTEMPTY || errno == EEXIST ? Room::kFullFolder : RoomWhen(false);
        default:
            return Room::kNone;
    }
}

int Create(const char *path) {
    return open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR);
}

}  // namespace

// A copy is removed while it is locked, so that a new copy with the same name is not removed.
Room RemoveUnlockedCopy(const char *path) {
    const Descriptor file(open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file.IsOpen()) {
        return RoomWhen(false);
    }
    if (!TryLock(file.Get())) {
        return errno == EWOULDBLOCK ? Room::kInUse : Room::kNone;
    }
    if (!IsCurrent(AT_FDCWD, path, file.Get())) {
        return Room::kMade;
    }
    return RoomWhen(unlink(path) == 0);
}

// If two processes could remove the copy, its lock decides which one does.
TemporaryCopy::~TemporaryCopy() {
    if (file_.IsOpen() && TryLock(file_.Get()) && IsCurrent(AT_FDCWD, path_, file_.Get())) {
        unlink(path_);
    }
    Keep();
}

// close alone does not release the lock if a child process has the file open.
void TemporaryCopy::Unlock() {
    if (file_.IsOpen()) {
        flock(file_.Get(), LOCK_UN);
    }
}

void TemporaryCopy::Keep() {
    Unlock();
    file_.Reset();
}

LockAttempt TemporaryCopy::TryTake(const char *path, StepFailure &failure) {
    switch (MakeRoom(path)) {
        case Room::kMade:
            break;
        case Room::kInUse:
            return LockAttempt::kBusy;
        case Room::kFullFolder:
            failure.Set(Step::kOccupied, path);
            return LockAttempt::kFailed;
        case Room::kNone:
            failure.Set(Step::kMakeFile, path, errno);
            return LockAttempt::kFailed;
    }
    Descriptor file(Create(path));
    if (!file.IsOpen()) {
        if (errno == EEXIST) {
            return LockAttempt::kBusy;
        }
        failure.Set(Step::kMakeFile, path, errno);
        return LockAttempt::kFailed;
    }
    // Until the file is locked, another change may take it for a leftover and remove it.
    if (!TryLock(file.Get())) {
        if (errno == EWOULDBLOCK) {
            return LockAttempt::kBusy;
        }
        failure.Set(Step::kLock, path, errno);
        unlink(path);
        return LockAttempt::kFailed;
    }
    if (!IsCurrent(AT_FDCWD, path, file.Get())) {
        return LockAttempt::kBusy;
    }
    file_ = std::move(file);
    return LockAttempt::kLocked;
}

int TemporaryCopy::Make(const char *file, const char *path, const Place &place,
                        StepFailure &failure) {
    if (!IsRegularFile(file) || !LiesInTmp(path)) {
        failure.Set(Step::kCopy, file, EINVAL);
        return kCopyFailed;
    }
    if (WaitForLock(kChangeWait, [&] { return TryTake(path, failure); }) != LockAttempt::kLocked) {
        failure.Set(Step::kLock, path, EWOULDBLOCK);
        if (failure.step == Step::kOccupied) {
            TAVO_LOG_AT(place, "Folder %s has the name of a copy and is not empty", path);
        }
        return kCopyFailed;
    }
    CopyText(path_, path);
    const int status = TLIBCExec(kCopyProgram, "-f", file, path_, nullptr);
    failure.SetProgram(Step::kCopy, kCopyProgram, status, file);
    return status;
}

bool IsRegularFile(const char *file) {
    struct stat entry;
    return stat(file, &entry) == 0 && S_ISREG(entry.st_mode);
}

}  // namespace tavo

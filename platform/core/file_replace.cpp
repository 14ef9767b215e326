// Replacing a file: the new text is staged, flushed to disk and renamed over the old file, and the
// folder is flushed. Until the rename the old file is untouched; after it the new one is whole.
//
// The service folders are enumerated by trying every regular file in them, whatever its name, so
// the text is staged in a sub-folder, which enumerations pass over. The folder's lock makes its
// holder the only writer there: names in the sub-folder are fixed, and whatever is found in it
// under the lock was left by a writer that was killed.
//
// The lock stands on the folder because a rename replaces the file, and a lock on it with it.
#include "file_replace.h"

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <cstring>
#include <thread>

namespace tavo {
namespace {

constexpr char kStagingFolder[] = ".tavo-write";
constexpr char kNew[] = "new";  // the new text
constexpr char kOld[] = "old";  // a second name of the old file, to undo the rename with

int OpenFolder(int parent, const char *path, int more_flags) {
    const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | more_flags;
    return Uninterrupted([&] { return openat(parent, path, flags); });
}

// Removes the staging folder with what is in it. What cannot be removed is left to the next writer.
void ClearStagingFolder(int folder) {
    const Descriptor staging(OpenFolder(folder, kStagingFolder, O_NOFOLLOW));
    if (staging.IsOpen()) {
        unlinkat(staging.Get(), kNew, 0);
        unlinkat(staging.Get(), kOld, 0);
        unlinkat(folder, kStagingFolder, AT_REMOVEDIR);
    }
}

// Changing the owner takes the set-user-id bits away, so the mode comes after it.
bool TakeOverOwnerAndMode(int fd, const struct stat &model) {
    struct stat status;
    if (fstat(fd, &status) != 0) {
        return false;
    }
    const bool same_owner = status.st_uid == model.st_uid && status.st_gid == model.st_gid;
    if (!same_owner && fchown(fd, model.st_uid, model.st_gid) != 0) {
        return false;
    }
    return fchmod(fd, model.st_mode & 07777) == 0;
}

// A new text on its way to the file `name` of a folder that is locked. What is staged goes with it.
class StagedText {
  public:
    StagedText(int folder, const char *name) : folder_(folder), name_(name) {}

    ~StagedText() {
        staging_.Close();
        if (made_) {
            ClearStagingFolder(folder_);
        }
    }
    StagedText(const StagedText &) = delete;
    StagedText &operator=(const StagedText &) = delete;

    bool Stage(std::string_view text, const struct stat &model) {
        made_ = mkdirat(folder_, kStagingFolder, 0700) == 0;
        if (!made_) {
            return TAVO_CORE_FAIL(kFileUnusable);
        }
        staging_.Reset(OpenFolder(folder_, kStagingFolder, O_NOFOLLOW));
        const bool staged = staging_.IsOpen() && WriteNew(text, model);
        return staged || TAVO_CORE_FAIL(kFileUnusable);
    }

    // Puts the staged text in the file's place. A folder that cannot be flushed gets the old file
    // back, so that a failure is not one that a restart turns into success. Only where that fails,
    // too, or the file system knows no hard links, the new text stands although the call fails.
    bool Publish() {
        const bool can_undo = linkat(folder_, name_, staging_.Get(), kOld, 0) == 0;
        if (!can_undo && !HardLinksAreRefused(errno)) {
            return TAVO_CORE_FAIL(kFileUnusable);
        }
        if (renameat(staging_.Get(), kNew, folder_, name_) != 0) {
            return TAVO_CORE_FAIL(kRenameFailed);
        }
        if (Flush(folder_)) {
            return true;
        }
        if (can_undo && renameat(staging_.Get(), kOld, folder_, name_) == 0) {
            Flush(folder_);
        }
        return TAVO_CORE_FAIL(kFileUnusable);
    }

  private:
    // Some file systems know no hard links; then the old file is given up with the rename.
    static bool HardLinksAreRefused(int error) {
        return error == EPERM || error == EOPNOTSUPP || error == EMLINK || error == ENOSYS;
    }

    static bool Flush(int fd) {
        return Uninterrupted([&] { return fsync(fd); }) == 0;
    }

    bool WriteNew(std::string_view text, const struct stat &model) {
        constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
        Descriptor file(Uninterrupted([&] { return openat(staging_.Get(), kNew, kFlags, 0600); }));
        return file.IsOpen() && WriteAll(file.Get(), text) &&
               TakeOverOwnerAndMode(file.Get(), model) && Flush(file.Get()) && file.Close();
    }

    int folder_;
    const char *name_;
    Descriptor staging_;
    bool made_ = false;
};

// Asks again and again, since flock itself can only wait for ever.
bool LockFolder(int folder, std::chrono::milliseconds wait) {
    using std::chrono::steady_clock;
    constexpr std::chrono::milliseconds kLongestPause{50};
    const steady_clock::time_point deadline = steady_clock::now() + wait;
    for (std::chrono::milliseconds pause{1};; pause = std::min(pause * 2, kLongestPause)) {
        if (Uninterrupted([&] { return flock(folder, LOCK_EX | LOCK_NB); }) == 0) {
            return true;
        }
        if (errno != EWOULDBLOCK || steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(pause);
    }
}

}  // namespace

// Closing the folder would not do: a child that the caller forked meanwhile holds it open as well.
LockedFile::~LockedFile() {
    if (locked_) {
        flock(folder_.Get(), LOCK_UN);
    }
}

bool LockedFile::Lock(const char *path, std::chrono::milliseconds wait) {
    if (path == nullptr || *path == '\0') {
        return TAVO_CORE_FAIL(kBadParameter);
    }
    path_.reset(realpath(path, nullptr));
    if (path_ == nullptr) {
        return TAVO_CORE_FAIL(FileError(errno));
    }
    char *slash = std::strrchr(path_.get(), '/');
    name_ = slash[1] == '\0' ? "." : slash + 1;  // the root folder, which is no file, has no name
    *slash = '\0';
    folder_.Reset(OpenFolder(AT_FDCWD, slash == path_.get() ? "/" : path_.get(), 0));
    if (!folder_.IsOpen()) {
        return TAVO_CORE_FAIL(FileError(errno));
    }
    locked_ = LockFolder(folder_.Get(), wait);
    if (!locked_) {
        return TAVO_CORE_FAIL(kFileUnusable);
    }
    ClearStagingFolder(folder_.Get());
    return true;
}

bool LockedFile::Read(FileText &text) {
    const Descriptor file(OpenForReading(folder_.Get(), name_, O_NOFOLLOW));
    if (!file.IsOpen()) {
        return TAVO_CORE_FAIL(FileError(errno));
    }
    return text.LoadFrom(file.Get(), status_);
}

bool LockedFile::Replace(std::string_view text) {
    StagedText staged(folder_.Get(), name_);
    return staged.Stage(text, status_) && staged.Publish();
}

}  // namespace tavo

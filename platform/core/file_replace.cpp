// Replacing a file: the new text is staged, flushed to disk and renamed over the old file, and the
// folder is flushed. Until the rename the old file is untouched; after it the new one is whole.
//
// The service folders are enumerated by trying every regular file in them, whatever its name, so
// the text is staged in a sub-folder, which enumerations pass over. The sub-folder comes with the
// folder's lock, which makes its holder the only writer there. A lock on the file itself would go
// with the file, which the rename replaces.
#include "file_replace.h"

#include <fcntl.h>

#include <cstring>

namespace tavo {
namespace {

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

// A new text on its way to the file `name` of a locked folder. What is left of it in the staging
// folder is removed with the object; what cannot be removed is left to the next writer.
class StagedText {
  public:
    StagedText(const FolderLock &lock, const char *name)
        : folder_(lock.Folder()), staging_(lock.Staging()), name_(name) {}

    ~StagedText() {
        const UnchangedErrno unchanged;
        unlinkat(staging_, kStagedNew, 0);
        unlinkat(staging_, kStagedOld, 0);
    }
    StagedText(const StagedText &) = delete;
    StagedText &operator=(const StagedText &) = delete;

    bool Stage(std::string_view text, const struct stat &model) {
        return WriteNew(text, model) || TAVO_PLATFORM_FAIL(TLIBC_ERR_FILE_UNUSABLE);
    }

    // Puts the staged text in the file's place. A folder that cannot be flushed gets the old file
    // back, so that a failure is not one that a restart turns into success. Only where that fails,
    // too, or the file system knows no hard links, the new text stands although the call fails.
    bool Publish() {
        const bool can_undo = linkat(folder_, name_, staging_, kStagedOld, 0) == 0;
        if (!can_undo && !HardLinksAreRefused(errno)) {
            return TAVO_PLATFORM_FAIL(TLIBC_ERR_FILE_UNUSABLE);
        }
        if (renameat(staging_, kStagedNew, folder_, name_) != 0) {
            return TAVO_PLATFORM_FAIL(TLIBC_ERR_RENAME);
        }
        if (Flush(folder_)) {
            return true;
        }
        Undo(can_undo);
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_FILE_UNUSABLE);
    }

  private:
    // Some file systems know no hard links; then the old file is given up with the rename.
    static bool HardLinksAreRefused(int error) {
        return error == EPERM || error == EOPNOTSUPP || error == EMLINK || error == ENOSYS;
    }

    void Undo(bool can_undo) const {
        const UnchangedErrno unchanged;
        if (can_undo && renameat(staging_, kStagedOld, folder_, name_) == 0) {
            Flush(folder_);
        }
    }

    static bool Flush(int fd) {
        return Uninterrupted([&] { return fsync(fd); }) == 0;
    }

    bool WriteNew(std::string_view text, const struct stat &model) {
        constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
        Descriptor file(Uninterrupted([&] { return openat(staging_, kStagedNew, kFlags, 0600); }));
        return file.IsOpen() && WriteAll(file.Get(), text) &&
               TakeOverOwnerAndMode(file.Get(), model) && Flush(file.Get()) && file.Close();
    }

    int folder_;
    int staging_;
    const char *name_;
};

}  // namespace

bool LockedFile::Lock(const char *path, std::chrono::milliseconds wait) {
    if (path == nullptr || *path == '\0') {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    path_.reset(realpath(path, nullptr));
    if (path_ == nullptr) {
        return TAVO_PLATFORM_FAIL(FileError(errno));
    }
    char *slash = std::strrchr(path_.get(), '/');
    name_ = slash[1] == '\0' ? "." : slash + 1;  // the root folder, which is no file, has no name
    *slash = '\0';
    const LockResult result = lock_.Take(slash == path_.get() ? "/" : path_.get(), wait);
    locked_ = result == LockResult::kTaken;
    return result != LockResult::kFailed;
}

bool LockedFile::Read(FileText &text) {
    const Descriptor file(OpenForReading(lock_.Folder(), name_, O_NOFOLLOW));
    if (!file.IsOpen()) {
        return TAVO_PLATFORM_FAIL(FileError(errno));
    }
    return text.LoadFrom(file.Get(), status_);
}

bool LockedFile::Replace(std::string_view text) {
    if (!locked_) {
        errno = lock_.Refusal();
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_FILE_UNUSABLE);
    }
    StagedText staged(lock_, name_);
    return staged.Stage(text, status_) && staged.Publish();
}

}  // namespace tavo

// Replaces a file: the new text is staged, flushed to disk and renamed over the old file, and the
// folder is flushed. Until the rename the old file is unchanged; after it the new one is complete.
//
// The service folders are enumerated by trying every regular file, whatever its name, so the text
// is staged in a subfolder, which enumerations skip. The subfolder is created together with the
// folder's lock, whose holder is the only writer there. A lock on the file itself would be lost,
// because the rename replaces the file.
#include "file_replace.h"

#include <fcntl.h>

#include <cstring>

namespace tavo {
namespace {

// Changing the owner clears the set-user-ID bits, so the mode is set afterwards.
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

// A new text for the file `name` of a locked folder. The destructor removes the rest of it from the
// staging folder; whatever cannot be removed is left to the next writer.
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

    // Renames the staged text over the file. If the folder cannot be flushed, the old file is
    // restored, so that a reported failure does not turn into success after a reboot. If that fails
    // too, or the file system does not support hard links, the new text stays although the call
    // fails.
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
    // Some file systems do not support hard links; the rename then cannot be undone.
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
    name_ = slash[1] == '\0' ? "." : slash + 1;  // the root folder has no name
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

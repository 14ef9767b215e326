// The lock that makes its holder the only writer of the files in a folder.
#ifndef TAVO_PLATFORM_CORE_FOLDER_LOCK_H
#define TAVO_PLATFORM_CORE_FOLDER_LOCK_H

#include <chrono>

#include "base/descriptor.h"
#include "core_support.h"

namespace tavo {

// How long a writer waits for another one in the same folder.
constexpr std::chrono::seconds kLockWait{30};

// Names in the staging folder that belong to writers. What is found there under the lock is a
// leftover of a writer that was killed.
constexpr char kStagedNew[] = "new";  // the new text
constexpr char kStagedOld[] = "old";  // a second name of the old file, to undo the rename with

enum class LockResult {
    kTaken,
    kNotAllowed,  // the caller may not write to the folder; no error is set
    kFailed,      // the error is set
    kLost,        // another process was faster; not an answer of Take
    kAbsent,      // there is no such folder; not an answer of Take
};

// Held until it is released or destroyed. While it is held the staging folder exists, belongs to
// the caller, and is empty but for the lock file.
class FolderLock {
  public:
    FolderLock() = default;
    ~FolderLock() { Release(); }
    FolderLock(const FolderLock &) = delete;
    FolderLock &operator=(const FolderLock &) = delete;

    // Takes the lock of the folder `path`, an absolute path. Fails with 0x700 for a missing folder,
    // 0x200 when memory runs out, and 0x900 when the lock is still held elsewhere after `wait`,
    // something that is not a writer's is in its place, or the file system has no flock.
    LockResult Take(const char *path, std::chrono::milliseconds wait);

    // Removes the staging folder, unlocks, and closes the folder. Does nothing when not held. errno
    // is unchanged.
    void Release();

    // The errno of a Take that answered kNotAllowed.
    int Refusal() const { return refusal_; }

    // Closes the descriptors without unlocking: for a child process, which shares the lock.
    void Forget();

    // Descriptors of the folder, which is also open when Take answered kNotAllowed, and of the
    // staging folder; -1 when not open.
    int Folder() const { return folder_.Get(); }
    int Staging() const { return staging_.Get(); }

  private:
    LockResult TryToTake(const char *path);
    LockResult OpenLockFile();
    LockResult ExplainFailedOpen(int error);
    LockResult ExplainFailedLock(int error) const;
    LockResult CheckLockFile(const char *path) const;
    LockResult PrepareStaging(bool made);
    void RemoveLockFile() const;

    Descriptor folder_;
    Descriptor staging_;
    Descriptor lock_;
    bool held_ = false;
    int refusal_ = 0;
};

}  // namespace tavo

#endif

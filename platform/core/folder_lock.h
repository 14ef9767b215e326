// The lock that makes its holder the only writer of the files in a folder.
#ifndef TAVO_PLATFORM_CORE_FOLDER_LOCK_H
#define TAVO_PLATFORM_CORE_FOLDER_LOCK_H

#include <chrono>

#include "base/descriptor.h"
#include "core_support.h"

namespace tavo {

// How long a writer waits for another one in the same folder.
constexpr std::chrono::seconds kLockWait{30};

// The names that writers use in the staging folder. If they exist when the lock is taken, they are
// leftovers of a killed writer.
constexpr char kStagedNew[] = "new";  // the new text
constexpr char kStagedOld[] = "old";  // a link to the old file, to undo the rename

enum class LockResult {
    kTaken,
    kNotAllowed,  // the caller may not write to the folder; no error is set
    kFailed,      // the error is set
    kLost,        // another process was faster; not returned by Take
    kAbsent,      // there is no such folder; not returned by Take
};

// Held until released or destroyed. While it is held the staging folder exists, belongs to the
// caller, and contains only the lock file.
class FolderLock {
  public:
    FolderLock() = default;
    ~FolderLock() { Release(); }
    FolderLock(const FolderLock &) = delete;
    FolderLock &operator=(const FolderLock &) = delete;

    // Takes the lock of the folder `path`, an absolute path. Fails with 0x700 for a missing folder,
    // 0x200 when out of memory, and 0x900 if the lock is still held elsewhere after `wait`, if an
    // entry that no writer creates is in its place, or if the file system does not support flock.
    LockResult Take(const char *path, std::chrono::milliseconds wait);

    // Removes the staging folder, unlocks, and closes the folder. Does nothing if not held. errno
    // is unchanged.
    void Release();

    // The errno of a Take that answered kNotAllowed.
    int Refusal() const { return refusal_; }

    // Closes the descriptors without unlocking: for a child process, which shares the lock.
    void Forget();

    // Descriptors of the folder, which is also open after Take returned kNotAllowed, and of the
    // staging folder; -1 if not open.
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

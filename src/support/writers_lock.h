// Excludes the writers of the core library from a folder while the whole folder is copied or
// replaced.
#ifndef TAVO_SRC_SUPPORT_WRITERS_LOCK_H
#define TAVO_SRC_SUPPORT_WRITERS_LOCK_H

#include "tavocore.h"

// The core library of an appliance, and its header, may lack these functions.
extern "C" {
typedef struct TLIBCFolderLock TLIBCFolderLock;
__attribute__((weak)) TLIBCFolderLock *TLIBCFolderLockTake(const char *szFolder);
__attribute__((weak)) void TLIBCFolderLockRelease(TLIBCFolderLock *pLock);
}

namespace tavo {

// Waits for a writer in the folder; null means no folder. The writers use the same lock, so its
// holder must not change a file in that folder through the core library.
class WritersLock {
  public:
    explicit WritersLock(const char *folder) {
        // IsAvailable() in full: clang-tidy does not look into it.
        if (folder != nullptr && TLIBCFolderLockTake != nullptr &&
            TLIBCFolderLockRelease != nullptr) {
            lock_ = TLIBCFolderLockTake(folder);
            out_of_memory_ = lock_ == nullptr && TLIBCErrGet() == TLIBC_ERR_NO_MEMORY;
        }
    }
    ~WritersLock() {
        if (lock_ != nullptr) {
            TLIBCFolderLockRelease(lock_);
        }
    }
    WritersLock(const WritersLock &) = delete;
    WritersLock &operator=(const WritersLock &) = delete;

    // Whether the appliance's core library provides the lock.
    static bool IsAvailable() {
        return TLIBCFolderLockTake != nullptr && TLIBCFolderLockRelease != nullptr;
    }

    bool IsHeld() const { return lock_ != nullptr; }

    // The caller continues without the lock: a folder that cannot be written has no lock and no
    // writer. Only out of memory, which sets the error state, is a reason to stop.
    bool OutOfMemory() const { return out_of_memory_; }

  private:
    TLIBCFolderLock *lock_ = nullptr;
    bool out_of_memory_ = false;
};

}  // namespace tavo

#endif

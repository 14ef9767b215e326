// One lock for each store that a change may touch: the service files of the system, those of
// packages, the rules of the firewall and the rules of port forwarding.
//
// A change reads a file, computes the new one and writes it, and an undo replaces a whole store, so
// the writers' lock of the core library, which covers a single write, is too short for either. The
// lock files are in a folder that only the appliance's own user can enter, so that nobody else can
// hold a lock and stop all changes.
#ifndef TAVO_SRC_LIFECYCLE_STORE_LOCK_H
#define TAVO_SRC_LIFECYCLE_STORE_LOCK_H

#include <chrono>
#include <cstddef>

#include "base/descriptor.h"
#include "lifecycle/step_failure.h"

namespace tavo {

// ---- Lock files

enum class LockAttempt { kLocked, kBusy, kFailed };

// Makes one attempt at the lock file `path` in the folder of locks. Both are made when they are
// missing. With kFailed `failure` says what the system refused; errno 0: the folder is somebody
// else's.
LockAttempt TryLockFile(const char *path, Descriptor &locked, StepFailure &failure);

// ---- Locks of stores

// In the order in which they are locked, copied, restored and deleted.
enum class StoreId { kSystemServices, kPackageServices, kFirewallRules, kForwardingRules };

constexpr int kStoreCount = 4;

// A set of stores, one bit for each.
using StoreSet = unsigned int;

constexpr StoreSet SetOf(StoreId store) {
    return 1U << static_cast<unsigned int>(store);
}

// The service folder by its path.
StoreSet StoreOfDirectory(const char *directory);

// How long a change waits for another one. The other one may be a transaction, which copies folders
// and runs the firewall tool, maybe twice.
constexpr std::chrono::seconds kChangeWait{120};

// What a lock is taken for. An undo may take over the locks that a backup left in place, whichever
// thread of the process made the backup; a change may not.
enum class LockPurpose { kChange, kUndo };

// Holds the locks of a set of stores. The thread that holds a lock may take it again. Stores are
// locked in one order everywhere, so that two changes never wait for each other.
class StoreLock {
  public:
    explicit StoreLock(StoreSet stores, LockPurpose purpose = LockPurpose::kChange);
    ~StoreLock();
    StoreLock(const StoreLock &) = delete;
    StoreLock &operator=(const StoreLock &) = delete;

    // All of them or none.
    bool IsHeld() const { return missing_ == nullptr; }

    // The lock file that could not be locked; null when the locks are held.
    const char *Missing() const { return missing_; }

    // Leaves the locks in place beyond this object, for the undo that a backup allows; EndUndo of
    // any thread of this process gives them back.
    void KeepForUndo();
    void EndUndo();

  private:
    void Release();

    StoreSet taken_ = 0;
    const char *missing_ = nullptr;
};

// Whether the last restore of a store failed in this process, so that its side copy may be the only
// whole one. The store must be locked.
bool IsUnrestored(StoreId store);
void SetUnrestored(StoreId store, bool unrestored);

}  // namespace tavo

#endif

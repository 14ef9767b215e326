// One lock for each store that a change may affect: the service files of the system, those of
// packages, the firewall rules and the port forwarding rules.
//
// A change reads a file, computes the new content and writes it, and an undo replaces a whole
// store. The writers' lock of the core library covers only a single write and is not sufficient for
// either. The lock files are in a folder that only the appliance's own user can access, so that no
// other user can hold a lock and block all changes.
#ifndef TAVO_SRC_LIFECYCLE_STORE_LOCK_H
#define TAVO_SRC_LIFECYCLE_STORE_LOCK_H

#include <time.h>

#include <algorithm>
#include <chrono>

#include "base/descriptor.h"
#include "lifecycle/step_failure.h"
#include "support/failure.h"

namespace tavo {

// ---- Waiting, by polling with growing pauses, because flock has no timeout

inline void Pause(std::chrono::milliseconds length) {
    const timespec time = {.tv_sec = length.count() / 1000,
                           .tv_nsec = length.count() % 1000 * 1'000'000};
    nanosleep(&time, nullptr);
}

enum class LockAttempt { kLocked, kBusy, kFailed };

// Calls attempt() until its result is not kBusy or the time limit is over. Returns the last result.
template <typename Attempt>
LockAttempt WaitForLock(std::chrono::milliseconds limit, Attempt attempt) {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds kLongest{50};
    const Clock::time_point end = Clock::now() + limit;
    for (std::chrono::milliseconds pause{1};; pause = std::min(pause * 2, kLongest)) {
        const LockAttempt result = attempt();
        if (result != LockAttempt::kBusy || Clock::now() >= end) {
            return result;
        }
        Pause(pause);
    }
}

// ---- Lock files

// Tries once to lock the file `path` in the lock folder. The file and the folder are created if
// they are missing. With kFailed, `failure` contains the error of the system; errno 0 means that
// the folder is not usable, such as one of another user.
LockAttempt TryLockFile(const char *path, Descriptor &locked, StepFailure &failure);

// True if the name in the folder still refers to the open file, which another process may have
// removed or replaced before it was locked. The folder AT_FDCWD is the current one.
bool IsCurrent(int folder, const char *name, int descriptor);

// ---- Locks of stores

// Stores are locked, copied, restored and deleted in this order.
enum class StoreId { kSystemServices, kPackageServices, kFirewallRules, kForwardingRules };

constexpr int kStoreCount = 4;

// A set of stores, one bit for each.
using StoreSet = unsigned int;

constexpr StoreSet SetOf(StoreId store) {
    return 1U << static_cast<unsigned int>(store);
}

// The store of a service folder.
StoreSet StoreOfDirectory(const char *directory);

// How long a change waits for another one. The other one may be a transaction, which copies folders
// and runs the firewall tool up to twice.
constexpr std::chrono::seconds kChangeWait{120};

// The purpose of a lock. An undo may take over the locks that a backup left, whichever thread of
// the process made the backup. A change may not.
enum class LockPurpose { kChange, kUndo };

// Holds the locks of a set of stores. The thread that holds a lock may take it again. All code
// locks the stores in the same order, so that two changes cannot deadlock.
class StoreLock {
  public:
    explicit StoreLock(StoreSet stores, LockPurpose purpose = LockPurpose::kChange);
    ~StoreLock();
    StoreLock(const StoreLock &) = delete;
    StoreLock &operator=(const StoreLock &) = delete;

    // Either all locks are held or none.
    bool IsHeld() const { return missing_ == nullptr; }

    // Reports for the operation at `place` that the locks are not held, with the purpose of the
    // locks: "to change " and a path, or a text alone. Returns -1.
    int Fail(const Place &place, const char *purpose, const char *path, StepFailure &failure) const;

    // KeepForUndo keeps the locks after the end of this object, for the undo of a backup. EndUndo,
    // on any thread of this process, ends this.
    void KeepForUndo();
    void EndUndo();

  private:
    void Release();

    StoreSet taken_ = 0;
    const char *missing_ = nullptr;  // the lock file that could not be locked
};

// True if the last restore of a store failed in this process, so that its side copy may be the only
// complete one. The store must be locked.
bool IsUnrestored(StoreId store);
void SetUnrestored(StoreId store, bool unrestored);

}  // namespace tavo

#endif

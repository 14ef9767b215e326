// A copy of the old content of a service file, under a predictable name in /tmp. The listeners
// compare it with the changed file.
//
// All users may write into /tmp, so each copy creates its file new: an existing entry with the name
// is removed. A link then cannot redirect cp, a pipe or a folder cannot block the change, and no
// other user can read or modify the copy. Only the copy of a change in progress is not removed but
// waited for, since both service folders use the same names. Its owner locks it with flock.
#ifndef TAVO_SRC_LIFECYCLE_TEMPORARY_COPY_H
#define TAVO_SRC_LIFECYCLE_TEMPORARY_COPY_H

#include "base/descriptor.h"
#include "lifecycle/step_failure.h"
#include "lifecycle/store_lock.h"
#include "support/failure.h"
#include "support/service_directory.h"

namespace tavo {

// ---- The names of all temporary files and folders of a change
//
// A change that is killed leaves them, and servicetool clean finds them by these names.

// In /tmp: the content of a file before its update, and before its removal by a process.
constexpr char kTemporaryFolder[] = "/tmp";
constexpr char kUpdatedHead[] = "servicetool.update.";  // FILE.old
constexpr char kUpdatedTail[] = ".old";
constexpr char kRemovedHead[] = "servicetool.remove.";  // FILE.PID

// In a service folder: the folder of files that are being installed, each FILE.RANDOM.
constexpr char kInstallFolder[] = "tmp";
constexpr char kInstallTail[] = ".XXXXXX";

// In the folder of a changed file: the folder in which the core library stages the new file.
constexpr char kWriterFolder[] = ".tavo-write";

// Next to a store, after its name: its side copy, a side copy that may be the only complete one,
// and the store itself if it could not be removed before its side copy took its place.
constexpr char kSideCopyTail[] = ".tmp.";           // PID
constexpr char kUnrestoredTail[] = ".unrestored.";  // PID.NUMBER
constexpr char kReplacedTail[] = ".old.tmp.";       // PID

// ---- Copies

// Whether a name is free for a copy. With kNone, errno is the reason why it is not.
enum class Room { kMade, kInUse, kFullFolder, kNone };

// Removes the copy at `path`, a regular file, unless a change in progress uses it.
Room RemoveUnlockedCopy(const char *path);

// The destructor removes the copy.
class TemporaryCopy {
  public:
    TemporaryCopy() = default;
    ~TemporaryCopy();
    TemporaryCopy(const TemporaryCopy &) = delete;
    TemporaryCopy &operator=(const TemporaryCopy &) = delete;

    // Copies `file` to `path`, which must be directly in /tmp, for the operation at `place`.
    // Returns the exit status of cp: 0 on success, -1 if it could not be run. If the name cannot be
    // used, cp is not run and the result is that of a failed cp. A non-empty folder with that name
    // is logged.
    int Make(const char *file, const char *path, const Place &place, StepFailure &failure);

    // Empty until a copy is made.
    const char *Path() const { return path_; }

    // Allows the next change with that name to continue. The copy remains until the end of this
    // object, unless the next change takes the name.
    void Unlock();

    // Leaves the copy for the caller to delete.
    void Keep();

  private:
    LockAttempt TryTake(const char *path, StepFailure &failure);

    char path_[kPathSize] = "";
    Descriptor file_;  // locked
};

// True if the file is regular, so that cp terminates: it would wait for a writer of a pipe, and
// read from a device without end.
bool IsRegularFile(const char *file);

}  // namespace tavo

#endif

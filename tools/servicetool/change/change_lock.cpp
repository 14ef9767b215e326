// The lock is on a file that nobody else can open: a lock on the service folders themselves, which
// everybody may read, could be held by anybody, and no change could be made meanwhile.
#include "change/change_lock.h"

#include <sys/stat.h>
#include <unistd.h>

#include "base/system_files.h"
#include "input/input_file.h"
#include "lifecycle/pause.h"
#include "lifecycle/store_lock.h"

namespace tavo::tool {
namespace {

constexpr std::chrono::seconds kPatience{10};

constexpr char kFile[] = TAVO_LOCK_FOLDER "/servicetool.lock";

// What somebody else has planted is no lock.
bool IsOwnFile(int descriptor) {
    struct stat status {};
    return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) &&
           status.st_uid == geteuid() && fchmod(descriptor, S_IRUSR | S_IWUSR) == 0;
}

}  // namespace

bool ChangeLock::Take() {
    for (Pauses pauses(kPatience);;) {
        StepFailure failure;
        const LockAttempt attempt = TryLockFile(kFile, file_, failure);
        if (attempt == LockAttempt::kFailed) {
            problem_ = std::string(failure.path) + ": " +
                       (failure.error == 0 ? "belongs to somebody else" : ErrorText(failure.error));
            return false;
        }
        if (attempt == LockAttempt::kLocked) {
            problem_ = IsOwnFile(file_.Get()) ? "" : std::string(kFile) + ": is no file of our own";
            return problem_.empty();
        }
        if (!pauses.Next()) {
            return false;
        }
    }
}

bool TellNoLock(const ChangeLock &lock, const std::string &name, const std::string &consequence,
                Report &report) {
    if (lock.Problem().empty()) {
        report.TellError(name, "busy", "another change is under way" + consequence,
                         "wait for its end, and try again");
    } else {
        report.TellError(name, "failed", "the lock for changes: " + lock.Problem() + consequence,
                         geteuid() == 0 ? "" : "run it as root");
    }
    report.Raise(Status::kFailed);
    return false;
}

}  // namespace tavo::tool

// The lock is on a file that nobody else can open: a lock on the service folders themselves, which
// everybody may read, could be held by anybody, and no change could be made meanwhile.
#include "change/change_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "base/system_files.h"
#include "input/input_file.h"

namespace tavo::tool {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kPatience{10};
constexpr std::chrono::milliseconds kBetweenAttempts{50};

constexpr char kFolder[] = TAVO_LOCK_FOLDER;
constexpr char kFile[] = TAVO_LOCK_FOLDER "/servicetool.lock";

// Whether what is open is of that kind, is our own and cannot be changed by others: what somebody
// else has planted is no lock.
bool IsOwn(int descriptor, mode_t kind, mode_t mode) {
    struct stat status {};
    return fstat(descriptor, &status) == 0 && (status.st_mode & S_IFMT) == kind &&
           status.st_uid == geteuid() &&
           ((status.st_mode & 07777) == mode || fchmod(descriptor, mode) == 0);
}

}  // namespace

ChangeLock::~ChangeLock() {
    if (file_ >= 0) {
        close(file_);
    }
}

bool ChangeLock::Fail(const std::string &path, const std::string &why) {
    problem_ = path + ": " + why;
    return false;
}

bool ChangeLock::Open() {
    constexpr mode_t kFolderMode = 0700;
    constexpr mode_t kFileMode = 0600;
    if (mkdir(kFolder, kFolderMode) != 0 && errno != EEXIST) {
        return Fail(kFolder, ErrorText(errno));
    }
    const int folder = open(kFolder, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (folder < 0) {
        return Fail(kFolder, ErrorText(errno));
    }
    const bool own = IsOwn(folder, S_IFDIR, kFolderMode);
    if (own) {
        file_ = openat(folder, "servicetool.lock",
                       O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, kFileMode);
    }
    const int error = errno;
    close(folder);
    if (!own) {
        return Fail(kFolder, "belongs to somebody else");
    }
    if (file_ < 0) {
        return Fail(kFile, ErrorText(error));
    }
    return IsOwn(file_, S_IFREG, kFileMode) || Fail(kFile, "is no file of our own");
}

bool ChangeLock::Take() {
    const Clock::time_point end = Clock::now() + kPatience;
    if (!Open()) {
        return false;
    }
    while (flock(file_, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {
            return Fail(kFile, ErrorText(errno));
        }
        if (Clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(kBetweenAttempts);
    }
    return true;
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

#include "change/installed_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "base/system_files.h"
#include "input/input_file.h"
#include "lifecycle/store_lock.h"
#include "lifecycle/temporary_copy.h"
#include "output/text.h"

namespace tavo::tool {
namespace {

// ---- The lock for changes
//
// The lock is on a file that other users cannot open. The service folders are readable by all
// users, so any user could lock them and block all changes.

constexpr std::chrono::seconds kPatience{10};

constexpr char kFile[] = TAVO_LOCK_FOLDER "/servicetool.lock";

// Rejects a file that another user has created under the name of the lock.
bool IsOwnFile(int descriptor) {
    struct stat status {};
    return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) &&
           status.st_uid == geteuid() && fchmod(descriptor, S_IRUSR | S_IWUSR) == 0;
}

// ---- The file

// The library adds this much to a file's name for the name of a copy, with the highest process id.
// If the name becomes too long for a file, it continues without the copy.
constexpr std::size_t kLongestDecoration = sizeof(kRemovedHead) - 1 + sizeof(".4194304") - 1;
constexpr std::size_t kLongestName = NAME_MAX - kLongestDecoration;

// Why the text cannot be the name of a file in a service folder; empty if it can.
std::string NameProblem(const std::string &name) {
    if (name.empty() || name == "." || name == "..") {
        return "is not a file name";
    }
    if (name.find('/') != std::string::npos) {
        return "is a path";
    }
    if (name.size() > kLongestName) {
        return "is longer than " + std::to_string(kLongestName) + " bytes";
    }
    const bool control =
        std::ranges::any_of(name, [](unsigned char c) { return c < ' ' || c == '\x7f'; });
    return control ? "contains a control byte" : "";
}

// A name in the folder that differs only in case, or by a missing suffix; empty if there is none.
std::string MeantName(const ServiceFolder &folder, const std::string &name) {
    std::string meant;
    for (const std::string &other : NamesIn(folder.path).value_or(std::vector<std::string>())) {
        if (LowerCase(other) == LowerCase(name) || LowerCase(other) == LowerCase(name + ".sc")) {
            meant = std::max(meant, other);
        }
    }
    return meant;
}

// ---- Private folders

[[noreturn]] void Throw(const std::string &what) {
    throw std::system_error(errno, std::generic_category(), what);
}

bool IsRemoved(int descriptor) {
    struct stat status {};
    return fstat(descriptor, &status) == 0 && status.st_nlink == 0;
}

}  // namespace

bool LockChanges(Descriptor &lock, const std::string &name, const std::string &consequence,
                 Report &report) {
    StepFailure failure;
    const LockAttempt attempt =
        WaitForLock(kPatience, [&] { return TryLockFile(kFile, lock, failure); });
    if (attempt == LockAttempt::kLocked && IsOwnFile(lock.Get())) {
        return true;
    }
    if (attempt == LockAttempt::kBusy) {
        report.AddError(name, "busy", "another change is in progress" + consequence,
                        "wait until it ends, and try again");
        return false;
    }
    std::string problem = std::string(kFile) + ": is not a file of this user";
    if (attempt == LockAttempt::kFailed) {
        problem = std::string(failure.path) + ": " +
                  (failure.error == 0 ? "belongs to another user" : ErrorText(failure.error));
    }
    report.AddError(name, "failed", "the lock for changes: " + problem + consequence,
                    geteuid() == 0 ? "" : "run it as root");
    return false;
}

bool CheckFileName(const std::string &name, Report &report) {
    const std::string problem = NameProblem(name);
    if (!problem.empty()) {
        report.AddUsageError("file name " + Quoted(name) + ' ' + problem,
                             "write the name of an installed file, such as mypackage.sc");
    }
    return problem.empty();
}

bool FindInstalledFile(int folders, Missing missing, bool dry_run, InstalledFile &file,
                       Report &report) {
    const std::string &name = file.name;
    if (!CheckFileName(name, report) ||
        (!dry_run && !LockChanges(file.lock, name, kSoUnchanged, report))) {
        return false;
    }
    for (const ServiceFolder &folder : kServiceFolders) {
        if ((folders & folder.selector) == 0) {
            continue;
        }
        const std::string path = std::string(folder.path) + '/' + name;
        FileContents contents = ReadRegularFile(path);
        if (!contents.problem.empty() && !contents.absent) {
            report.AddError(path, "unreadable", contents.problem + kSoUnchanged,
                            contents.dangling ? "remove the dangling link" : "");
            return false;
        }
        if (!contents.absent && file.text) {
            report.AddUsageError(Quoted(name) + " is installed in both folders",
                                 "add --system or --package");
            return false;
        }
        if (!file.text) {
            file.location = folder.selector;
            file.path = path;
        }
        if (!contents.absent) {
            file.text = std::move(contents.text);
        }
    }
    return file.text || missing == Missing::kAllow || ReportNotInstalled(name, folders, report);
}

bool ReportNotInstalled(const std::string &name, int folders, Report &report) {
    std::string paths;
    std::string fix;
    for (const ServiceFolder &folder : kServiceFolders) {
        if ((folders & folder.selector) != 0) {
            paths += (paths.empty() ? "" : " nor in ") + std::string(folder.path);
            const std::string meant = MeantName(folder, name);
            fix = meant.empty() ? fix : "write " + meant;
        }
    }
    report.AddError(name, "not-found", "is not installed in " + paths + kSoUnchanged,
                    std::move(fix), Status::kNo);
    return false;
}

// Only a warning, because the library reads all files of a service folder, whatever their names.
void WarnOfNewName(const std::string &name, const std::string &fix, Report &report) {
    constexpr char kEnding[] = ".sc";
    const std::string visible = name.substr(std::min(name.find_first_not_of('.'), name.size()));
    const bool ends = visible.ends_with(kEnding);
    if (visible == name && ends) {
        return;
    }
    report.AddWarning(name, "file-name",
                      visible == name ? "the name of a service file ends in .sc"
                                      : "a file whose name starts with a dot is hidden",
                      fix + ' ' + (visible.empty() ? "mypackage" : visible) + (ends ? "" : kEnding),
                      Status::kOk);
}

FileText TextOf(const std::string &path, const std::string &what) {
    FileContents contents = ReadRegularFile(path);
    if (contents.absent) {
        return {};
    }
    if (!contents.problem.empty()) {
        throw std::runtime_error(what + ": " + contents.problem);
    }
    return std::move(contents.text);
}

// Before it is locked, the new folder looks like a leftover and may be removed by another
// servicetool. That one holds the lock only briefly, so this waits for it.
PrivateFolder::PrivateFolder() {
    do {
        path_ = std::string(kTemporaryFolder) + '/' + kPrivateFolderHead + "XXXXXX";
        if (mkdtemp(path_.data()) == nullptr) {
            Throw("a folder in /tmp");
        }
        lock_.Reset(open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    } while (lock_.IsOpen() ? Uninterrupted([&] { return flock(lock_.Get(), LOCK_EX); }) == 0 &&
                                  IsRemoved(lock_.Get())
                            : errno == ENOENT);
    if (!lock_.IsOpen()) {
        const int error = errno;
        rmdir(path_.c_str());
        errno = error;
        Throw(path_);
    }
}

PrivateFolder::~PrivateFolder() {
    try {
        std::filesystem::remove_all(path_);
    } catch (const std::exception &) {
        // The folder is left to servicetool clean. The change is complete or refused without it.
    }
}

std::string PrivateFolder::Make(const std::string &name, std::string_view text) const {
    constexpr mode_t kMode = 0644;
    std::string path = path_ + '/' + name;
    const Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kMode));
    if (!file.IsOpen() || fchmod(file.Get(), kMode) != 0 || !WriteAll(file.Get(), text)) {
        Throw(path);
    }
    return path;
}

}  // namespace tavo::tool

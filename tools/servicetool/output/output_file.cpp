// A regular file is replaced, not overwritten: a reader never sees a partly written picture, not
// even after a failure. Other files are written to directly; a pipe without a reader is an error.
// The writer of the core library cannot be used: it edits configuration files, under the lock of
// their folder.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "base/descriptor.h"
#include "input/input_file.h"
#include "output/report.h"

namespace tavo::tool {
namespace {

// The mode of a new file, the same as for a redirection by the shell.
mode_t NewMode() {
    constexpr mode_t kEverybody = 0666;
    const mode_t mask = umask(0);
    umask(mask);
    return kEverybody & ~mask;
}

// The next two functions return the reason for a failure, else "".

// Writes a new file in the place of `old`, if any, with its owner and mode. A file that is not
// writable is not replaced, even if its folder is writable.
std::string PutFile(const std::string &path, const struct stat *old, std::string_view text) {
    constexpr mode_t kPermissions = 07777;
    if (old != nullptr && access(path.c_str(), W_OK) != 0) {
        return ErrorText(errno);
    }
    // In the folder of the target, whose name may already have the maximum length.
    std::string staged = path.substr(0, path.rfind('/') + 1) + ".svg-XXXXXX";
    const Descriptor file(mkostemp(staged.data(), O_CLOEXEC));
    if (!file.IsOpen()) {
        return ErrorText(errno);
    }
    const mode_t mode = old != nullptr ? old->st_mode & kPermissions : NewMode();
    const bool owned = old == nullptr || fchown(file.Get(), old->st_uid, old->st_gid) == 0;
    if (owned && WriteAll(file.Get(), text) && fchmod(file.Get(), mode) == 0 &&
        fsync(file.Get()) == 0 && rename(staged.c_str(), path.c_str()) == 0) {
        return "";
    }
    const int error = errno;
    unlink(staged.c_str());
    return (owned ? "" : "its owner cannot be preserved: ") + ErrorText(error);
}

// Opening a pipe without a reader fails with O_NONBLOCK. Writing then waits for a slow reader.
std::string WriteTo(const std::string &path, std::string_view text) {
    const Descriptor file(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    const bool written =
        file.IsOpen() && fcntl(file.Get(), F_SETFL, 0) == 0 && WriteAll(file.Get(), text);
    return written ? "" : ErrorText(errno);
}

}  // namespace

bool IsStandardOutput(const std::string &path) {
    struct stat file = {};
    struct stat output = {};
    return path == kStandardOutput ||
           (stat(path.c_str(), &file) == 0 && fstat(STDOUT_FILENO, &output) == 0 &&
            file.st_dev == output.st_dev && file.st_ino == output.st_ino);
}

std::string WriteWholeFile(const std::string &path, std::string_view text) {
    std::string consequence = "cannot be written: ";
    std::string reason;
    struct stat old = {};
    const bool exists = stat(path.c_str(), &old) == 0;
    if (exists && S_ISREG(old.st_mode)) {
        consequence = "cannot be written and is unchanged: ";
        reason = PutFile(RealPathOf(path), &old, text);
    } else if (exists) {
        reason = WriteTo(path, text);
    } else if (errno != ENOENT) {
        reason = ErrorText(errno);
    } else {
        const bool is_link = lstat(path.c_str(), &old) == 0 && S_ISLNK(old.st_mode);
        reason = is_link ? "dangling symbolic link" : PutFile(path, nullptr, text);
    }
    return reason.empty() ? "" : consequence + reason;
}

}  // namespace tavo::tool

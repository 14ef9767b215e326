// A regular file is replaced, not overwritten: a reader never sees a partly written picture, not
// even after a failure. Other files are written to directly; a pipe without a reader is an error.
#include "output/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "base/descriptor.h"
#include "input/input_file.h"

namespace tavo::tool {
namespace {

// The new file, in the folder of the target; removed unless it was published. Its name does not
// contain the target's, which may already have the maximum length.
class StagedFile {
  public:
    explicit StagedFile(const std::string &target)
        : target_(target),
          path_(target.substr(0, target.rfind('/') + 1) + ".svg-XXXXXX"),
          file_(mkostemp(path_.data(), O_CLOEXEC)) {}
    ~StagedFile() {
        if (file_.IsOpen()) {
            unlink(path_.c_str());
        }
    }
    StagedFile(const StagedFile &) = delete;
    StagedFile &operator=(const StagedFile &) = delete;

    const Descriptor &File() const { return file_; }

    bool Publish() {
        if (fsync(file_.Get()) != 0 || rename(path_.c_str(), target_.c_str()) != 0) {
            return false;
        }
        file_.Reset();
        return true;
    }

  private:
    const std::string target_;
    std::string path_;
    Descriptor file_;
};

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
    StagedFile staged(path);
    const int file = staged.File().Get();
    if (!staged.File().IsOpen() || !WriteAll(file, text)) {
        return ErrorText(errno);
    }
    if (old != nullptr && fchown(file, old->st_uid, old->st_gid) != 0) {
        return "its owner cannot be preserved: " + ErrorText(errno);
    }
    const mode_t mode = old != nullptr ? old->st_mode & kPermissions : NewMode();
    return fchmod(file, mode) == 0 && staged.Publish() ? "" : ErrorText(errno);
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
    if (stat(path.c_str(), &old) == 0) {
        if (S_ISREG(old.st_mode)) {
            consequence = "cannot be written and is unchanged: ";
            reason = PutFile(RealPathOf(path), &old, text);
        } else {
            reason = WriteTo(path, text);
        }
    } else if (errno != ENOENT) {
        reason = ErrorText(errno);
    } else {
        const bool is_link = lstat(path.c_str(), &old) == 0 && S_ISLNK(old.st_mode);
        reason = is_link ? "dangling symbolic link" : PutFile(path, nullptr, text);
    }
    return reason.empty() ? "" : consequence + reason;
}

}  // namespace tavo::tool

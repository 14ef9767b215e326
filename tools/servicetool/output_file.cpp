#include "output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "input_file.h"

namespace tavo {
namespace {

// The file beside the one that it is to replace, gone unless it did.
class StagedFile {
  public:
    explicit StagedFile(const std::string &target)
        : target_(target),
          path_(target + ".XXXXXX"),
          descriptor_(mkostemp(path_.data(), O_CLOEXEC)) {}
    ~StagedFile() {
        const int error = errno;  // why it did not
        if (descriptor_ != -1) {
            close(descriptor_);
            unlink(path_.c_str());
        }
        errno = error;
    }
    StagedFile(const StagedFile &) = delete;
    StagedFile &operator=(const StagedFile &) = delete;

    int Descriptor() const { return descriptor_; }

    bool Publish() {
        if (fsync(descriptor_) != 0 || rename(path_.c_str(), target_.c_str()) != 0) {
            return false;
        }
        close(descriptor_);
        descriptor_ = -1;
        return true;
    }

  private:
    const std::string target_;
    std::string path_;
    int descriptor_;
};

bool WriteAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(descriptor, text.data(), text.size());
        if (written < 0 && errno != EINTR) {
            return false;
        }
        text.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
    }
    return true;
}

// The file that links lead to; a link to nothing is taken for the file.
std::string FollowLinks(const std::string &path) {
    struct Free {
        void operator()(char *text) const { std::free(text); }
    };
    const std::unique_ptr<char, Free> real(realpath(path.c_str(), nullptr));
    return real == nullptr ? path : real.get();
}

// What a new file may be read and written by, as the shell's redirection has it.
mode_t NewMode() {
    constexpr mode_t kEverybody = 0666;
    const mode_t mask = umask(0);
    umask(mask);
    return kEverybody & ~mask;
}

bool Create(const std::string &path, std::string_view text) {
    StagedFile staged(path);
    return staged.Descriptor() != -1 && WriteAll(staged.Descriptor(), text) &&
           fchmod(staged.Descriptor(), NewMode()) == 0 && staged.Publish();
}

// The new file belongs to whom the old one belonged to. A file that may not be written may not be
// replaced either, though its folder may allow it.
bool Replace(const std::string &path, const struct stat &old, std::string_view text) {
    constexpr mode_t kPermissions = 07777;
    if (access(path.c_str(), W_OK) != 0) {
        return false;
    }
    StagedFile staged(path);
    return staged.Descriptor() != -1 && WriteAll(staged.Descriptor(), text) &&
           fchown(staged.Descriptor(), old.st_uid, old.st_gid) == 0 &&
           fchmod(staged.Descriptor(), old.st_mode & kPermissions) == 0 && staged.Publish();
}

bool WriteTo(const std::string &path, std::string_view text) {
    const int descriptor = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (descriptor == -1) {
        return false;
    }
    const bool written = WriteAll(descriptor, text);
    const int error = errno;
    close(descriptor);
    errno = error;
    return written;
}

}  // namespace

std::string WriteWholeFile(const std::string &path, std::string_view text) {
    struct stat old = {};
    const bool exists = stat(path.c_str(), &old) == 0;
    const bool written = !exists                ? Create(path, text)
                         : S_ISREG(old.st_mode) ? Replace(FollowLinks(path), old, text)
                                                : WriteTo(path, text);
    return written ? "" : ErrorText(errno);
}

}  // namespace tavo

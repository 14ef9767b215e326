#include "change/private_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace tavo::tool {
namespace {

constexpr char kTemplate[] = "/tmp/servicetool-XXXXXX";

[[noreturn]] void Throw(const std::string &what) {
    throw std::system_error(errno, std::generic_category(), what);
}

int OpenFolder(const std::string &path) {
    return open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

// Waits: who removes what killed programs left takes a look at ours, too.
bool LockFolder(int descriptor) {
    int result;
    do {
        result = flock(descriptor, LOCK_EX);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

bool IsRemoved(int descriptor) {
    struct stat status {};
    return fstat(descriptor, &status) == 0 && status.st_nlink == 0;
}

bool WriteAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t put = write(descriptor, text.data(), text.size());
        if (put < 0 && errno != EINTR) {
            return false;
        }
        text.remove_prefix(put > 0 ? static_cast<std::size_t>(put) : 0);
    }
    return true;
}

}  // namespace

// Until it is locked the new folder looks like one that a killed program left, and may be removed
// as such.
PrivateFolder::PrivateFolder() {
    do {
        if (descriptor_ >= 0) {
            close(descriptor_);
        }
        path_ = kTemplate;
        if (mkdtemp(path_.data()) == nullptr) {
            Throw("a folder in /tmp");
        }
        descriptor_ = OpenFolder(path_);
    } while (descriptor_ < 0 ? errno == ENOENT : LockFolder(descriptor_) && IsRemoved(descriptor_));
    if (descriptor_ < 0) {
        const int error = errno;
        rmdir(path_.c_str());
        errno = error;
        Throw(path_);
    }
}

PrivateFolder::~PrivateFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
    close(descriptor_);
}

std::string PrivateFolder::Make(const std::string &name, std::string_view text) const {
    constexpr mode_t kMode = 0644;
    std::string path = path_ + '/' + name;
    const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kMode);
    if (descriptor == -1) {
        Throw(path);
    }
    const bool written = fchmod(descriptor, kMode) == 0 && WriteAll(descriptor, text);
    const int error = errno;
    close(descriptor);
    errno = error;
    if (!written) {
        Throw(path);
    }
    return path;
}

bool IsUnusedFolder(const std::string &path) {
    const int descriptor = OpenFolder(path);
    const bool unused = descriptor >= 0 && flock(descriptor, LOCK_SH | LOCK_NB) == 0;
    if (descriptor >= 0) {
        close(descriptor);
    }
    return unused;
}

bool RemoveUnusedFolder(const std::string &path) {
    const int descriptor = OpenFolder(path);
    if (descriptor < 0) {
        return false;
    }
    std::error_code error;
    if (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        error = {errno, std::generic_category()};
    } else {
        std::filesystem::remove_all(path, error);
    }
    close(descriptor);
    errno = error.value();
    return !error;
}

}  // namespace tavo::tool

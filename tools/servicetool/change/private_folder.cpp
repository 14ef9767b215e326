#include "change/private_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "base/descriptor.h"
#include "lifecycle/temporary_names.h"

namespace tavo::tool {
namespace {

[[noreturn]] void Throw(const std::string &what) {
    throw std::system_error(errno, std::generic_category(), what);
}

int OpenFolder(const std::string &path) {
    return open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

// Waits for the lock: a servicetool that removes leftovers may hold it briefly.
bool LockFolder(int descriptor) {
    return Uninterrupted([&] { return flock(descriptor, LOCK_EX); }) == 0;
}

bool IsRemoved(int descriptor) {
    struct stat status {};
    return fstat(descriptor, &status) == 0 && status.st_nlink == 0;
}

}  // namespace

// Before it is locked, the new folder looks like a leftover and may be removed by another
// servicetool.
PrivateFolder::PrivateFolder() {
    do {
        if (descriptor_ >= 0) {
            close(descriptor_);
        }
        path_ = std::string(kTemporaryFolder) + '/' + kPrivateFolderHead + "XXXXXX";
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
    const Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kMode));
    if (!file.IsOpen() || fchmod(file.Get(), kMode) != 0 || !WriteAll(file.Get(), text)) {
        Throw(path);
    }
    return path;
}

bool IsUnusedFolder(const std::string &path) {
    const Descriptor folder(OpenFolder(path));
    return folder.IsOpen() && flock(folder.Get(), LOCK_SH | LOCK_NB) == 0;
}

bool RemoveUnusedFolder(const std::string &path) {
    const Descriptor folder(OpenFolder(path));
    if (!folder.IsOpen() || flock(folder.Get(), LOCK_EX | LOCK_NB) != 0) {
        return false;
    }
    std::error_code error;
    std::filesystem::remove_all(path, error);
    errno = error.value();
    return !error;
}

}  // namespace tavo::tool

#include "change/private_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>

#include "lifecycle/temporary_names.h"

namespace tavo::tool {
namespace {

[[noreturn]] void Throw(const std::string &what) {
    throw std::system_error(errno, std::generic_category(), what);
}

Descriptor OpenFolder(const std::string &path) {
    return Descriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

bool IsRemoved(int descriptor) {
    struct stat status {};
    return fstat(descriptor, &status) == 0 && status.st_nlink == 0;
}

}  // namespace

// Before it is locked, the new folder looks like a leftover and may be removed by another
// servicetool. That one holds the lock only briefly, so this waits for it.
PrivateFolder::PrivateFolder() {
    do {
        path_ = std::string(kTemporaryFolder) + '/' + kPrivateFolderHead + "XXXXXX";
        if (mkdtemp(path_.data()) == nullptr) {
            Throw("a folder in /tmp");
        }
        lock_ = OpenFolder(path_);
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
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
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

Descriptor LockUnusedFolder(const std::string &path, int operation) {
    Descriptor folder = OpenFolder(path);
    return folder.IsOpen() && flock(folder.Get(), operation | LOCK_NB) == 0 ? std::move(folder)
                                                                            : Descriptor();
}

}  // namespace tavo::tool

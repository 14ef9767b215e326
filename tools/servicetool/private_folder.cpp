#include "private_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace tavo {
namespace {

[[noreturn]] void Throw(const std::string &what) {
    throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

PrivateFolder::PrivateFolder() : path_("/tmp/servicetool-XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) {
        Throw("a folder in /tmp");
    }
}

PrivateFolder::~PrivateFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string PrivateFolder::Make(const std::string &name, std::string_view text) const {
    constexpr mode_t kMode = 0644;
    std::string path = path_ + '/' + name;
    const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kMode);
    if (descriptor == -1) {
        Throw(path);
    }
    bool written = fchmod(descriptor, kMode) == 0;
    while (written && !text.empty()) {
        const ssize_t put = write(descriptor, text.data(), text.size());
        written = put >= 0 || errno == EINTR;
        text.remove_prefix(put > 0 ? static_cast<std::size_t>(put) : 0);
    }
    const int error = errno;
    close(descriptor);
    errno = error;
    if (!written) {
        Throw(path);
    }
    return path;
}

}  // namespace tavo

// Files are read, not mapped: if another program truncates a mapped file, the reader is killed,
// while read returns some snapshot of it.
//
// The size reported by fstat is only a hint. Files in /proc report 0 and files grow, so reading
// continues to the end of the file. The hint avoids an extra read to detect the end, and copying a
// large file while its buffer grows.
#include "file_text.h"

#include <algorithm>
#include <cstring>

namespace tavo {
namespace {

// The kernel reads at most 2 GiB minus one page at once; a shorter result for a larger request
// would look like the end of the file.
constexpr std::size_t kMostAtOnce = std::size_t{1} << 30;

// No configuration is this large; reading a larger file would only use up the memory of the
// machine.
constexpr std::size_t kLargest = std::size_t{2} << 30;

}  // namespace

int OpenForReading(int folder, const char *path, int more_flags) {
    const int flags = O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY | more_flags;
    return Uninterrupted([&] { return openat(folder, path, flags); });
}

bool FileText::LoadAt(int folder, const char *path) {
    if (path == nullptr || *path == '\0') {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    const Descriptor file(OpenForReading(folder, path, 0));
    if (!file.IsOpen()) {
        return TAVO_PLATFORM_FAIL(FileError(errno));
    }
    struct stat status;
    return LoadFrom(file.Get(), status);
}

bool FileText::LoadFrom(int fd, struct stat &status) {
    if (fstat(fd, &status) != 0) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_FILE_UNUSABLE);
    }
    if (!S_ISREG(status.st_mode) || static_cast<std::uintmax_t>(status.st_size) > kLargest) {
        errno = S_ISREG(status.st_mode) ? EFBIG : EINVAL;
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_FILE_UNUSABLE);
    }
    return ReadAll(fd, static_cast<std::size_t>(status.st_size));
}

bool FileText::ReadAll(int fd, std::size_t reported_size) {
    for (;;) {
        if (size_ == capacity_ && !Grow(reported_size)) {
            return TAVO_PLATFORM_FAIL(TLIBC_ERR_NO_MEMORY);
        }
        if (size_ > kLargest) {
            return TAVO_PLATFORM_FAIL(TLIBC_ERR_FILE_UNUSABLE);
        }
        const std::size_t room = std::min(capacity_ - size_, kMostAtOnce);
        const ssize_t got = Uninterrupted([&] { return read(fd, data_ + size_, room); });
        if (got < 0) {
            return TAVO_PLATFORM_FAIL(TLIBC_ERR_FILE_UNUSABLE);
        }
        size_ += static_cast<std::size_t>(got);
        const bool cut_short = static_cast<std::size_t>(got) < room;
        if (got == 0 || (cut_short && reported_size > 0 && size_ >= reported_size)) {
            holds_nul_ = View().find('\0') != std::string_view::npos;
            return true;
        }
    }
}

// Allocates the reported size plus one byte, which detects the end of the file; doubles the buffer
// if the file is longer.
bool FileText::Grow(std::size_t reported_size) {
    const std::size_t wanted = std::max(capacity_ * 2, reported_size + 1);
    char *larger = static_cast<char *>(std::realloc(large_.get(), wanted));
    if (larger == nullptr) {
        return false;
    }
    if (large_ == nullptr) {
        std::memcpy(larger, small_, size_);
    }
    static_cast<void>(large_.release());
    large_.reset(larger);
    data_ = larger;
    capacity_ = wanted;
    return true;
}

}  // namespace tavo

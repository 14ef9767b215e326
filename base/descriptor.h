// Owner of a descriptor, and system calls that are restarted after signals.
#ifndef TAVO_BASE_DESCRIPTOR_H
#define TAVO_BASE_DESCRIPTOR_H

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <string_view>
#include <utility>

namespace tavo {

// Restores errno, so that cleaning up does not hide why an earlier step failed.
class UnchangedErrno {
  public:
    UnchangedErrno() = default;
    ~UnchangedErrno() { errno = error_; }
    UnchangedErrno(const UnchangedErrno &) = delete;
    UnchangedErrno &operator=(const UnchangedErrno &) = delete;

  private:
    const int error_ = errno;
};

// Repeats a system call as long as it is interrupted by a signal.
template <typename Call>
auto Uninterrupted(Call call) {
    for (;;) {
        const auto result = call();
        if (result != -1 || errno != EINTR) {
            return result;
        }
    }
}

// Writes all of `text`, with several calls if necessary. Returns false on failure and sets errno.
inline bool WriteAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = Uninterrupted([&] { return write(fd, text.data(), text.size()); });
        if (written <= 0) {
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

// Owns an open descriptor; negative means none. Closing leaves errno unchanged, so that a function
// can return on failure with errno set.
class Descriptor {
  public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    ~Descriptor() { Reset(); }
    Descriptor(Descriptor &&other) noexcept : fd_(other.Release()) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        Reset(other.Release());
        return *this;
    }

    int Get() const { return fd_; }
    bool IsOpen() const { return fd_ >= 0; }

    // Passes the ownership to the caller.
    int Release() { return std::exchange(fd_, -1); }

    void Reset(int fd = -1) {
        const UnchangedErrno unchanged;
        Close();
        fd_ = fd;
    }

    // Returns false if closing fails: some file systems report a failed write only then.
    bool Close() {
        const int fd = Release();
        return fd < 0 || close(fd) == 0;
    }

  private:
    int fd_;
};

}  // namespace tavo

#endif

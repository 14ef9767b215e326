// Owning a descriptor, and system calls that signals do not end.
#ifndef TAVO_BASE_DESCRIPTOR_H
#define TAVO_BASE_DESCRIPTOR_H

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <string_view>
#include <utility>

namespace tavo {

// Keeps errno as it is for what must not hide why a step before it failed.
class UnchangedErrno {
  public:
    UnchangedErrno() = default;
    ~UnchangedErrno() { errno = error_; }
    UnchangedErrno(const UnchangedErrno &) = delete;
    UnchangedErrno &operator=(const UnchangedErrno &) = delete;

  private:
    const int error_ = errno;
};

// Makes a system call again for as long as a signal cuts it short.
template <typename Call>
auto Uninterrupted(Call call) {
    for (;;) {
        const auto result = call();
        if (result != -1 || errno != EINTR) {
            return result;
        }
    }
}

// Writes all of `text`, in as many calls as it takes; false with an errno.
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

// Owns an open descriptor; a negative number is none. Giving it up leaves errno unchanged, so that
// a function can return while errno says why it failed.
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

    // Hands it over to the caller.
    int Release() { return std::exchange(fd_, -1); }

    void Reset(int fd = -1) {
        const UnchangedErrno unchanged;
        Close();
        fd_ = fd;
    }

    // Closes it; false when that fails, which is where some file systems report a failed write.
    bool Close() {
        const int fd = Release();
        return fd < 0 || close(fd) == 0;
    }

  private:
    int fd_;
};

}  // namespace tavo

#endif

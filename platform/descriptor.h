// Owning a descriptor, and system calls that signals do not end.
#ifndef TAVO_PLATFORM_DESCRIPTOR_H
#define TAVO_PLATFORM_DESCRIPTOR_H

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <string_view>

namespace tavo {

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

// Owns an open descriptor; -1 is none.
class Descriptor {
  public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    ~Descriptor() { Close(); }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    int Get() const { return fd_; }
    bool IsOpen() const { return fd_ >= 0; }

    void Reset(int fd) {
        Close();
        fd_ = fd;
    }

    // Closes it; false when that fails, which is where some file systems report a failed write.
    bool Close() {
        const int fd = fd_;
        fd_ = -1;
        return fd < 0 || close(fd) == 0;
    }

  private:
    int fd_;
};

}  // namespace tavo

#endif

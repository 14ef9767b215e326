// The owner of a file descriptor.
#ifndef TAVO_TOOLS_APPLIANCE_DESCRIPTOR_H
#define TAVO_TOOLS_APPLIANCE_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace tavo {

class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(Descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Descriptor() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }

    int Get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

  private:
    int fd_ = -1;
};

}  // namespace tavo

#endif

// Owns an open file descriptor.
#ifndef TAVO_SRC_SUPPORT_DESCRIPTOR_H
#define TAVO_SRC_SUPPORT_DESCRIPTOR_H

#include <unistd.h>

namespace tavo {

class Descriptor {
  public:
    // Negative is none.
    explicit Descriptor(int nDescriptor) : nDescriptor_(nDescriptor) {}
    ~Descriptor() {
        if (IsOpen()) {
            close(nDescriptor_);
        }
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    int Get() const { return nDescriptor_; }
    bool IsOpen() const { return nDescriptor_ >= 0; }

    // Hands the descriptor over to the caller.
    int Release() {
        const int nDescriptor = nDescriptor_;
        nDescriptor_ = -1;
        return nDescriptor;
    }

  private:
    int nDescriptor_;
};

}  // namespace tavo

#endif

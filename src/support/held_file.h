// Reads a file as one snapshot. Reading N sections of a file opens and parses it N times; while a
// HeldFile exists, these readings use one snapshot, which keeps the cost linear.
#ifndef TAVO_SRC_SUPPORT_HELD_FILE_H
#define TAVO_SRC_SUPPORT_HELD_FILE_H

#include "tavocore.h"

// The core library of an appliance, and its header, may lack these functions.
extern "C" {
__attribute__((weak)) int TLIBCFileHold(const char *szPath);
__attribute__((weak)) int TLIBCFileHoldNext(int nFolder, const char *szPath);
__attribute__((weak)) void TLIBCFileRelease(void);
}

namespace tavo {

// A thread can hold one file at a time: do not hold a file during a call that holds its own. A file
// that cannot be held is read directly, which reports any error.
class HeldFile {
  public:
    HeldFile() = default;
    explicit HeldFile(const char *path)
        : held_(TLIBCFileHold != nullptr && TLIBCFileRelease != nullptr &&
                TLIBCFileHold(path) == 0) {}
    ~HeldFile() {
        if (held_) {
            TLIBCFileRelease();
        }
    }
    HeldFile(const HeldFile &) = delete;
    HeldFile &operator=(const HeldFile &) = delete;

    // Holds the file `path` of the open `folder` in place of the one before. For files that are
    // read one after the other this is cheaper than a HeldFile for each, which then has no effect.
    void HoldNext(int folder, const char *path) {
        if (held_) {
            held_ = TLIBCFileHoldNext(folder, path) == 0;
        } else if (TLIBCFileHoldNext != nullptr && folder >= 0) {
            held_ = TLIBCFileHold(path) == 0;
        }
    }

  private:
    bool held_ = false;
};

// Ends a hold of the caller, or one left on the thread by a call that ended with longjmp.
// Operations that change a file based on its contents call this first.
inline void ReleaseHeldFile() {
    if (TLIBCFileRelease != nullptr) {
        TLIBCFileRelease();
    }
}

}  // namespace tavo

#endif

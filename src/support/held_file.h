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
    explicit HeldFile(const char *szPath)
        : held_(TLIBCFileHold != nullptr && TLIBCFileRelease != nullptr &&
                TLIBCFileHold(szPath) == 0) {}
    ~HeldFile() {
        if (held_) {
            TLIBCFileRelease();
        }
    }
    HeldFile(const HeldFile &) = delete;
    HeldFile &operator=(const HeldFile &) = delete;

    // Holds the file `szPath` of the open folder `nFolder` in place of the one before. For files
    // that are read one after the other this is cheaper than a HeldFile for each, which then has no
    // effect.
    void HoldNext(int nFolder, const char *szPath) {
        if (held_) {
            held_ = TLIBCFileHoldNext(nFolder, szPath) == 0;
        } else if (TLIBCFileHoldNext != nullptr && nFolder >= 0) {
            held_ = TLIBCFileHold(szPath) == 0;
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

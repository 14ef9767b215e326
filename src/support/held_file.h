// Reads a file as it stands at one moment. Reading N sections of a file opens and walks it N times;
// while a HeldFile lives, those readings come from one snapshot, so that the cost stays linear.
#ifndef TAVO_SRC_SUPPORT_HELD_FILE_H
#define TAVO_SRC_SUPPORT_HELD_FILE_H

#include "tavocore.h"

// An appliance's own core library may lack them, and its header too.
extern "C" {
__attribute__((weak)) int TLIBCFileHold(const char *szPath);
__attribute__((weak)) void TLIBCFileRelease(void);
}

namespace tavo {

// A thread holds one file at a time: hold none while something is called that holds its own.
// A file that cannot be held is read all the same, or its reading says why not.
class HeldFile {
  public:
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

  private:
    bool held_;
};

// Ends a hold that the caller has on a file, or that was left on the thread by a call that ended
// with longjmp. What changes a file on the strength of what it reads calls this first.
inline void ReleaseHeldFile() {
    if (TLIBCFileRelease != nullptr) {
        TLIBCFileRelease();
    }
}

}  // namespace tavo

#endif

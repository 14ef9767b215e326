// How the reading of a service, a file or a setting ended.
//
// Readings and enumerations leave out what they cannot read. That suits the firewall, which offers
// the rest, but not a check of ports: a service that was left out because memory ran out or a file
// could not be opened still uses its ports. So a reading that failed says which of the two it was.
#ifndef TAVO_SRC_MODEL_READING_H
#define TAVO_SRC_MODEL_READING_H

#include <sys/stat.h>

#include <cstdint>

#include "support/failure.h"
#include "support/presence.h"

namespace tavo {

class Reading {
  public:
    static constexpr Reading Good() { return {true, 0}; }

    // What was to be read is absent, or its contents are not valid.
    static constexpr Reading Invalid() { return {false, 0}; }

    // Memory ran out or a system call failed: the error state says which.
    static Reading Unknown() {
        const unsigned int code = TLIBCErrGet();
        return {false, code != 0 ? code : kErrorCannotOpen};
    }

    // The same with an error code that need not be in the error state.
    static constexpr Reading Unknown(unsigned int code) { return {false, code}; }

    bool IsGood() const { return good_; }

    // The error code of a reading that ended as unknown, 0 of any other.
    unsigned int Fault() const { return fault_; }

  private:
    constexpr Reading(bool good, unsigned int fault) : good_(good), fault_(fault) {}

    bool good_;
    unsigned int fault_;
};

// Why the core library, which set the error state, could not read `path`. It reports 0x900 both for
// what is no text file and for a failed system call.
inline Reading WhyUnreadable(const char *path) {
    constexpr std::intmax_t kLargest = std::intmax_t{2} << 30;  // the core library reads no more
    const unsigned int code = TLIBCErrGet();
    if (code == kErrorNoFile || code == kErrorBadParameter) {
        return Reading::Invalid();
    }
    if (code != kErrorCannotOpen) {
        return Reading::Unknown();
    }
    struct stat status;
    if (stat(path, &status) != 0) {
        return PresenceOf(path) == Presence::kAbsent ? Reading::Invalid() : Reading::Unknown();
    }
    return S_ISREG(status.st_mode) && status.st_size <= kLargest ? Reading::Unknown()
                                                                 : Reading::Invalid();
}

}  // namespace tavo

#endif

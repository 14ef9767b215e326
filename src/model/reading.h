// The result of reading a service, a file or a setting.
//
// Readings and enumerations leave out what they cannot read. This is right for the firewall, which
// offers the other services, but not for a check of ports: a service that was left out because
// memory ran out or a file could not be opened still uses its ports. A failed reading therefore
// says whether the source is absent or invalid, or whether its contents are unknown.
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

    // The source is absent or its contents are invalid.
    static constexpr Reading Invalid() { return {false, 0}; }

    // Memory ran out or a system call failed; the error state has the code.
    static Reading Unknown() {
        const unsigned int code = TLIBCErrGet();
        return {false, code != 0 ? code : TLIBC_ERR_FILE_UNUSABLE};
    }

    // The same with an error code that may differ from the error state.
    static constexpr Reading Unknown(unsigned int code) { return {false, code}; }

    bool IsGood() const { return good_; }

    // The error code of an unknown reading, 0 for any other.
    unsigned int Fault() const { return fault_; }

  private:
    constexpr Reading(bool good, unsigned int fault) : good_(good), fault_(fault) {}

    bool good_;
    unsigned int fault_;
};

// The reason why the core library, which set the error state, could not read `path`. It reports
// 0x900 both for a file that is not a text file and for a failed system call.
inline Reading WhyUnreadable(const char *path) {
    constexpr std::intmax_t kLargest = std::intmax_t{2} << 30;  // size limit of the core library
    const unsigned int code = TLIBCErrGet();
    if (code == TLIBC_ERR_NO_FILE || code == TLIBC_ERR_BAD_PARAMETER) {
        return Reading::Invalid();
    }
    if (code != TLIBC_ERR_FILE_UNUSABLE) {
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

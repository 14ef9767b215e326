// Whether what was read of the service files and the catalogue is complete.
//
// Readings and enumerations leave out what they cannot read. That suits the firewall, which offers
// the rest, but not a check of ports: a service that was left out because memory ran out or a file
// could not be opened still uses its ports. The public functions that read have no room to say why
// something is missing, so they note it here, for whoever collects the notes of the thread.
#ifndef TAVO_SRC_MODEL_COMPLETENESS_H
#define TAVO_SRC_MODEL_COMPLETENESS_H

#include <sys/stat.h>

#include <cstdint>

#include "support/failure.h"
#include "support/presence.h"

namespace tavo {

enum class Reading {
    kRead,
    kInvalid,  // absent, or its contents are not valid
    kUnknown,  // memory ran out or a system call failed; the error state says which
};

// Collects the notes of the calling thread while it lives. The notes are kept with the thread, so
// that a call that is left by longjmp leaves no pointer into its frame behind.
class Completeness {
  public:
    Completeness() : outer_(notes_) { notes_ = {}; }
    ~Completeness() { notes_ = outer_; }
    Completeness(const Completeness &) = delete;
    Completeness &operator=(const Completeness &) = delete;

    // The error code of the first reading that is unknown; 0 when there was none.
    unsigned int Fault() const { return notes_.fault; }

    // Whether nothing was left out, for any reason.
    bool LeftNothingOut() const { return !notes_.left_out; }

    // Notes how a reading ended. Call it while the error state is that of the reading.
    static void Note(Reading reading) {
        if (reading == Reading::kRead) {
            return;
        }
        notes_.left_out = true;
        if (reading == Reading::kUnknown && notes_.fault == 0) {
            const unsigned int code = TLIBCErrGet();
            notes_.fault = code != 0 ? code : TLIBC_ERR_FILE_UNUSABLE;
        }
    }

  private:
    struct Notes {
        unsigned int fault;
        bool left_out;
    };

    // Initial-exec, so that the first use in a thread allocates nothing.
    [[gnu::tls_model("initial-exec")]] static constinit inline thread_local Notes notes_ = {};

    Notes outer_;
};

// What it means that the core library could not read `path`, which set the error state. Its code
// 0x900 stands both for what is no file of text and for a failed system call.
inline Reading WhyUnreadable(const char *path) {
    constexpr std::intmax_t kLargest = std::intmax_t{2} << 30;  // the core library reads no more
    const unsigned int code = TLIBCErrGet();
    if (code == TLIBC_ERR_NO_FILE || code == TLIBC_ERR_BAD_PARAMETER) {
        return Reading::kInvalid;
    }
    if (code != TLIBC_ERR_FILE_UNUSABLE) {
        return Reading::kUnknown;
    }
    struct stat status;
    if (stat(path, &status) != 0) {
        return PresenceOf(path) == Presence::kAbsent ? Reading::kInvalid : Reading::kUnknown;
    }
    return S_ISREG(status.st_mode) && status.st_size <= kLargest ? Reading::kUnknown
                                                                 : Reading::kInvalid;
}

}  // namespace tavo

#endif

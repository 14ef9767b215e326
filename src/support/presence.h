// Whether a file or folder exists, with a third answer for when that is unknown. TLIBCFileExist
// answers yes or no only. A check of ports or a change of files that takes an I/O error for absence
// reports a port as free, or writes a second file.
#ifndef TAVO_SRC_SUPPORT_PRESENCE_H
#define TAVO_SRC_SUPPORT_PRESENCE_H

#include <sys/stat.h>

#include <cerrno>

namespace tavo {

enum class Presence { kPresent, kAbsent, kUnknown };

// What the errno of a stat that failed says. A path that cannot lead anywhere, such as a link to
// itself, is absent.
inline Presence PresenceAfter(int error) {
    switch (error) {
        case ENOENT:
        case ENOTDIR:
        case ELOOP:
        case ENAMETOOLONG:
            return Presence::kAbsent;
        default:
            return Presence::kUnknown;
    }
}

// Follows symbolic links.
inline Presence PresenceOf(const char *path) {
    struct stat status;
    return stat(path, &status) == 0 ? Presence::kPresent : PresenceAfter(errno);
}

}  // namespace tavo

#endif

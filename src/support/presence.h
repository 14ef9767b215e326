// Checks whether a file or folder exists, with a third result for unknown. TLIBCFileExist returns
// only yes or no. If an I/O error counted as absence, a check of ports would report a port as free,
// and a change of files would write a second file.
#ifndef TAVO_SRC_SUPPORT_PRESENCE_H
#define TAVO_SRC_SUPPORT_PRESENCE_H

#include <sys/stat.h>

#include <cerrno>

namespace tavo {

enum class Presence { kPresent, kAbsent, kUnknown };

// The presence according to the errno of a failed stat. A path that cannot lead anywhere, such as a
// link loop, is absent.
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

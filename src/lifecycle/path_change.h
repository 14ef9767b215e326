// Copying, moving and removing paths by the appliance's programs, below the exported functions.
#ifndef TAVO_SRC_LIFECYCLE_PATH_CHANGE_H
#define TAVO_SRC_LIFECYCLE_PATH_CHANGE_H

namespace tavo {

// CopyOrMovePath, but with the exit status of the program that copied or moved; -1 for a failure.
int CopyOrMove(const char *source, const char *target, bool move);

// Whether something is mounted on the path. A link to such a place is a link.
bool IsMountPoint(const char *path);

// Whether it is a folder, or a link to one.
bool IsFolder(const char *path);

}  // namespace tavo

#endif

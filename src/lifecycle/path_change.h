// Copying, moving and removing paths by the appliance's programs, below the exported functions.
#ifndef TAVO_SRC_LIFECYCLE_PATH_CHANGE_H
#define TAVO_SRC_LIFECYCLE_PATH_CHANGE_H

#include "lifecycle/step_failure.h"

namespace tavo {

// CopyOrMovePath, but with the exit status of the program that copied or moved; -1 for a failure.
// `failure` says which program did not end well.
int CopyOrMove(const char *source, const char *target, bool move, StepFailure &failure);

// RemovePath.
int RemoveTree(const char *path, StepFailure &failure);

// Whether something is mounted on the path. A link to such a place is a link.
bool IsMountPoint(const char *path);

// Whether it is a folder, or a link to one.
bool IsFolder(const char *path);

}  // namespace tavo

#endif

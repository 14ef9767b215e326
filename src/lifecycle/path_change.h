// Copies, moves and removes paths with the appliance's programs. The exported functions call these.
#ifndef TAVO_SRC_LIFECYCLE_PATH_CHANGE_H
#define TAVO_SRC_LIFECYCLE_PATH_CHANGE_H

#include "lifecycle/step_failure.h"

namespace tavo {

// As CopyOrMovePath, but returns the exit status of the program, or -1 on failure. `failure`
// records the cause.
int CopyOrMove(const char *source, const char *target, bool move, StepFailure &failure);

// As RemovePath.
int RemoveTree(const char *path, StepFailure &failure);

// True if the path is a mount point. Links are not followed.
bool IsMountPoint(const char *path);

// True if the path is a folder or a link to one.
bool IsFolder(const char *path);

}  // namespace tavo

#endif

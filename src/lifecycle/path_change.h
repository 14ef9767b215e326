// Creates, copies, moves and removes paths with the appliance's programs.
#ifndef TAVO_SRC_LIFECYCLE_PATH_CHANGE_H
#define TAVO_SRC_LIFECYCLE_PATH_CHANGE_H

#include "lifecycle/step_failure.h"

namespace tavo {

// Creates a folder and its missing parents with /bin/mkdir -p. New folders have the mode 0755,
// whatever the caller's umask is, and at no time a mode that lets others write into them. Returns
// the exit status of mkdir, with errno; -1 if it could not be run. On failure the new folders are
// removed.
int MakeFolder(const char *path, StepFailure &failure);

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

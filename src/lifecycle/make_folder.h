// Creates a service folder.
#ifndef TAVO_SRC_LIFECYCLE_MAKE_FOLDER_H
#define TAVO_SRC_LIFECYCLE_MAKE_FOLDER_H

#include "lifecycle/step_failure.h"

namespace tavo {

// Creates a folder and its missing parents with /bin/mkdir -p. New folders have the mode 0755,
// whatever the caller's umask is, and at no time a mode that lets others write into them. Returns
// the exit status of mkdir, with errno; -1 if it could not be run. On failure the new folders are
// removed.
int MakeFolder(const char *path, StepFailure &failure);

}  // namespace tavo

#endif

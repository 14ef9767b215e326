// Makes a service folder.
#ifndef TAVO_SRC_LIFECYCLE_MAKE_FOLDER_H
#define TAVO_SRC_LIFECYCLE_MAKE_FOLDER_H

#include "lifecycle/step_failure.h"

namespace tavo {

// Makes a folder, and those that lead to it, by /bin/mkdir -p. What is new has the mode 0755,
// whatever the caller's umask is, and never has another one that would let others write into it.
// What mkdir ended with, with errno; -1 when it could not be run. A failure leaves nothing new.
int MakeFolder(const char *path, StepFailure &failure);

}  // namespace tavo

#endif

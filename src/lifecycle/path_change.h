// Creates, copies, moves and removes paths with programs of the appliance.
#ifndef TAVO_SRC_LIFECYCLE_PATH_CHANGE_H
#define TAVO_SRC_LIFECYCLE_PATH_CHANGE_H

#include "lifecycle/step_failure.h"
#include "support/service_directory.h"
#include "support/text.h"

namespace tavo {

constexpr char kCopyProgram[] = "/bin/cp";
constexpr char kMoveProgram[] = "/bin/mv";
constexpr char kRemoveProgram[] = "/bin/rm";
constexpr char kMakeDirectoryProgram[] = "/bin/mkdir";

// A path as a program argument. A path with a leading dash is prefixed with "./", so that it is not
// taken for an option.
class PathArgument {
  public:
    explicit PathArgument(const char *path) {
        PrintText(path_, "%s%s", *path == '-' ? "./" : "", path);
    }
    const char *Get() const { return path_; }

  private:
    char path_[kPathSize + sizeof("./")];
};

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

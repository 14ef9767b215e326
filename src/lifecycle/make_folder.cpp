#include "lifecycle/path_change.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "lifecycle/programs.h"
#include "support/service_directory.h"
#include "support/text.h"
#include "tavocore.h"

namespace tavo {
namespace {

constexpr mode_t kFolderMode = 0755;

// Creates the missing folders of a path. mkdir -p would give them a mode that depends on the umask,
// and the umask is shared by all threads of the caller.
class NewFolders {
  public:
    explicit NewFolders(const char *path) {
        CopyText(path_, path);
        for (char *slash = path_; slash != nullptr;) {
            slash = std::strchr(slash + 1, '/');
            if (slash != nullptr) {
                *slash = '\0';
            }
            Make();
            if (slash != nullptr) {
                *slash = '/';
            }
        }
    }

    // Removes the new folders, the innermost first. A folder that is not empty is left.
    void Remove() {
        while (first_ > 0 && std::strlen(path_) >= first_ &&
               (rmdir(path_) == 0 || errno == ENOENT)) {
            *std::strrchr(path_, '/') = '\0';
        }
    }

  private:
    // If this fails, the mkdir program tries again and reports the cause.
    void Make() {
        if (mkdir(path_, kFolderMode) == 0) {
            chmod(path_, kFolderMode);
            first_ = first_ == 0 ? std::strlen(path_) : first_;
        }
    }

    char path_[kPathSize];
    std::size_t first_ = 0;  // path length of the outermost new folder
};

}  // namespace

int MakeFolder(const char *path, StepFailure &failure) {
    NewFolders made(path);
    const int status = TLIBCExec(kMakeDirectoryProgram, "-p", path, nullptr, nullptr);
    if (status != 0) {
        const int error = errno;
        failure.SetProgram(Step::kMakeFolder, kMakeDirectoryProgram, status, path);
        made.Remove();
        errno = error;
    }
    return status;
}

}  // namespace tavo

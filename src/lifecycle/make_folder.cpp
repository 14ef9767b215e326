#include "lifecycle/path_change.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "support/service_directory.h"
#include "support/text.h"
#include "tavocore.h"

namespace tavo {
namespace {

constexpr mode_t kFolderMode = 0755;

// Creates the missing folders of a path and returns the path length of the outermost new one; 0 if
// there is none. If this fails, the mkdir program tries again and reports the cause. mkdir -p alone
// would give the folders a mode that depends on the umask, which all threads of the caller share.
std::size_t MakeMissing(std::string_view path) {
    std::size_t first = 0;
    for (std::size_t end = 0; end < path.size();) {
        end = std::min(path.find('/', end + 1), path.size());
        char folder[kPathSize];
        CopyText(folder, path.substr(0, end));
        if (mkdir(folder, kFolderMode) == 0) {
            chmod(folder, kFolderMode);
            first = first == 0 ? std::strlen(folder) : first;
        }
    }
    return first;
}

// Removes the new folders, the innermost first. A folder that is not empty is left.
void RemoveNew(const char *path, std::size_t first) {
    char folder[kPathSize];
    CopyText(folder, path);
    while (first > 0 && std::strlen(folder) >= first && (rmdir(folder) == 0 || errno == ENOENT)) {
        *std::strrchr(folder, '/') = '\0';
    }
}

}  // namespace

int MakeFolder(const char *path, StepFailure &failure) {
    const std::size_t first = MakeMissing(path);
    const int status = TLIBCExec(kMakeDirectoryProgram, "-p", path, nullptr, nullptr);
    if (status != 0) {
        const int error = errno;
        failure.SetProgram(Step::kMakeFolder, kMakeDirectoryProgram, status, path);
        RemoveNew(path, first);
        errno = error;
    }
    return status;
}

}  // namespace tavo

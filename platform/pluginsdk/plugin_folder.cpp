// A folder of plugins is listed first and run then, so a plugin that installs another one does not
// have it run in the same call. Whether an entry is a plugin is asked when its turn comes: a plugin
// may have removed the next.
#include "plugin_folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform_failure.h"

namespace tavo {
namespace {

// How long a plugin may take. The caller waits, and so does whoever installs a package.
constexpr int kSecondsOfAPlugin = 60;

// Room for a root, a group and a name, with slashes between.
constexpr std::size_t kPathSize = 64 + 2 * (NAME_MAX + 1);

// The entries of a folder, in the order of their names' bytes whatever the locale.
class Entries {
  public:
    Entries() = default;
    ~Entries() {
        for (int i = 0; i < count_; ++i) {
            std::free(entries_[i]);
        }
        std::free(entries_);
    }
    Entries(const Entries &) = delete;
    Entries &operator=(const Entries &) = delete;

    // False with an errno.
    bool List(const char *folder) {
        count_ = scandir(folder, &entries_, nullptr, [](const dirent **a, const dirent **b) {
            return std::strcmp((*a)->d_name, (*b)->d_name);
        });
        return count_ >= 0;
    }

    int Count() const { return count_; }
    const char *Name(int index) const { return entries_[index]->d_name; }

  private:
    dirent **entries_ = nullptr;
    int count_ = 0;
};

bool IsPlugin(const char *path) {
    struct stat status;
    return stat(path, &status) == 0 && S_ISREG(status.st_mode) &&
           faccessat(AT_FDCWD, path, X_OK, AT_EACCESS) == 0;
}

int RunPlugin(const char *path, const char *action, std::string_view input) {
    const int status = TLIBCExecInput(path, action, input.data(), input.size(), kSecondsOfAPlugin);
    return status > 0 ? TAVO_PLATFORM_FAIL(TLIBC_ERR_FILE_UNUSABLE) : status;
}

}  // namespace

int RunPluginsOf(const char *root, const char *group, const char *action, std::string_view input) {
    char folder[kPathSize];
    std::snprintf(folder, kPathSize, "%s/%s", root, group);
    Entries entries;
    if (!entries.List(folder)) {
        return errno == ENOENT   ? 0
               : errno == ENOMEM ? TAVO_PLATFORM_FAIL(TLIBC_ERR_NO_MEMORY)
                                 : TAVO_PLATFORM_FAIL(TLIBC_ERR_FILE_UNUSABLE);
    }
    int result = 0;
    for (int i = 0; i < entries.Count(); ++i) {
        char path[kPathSize];
        std::snprintf(path, kPathSize, "%s/%s/%s", root, group, entries.Name(i));
        if (IsPlugin(path) && RunPlugin(path, action, input) != 0) {
            result = -1;
        }
    }
    return result;
}

}  // namespace tavo

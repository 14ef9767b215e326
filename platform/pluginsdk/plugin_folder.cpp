// A folder of plugins is listed first and then run, so that a plugin installed by another one does
// not run in the same call. Whether an entry is a plugin is checked only when it is run, because an
// earlier plugin may have removed it.
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

// The time limit of a plugin. The caller waits, and so does the user who installs a package.
constexpr int kSecondsOfAPlugin = 60;

// The size of a root, a group and a name, with slashes between them.
constexpr std::size_t kPathSize = 64 + 2 * (NAME_MAX + 1);

// The entries of a folder, sorted by the bytes of their names in every locale.
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

    // Returns false with errno set.
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

int RunPlugin(const char *path, const char *action, std::string_view input,
              const PluginReport &report) {
    const int status = TLIBCExecInput(path, action, input.data(), input.size(), kSecondsOfAPlugin);
    report(path, status);
    return status > 0 ? TAVO_PLATFORM_FAIL(TLIBC_ERR_FILE_UNUSABLE) : status;
}

}  // namespace

int RunPluginsOf(const char *root, const char *group, const char *action, std::string_view input,
                 const PluginReport &report) {
    char folder[kPathSize];
    std::snprintf(folder, kPathSize, "%s/%s", root, group);
    Entries entries;
    if (!entries.List(folder)) {
        if (errno == ENOENT) {
            return 0;
        }
        TAVO_PLATFORM_FAIL(errno == ENOMEM ? TLIBC_ERR_NO_MEMORY : TLIBC_ERR_FILE_UNUSABLE);
        report(folder, -1);
        return -1;
    }
    int result = 0;
    for (int i = 0; i < entries.Count(); ++i) {
        char path[kPathSize];
        std::snprintf(path, kPathSize, "%s/%s/%s", root, group, entries.Name(i));
        if (IsPlugin(path) && RunPlugin(path, action, input, report) != 0) {
            result = -1;
        }
    }
    return result;
}

}  // namespace tavo

// A listing that ends early looks like one that is complete, so errno is looked at behind it. The
// iterators of the standard library end the program when memory runs out.
#include "input/folder_names.h"

#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string_view>

#include "base/owners.h"

namespace tavo::tool {

std::optional<std::vector<std::string>> NamesIn(const std::string &folder) {
    const std::unique_ptr<DIR, FreeWith<closedir>> entries(opendir(folder.c_str()));
    if (entries == nullptr) {
        return {};
    }
    std::vector<std::string> names;
    errno = 0;
    while (const dirent *entry = readdir(entries.get())) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") {
            names.emplace_back(name);
        }
        errno = 0;
    }
    if (errno != 0) {
        return {};
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace tavo::tool

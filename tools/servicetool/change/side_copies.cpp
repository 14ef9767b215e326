#include "change/side_copies.h"

#include <sys/stat.h>
#include <unistd.h>

#include "input/service_file.h"
#include "lifecycle/side_copy.h"
#include "ports/source_failure.h"

namespace tavo::tool {
std::vector<SideCopy> SideCopiesLeft() {
    std::vector<std::string> originals = {kFirewallDirectory, kRuleFile};
    for (const ServiceFolder &folder : ServiceFolders(kEveryServiceFolder)) {
        originals.emplace_back(folder.path);
    }
    std::vector<SideCopy> copies;
    for (const std::string &original : originals) {
        const std::string path = original + ".tmp." + std::to_string(getpid());
        struct stat status {};
        if (lstat(path.c_str(), &status) == 0) {
            copies.push_back({original, path});
        }
    }
    return copies;
}

}  // namespace tavo::tool

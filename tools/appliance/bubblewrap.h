// The command line of bubblewrap, which defines what the appliance looks like.
#ifndef TAVO_TOOLS_APPLIANCE_BUBBLEWRAP_H
#define TAVO_TOOLS_APPLIANCE_BUBBLEWRAP_H

#include <filesystem>
#include <string>
#include <vector>

namespace tavo {

// The build tree of the launcher, found from its own program file.
struct BuildTree {
    std::filesystem::path program;  // the launcher itself
    std::filesystem::path bin;      // where every program of the build is
    std::filesystem::path build;    // the build tree
    std::filesystem::path share;    // the template
    std::filesystem::path source;   // the source tree
};
BuildTree FindBuildTree();

// The bwrap program on the PATH; throws if there is none.
std::filesystem::path FindBubblewrap();

// Whether `path` is `folder` or below it; both absolute and without "..".
bool IsInside(const std::filesystem::path &path, const std::filesystem::path &folder);

// Whether an absolute path is in one of the system folders that are shared with the host.
bool IsHostPath(const std::filesystem::path &path);

// The command line that starts `command` in an appliance with the root `root`. It starts the
// launcher inside first, which reports through `report_fd` (see inside.h).
std::vector<std::string> BubblewrapCommand(const std::filesystem::path &bubblewrap,
                                           const BuildTree &tree, const std::filesystem::path &root,
                                           int report_fd, const std::vector<std::string> &command);

}  // namespace tavo

#endif

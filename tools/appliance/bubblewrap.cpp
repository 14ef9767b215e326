// The appliance's root is the tree of the run. The host's programs and libraries and the source and
// build trees are mounted over it read-only, each at its own path, so that programs run inside with
// their original RPATHs.
#include "bubblewrap.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <sstream>

#include "failure.h"
#include "inside.h"
#include "message_log.h"

namespace tavo {
namespace fs = std::filesystem;
namespace {

// Programs such as awk are links into /etc/alternatives.
constexpr std::array kHostFolders = {"/usr/bin",     "/usr/sbin",  "/usr/lib",         "/usr/lib64",
                                     "/usr/libexec", "/usr/share", "/etc/alternatives"};

using Arguments = std::vector<std::string>;

void Append(Arguments &arguments, std::initializer_list<std::string> more) {
    arguments.insert(arguments.end(), more);
}

void AppendNamespaces(Arguments &arguments) {
    Append(arguments, {"--unshare-pid", "--unshare-net", "--unshare-ipc", "--unshare-uts",
                       "--hostname", "appliance", "--die-with-parent"});
    if (geteuid() != 0) {
        // Root inside the appliance only: its rights end at the namespaces.
        Append(arguments, {"--unshare-user", "--uid", "0", "--gid", "0", "--cap-add", "ALL"});
    }
}

void AppendReadOnly(Arguments &arguments, const fs::path &folder) {
    // If bubblewrap created these folders implicitly, only root could access them.
    fs::path above = "/";
    for (const fs::path &name : folder.parent_path().relative_path()) {
        Append(arguments, {"--dir", above /= name});
    }
    Append(arguments, {"--ro-bind", folder, folder});
}

void AppendMounts(Arguments &arguments, const BuildTree &tree, const fs::path &root) {
    Append(arguments, {"--bind", root, "/"});
    for (const char *folder : kHostFolders) {
        Append(arguments, {"--ro-bind-try", folder, folder});
    }
    AppendReadOnly(arguments, tree.source);
    AppendReadOnly(arguments, tree.build);
    // Coverage counters are files in the build tree, which programs inside write when they exit.
    if (const char *counters = std::getenv("TAVO_APPLIANCE_WRITABLE")) {
        Append(arguments, {"--bind", counters, counters});
    }
    Append(arguments, {"--proc", "/proc", "--dev", "/dev", "--symlink", kLogSocket, "/dev/log"});
}

void AppendEnvironment(Arguments &arguments, const BuildTree &tree) {
    const std::string path =
        tree.bin.string() + ":/usr/tavo/bin:/usr/tavo/sbin:/bin:/usr/bin:/usr/sbin";
    Append(arguments, {"--setenv", "PATH", path, "--setenv", "HOME", "/root", "--setenv", "USER",
                       "root", "--setenv", "LOGNAME", "root", "--unsetenv", "TMPDIR"});
}

// The working directory if it exists inside, else "/".
std::string WorkingDirectory(const BuildTree &tree) {
    std::error_code gone;
    const fs::path here = fs::current_path(gone);
    const bool visible =
        IsInside(here, tree.source) || IsInside(here, tree.build) || IsHostPath(here);
    return visible ? here : "/";
}

}  // namespace

BuildTree FindBuildTree() {
    BuildTree tree;
    tree.program = fs::read_symlink("/proc/self/exe");
    tree.bin = tree.program.parent_path();
    tree.build = tree.bin.parent_path();
    tree.share = tree.build / "share/tavo-appliance";
    std::error_code missing;
    tree.source = fs::canonical(tree.share / "source", missing);
    if (missing) {
        throw Failure("no appliance template in " + tree.share.string());
    }
    return tree;
}

fs::path FindBubblewrap() {
    const char *path = std::getenv("PATH");
    std::istringstream folders(path == nullptr ? "" : path);
    for (std::string folder; std::getline(folders, folder, ':');) {
        fs::path program = fs::path(folder) / "bwrap";
        if (!folder.empty() && access(program.c_str(), X_OK) == 0) {
            return program;
        }
    }
    throw Failure("bubblewrap is not installed: apt-get install bubblewrap");
}

bool IsInside(const fs::path &path, const fs::path &folder) {
    return std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first ==
           folder.end();
}

bool IsHostPath(const fs::path &path) {
    return std::any_of(kHostFolders.begin(), kHostFolders.end(),
                       [&](const char *folder) { return IsInside(path, folder); });
}

Arguments BubblewrapCommand(const fs::path &bubblewrap, const BuildTree &tree, const fs::path &root,
                            int report_fd, const Arguments &command) {
    Arguments arguments = {bubblewrap};
    AppendNamespaces(arguments);
    AppendMounts(arguments, tree, root);
    AppendEnvironment(arguments, tree);
    Append(arguments, {"--chdir", WorkingDirectory(tree), "--", tree.program, kInsideCommand,
                       std::to_string(report_fd)});
    arguments.insert(arguments.end(), command.begin(), command.end());
    return arguments;
}

}  // namespace tavo

#include "change/live_process.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <iterator>
#include <string_view>
#include <system_error>
#include <vector>

#include "input/input_file.h"

namespace tavo::tool {
namespace {

// A change takes seconds, or minutes if a listener hangs.
constexpr std::time_t kLongestChange = 600;

// Mapped files of processes that may make such files, see proc_pid_maps(5).
constexpr std::string_view kMakers[] = {"/libtavoserviceconf.so", "/servicetool\n",
                                        "/servicetool (deleted)\n"};

// The names in a folder of /proc. Empty if the process has ended or cannot be inspected.
std::vector<std::string> NamesInProc(const std::string &folder) {
    auto names = NamesIn(folder);
    if (!names && errno != ENOENT && errno != ESRCH && errno != EACCES) {
        throw std::system_error(errno, std::generic_category(), folder);
    }
    return std::move(names).value_or(std::vector<std::string>());
}

std::vector<pid_t> OtherProcesses() {
    std::vector<pid_t> pids;
    for (const std::string &name : NamesInProc("/proc")) {
        pid_t pid = 0;
        const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
        if (error == std::errc() && *end == '\0' && pid != getpid()) {
            pids.push_back(pid);
        }
    }
    return pids;
}

bool HasOpen(pid_t pid, const std::string &path) {
    const std::string folder = "/proc/" + std::to_string(pid) + "/fd/";
    for (const std::string &name : NamesInProc(folder)) {
        std::error_code gone;
        if (std::filesystem::read_symlink(folder + name, gone) == path) {
            return true;
        }
    }
    return false;
}

// Returns true for a process that cannot be inspected, and false for one that has ended.
bool MayBeMaker(pid_t pid) {
    const FileContents maps = ReadRegularFile("/proc/" + std::to_string(pid) + "/maps");
    return std::any_of(std::begin(kMakers), std::end(kMakers),
                       [&](std::string_view maker) {
                           return maps.text.find(maker) != std::string::npos;
                       }) ||
           (!maps.problem.empty() && !maps.absent && maps.problem != ErrorText(ESRCH));
}

bool IsNew(const std::string &path) {
    struct stat status {};
    return lstat(path.c_str(), &status) != 0 ||
           std::time(nullptr) - status.st_ctim.tv_sec < kLongestChange;
}

}  // namespace

bool IsRunning(pid_t pid) {
    return kill(pid, 0) == 0 || errno != ESRCH;
}

std::optional<pid_t> PossibleUser(const std::string &path) {
    const bool is_new = IsNew(path);
    // /proc lists open files by their path without symbolic links.
    std::error_code gone;
    const std::string real_path = std::filesystem::canonical(path, gone);
    for (const pid_t pid : OtherProcesses()) {
        if (HasOpen(pid, real_path) || (is_new && MayBeMaker(pid))) {
            return pid;
        }
    }
    return {};
}

}  // namespace tavo::tool

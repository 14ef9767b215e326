#include "live_process.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <vector>

#include "input_file.h"

namespace tavo {
namespace {

// A change takes seconds, a stuck listener minutes.
constexpr std::time_t kLongestChange = 10 * 60;

constexpr std::string_view kLibrary = "/libtavoserviceconf.so";

[[noreturn]] void Throw(const std::string &what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// The names in a folder of /proc. None when its process has ended or is out of sight.
std::vector<std::string> NamesIn(const std::string &folder) {
    DIR *entries = opendir(folder.c_str());
    if (entries == nullptr) {
        if (errno == ENOENT || errno == ESRCH || errno == EACCES) {
            return {};
        }
        Throw(folder);
    }
    std::vector<std::string> names;
    errno = 0;
    while (const dirent *entry = readdir(entries)) {
        names.emplace_back(entry->d_name);
        errno = 0;
    }
    const int error = errno;
    closedir(entries);
    if (error != 0 && error != ESRCH && error != ENOENT) {
        errno = error;
        Throw(folder);
    }
    return names;
}

std::vector<pid_t> OtherProcesses() {
    std::vector<pid_t> pids;
    for (const std::string &name : NamesIn("/proc")) {
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
    for (const std::string &name : NamesIn(folder)) {
        std::error_code gone;
        if (std::filesystem::read_symlink(folder + name, gone) == path) {
            return true;
        }
    }
    return false;
}

// A process that may not be looked at may have it loaded; one that has ended has not.
bool HasLibrary(pid_t pid) {
    const FileContents maps = ReadRegularFile("/proc/" + std::to_string(pid) + "/maps");
    return maps.text.find(kLibrary) != std::string::npos ||
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
    for (const pid_t pid : OtherProcesses()) {
        if (HasOpen(pid, path) || (is_new && HasLibrary(pid))) {
            return pid;
        }
    }
    return {};
}

}  // namespace tavo

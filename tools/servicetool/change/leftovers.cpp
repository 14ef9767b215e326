// Leftovers are recognised by name only: the names that the library and servicetool give to their
// temporary files. All users can write to /tmp, so files of other users are ignored there, and
// symbolic links are not followed.
#include "change/leftovers.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <set>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "base/descriptor.h"
#include "change/installed_file.h"
#include "input/input_file.h"
#include "input/service_file.h"
#include "lifecycle/path_change.h"
#include "lifecycle/side_copy.h"
#include "lifecycle/temporary_copy.h"
#include "ports/port_query.h"
#include "support/writers_lock.h"

namespace tavo::tool {
namespace {

namespace fs = std::filesystem;

constexpr char kAnotherOne[] = "another file now has this name";

// ---- Entries

// The names in a folder, which is taken for an empty one after the errors for which is_empty(errno)
// is true.
std::vector<std::string> NamesOrThrow(const std::string &folder,
                                      bool (*is_empty)(int) = IsAbsence) {
    auto names = NamesIn(folder);
    if (!names && !is_empty(errno)) {
        throw std::system_error(errno, std::generic_category(), folder);
    }
    return std::move(names).value_or(std::vector<std::string>());
}

// Returns nullopt if the path does not exist. Throws if that is unknown.
std::optional<struct stat> StatusOf(const std::string &path, decltype(lstat) look) {
    struct stat status {};
    if (look(path.c_str(), &status) == 0) {
        return status;
    }
    if (!IsAbsence(errno)) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return {};
}

// The mode of a private folder of servicetool. A user may have a folder of such a name for another
// purpose, which probably has other permissions.
constexpr mode_t kPrivateMode = S_IFDIR | S_IRWXU;

// Whether the path is a file or folder that belongs to this user or to root. `mode` is its type,
// with the permissions if these matter. A file must not have further hard links.
bool IsOurs(const std::string &path, mode_t mode) {
    struct stat status {};
    const mode_t relevant = mode == kPrivateMode ? S_IFMT | 07777 : S_IFMT;
    return lstat(path.c_str(), &status) == 0 && (status.st_mode & relevant) == mode &&
           (status.st_uid == geteuid() || status.st_uid == 0) &&
           (S_ISDIR(mode) || status.st_nlink == 1);
}

// ---- Names

// What follows the head of a name; "" if the name does not start with it.
std::string_view After(std::string_view head, std::string_view name) {
    return name.starts_with(head) ? name.substr(head.size()) : std::string_view();
}

// The parts of the text before and after its last dot. Both are "" if there is no dot or nothing
// before it.
std::pair<std::string, std::string_view> SplitAtLastDot(std::string_view text) {
    const std::size_t dot = text.rfind('.');
    if (dot == text.npos || dot == 0) {
        return {};
    }
    return {std::string(text.substr(0, dot)), text.substr(dot + 1)};
}

// Whether the text is a positive number without leading zeros.
bool IsOrdinal(std::string_view text) {
    return IsNumber(text) && text[0] != '0';
}

std::optional<pid_t> ProcessIdOf(std::string_view text) {
    pid_t pid = 0;
    const bool fits = std::from_chars(text.begin(), text.end(), pid).ec == std::errc();
    return fits && IsOrdinal(text) ? std::optional(pid) : std::nullopt;
}

// Whether mkstemp(3) or mkdtemp(3) can have generated the text.
bool IsRandom(std::string_view text) {
    return text.size() == 6 &&
           std::ranges::all_of(text, [](unsigned char c) { return std::isalnum(c) != 0; });
}

// ---- Processes

// A change takes seconds, or minutes if a listener hangs.
constexpr std::time_t kLongestChange = 600;

// Mapped files of processes that may make temporary files, see proc_pid_maps(5).
constexpr std::string_view kMakers[] = {"/libtavoserviceconf.so", "/servicetool\n",
                                        "/servicetool (deleted)\n"};

// Also true for a process of another user.
bool IsRunning(pid_t pid) {
    return kill(pid, 0) == 0 || errno != ESRCH;
}

// Returns false for a process that has ended or cannot be inspected.
bool HasOpen(const std::string &process, const std::string &path) {
    const std::string folder = process + "/fd/";
    const auto names = NamesOrThrow(
        folder, [](int error) { return error == ENOENT || error == ESRCH || error == EACCES; });
    return std::ranges::any_of(names, [&](const std::string &name) {
        std::error_code gone;
        return fs::read_symlink(folder + name, gone) == path;
    });
}

// Returns true for a process that cannot be inspected, and false for one that has ended.
bool MayBeMaker(const std::string &process) {
    const FileContents maps = ReadRegularFile(process + "/maps");
    if (!maps.problem.empty()) {
        return !maps.absent && maps.problem != ErrorText(ESRCH);
    }
    return std::ranges::any_of(kMakers, [&](std::string_view maker) {
        return maps.text.find(maker) != std::string::npos;
    });
}

// The process that may still need a file without a process id in its name: one that has the file
// open or, if the file is new, any other servicetool or program that has loaded the library.
// Returns nullopt if there is none. Throws std::system_error if that is unknown.
std::optional<pid_t> PossibleUser(const std::string &path) {
    const auto status = StatusOf(path, lstat);
    const bool is_new = !status || std::time(nullptr) - status->st_ctim.tv_sec < kLongestChange;
    // /proc lists open files by their path without symbolic links.
    const std::string real_path = RealPathOf(path);
    for (const std::string &name : NamesOrThrow("/proc")) {
        const std::optional<pid_t> pid = ProcessIdOf(name);
        const std::string process = "/proc/" + name;
        if (pid && *pid != getpid() &&
            (HasOpen(process, real_path) || (is_new && MayBeMaker(process)))) {
            return pid;
        }
    }
    return {};
}

// ---- What must stay

// Whether no service folder contains a file of that name. A file that cannot be checked counts as
// present.
bool IsGone(const std::string &name) {
    return std::ranges::all_of(kServiceFolders, [&](const ServiceFolder &folder) {
        std::error_code error;
        return fs::symlink_status(fs::path(folder.path) / name, error).type() ==
               fs::file_type::not_found;
    });
}

// The names in a store or in its copy, without the folders for temporary files.
std::vector<std::string> PartsOf(const std::string &folder, const std::string &store) {
    std::vector<std::string> names = NamesOrThrow(folder);
    std::erase_if(names, [&](const std::string &name) {
        return name == kWriterFolder ||
               (name == kInstallFolder && store != PathOf(StoreId::kFirewallRules));
    });
    return names;
}

// Whether the original of a file is missing or empty, or mv was killed while it was writing it.
// Then it is shorter than its copy. mv writes files only across file systems; otherwise sizes
// differ because the store was changed.
bool HoldsMore(const struct stat &copy, const std::optional<struct stat> &original) {
    if (!S_ISREG(copy.st_mode) || copy.st_size == 0) {
        return false;
    }
    return !original || original->st_size == 0 ||
           (original->st_dev != copy.st_dev && original->st_size < copy.st_size);
}

// Describes something at `inner`, a path in both, that the copy contains and the original does not,
// as the second part of a sentence that starts with the path of the copy. "" if there is nothing.
std::string LossAt(const Leftover &copy, const std::string &inner) {
    const bool whole = inner.empty();
    const auto kept = StatusOf(copy.path + inner, lstat);
    const auto present = StatusOf(copy.original + inner, whole ? stat : lstat);
    if (!kept) {
        return "";
    }
    const bool folder = S_ISDIR(kept->st_mode);
    if (!whole && (!present || (folder && !S_ISDIR(present->st_mode)))) {
        return "holds " + inner.substr(1) + ", which " + copy.original + " lacks";
    }
    if (!folder) {
        const std::string part = whole ? "" : "of " + inner.substr(1) + ' ';
        return HoldsMore(*kept, present) ? "holds more " + part + "than " + copy.original : "";
    }
    const std::string path = copy.path + inner;
    for (const std::string &name : whole ? PartsOf(path, copy.original) : NamesOrThrow(path)) {
        std::string loss = LossAt(copy, inner + '/' + name);
        if (!loss.empty()) {
            return loss;
        }
    }
    return "";
}

// The path to restore a store to: the target if it is a symbolic link, because cp does not write
// through a dangling link.
fs::path PlaceOf(const fs::path &store) {
    std::error_code no_link;
    const fs::path target = fs::read_symlink(store, no_link);
    return no_link ? store : (store.parent_path() / target).lexically_normal();
}

// Opens a file or folder with additional flags, and locks it with flock(2) if no process uses it.
// Else the result is not open, with errno set; EWOULDBLOCK if it is in use.
Descriptor LockUnused(const std::string &path, int flags, int operation) {
    Descriptor file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | flags));
    return file.IsOpen() && flock(file.Get(), operation | LOCK_NB) == 0 ? std::move(file)
                                                                        : Descriptor();
}

// Marks a copy that must be kept. A section removal copies whole stores; to restore one, it removes
// the store and moves the copy back. If it is killed in between, only the copy exists. A store may
// be a symbolic link, which is followed.
void KeepStore(Leftover &copy) {
    const auto present = StatusOf(copy.original, stat);
    const bool folder = IsFolder(copy.path.c_str());
    const bool lost = !present || (folder ? PartsOf(copy.original, copy.original).empty()
                                          : present->st_size == 0);
    copy.keep = LossAt(copy, "");
    if (copy.keep.empty()) {
        return;
    }
    if (lost) {
        copy.keep = "is the only copy of " + copy.original;
        copy.fix = "write cp -a " + copy.path + (folder ? "/." : "") + ' ' +
                   PlaceOf(copy.original).string();
    } else {
        copy.fix = "put it back with cp -a, or remove the copy by hand";
    }
}

// ---- Search

// Whether the process that made the candidate is running. Servicetool locks its private folder, and
// a writer a file in its folder; other names contain the process id, if anything does.
bool IsInUse(const Leftover &candidate) {
    if (candidate.kind == LeftoverKind::kPrivateFolder) {
        return !LockUnused(candidate.path, O_DIRECTORY, LOCK_SH).IsOpen();
    }
    if (candidate.kind == LeftoverKind::kWriterFolder) {
        return !LockUnused(candidate.path + "/lock", O_NONBLOCK, LOCK_SH).IsOpen() &&
               !IsAbsence(errno);
    }
    return candidate.pid && IsRunning(*candidate.pid);
}

// Adds why a leftover must stay, if it must.
void Assess(Leftover &found) {
    if (found.kind == LeftoverKind::kUpdatedFile || found.kind == LeftoverKind::kStagedFile) {
        found.user = PossibleUser(found.path);
    } else if (found.kind == LeftoverKind::kStore) {
        KeepStore(found);
    } else if (found.kind == LeftoverKind::kRemovedFile && IsGone(found.original)) {
        found.keep = "is all that is left of " + found.original +
                     ", whose removal the plugins may not know of";
        found.fix = "write servicetool remove " + found.original;
    }
}

// The names in a folder, none if it does not exist. Notes a folder that cannot be read.
std::vector<std::string> NamesToCheck(const std::string &folder, Leftovers &found) {
    auto names = NamesIn(folder);
    if (!names && !IsAbsence(errno)) {
        found.unread.emplace_back(folder, ErrorText(errno));
    }
    return std::move(names).value_or(std::vector<std::string>());
}

// `mode` is the one that IsOurs expects.
void AddIfOurs(Leftover leftover, mode_t mode, Leftovers &found) {
    if (IsOurs(leftover.path, mode)) {
        found.all.push_back(std::move(leftover));
    }
}

void LookInTmp(Leftovers &found) {
    for (const std::string &name : NamesToCheck(kTemporaryFolder, found)) {
        const std::string path = kTemporaryFolder + ('/' + name);
        const auto [updated, old] = SplitAtLastDot(After(kUpdatedHead, name));
        const auto [removed, id] = SplitAtLastDot(After(kRemovedHead, name));
        if (IsRandom(After(kPrivateFolderHead, name))) {
            AddIfOurs({LeftoverKind::kPrivateFolder, path, ""}, kPrivateMode, found);
        } else if (old == std::string_view(kUpdatedTail).substr(1)) {
            AddIfOurs({LeftoverKind::kUpdatedFile, path, updated}, S_IFREG, found);
        } else if (ProcessIdOf(id)) {
            AddIfOurs({LeftoverKind::kRemovedFile, path, removed, ProcessIdOf(id)}, S_IFREG, found);
        }
    }
}

// The folders in which files are installed and written.
void LookInStore(const std::string &folder, bool services, Leftovers &found) {
    const std::string staged = folder + '/' + kInstallFolder;
    if (services && IsOurs(staged, S_IFDIR)) {
        for (const std::string &name : NamesToCheck(staged, found)) {
            const auto [file, random] = SplitAtLastDot(name);
            if (IsRandom(random)) {
                AddIfOurs({LeftoverKind::kStagedFile, staged + '/' + name, file}, S_IFREG, found);
            }
        }
    }
    AddIfOurs({LeftoverKind::kWriterFolder, folder + '/' + kWriterFolder, ""}, S_IFDIR, found);
}

// The process that made a copy of that name of a store, or nullopt if it is not such a name.
std::optional<pid_t> MakerOfCopy(const std::string &store, const std::string &name) {
    const auto [unrestored, number] = SplitAtLastDot(After(store + kUnrestoredTail, name));
    if (IsOrdinal(number)) {
        return ProcessIdOf(unrestored);
    }
    const std::optional<pid_t> pid = ProcessIdOf(After(store + kSideCopyTail, name));
    return pid ? pid : ProcessIdOf(After(store + kReplacedTail, name));
}

// If a store is a symbolic link, a copy may be next to the link or next to its target.
void LookForCopies(StoreId store, const std::string &path, Leftovers &found) {
    const mode_t type = store == StoreId::kForwardingRules ? S_IFREG : S_IFDIR;
    for (const fs::path &place : std::set<fs::path>{path, PlaceOf(path)}) {
        const std::string folder = place.parent_path().string();
        for (const std::string &name : NamesToCheck(folder, found)) {
            if (const auto pid = MakerOfCopy(place.filename().string(), name)) {
                AddIfOurs({LeftoverKind::kStore, folder + '/' + name, path, pid}, type, found);
            }
        }
    }
}

// The candidates for leftovers: all files with the name of a temporary file.
Leftovers Candidates() {
    Leftovers found;
    LookInTmp(found);
    for (const StoreId store : {StoreId::kSystemServices, StoreId::kPackageServices,
                                StoreId::kForwardingRules, StoreId::kFirewallRules}) {
        const char *path = PathOf(store);
        if (path == nullptr) {
            continue;
        }
        const bool is_file = store == StoreId::kForwardingRules;
        if (store != StoreId::kFirewallRules) {
            LookInStore(is_file ? fs::path(path).parent_path().string() : path, !is_file, found);
        }
        LookForCopies(store, path, found);
    }
    return found;
}

// ---- Removal

// Takes the writers' lock, which removes the leftovers of earlier writers, and writes nothing.
std::string RemoveWriterFolder(const std::string &path) {
    if (!WritersLock::IsAvailable()) {
        return "the next change of a file in its folder removes it";
    }
    if (!WritersLock(fs::path(path).parent_path().c_str()).IsHeld()) {
        return "the lock of its folder cannot be taken";
    }
    return StatusOf(path, lstat) ? "a writer uses it" : "";
}

std::string RemoveFolder(const std::string &path) {
    std::error_code error;
    fs::remove_all(path, error);
    return error ? ErrorText(error.value()) : "";
}

std::string RemovePrivateFolder(const std::string &path) {
    const Descriptor lock = LockUnused(path, O_DIRECTORY, LOCK_EX);
    return lock.IsOpen() ? RemoveFolder(path) : ErrorText(errno);
}

// Checks again, because the store may have been lost in the meantime.
std::string RemoveStore(Leftover copy) {
    KeepStore(copy);
    return copy.keep.empty() ? RemoveFolder(copy.path) : "it " + copy.keep;
}

// The library locks its files in /tmp while it uses them.
std::string RemoveFile(const std::string &path) {
    const Room room = RemoveUnlockedCopy(path.c_str());
    if (room == Room::kInUse) {
        return "it is in use";
    }
    return room == Room::kMade ? "" : ErrorText(errno);
}

}  // namespace

Leftovers FindLeftovers() {
    Leftovers found = Candidates();
    std::erase_if(found.all, IsInUse);
    std::ranges::for_each(found.all, Assess);
    return found;
}

std::vector<Leftover> OwnCopiesOfStores() {
    std::vector<Leftover> own = Candidates().all;
    std::erase_if(own, [](const Leftover &candidate) {
        return candidate.kind != LeftoverKind::kStore || candidate.pid != getpid();
    });
    return own;
}

std::vector<std::string> CopiesOfRemoved(const std::string &name) {
    Leftovers candidates;
    LookInTmp(candidates);
    if (!candidates.unread.empty()) {
        const auto &[folder, problem] = candidates.unread.front();
        throw std::runtime_error(folder + ": " + problem);
    }
    std::vector<std::string> paths;
    for (const Leftover &copy : candidates.all) {
        if (copy.kind == LeftoverKind::kRemovedFile && copy.original == name && !IsInUse(copy)) {
            paths.push_back(copy.path);
        }
    }
    std::ranges::sort(paths, {}, [](const std::string &path) {
        std::error_code gone;
        return fs::last_write_time(path, gone);
    });
    return paths;
}

std::string RemoveLeftover(const Leftover &leftover) {
    const std::string &path = leftover.path;
    if (!StatusOf(path, lstat)) {
        return "";
    }
    // A new process may have the same id, and may have made a new file of the same name.
    if (leftover.pid && IsRunning(*leftover.pid)) {
        return kAnotherOne;
    }
    switch (leftover.kind) {
        case LeftoverKind::kWriterFolder:
            return RemoveWriterFolder(path);
        case LeftoverKind::kPrivateFolder:
            return IsOurs(path, kPrivateMode) ? RemovePrivateFolder(path) : kAnotherOne;
        case LeftoverKind::kStore:
            return RemoveStore(leftover);
        default:
            return IsOurs(path, S_IFREG) ? RemoveFile(path) : kAnotherOne;
    }
}

}  // namespace tavo::tool

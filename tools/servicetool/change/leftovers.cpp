// Leftovers are recognised by name only: the names that the library and servicetool give to their
// temporary files. All users can write to /tmp, so files of other users are ignored there, and
// symbolic links are not followed.
#include "change/leftovers.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <iterator>
#include <set>
#include <stdexcept>
#include <system_error>

#include "base/descriptor.h"
#include "change/live_process.h"
#include "change/private_folder.h"
#include "input/input_file.h"
#include "input/service_file.h"
#include "lifecycle/side_copy.h"
#include "lifecycle/temporary_names.h"
#include "support/writers_lock.h"

namespace tavo::tool {
namespace {

constexpr char kAnotherOne[] = "there is another one of its name now";

struct Kind {
    LeftoverKind kind;
    std::string_view name;
    std::string_view words;
};

constexpr Kind kKinds[] = {
    {LeftoverKind::kPrivateFolder, "private-folder", "private folder of a servicetool"},
    {LeftoverKind::kUpdatedFile, "updated-file", "copy of the replaced file "},
    {LeftoverKind::kRemovedFile, "removed-file", "copy of the removed file "},
    {LeftoverKind::kStagedFile, "staged-file", "file that was to be installed as "},
    {LeftoverKind::kStore, "store", "copy of "},
    {LeftoverKind::kWriterFolder, "writer-folder", "folder of a writer"},
};

const Kind &KindOf(LeftoverKind kind) {
    return *std::find_if(std::begin(kKinds), std::end(kKinds),
                         [kind](const Kind &one) { return one.kind == kind; });
}

// ---- Names and entries

std::string FolderOf(const std::string &path) {
    return path.substr(0, path.rfind('/'));
}

std::string InTmp(const std::string &name) {
    return std::string(kTemporaryFolder) + '/' + name;
}

// Like NamesIn, but a missing folder is empty.
std::optional<std::vector<std::string>> NamesInAny(const std::string &folder) {
    auto names = NamesIn(folder);
    return names || !IsAbsence(errno) ? std::move(names) : std::vector<std::string>();
}

// Whether the path is a file or folder that belongs to this user or to root. A file must not have
// further hard links.
bool IsOurs(const std::string &path, mode_t kind) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && (status.st_mode & S_IFMT) == kind &&
           (status.st_uid == geteuid() || status.st_uid == 0) &&
           (kind == S_IFDIR || status.st_nlink == 1);
}

// Checks the mode as well, because a user may have a folder of such a name for another purpose.
bool IsPrivateFolder(const std::string &path) {
    struct stat status {};
    return IsOurs(path, S_IFDIR) && lstat(path.c_str(), &status) == 0 &&
           (status.st_mode & 07777) == S_IRWXU;
}

// Whether the text can be the random part of a name made by mkstemp or mkdtemp.
bool IsRandom(std::string_view part) {
    constexpr std::size_t kLength = 6;
    return part.size() == kLength && std::all_of(part.begin(), part.end(), [](char c) {
               return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
           });
}

// Reads a process id; the text must contain nothing else.
std::optional<pid_t> ReadPid(std::string_view text) {
    pid_t pid = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), pid);
    const bool whole = error == std::errc() && end == text.data() + text.size() && pid > 0;
    return whole && text.front() != '0' ? std::optional(pid) : std::nullopt;
}

// The part of the name between `prefix` and `suffix`; empty if the name does not have this form.
std::string_view Between(std::string_view name, std::string_view prefix, std::string_view suffix) {
    if (name.size() <= prefix.size() + suffix.size() || !name.starts_with(prefix) ||
        !name.ends_with(suffix)) {
        return {};
    }
    name.remove_prefix(prefix.size());
    name.remove_suffix(suffix.size());
    return name;
}

// ---- What must stay

// Whether no service folder contains a file of that name. A file that cannot be checked counts as
// present.
bool IsGone(const std::string &name) {
    const std::vector<ServiceFolder> folders = ServiceFolders(kEveryServiceFolder);
    return std::all_of(folders.begin(), folders.end(), [&name](const ServiceFolder &folder) {
        struct stat status {};
        return lstat((std::string(folder.path) + '/' + name).c_str(), &status) != 0 &&
               IsAbsence(errno);
    });
}

bool IsPartOfStore(const std::string &name, const std::string &store) {
    return name != kWriterFolder &&
           (name != kInstallFolder || store == PathOf(StoreId::kFirewallRules));
}

std::vector<std::string> NamesOrThrow(const std::string &folder) {
    auto names = NamesInAny(folder);
    if (!names) {
        throw std::system_error(errno, std::generic_category(), folder);
    }
    return std::move(*names);
}

using Look = int (*)(const char *, struct stat *);

// Returns nullopt if the path does not exist. Throws if that is unknown.
std::optional<struct stat> StatusOf(const std::string &path, Look look) {
    struct stat status {};
    if (look(path.c_str(), &status) == 0) {
        return status;
    }
    if (!IsAbsence(errno)) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return {};
}

// Whether mv was killed while it was writing the original, which is then shorter than its copy. mv
// writes files only across file systems; otherwise sizes differ because the store was changed.
bool IsCut(const struct stat &original, const struct stat &copy) {
    if (!S_ISREG(copy.st_mode) || copy.st_size == 0) {
        return false;
    }
    return original.st_size == 0 ||
           (original.st_dev != copy.st_dev && original.st_size < copy.st_size);
}

// Describes something that the copy of a folder contains and the folder does not, as the second
// part of a sentence that starts with the path of the copy. Returns "" if there is nothing.
std::string LossInFolder(const Leftover &copy, const std::string &below) {
    for (const std::string &name : NamesOrThrow(copy.path + below)) {
        const std::string inner = below + '/' + name;
        if (below.empty() && !IsPartOfStore(name, copy.original)) {
            continue;
        }
        const auto kept = StatusOf(copy.path + inner, lstat);
        const auto present = StatusOf(copy.original + inner, lstat);
        if (!kept) {
            continue;
        }
        if (!present || (S_ISDIR(kept->st_mode) && !S_ISDIR(present->st_mode))) {
            return "holds " + inner.substr(1) + ", which " + copy.original + " lacks";
        }
        if (IsCut(*present, *kept)) {
            return "holds more of " + inner.substr(1) + " than " + copy.original;
        }
        std::string loss = S_ISDIR(kept->st_mode) ? LossInFolder(copy, inner) : "";
        if (!loss.empty()) {
            return loss;
        }
    }
    return "";
}

bool IsEmptyStore(const std::string &store) {
    const std::vector<std::string> names = NamesOrThrow(store);
    return std::none_of(names.begin(), names.end(),
                        [&store](const std::string &name) { return IsPartOfStore(name, store); });
}

// The path to restore a store to: the target if it is a symbolic link, because cp does not write
// through a dangling link.
std::string PlaceOf(const std::string &store) {
    std::error_code no_link;
    const std::filesystem::path target = std::filesystem::read_symlink(store, no_link);
    return no_link
               ? store
               : (std::filesystem::path(store).parent_path() / target).lexically_normal().string();
}

// Marks a copy that must be kept. A section removal copies whole stores; to restore one, it removes
// the store and moves the copy back. If it is killed in between, only the copy exists. A store may
// be a symbolic link, which is followed.
void KeepStore(Leftover &copy) {
    const auto kept = StatusOf(copy.path, lstat);
    if (!kept) {
        return;
    }
    const bool folder = S_ISDIR(kept->st_mode);
    const auto present = StatusOf(copy.original, stat);
    bool all = !present;
    if (folder) {
        copy.keep = LossInFolder(copy, "");
        all = all || IsEmptyStore(copy.original);
    } else if (!present ? kept->st_size > 0 : IsCut(*present, *kept)) {
        all = all || present->st_size == 0;
        copy.keep = "holds more than " + copy.original;
    }
    if (copy.keep.empty()) {
        return;
    }
    if (all) {
        copy.keep = "is the only copy of " + copy.original;
        copy.fix = "write cp -a " + copy.path + (folder ? "/." : "") + ' ' + PlaceOf(copy.original);
    } else {
        copy.fix = "put it back with cp -a, or remove the copy by hand";
    }
}

// ---- Search

// The parts of a name before and after its last dot; both empty if it has none.
std::pair<std::string_view, std::string_view> SplitAtLastDot(std::string_view name) {
    const std::size_t dot = name.rfind('.');
    return dot == std::string_view::npos ? std::pair<std::string_view, std::string_view>()
                                         : std::pair(name.substr(0, dot), name.substr(dot + 1));
}

// The process that made the file `name`, if that is the name of a copy or a remainder of the store.
std::optional<pid_t> MakerOfCopy(std::string_view name, const std::string &store) {
    for (const char *tail : {kSideCopyTail, kReplacedTail}) {
        if (const auto pid = ReadPid(Between(name, store + tail, ""))) {
            return pid;
        }
    }
    const auto [numbered, number] = SplitAtLastDot(name);
    return ReadPid(number) ? ReadPid(Between(numbered, store + kUnrestoredTail, "")) : std::nullopt;
}

class Search {
  public:
    void LookIntoTmp();
    void LookForRemoved();
    void LookIntoServiceFolder(const std::string &folder);
    void LookForWriter(const std::string &folder);

    // Adds the copies of the store for which wanted(process id) is true.
    template <typename Wanted>
    void LookForCopies(StoreId store, Wanted wanted);

    Leftovers Result() && { return std::move(found_); }

  private:
    std::vector<std::string> Names(const std::string &folder);
    void AddUnsigned(LeftoverKind kind, const std::string &path, std::string_view original);
    void AddRemoved(const std::string &name);

    Leftovers found_;
};

std::vector<std::string> Search::Names(const std::string &folder) {
    auto names = NamesInAny(folder);
    if (!names) {
        found_.unread.emplace_back(folder, ErrorText(errno));
    }
    return std::move(names).value_or(std::vector<std::string>());
}

// Adds a leftover without a process id in its name.
void Search::AddUnsigned(LeftoverKind kind, const std::string &path, std::string_view original) {
    if (!original.empty() && IsOurs(path, S_IFREG)) {
        found_.all.push_back({kind, path, std::string(original)});
        found_.all.back().user = PossibleUser(path);
    }
}

void Search::AddRemoved(const std::string &name) {
    const auto [head, maker] = SplitAtLastDot(name);
    const std::string_view file = Between(head, kRemovedHead, "");
    const std::optional<pid_t> pid = ReadPid(maker);
    Leftover copy = {LeftoverKind::kRemovedFile, InTmp(name), std::string(file), pid};
    if (file.empty() || !pid || IsRunning(*pid) || !IsOurs(copy.path, S_IFREG)) {
        return;
    }
    if (IsGone(copy.original)) {
        copy.keep = "is all that is left of " + copy.original +
                    ", whose removal the plugins may "
                    "not know of";
        copy.fix = "write servicetool remove " + copy.original;
    }
    found_.all.push_back(std::move(copy));
}

void Search::LookIntoTmp() {
    for (const std::string &name : Names(kTemporaryFolder)) {
        const std::string path = InTmp(name);
        if (IsRandom(Between(name, kPrivateFolderHead, ""))) {
            if (IsPrivateFolder(path) && IsUnusedFolder(path)) {
                found_.all.push_back({LeftoverKind::kPrivateFolder, path, ""});
            }
        } else if (const auto file = Between(name, kUpdatedHead, kUpdatedTail); !file.empty()) {
            AddUnsigned(LeftoverKind::kUpdatedFile, path, file);
        } else {
            AddRemoved(name);
        }
    }
}

void Search::LookForRemoved() {
    for (const std::string &name : Names(kTemporaryFolder)) {
        AddRemoved(name);
    }
}

void Search::LookIntoServiceFolder(const std::string &folder) {
    const std::string staged = folder + '/' + kInstallFolder;
    if (!IsOurs(staged, S_IFDIR)) {
        return;
    }
    for (const std::string &name : Names(staged)) {
        const auto [file, random] = SplitAtLastDot(name);
        if (IsRandom(random)) {
            AddUnsigned(LeftoverKind::kStagedFile, staged + '/' + name, file);
        }
    }
}

// If a store is a symbolic link, a copy may be next to the link or next to its target.
template <typename Wanted>
void Search::LookForCopies(StoreId store, Wanted wanted) {
    const std::string original = PathOf(store);
    for (const std::string &beside : std::set<std::string>{original, PlaceOf(original)}) {
        const std::string folder = FolderOf(beside);
        for (const std::string &name : Names(folder)) {
            const std::string path = folder + '/' + name;
            const auto pid = MakerOfCopy(name, beside.substr(folder.size() + 1));
            if (pid && wanted(*pid) &&
                IsOurs(path, store == StoreId::kForwardingRules ? S_IFREG : S_IFDIR)) {
                found_.all.push_back({LeftoverKind::kStore, path, original, pid});
            }
        }
    }
}

// A running writer holds a lock on a file in the folder.
void Search::LookForWriter(const std::string &folder) {
    const std::string path = folder + '/' + kWriterFolder;
    if (!IsOurs(path, S_IFDIR)) {
        return;
    }
    const Descriptor lock(
        open((path + "/lock").c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (lock.IsOpen() ? flock(lock.Get(), LOCK_SH | LOCK_NB) == 0 : IsAbsence(errno)) {
        found_.all.push_back({LeftoverKind::kWriterFolder, path, ""});
    }
}

// In the order of listing.
constexpr StoreId kStores[] = {StoreId::kSystemServices, StoreId::kPackageServices,
                               StoreId::kForwardingRules, StoreId::kFirewallRules};

// ---- Removal

// Takes the writers' lock, which removes the leftovers of earlier writers, and writes nothing.
std::string RemoveWriterFolder(const std::string &path) {
    if (!WritersLock::IsAvailable()) {
        return "the next change of a file in its folder removes it";
    }
    if (!WritersLock(FolderOf(path).c_str()).IsHeld()) {
        return "the lock of its folder cannot be taken";
    }
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 ? "a writer uses it" : "";
}

// A new process may have the same id, and may have made a new file of the same name.
bool MayBeInUse(const Leftover &leftover) {
    return leftover.pid && IsRunning(*leftover.pid);
}

// The library locks its files in /tmp while it uses them, and locks an old one before removing it.
std::string RemoveFile(const Leftover &leftover) {
    const char *path = leftover.path.c_str();
    if (MayBeInUse(leftover) || !IsOurs(leftover.path, S_IFREG)) {
        return kAnotherOne;
    }
    const Descriptor file(open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file.IsOpen()) {
        return ErrorText(errno);
    }
    if (flock(file.Get(), LOCK_EX | LOCK_NB) != 0) {
        return errno == EWOULDBLOCK ? "somebody uses it" : ErrorText(errno);
    }
    struct stat opened {};
    struct stat entry {};
    if (fstat(file.Get(), &opened) != 0 || lstat(path, &entry) != 0 ||
        opened.st_ino != entry.st_ino || opened.st_dev != entry.st_dev) {
        return kAnotherOne;
    }
    return unlink(path) == 0 ? "" : ErrorText(errno);
}

// Checks again, because the store may have been lost in the meantime.
std::string RemoveStore(const Leftover &leftover) {
    Leftover copy = leftover;
    KeepStore(copy);
    if (!copy.keep.empty()) {
        return "it " + copy.keep;
    }
    if (MayBeInUse(copy)) {
        return kAnotherOne;
    }
    std::error_code error;
    std::filesystem::remove_all(copy.path, error);
    return error ? ErrorText(error.value()) : "";
}

}  // namespace

Leftovers FindLeftovers() {
    Search search;
    search.LookIntoTmp();
    for (const StoreId store : kStores) {
        const char *path = PathOf(store);
        if (path == nullptr) {
            continue;
        }
        const bool services =
            store == StoreId::kSystemServices || store == StoreId::kPackageServices;
        if (services) {
            search.LookIntoServiceFolder(path);
        }
        if (store != StoreId::kFirewallRules) {
            search.LookForWriter(services ? path : FolderOf(path));
        }
        search.LookForCopies(store, [](pid_t pid) { return !IsRunning(pid); });
    }
    Leftovers found = std::move(search).Result();
    for (Leftover &leftover : found.all) {
        if (leftover.kind == LeftoverKind::kStore) {
            KeepStore(leftover);
        }
    }
    return found;
}

std::vector<Leftover> OwnCopiesOfStores() {
    Search search;
    for (const StoreId store : kStores) {
        if (PathOf(store) != nullptr) {
            search.LookForCopies(store, [](pid_t pid) { return pid == getpid(); });
        }
    }
    return std::move(search).Result().all;
}

std::vector<std::string> CopiesOfRemoved(const std::string &name) {
    Search search;
    search.LookForRemoved();
    Leftovers found = std::move(search).Result();
    if (!found.unread.empty()) {
        throw std::runtime_error(found.unread.front().first + ": " + found.unread.front().second);
    }
    std::vector<std::string> paths;
    for (const Leftover &leftover : found.all) {
        if (leftover.original == name) {
            paths.push_back(leftover.path);
        }
    }
    std::sort(paths.begin(), paths.end(), [](const std::string &one, const std::string &other) {
        std::error_code gone;
        return std::filesystem::last_write_time(one, gone) <
               std::filesystem::last_write_time(other, gone);
    });
    return paths;
}

std::string_view KindName(LeftoverKind kind) {
    return KindOf(kind).name;
}

std::string KindText(const Leftover &leftover) {
    return std::string(KindOf(leftover.kind).words) + leftover.original +
           (leftover.pid ? " by process " + std::to_string(*leftover.pid) : "");
}

std::string RemoveLeftover(const Leftover &leftover) {
    if (!StatusOf(leftover.path, lstat)) {
        return "";
    }
    switch (leftover.kind) {
        case LeftoverKind::kWriterFolder:
            return RemoveWriterFolder(leftover.path);
        case LeftoverKind::kPrivateFolder:
            if (!IsPrivateFolder(leftover.path)) {
                return kAnotherOne;
            }
            return RemoveUnusedFolder(leftover.path) ? "" : ErrorText(errno);
        case LeftoverKind::kStore:
            return RemoveStore(leftover);
        default:
            return RemoveFile(leftover);
    }
}

}  // namespace tavo::tool

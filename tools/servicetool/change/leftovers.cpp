// The names are all that tells what something is: they are those that the library and servicetool
// give to what they remove themselves in the end. /tmp is everybody's, so there only what belongs
// to us counts, and no symbolic link is followed.
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
#include <stdexcept>
#include <system_error>

#include "change/live_process.h"
#include "change/private_folder.h"
#include "change/side_copies.h"
#include "input/input_file.h"
#include "input/service_file.h"
#include "lifecycle/side_copy.h"
#include "ports/source_failure.h"
#include "support/writers_lock.h"

namespace tavo::tool {
namespace {

constexpr char kTemporary[] = "/tmp";
constexpr char kStagedFolder[] = "tmp";
constexpr char kWriterFolder[] = ".tavo-write";
constexpr char kReplaced[] = "there is another one of its name now";
constexpr std::size_t kRandomPart = 6;  // of a name that is made unique

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

// A folder that is not there is empty.
std::optional<std::vector<std::string>> NamesInAny(const std::string &folder) {
    auto names = NamesIn(folder);
    return names || !IsAbsence(errno) ? std::move(names) : std::vector<std::string>();
}

// A regular file or a folder that belongs to us or to root, and that has no other name.
bool IsOurs(const std::string &path, mode_t kind) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && (status.st_mode & S_IFMT) == kind &&
           (status.st_uid == geteuid() || status.st_uid == 0) &&
           (kind == S_IFDIR || status.st_nlink == 1);
}

// Somebody may have a folder of his own by such a name.
bool IsPrivateFolder(const std::string &path) {
    struct stat status {};
    return IsOurs(path, S_IFDIR) && lstat(path.c_str(), &status) == 0 &&
           (status.st_mode & 07777) == S_IRWXU;
}

bool IsRandom(std::string_view part) {
    return part.size() == kRandomPart && std::all_of(part.begin(), part.end(), [](char c) {
               return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
           });
}

// The process whose id is all of the text.
std::optional<pid_t> ReadPid(std::string_view text) {
    pid_t pid = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), pid);
    const bool whole = error == std::errc() && end == text.data() + text.size() && pid > 0;
    return whole && text.front() != '0' ? std::optional(pid) : std::nullopt;
}

// What is between `prefix` and `suffix`; empty when the name is made up otherwise.
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

// Whether a service file of that name is in neither folder. One that cannot be looked at is there.
bool IsGone(const std::string &name) {
    const std::vector<ServiceFolder> folders = ServiceFolders(kEveryServiceFolder);
    return std::all_of(folders.begin(), folders.end(), [&name](const ServiceFolder &folder) {
        struct stat status {};
        return lstat((std::string(folder.path) + '/' + name).c_str(), &status) != 0 &&
               IsAbsence(errno);
    });
}

bool IsPartOfStore(const std::string &name, const std::string &store) {
    return name != kWriterFolder && (name != kStagedFolder || store == kFirewallDirectory);
}

std::vector<std::string> NamesOrThrow(const std::string &folder) {
    auto names = NamesInAny(folder);
    if (!names) {
        throw std::system_error(errno, std::generic_category(), folder);
    }
    return std::move(*names);
}

using Look = int (*)(const char *, struct stat *);

// None when nothing of that name is there. What cannot be looked at may be there or not.
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

// A file that mv was writing when it was killed is shorter than its copy. It writes files only
// where a rename does not reach; elsewhere files differ because the store was changed.
bool IsCut(const struct stat &original, const struct stat &copy) {
    if (!S_ISREG(copy.st_mode) || copy.st_size == 0) {
        return false;
    }
    return original.st_size == 0 ||
           (original.st_dev != copy.st_dev && original.st_size < copy.st_size);
}

// What the copy of a folder has and the folder lacks, in words that follow the path of the copy;
// empty when there is no such thing.
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

// Where the content of a store is to be. cp refuses to write to a link that leads nowhere.
std::string PlaceOf(const std::string &store) {
    std::error_code no_link;
    const std::filesystem::path target = std::filesystem::read_symlink(store, no_link);
    return no_link
               ? store
               : (std::filesystem::path(store).parent_path() / target).lexically_normal().string();
}

// A section removal copies whole stores, and removes a store before it moves its copy back. Killed
// in between, it leaves the copy alone. A store that is a symbolic link is where the link leads.
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

// ---- Looking

class Search {
  public:
    void LookIntoTmp();
    void LookForRemoved();
    void LookIntoServiceFolder(const std::string &folder);
    void LookBeside(const std::string &original, mode_t kind);
    void LookForWriter(const std::string &folder);

    Leftovers Result() && { return std::move(found_); }

  private:
    std::vector<std::string> Names(const std::string &folder);
    void AddPrivateFolder(const std::string &path);
    void AddUnsigned(LeftoverKind kind, const std::string &path, std::string_view original);
    void AddRemoved(const std::string &path, std::string_view name);

    Leftovers found_;
};

std::vector<std::string> Search::Names(const std::string &folder) {
    auto names = NamesInAny(folder);
    if (!names) {
        found_.unread.emplace_back(folder, ErrorText(errno));
    }
    return std::move(names).value_or(std::vector<std::string>());
}

void Search::AddPrivateFolder(const std::string &path) {
    if (IsPrivateFolder(path) && IsUnusedFolder(path)) {
        found_.all.push_back({LeftoverKind::kPrivateFolder, path, ""});
    }
}

// One whose name does not say who made it.
void Search::AddUnsigned(LeftoverKind kind, const std::string &path, std::string_view original) {
    if (!original.empty() && IsOurs(path, S_IFREG)) {
        found_.all.push_back({kind, path, std::string(original)});
        found_.all.back().user = PossibleUser(path);
    }
}

void Search::AddRemoved(const std::string &path, std::string_view name) {
    const std::string_view rest = Between(name, "servicetool.remove.", "");  // FILE.PID
    const std::size_t dot = rest.rfind('.');
    if (dot == std::string_view::npos || dot == 0) {
        return;
    }
    const std::optional<pid_t> pid = ReadPid(rest.substr(dot + 1));
    if (!pid || IsRunning(*pid) || !IsOurs(path, S_IFREG)) {
        return;
    }
    Leftover copy = {LeftoverKind::kRemovedFile, path, std::string(rest.substr(0, dot)), pid};
    if (IsGone(copy.original)) {
        copy.keep = "is all that is left of " + copy.original +
                    ", whose removal the plugins may "
                    "not know of";
        copy.fix = "write servicetool remove " + copy.original;
    }
    found_.all.push_back(std::move(copy));
}

void Search::LookIntoTmp() {
    for (const std::string &name : Names(kTemporary)) {
        const std::string path = std::string(kTemporary) + '/' + name;
        if (IsRandom(Between(name, "servicetool-", ""))) {
            AddPrivateFolder(path);
        } else if (const auto file = Between(name, "servicetool.update.", ".old"); !file.empty()) {
            AddUnsigned(LeftoverKind::kUpdatedFile, path, file);
        } else {
            AddRemoved(path, name);
        }
    }
}

void Search::LookForRemoved() {
    for (const std::string &name : Names(kTemporary)) {
        AddRemoved(std::string(kTemporary) + '/' + name, name);
    }
}

void Search::LookIntoServiceFolder(const std::string &folder) {
    const std::string staged = folder + '/' + kStagedFolder;
    if (!IsOurs(staged, S_IFDIR)) {
        return;
    }
    for (const std::string &name : Names(staged)) {
        const std::size_t dot = name.rfind('.');
        if (dot != std::string::npos && IsRandom(std::string_view(name).substr(dot + 1))) {
            AddUnsigned(LeftoverKind::kStagedFile, staged + '/' + name, name.substr(0, dot));
        }
    }
}

void Search::LookBeside(const std::string &original, mode_t kind) {
    const std::size_t slash = original.rfind('/');
    const std::string folder = original.substr(0, slash);
    const std::string prefix = original.substr(slash + 1) + ".tmp.";
    for (const std::string &name : Names(folder)) {
        const std::string_view text = Between(name, prefix, "");
        const std::optional<pid_t> pid = text.empty() ? std::nullopt : ReadPid(text);
        const std::string path = folder + '/' + name;
        if (pid && !IsRunning(*pid) && IsOurs(path, kind)) {
            found_.all.push_back({LeftoverKind::kStore, path, original, pid});
            KeepStore(found_.all.back());
        }
    }
}

// A writer locks a file in it for as long as it writes.
void Search::LookForWriter(const std::string &folder) {
    const std::string path = folder + '/' + kWriterFolder;
    if (!IsOurs(path, S_IFDIR)) {
        return;
    }
    const int lock = open((path + "/lock").c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    const bool unused = lock < 0 ? IsAbsence(errno) : flock(lock, LOCK_SH | LOCK_NB) == 0;
    if (lock >= 0) {
        close(lock);
    }
    if (unused) {
        found_.all.push_back({LeftoverKind::kWriterFolder, path, ""});
    }
}

// The next writer removes what an earlier one left; this one writes nothing.
std::string RemoveWriterFolder(const std::string &path) {
    if (!WritersLock::IsAvailable()) {
        return "the next change of a file in its folder removes it";
    }
    if (!WritersLock(path.substr(0, path.rfind('/')).c_str()).IsHeld()) {
        return "the lock of its folder cannot be taken";
    }
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 ? "a writer uses it" : "";
}

// A new process may have got the id of the one that made it, and have made another one.
bool MayBeInUse(const Leftover &leftover) {
    return leftover.pid && IsRunning(*leftover.pid);
}

// The library locks a file in /tmp that it needs, and removes others of that name under their lock.
std::string RemoveFile(const Leftover &leftover) {
    const char *path = leftover.path.c_str();
    if (MayBeInUse(leftover) || !IsOurs(leftover.path, S_IFREG)) {
        return kReplaced;
    }
    const int file = open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (file < 0) {
        return ErrorText(errno);
    }
    struct stat opened {};
    struct stat entry {};
    std::string problem;
    if (flock(file, LOCK_EX | LOCK_NB) != 0) {
        problem = errno == EWOULDBLOCK ? "somebody uses it" : ErrorText(errno);
    } else if (fstat(file, &opened) != 0 || lstat(path, &entry) != 0 ||
               opened.st_ino != entry.st_ino || opened.st_dev != entry.st_dev) {
        problem = kReplaced;
    } else if (unlink(path) != 0) {
        problem = ErrorText(errno);
    }
    close(file);
    return problem;
}

// The store may have been lost since the look at its copy.
std::string RemoveStore(const Leftover &leftover) {
    Leftover copy = leftover;
    KeepStore(copy);
    if (!copy.keep.empty()) {
        return "it " + copy.keep;
    }
    if (MayBeInUse(copy)) {
        return kReplaced;
    }
    std::error_code error;
    std::filesystem::remove_all(copy.path, error);
    return error ? ErrorText(error.value()) : "";
}

}  // namespace

Leftovers FindLeftovers() {
    Search search;
    search.LookIntoTmp();
    for (const ServiceFolder &folder : ServiceFolders(kEveryServiceFolder)) {
        const std::string path(folder.path);
        search.LookIntoServiceFolder(path);
        search.LookForWriter(path);
        search.LookBeside(path, S_IFDIR);
    }
    const std::string rules = kRuleFile;
    search.LookForWriter(rules.substr(0, rules.rfind('/')));
    search.LookBeside(rules, S_IFREG);
    search.LookBeside(kFirewallDirectory, S_IFDIR);
    return std::move(search).Result();
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
                return kReplaced;
            }
            return RemoveUnusedFolder(leftover.path) ? "" : ErrorText(errno);
        case LeftoverKind::kStore:
            return RemoveStore(leftover);
        default:
            return RemoveFile(leftover);
    }
}

}  // namespace tavo::tool

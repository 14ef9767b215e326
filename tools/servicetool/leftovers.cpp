// The names are all that tells what something is: they are those that the library and servicetool
// give to what they remove themselves in the end. /tmp is everybody's, so there only what belongs
// to us counts, and no symbolic link is followed.
#include "leftovers.h"

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

#include "folder_names.h"
#include "input_file.h"
#include "live_process.h"
#include "private_folder.h"
#include "rule_file.h"
#include "service_file.h"
#include "side_copies.h"
#include "tavocore.h"

// An appliance's own core library may lack them.
extern "C" {
__attribute__((weak)) TLIBCFolderLock *TLIBCFolderLockTake(const char *szFolder);
__attribute__((weak)) void TLIBCFolderLockRelease(TLIBCFolderLock *pLock);
}

namespace tavo {
namespace {

constexpr char kTemporary[] = "/tmp";
constexpr char kStagedFolder[] = "tmp";
constexpr char kWriterFolder[] = ".tavo-write";
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

bool IsPartOfStore(const std::string &name) {
    return name != kStagedFolder && name != kWriterFolder;
}

// What a copy of a folder has and the folder lacks; `all`: the folder lacks everything.
std::optional<std::string> FirstMissing(const Leftover &copy, bool &all) {
    const auto kept = NamesInAny(copy.path);
    if (!kept) {
        throw std::system_error(errno, std::generic_category(), copy.path);
    }
    const auto present = NamesInAny(copy.original);
    if (!present) {
        throw std::system_error(errno, std::generic_category(), copy.original);
    }
    all = std::none_of(present->begin(), present->end(), IsPartOfStore);
    for (const std::string &name : *kept) {
        if (IsPartOfStore(name) && !std::binary_search(present->begin(), present->end(), name)) {
            return name;
        }
    }
    return {};
}

bool HasText(const std::string &path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        return !IsAbsence(errno);
    }
    return status.st_size > 0;
}

// A section removal copies whole stores, and removes a store before it moves its copy back. Killed
// in between, it leaves the copy alone.
void KeepStore(Leftover &copy, bool folder) {
    bool all = true;
    std::optional<std::string> missing;
    if (folder) {
        missing = FirstMissing(copy, all);
    } else if (HasText(copy.path) && !HasText(copy.original)) {
        missing = copy.original;
    }
    if (!missing) {
        return;
    }
    if (all) {
        copy.keep = "is the only copy of " + copy.original;
        copy.fix = "write cp -a " + copy.path + (folder ? "/." : "") + ' ' + copy.original;
    } else {
        copy.keep = "holds " + *missing + ", which " + copy.original + " lacks";
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
    if (IsOurs(path, S_IFDIR) && IsUnusedFolder(path)) {
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
            KeepStore(found_.all.back(), kind == S_IFDIR);
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
    if (TLIBCFolderLockTake == nullptr || TLIBCFolderLockRelease == nullptr) {
        return "the next change of a file in its folder removes it";
    }
    TLIBCFolderLock *lock = TLIBCFolderLockTake(path.substr(0, path.rfind('/')).c_str());
    if (lock == nullptr) {
        return "the lock of its folder cannot be taken";
    }
    TLIBCFolderLockRelease(lock);
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 ? "a writer uses it" : "";
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
    search.LookBeside(kFirewallFolder, S_IFDIR);
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
    if (leftover.kind == LeftoverKind::kWriterFolder) {
        return RemoveWriterFolder(leftover.path);
    }
    if (leftover.kind == LeftoverKind::kPrivateFolder) {
        return RemoveUnusedFolder(leftover.path) ? "" : ErrorText(errno);
    }
    std::error_code error;
    std::filesystem::remove_all(leftover.path, error);
    return error ? ErrorText(error.value()) : "";
}

}  // namespace tavo

// Git stores contents, links and the executable bit of the template, but neither empty folders nor
// other mode bits. Every mode of a copy is therefore set explicitly (the umask of the checkout does
// not matter), and the list "folders" names the folders that are empty or have a special mode.
#include "root_tree.h"

#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <system_error>

#include "base/system_files.h"
#include "bubblewrap.h"
#include "failure.h"

namespace tavo {
namespace fs = std::filesystem;
namespace {

// Runs `work` and converts a file system error into a failure of `what`, without the paths of the
// temporary tree, which mean nothing to the user.
template <typename Work>
void Attempt(const std::string &what, const Work &work) {
    try {
        work();
    } catch (const fs::filesystem_error &error) {
        throw Failure(what + ": " + ErrorText(error.code().value()));
    }
}

// Each run removes its tree. On a disk that discards freed blocks at once this takes a few
// milliseconds per folder; in memory it takes no time.
bool IsMemoryForPrograms(const char *folder) {
    struct statfs about;
    return statfs(folder, &about) == 0 && about.f_type == TMPFS_MAGIC &&
           (static_cast<unsigned long>(about.f_flags) & ST_NOEXEC) == 0 &&
           access(folder, W_OK | X_OK) == 0;
}

fs::path TemporaryFolder() {
    if (const char *chosen = std::getenv("TMPDIR"); chosen != nullptr && *chosen != '\0') {
        return chosen;
    }
    return IsMemoryForPrograms("/dev/shm") ? "/dev/shm" : "/tmp";
}

void SetMode(const fs::path &path, mode_t mode) {
    if (chmod(path.c_str(), mode) != 0) {
        FailWithErrno(path.string());
    }
}

void MakeFolder(const fs::path &path, mode_t mode) {
    fs::create_directories(path);
    SetMode(path, mode);
}

void CopyFile(const fs::path &from, const fs::path &to) {
    const bool executable =
        (fs::status(from).permissions() & fs::perms::owner_exec) != fs::perms::none;
    fs::copy_file(from, to);
    SetMode(to, executable ? 0755 : 0644);
}

void CopyTree(const fs::path &from, const fs::path &to) {
    for (const fs::directory_entry &entry : fs::directory_iterator(from)) {
        const fs::path target = to / entry.path().filename();
        if (entry.is_symlink()) {
            fs::copy_symlink(entry.path(), target);
        } else if (entry.is_directory()) {
            MakeFolder(target, 0755);
            CopyTree(entry.path(), target);
        } else {
            CopyFile(entry.path(), target);
        }
    }
}

// A host may lack some of the programs that the template links to; these links would be dangling
// inside.
void RemoveLinksToMissingPrograms(const fs::path &root) {
    std::vector<fs::path> missing;
    for (const fs::directory_entry &entry : fs::directory_iterator(root / "bin")) {
        if (entry.is_symlink()) {
            const fs::path target = ("/bin" / fs::read_symlink(entry)).lexically_normal();
            if (IsHostPath(target) && !fs::exists(target)) {
                missing.push_back(entry.path());
            }
        }
    }
    for (const fs::path &link : missing) {
        fs::remove(link);
    }
}

// Lines "MODE PATH", the mode in octal; # starts a comment.
void MakeListedFolders(const fs::path &list, const fs::path &root) {
    std::ifstream lines(list);
    std::string mode;
    std::string path;
    while (lines >> mode) {
        if (mode.starts_with('#')) {
            std::getline(lines, path);
        } else if (lines >> path) {
            MakeFolder(root / fs::path(path).relative_path(),
                       static_cast<mode_t>(std::stoul(mode, nullptr, 8)));
        }
    }
    if (!lines.eof()) {
        throw Failure("cannot read " + list.string());
    }
}

// An ordinary user could not remove the contents of a folder that the command left without
// permissions.
void OpenUp(const fs::path &folder) {
    std::error_code ignored;
    fs::permissions(folder, fs::perms::owner_all, fs::perm_options::add, ignored);
    for (const fs::directory_entry &entry : fs::directory_iterator(folder, ignored)) {
        if (entry.is_directory(ignored) && !entry.is_symlink(ignored)) {
            OpenUp(entry.path());
        }
    }
}

}  // namespace

ExtraFile ParseExtraFile(const std::string &text, const fs::path &share) {
    const std::size_t colon = text.rfind(":/");
    const fs::path source = text.substr(0, colon);
    const fs::path target = colon == std::string::npos
                                ? fs::path(kPackageServiceDirectory) / source.filename()
                                : fs::path(text.substr(colon + 1)).lexically_normal();
    const auto refuse = [&](const std::string &why) {
        throw Failure("--with " + text + ": " + why);
    };
    std::error_code error;
    const fs::file_type type = fs::status(source, error).type();
    if (type == fs::file_type::not_found) {
        refuse(source.string() + " does not exist");
    }
    if (type == fs::file_type::none) {
        refuse(source.string() + ": " + ErrorText(error.value()));
    }
    if (type != fs::file_type::regular) {
        refuse(source.string() + " is not a file");
    }
    if (!target.has_filename()) {
        refuse("the target must name a file");
    }
    // The real target folder, with links in the template resolved. An absolute link is a path in
    // the appliance; resolved here, it would lead to the host.
    const fs::path root = fs::canonical(share / "root");
    fs::path folder;
    Attempt("--with " + text,
            [&] { folder = fs::weakly_canonical(root / target.parent_path().relative_path()); });
    if (!IsInside(folder, root)) {
        refuse("the target leads through an absolute link");
    }
    ExtraFile file = {
        source, ("/" / folder.lexically_relative(root) / target.filename()).lexically_normal()};
    if (IsHostPath(file.target)) {
        refuse(file.target.string() + " is in a folder of the host, which is read-only inside");
    }
    return file;
}

RootTree::RootTree() {
    const fs::path folder = TemporaryFolder();
    const std::string failure = "cannot make a folder for the appliance in " + folder.string();
    // mkdtemp modifies the name in place.
    std::string name;
    Attempt(failure, [&] { name = fs::canonical(folder) / "tavo-appliance-XXXXXX"; });
    if (mkdtemp(name.data()) == nullptr) {
        FailWithErrno(failure);
    }
    temporary_ = name;
    // The root is one level below: it is readable for everyone, the folder around it only for the
    // user.
    root_ = temporary_ / "root";
}

RootTree::RootTree(const fs::path &folder) {
    const std::string option = "--root " + folder.string();
    Attempt(option, [&] {
        if (fs::exists(folder) && (!fs::is_directory(folder) || !fs::is_empty(folder))) {
            throw Failure(option + ": must be an empty folder, or not exist yet");
        }
        fs::create_directories(folder);
        root_ = fs::canonical(folder);
    });
}

RootTree::~RootTree() {
    if (!temporary_.empty()) {
        std::error_code error;
        if (fs::remove_all(temporary_, error); error) {
            OpenUp(temporary_);
            fs::remove_all(temporary_, error);
        }
    }
}

void RootTree::Fill(const fs::path &share) const {
    Attempt("cannot copy the appliance template in " + share.string(), [&] {
        MakeFolder(root_, 0755);
        CopyTree(share / "root", root_);
        RemoveLinksToMissingPrograms(root_);
        MakeListedFolders(share / "folders", root_);
    });
}

void RootTree::Place(const ExtraFile &file) const {
    const fs::path target = root_ / file.target.relative_path();
    const std::string pair = file.source.string() + ":" + file.target.string();
    Attempt("--with " + pair, [&] {
        if (fs::is_directory(fs::symlink_status(target))) {
            throw Failure("--with " + pair + ": " + file.target.string() + " is a folder");
        }
        fs::create_directories(target.parent_path());
        fs::remove(target);
        fs::copy_file(file.source, target);
    });
}

}  // namespace tavo

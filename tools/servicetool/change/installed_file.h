// The installed service file that a command changes, its changed lines, the lock for changes, and
// private copies of the file.
#ifndef TAVO_SERVICETOOL_CHANGE_INSTALLED_FILE_H
#define TAVO_SERVICETOOL_CHANGE_INSTALLED_FILE_H

#include <optional>
#include <string>
#include <string_view>

#include "base/descriptor.h"
#include "input/service_file.h"
#include "output/report.h"

namespace tavo::tool {

// Locks changes of service files: no other servicetool may take the ports between the check for
// free ports and the change. Waits for a change in progress. If that takes too long, or if the lock
// cannot be created, reports an error about `name` with the consequence, raises the status and
// returns false.
//
// Other programs that change service files, such as the administration pages, do not take the lock.
// Programs that are notified of a change do not inherit it, so they cannot make a change themselves
// with servicetool.
bool LockChanges(Descriptor &lock, const std::string &name, const std::string &consequence,
                 Report &report);

// The contents of a file; nullopt if the file does not exist.
using FileText = std::optional<std::string>;

// The changed lines of a file in the format of diff -u, which patch accepts: "--- a/PATH",
// "+++ b/PATH" and the hunks; /dev/null is used for a missing file. Empty if both are equal.
std::string UnifiedDiff(const FileText &before, const FileText &after, const std::string &path);

// The diff for a terminal: each line escaped, and coloured if `colour` is true.
std::string ShownDiff(std::string_view diff, bool colour);

struct InstalledFile {
    std::string name;  // without a folder: "chat.sc"
    int location = 0;  // the bit of its folder
    std::string path;
    FileText text;    // nullopt if the file is not installed
    Descriptor lock;  // of changes, unless the change is a dry run
};

// Whether a missing file is an error, or a file to create; the latter is in the package folder
// unless another one is requested.
enum class Missing { kRefuse, kAllow };

// Finds the file of that name in the service folders that the bits of `folders` select and, unless
// this is a dry run, takes the lock. Returns false if the command cannot use the file: its name is
// invalid, it is missing, in both folders or unreadable, or the lock cannot be taken. This is
// reported and raises the status.
bool FindInstalledFile(int folders, Missing missing, bool dry_run, InstalledFile &file,
                       Report &report);

// Reports that no file of that name is installed, raises the status and returns false.
bool ReportNotInstalled(const std::string &name, int folders, Report &report);

// Returns whether `name` is a file name without a folder. If not, reports it and raises the status.
bool CheckFileName(const std::string &name, Report &report);

// Warns if the name of a new file is hidden or lacks the usual suffix. `fix` describes how to set
// a name; the suggested name is appended.
void WarnOfNewName(const std::string &name, const std::string &fix, Report &report);

// The current contents of a file; nullopt if it does not exist. Throws std::runtime_error with
// `what` and the reason if it cannot be read.
FileText TextOf(const std::string &path, const std::string &what);

// The name of a private folder in /tmp is this and random characters.
inline constexpr char kPrivateFolderHead[] = "servicetool-";

// A folder for temporary copies. The destructor removes it and the files in it. The folder is
// locked while it is in use, to distinguish it from the leftover of a killed program.
class PrivateFolder {
  public:
    // Throws std::system_error if the folder cannot be created.
    PrivateFolder();
    ~PrivateFolder();
    PrivateFolder(const PrivateFolder &) = delete;
    PrivateFolder &operator=(const PrivateFolder &) = delete;

    // Creates a file with mode 0644 and returns its path. Throws std::system_error on failure.
    std::string Make(const std::string &name, std::string_view text) const;

  private:
    std::string path_;
    Descriptor lock_;
};

}  // namespace tavo::tool

#endif

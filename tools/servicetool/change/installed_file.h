// The installed service file that a command is to change, and the lock under which it does.
#ifndef TAVO_SERVICETOOL_CHANGE_INSTALLED_FILE_H
#define TAVO_SERVICETOOL_CHANGE_INSTALLED_FILE_H

#include <string>

#include "base/descriptor.h"
#include "change/unified_diff.h"
#include "input/service_file.h"
#include "output/report.h"

namespace tavo::tool {

// ---- The lock for changes
//
// One servicetool changes service files at a time: between the look at the ports that are free and
// the change no other servicetool may take them.

// Others that change service files, such as the administration pages, do not take it. A program
// that is notified of a change may not make one in the meantime; the programs do not inherit the
// lock.
class ChangeLock {
  public:
    // Waits for a change that is under way. False when that takes too long, or when there is no
    // lock to be had.
    bool Take();

    // Why there is no lock to be had; empty where another change is in progress.
    const std::string &Problem() const { return problem_; }

  private:
    Descriptor file_;
    std::string problem_;
};

// Reports, about `name`, why the lock was not taken, with what that means for the change. False.
bool TellNoLock(const ChangeLock &lock, const std::string &name, const std::string &consequence,
                Report &report);

// ---- The file

// --system or --package; where neither is asked for, the file says it.
struct FolderChoice {
    bool system = false;
    bool package = false;
};

struct InstalledFile {
    std::string name;  // plain, "chat.sc"
    ServiceFolder folder{};
    std::string path;
    FileText text;    // none where the file is not installed
    ChangeLock lock;  // taken unless the change is a dry run
};

// What a file that is not installed is: a mistake, or one that is to be made, in the folder of
// packages unless another is asked for.
enum class Missing { kRefuse, kAllow };

// Looks for the file, which nobody else changes from then on unless this is a dry run. False when
// it is not what the command can work on: its name is not plain, it is missing, in both folders, or
// cannot be read, or another change does not end. That is told and raises the status.
bool FindInstalledFile(const std::string &name, const FolderChoice &choice, Missing missing,
                       bool dry_run, InstalledFile &file, Report &report);

// Tells that no file of that name is installed, and raises the status. False.
bool TellNotInstalled(const std::string &name, const FolderChoice &choice, Report &report);

// Whether a text is the plain name of a file, which is told unless it is, and raises the status.
bool CheckFileName(const std::string &name, Report &report);

// The contents of a file as it is now; none where there is no such file. Throws std::runtime_error
// with the reason where the file cannot be read.
FileText TextOf(const std::string &path);

}  // namespace tavo::tool

#endif

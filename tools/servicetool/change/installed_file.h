// The installed service file that a command is to change.
#ifndef TAVO_SERVICETOOL_CHANGE_INSTALLED_FILE_H
#define TAVO_SERVICETOOL_CHANGE_INSTALLED_FILE_H

#include <string>

#include "change/change_lock.h"
#include "change/unified_diff.h"
#include "input/service_file.h"
#include "output/report.h"

namespace tavo::tool {

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

// What programs that were killed have left: files and folders that they would have removed
// themselves, and that nobody needs any more.
#ifndef TAVO_SERVICETOOL_CHANGE_LEFTOVERS_H
#define TAVO_SERVICETOOL_CHANGE_LEFTOVERS_H

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tavo::tool {

enum class LeftoverKind {
    kPrivateFolder,  // of a servicetool
    kUpdatedFile,    // the old text of a file that was to be replaced
    kRemovedFile,    // the text of a file that was to be removed
    kStagedFile,     // on its way into a service folder
    kStore,          // a copy of a folder or file that a removal of a section would have put back
    kWriterFolder,   // of a writer of files in its folder
};

struct Leftover {
    LeftoverKind kind;
    std::string path;
    std::string original;  // what it is a copy of: a path, or the name of a service file; else ""
    std::optional<pid_t> pid = {};   // who made it, where the name says so
    std::optional<pid_t> user = {};  // who may need it now; none: nobody
    std::string keep = {};           // why it must not be removed, if so; else ""
    std::string fix = {};            // what to do about that
};

struct Leftovers {
    std::vector<Leftover> all;                                // by folder and name
    std::vector<std::pair<std::string, std::string>> unread;  // folders that cannot be listed, why
};

// Only those that belong to us or to root, and none of a process that runs by the name of it.
// Throws std::system_error when it cannot be found out whether one is in use.
Leftovers FindLeftovers();

// The copies of stores that our own process has made and that are still there. They should not be.
std::vector<Leftover> OwnCopiesOfStores();

// The copies of an installed file of that name whose removal was not completed, the newest last.
// None while the process that made one runs. Throws std::system_error when /tmp cannot be read.
std::vector<std::string> CopiesOfRemoved(const std::string &name);

// As JSON names it, such as "private-folder".
std::string_view KindName(LeftoverKind kind);

// "copy of /usr/local/etc/services.d by process 812"
std::string KindText(const Leftover &leftover);

// Removes it. Why that cannot be done; empty when it is done.
std::string RemoveLeftover(const Leftover &leftover);

}  // namespace tavo::tool

#endif

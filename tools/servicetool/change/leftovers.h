// Leftovers: temporary files and folders of programs that were killed before they removed them.
#ifndef TAVO_SERVICETOOL_CHANGE_LEFTOVERS_H
#define TAVO_SERVICETOOL_CHANGE_LEFTOVERS_H

#include <sys/types.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tavo::tool {

enum class LeftoverKind {
    kPrivateFolder,  // temporary folder of a servicetool
    kUpdatedFile,    // copy of a file before it is replaced
    kRemovedFile,    // copy of a file before it is removed
    kStagedFile,     // new file before it is renamed into a service folder
    kStore,          // copy of a folder or file, to restore it if a section removal fails
    kWriterFolder,   // folder for temporary files of a writer
};

struct Leftover {
    LeftoverKind kind;
    std::string path;
    std::string original;  // for a copy, the path or service file name of the original; else ""
    std::optional<pid_t> pid = {};   // process that made it, if its name contains the id
    std::optional<pid_t> user = {};  // process that may still need it, if any
    std::string keep = {};           // why it must not be removed; else ""
    std::string fix = {};            // what to do in that case
};

struct Leftovers {
    std::vector<Leftover> all;                                // by folder and name
    std::vector<std::pair<std::string, std::string>> unread;  // unreadable folder and reason
};

// Finds the leftovers of this user and of root, except those with the id of a running process in
// their name. Throws std::system_error if it is unknown whether one is in use.
Leftovers FindLeftovers();

// The copies of stores that this process has made and not removed.
std::vector<Leftover> OwnCopiesOfStores();

// The copies of an installed file of that name whose removal was not completed, the newest last.
// Copies of running processes are ignored. Throws std::runtime_error if /tmp cannot be read.
std::vector<std::string> CopiesOfRemoved(const std::string &name);

// Removes the leftover. Returns "", or the reason why it cannot be removed.
std::string RemoveLeftover(const Leftover &leftover);

}  // namespace tavo::tool

#endif

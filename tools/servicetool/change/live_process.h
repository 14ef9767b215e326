// Checks for running processes that may still need the files they made.
#ifndef TAVO_SERVICETOOL_CHANGE_LIVE_PROCESS_H
#define TAVO_SERVICETOOL_CHANGE_LIVE_PROCESS_H

#include <sys/types.h>

#include <optional>
#include <string>

namespace tavo::tool {

// Also true for a process of another user.
bool IsRunning(pid_t pid);

// The process that may still need a file without a process id in its name: one that has the file
// open or, if the file is new, any other servicetool or program that has loaded the library.
// Returns nullopt if there is none. Throws std::system_error if that is unknown.
std::optional<pid_t> PossibleUser(const std::string &path);

}  // namespace tavo::tool

#endif

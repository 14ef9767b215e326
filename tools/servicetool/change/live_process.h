// Which processes run, and may still need what they made.
#ifndef TAVO_SERVICETOOL_CHANGE_LIVE_PROCESS_H
#define TAVO_SERVICETOOL_CHANGE_LIVE_PROCESS_H

#include <sys/types.h>

#include <optional>
#include <string>

namespace tavo::tool {

// A process of another user runs, too.
bool IsRunning(pid_t pid);

// The process that may still need a file whose name does not say who made it: one that has the file
// open; where the file is new, any other servicetool or program that has the library loaded. None
// when there is none. Throws std::system_error when that cannot be found out.
std::optional<pid_t> PossibleUser(const std::string &path);

}  // namespace tavo::tool

#endif

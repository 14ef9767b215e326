// The part of the launcher that runs as the first program inside and then becomes the command.
//
// bubblewrap does not report the process ID of the command, and its exit status is 1 for any
// command that cannot be started. It therefore starts the launcher again, which reports to the
// launcher outside and then executes the command in its own process.
#ifndef TAVO_TOOLS_APPLIANCE_INSIDE_H
#define TAVO_TOOLS_APPLIANCE_INSIDE_H

#include <csignal>

namespace tavo {

// appliance INSIDE-COMMAND REPORT-FD COMMAND [ARG...]
constexpr const char *kInsideCommand = "--inside";

// The signals that the launcher outside forwards. They are blocked from before bubblewrap starts
// until the command starts: otherwise a signal from the terminal would kill bubblewrap, and the
// command with it.
sigset_t LauncherSignals();

// Reports through the socket argv[2] and becomes argv[3]. Returns a status only on failure.
int BecomeCommand(char *const argv[]);

}  // namespace tavo

#endif

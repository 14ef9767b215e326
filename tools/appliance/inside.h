// The launcher's other half: the first program inside, which becomes the command.
//
// bubblewrap itself neither tells which process the command is nor, when the command cannot be
// started, anything but status 1. So it starts the launcher again, which reports to the launcher
// outside and then executes the command in its own place.
#ifndef TAVO_TOOLS_APPLIANCE_INSIDE_H
#define TAVO_TOOLS_APPLIANCE_INSIDE_H

#include <csignal>

namespace tavo {

// appliance INSIDE-COMMAND REPORT-FD COMMAND [ARG...]
constexpr const char *kInsideCommand = "--inside";

// What the launcher outside hands on, blocked from before bubblewrap starts until the command does:
// bubblewrap would die of a signal from the terminal, and the command with it.
sigset_t LauncherSignals();

// Reports through the socket argv[2] and becomes argv[3]. Returns a status only when it could not.
int BecomeCommand(char *const argv[]);

}  // namespace tavo

#endif

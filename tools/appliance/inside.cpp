#include "inside.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "failure.h"
#include "reported_processes.h"

namespace tavo {

sigset_t LauncherSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (int signal : {SIGINT, SIGQUIT, SIGTERM, SIGHUP}) {
        sigaddset(&signals, signal);
    }
    return signals;
}

int BecomeCommand(char *const argv[]) {
    const int report_socket = std::atoi(argv[2]);
    ReportProcesses(report_socket);
    close(report_socket);

    const sigset_t signals = LauncherSignals();
    sigprocmask(SIG_UNBLOCK, &signals, nullptr);
    execvp(argv[3], argv + 3);
    const int error = errno;
    std::fprintf(stderr, "appliance: cannot run %s: %s\n", argv[3], ErrorText(error).c_str());
    return error == ENOENT ? kNotFound : kCannotRun;
}

}  // namespace tavo

// The launcher stays outside as the parent of bubblewrap: it receives the system log, forwards
// signals to the command, and removes the tree when the last process inside has ended. Only
// SIGKILL, which cannot be handled, leaves the tree; the processes inside then end as well.
#include "run.h"

#include <poll.h>
#include <spawn.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <iterator>
#include <memory>

#include "base/descriptor.h"
#include "bubblewrap.h"
#include "failure.h"
#include "inside.h"
#include "message_log.h"
#include "pidfd.h"
#include "reported_processes.h"
#include "root_tree.h"

namespace tavo {
namespace {

// The bubblewrap process. When it ends or is killed, all processes inside end as well.
class Bubblewrap {
  public:
    // Starts it with the descriptor `report_fd` open.
    Bubblewrap(std::vector<std::string> arguments, int report_fd) {
        std::vector<char *> pointers(arguments.size() + 1);
        std::transform(arguments.begin(), arguments.end(), pointers.begin(),
                       [](std::string &argument) { return argument.data(); });
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        // Duplicating onto itself only clears the close-on-exec flag.
        posix_spawn_file_actions_adddup2(&actions, report_fd, report_fd);
        const int error =
            posix_spawn(&pid_, pointers[0], &actions, nullptr, pointers.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        if (error != 0) {
            throw Failure(arguments[0] + ": " + ErrorText(error));
        }
        process_ = Descriptor(pidfd_open(pid_, 0));
    }
    ~Bubblewrap() {
        if (!ended_) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    Bubblewrap(const Bubblewrap &) = delete;
    Bubblewrap &operator=(const Bubblewrap &) = delete;

    // Readable once it has ended.
    int Process() const { return process_.Get(); }

    bool Ended() { return ended_ = ended_ || waitpid(pid_, &status_, WNOHANG) == pid_; }

    int Status() const {
        return WIFEXITED(status_) ? WEXITSTATUS(status_) : 128 + WTERMSIG(status_);
    }

  private:
    pid_t pid_ = 0;
    Descriptor process_;
    int status_ = 0;
    bool ended_ = false;
};

void ForwardSignals(const Descriptor &signals, const ReportedProcesses &inside) {
    signalfd_siginfo info;
    while (read(signals.Get(), &info, sizeof(info)) == sizeof(info)) {
        // The terminal sends the signals of its keys to the command as well.
        const bool from_terminal = info.ssi_code == SI_KERNEL;
        const int signal = static_cast<int>(info.ssi_signo);
        if (signal == SIGHUP || !from_terminal) {
            inside.SignalCommand(signal);
        }
    }
}

// Serves the run until bubblewrap has ended. Returns its status.
int Attend(Bubblewrap &bubblewrap, ReportedProcesses &inside, const MessageLog &log) {
    const sigset_t forwarded = LauncherSignals();
    const Descriptor signals(signalfd(-1, &forwarded, SFD_CLOEXEC | SFD_NONBLOCK));
    while (!bubblewrap.Ended()) {
        // Signals wait until the command has reported, because before that they cannot be
        // forwarded.
        pollfd events[] = {{bubblewrap.Process(), POLLIN, 0},
                           {log.Socket(), POLLIN, 0},
                           {inside.ReportSocket(), POLLIN, 0},
                           {inside.Reported() ? signals.Get() : -1, POLLIN, 0}};
        poll(events, std::size(events), -1);
        log.Drain();
        inside.ReceiveReport();
        if (inside.Reported()) {
            ForwardSignals(signals, inside);
        }
    }
    inside.ReceiveReport();
    if (!inside.Reported()) {
        throw Failure(
            "bubblewrap could not set up the appliance; it needs namespaces: run as root, or allow "
            "them for users (sysctl kernel.unprivileged_userns_clone=1 or "
            "kernel.apparmor_restrict_unprivileged_userns=0); a container needs --privileged");
    }
    return bubblewrap.Status();
}

int RunIn(const std::filesystem::path &root, const std::filesystem::path &bubblewrap,
          const BuildTree &build, const std::vector<std::string> &command) {
    const MessageLog log(root);
    int status = 0;
    {
        ReportedProcesses inside;
        Bubblewrap process(
            BubblewrapCommand(bubblewrap, build, root, inside.InsideSocket(), command),
            inside.InsideSocket());
        status = Attend(process, inside, log);
    }
    log.Drain();
    return status;
}

}  // namespace

int RunAppliance(const RunOptions &options) {
    // All checks come before anything is created.
    const BuildTree build = FindBuildTree();
    const std::filesystem::path bubblewrap = FindBubblewrap();
    std::vector<ExtraFile> extra_files(options.extra_files.size());
    std::transform(options.extra_files.begin(), options.extra_files.end(), extra_files.begin(),
                   [&](const std::string &text) { return ParseExtraFile(text, build.share); });

    // From here on signals are forwarded; none ends the launcher before it has cleaned up.
    const sigset_t blocked = LauncherSignals();
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
    // The caller may ignore this signal, which would discard the exit status.
    signal(SIGCHLD, SIG_DFL);

    const auto root = options.root.empty() ? std::make_unique<RootTree>()
                                           : std::make_unique<RootTree>(options.root);
    root->Fill(build.share);
    for (const ExtraFile &file : extra_files) {
        root->Place(file);
    }
    return RunIn(root->Path(), bubblewrap, build, options.command);
}

}  // namespace tavo

// Running a program and waiting for it.
//
// posix_spawn shares the caller's memory until the program starts, so the cost does not grow with
// it, as that of fork does. No shell is involved: an argument reaches the program as it is.
//
// The one thing here that concerns the whole process is SIGCHLD. A caller that ignores it, or that
// asked with SA_NOCLDWAIT not to be told of its children, would have the kernel drop the exit
// status; for the time of the call the signal then has its default action. Children of the caller's
// own that end in that time stay zombies until the caller ends or waits for them. And as in
// system(), the signal is blocked in the calling thread, so that a handler that waits for every
// child does not take the status away; one that runs in another thread still may, which cannot be
// helped from here.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <mutex>

#include "core_support.h"

namespace {

// While one of these lives, ended children can be waited for. Calls in several threads share the
// change: the first that needs it makes it, the last one out undoes it.
class WaitableChildren {
  public:
    WaitableChildren() {
        const std::lock_guard lock(mutex_);
        ++users_;
        struct sigaction current;
        sigaction(SIGCHLD, nullptr, &current);
        if (DropsChildren(current)) {
            saved_ = current;
            replaced_ = true;
            struct sigaction standard = {};
            standard.sa_handler = SIG_DFL;
            sigaction(SIGCHLD, &standard, nullptr);
        }
    }

    ~WaitableChildren() {
        const std::lock_guard lock(mutex_);
        if (--users_ == 0 && replaced_) {
            Restore();
            replaced_ = false;
        }
    }

    WaitableChildren(const WaitableChildren &) = delete;
    WaitableChildren &operator=(const WaitableChildren &) = delete;

  private:
    static bool DropsChildren(const struct sigaction &action) {
        return action.sa_handler == SIG_IGN || (action.sa_flags & SA_NOCLDWAIT) != 0;
    }

    // A handler that the caller installed in the meantime stays.
    static void Restore() {
        struct sigaction current;
        sigaction(SIGCHLD, nullptr, &current);
        if (current.sa_handler == SIG_DFL) {
            sigaction(SIGCHLD, &saved_, nullptr);
        }
    }

    static std::mutex mutex_;
    static int users_;
    static bool replaced_;
    static struct sigaction saved_;
};

constinit std::mutex WaitableChildren::mutex_;
constinit int WaitableChildren::users_ = 0;
constinit bool WaitableChildren::replaced_ = false;
constinit struct sigaction WaitableChildren::saved_ = {};

// Keeps SIGCHLD from the calling thread.
class BlockedChildSignal {
  public:
    BlockedChildSignal() {
        sigset_t child;
        sigemptyset(&child);
        sigaddset(&child, SIGCHLD);
        pthread_sigmask(SIG_BLOCK, &child, &before_);
    }
    ~BlockedChildSignal() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    BlockedChildSignal(const BlockedChildSignal &) = delete;
    BlockedChildSignal &operator=(const BlockedChildSignal &) = delete;

  private:
    sigset_t before_;
};

// The descriptors that a program starts with.
class Descriptors {
  public:
    Descriptors() { posix_spawn_file_actions_init(&actions_); }
    ~Descriptors() { posix_spawn_file_actions_destroy(&actions_); }
    Descriptors(const Descriptors &) = delete;
    Descriptors &operator=(const Descriptors &) = delete;

    // 0 or an errno.
    int Arrange() {
        if (const int error = Empty(STDIN_FILENO, O_RDONLY); error != 0) {
            return error;
        }
        for (const int output : {STDOUT_FILENO, STDERR_FILENO}) {
            if (const int error = Keep(output); error != 0) {
                return error;
            }
        }
        return posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
    }

    const posix_spawn_file_actions_t *Get() const { return &actions_; }

  private:
    int Empty(int descriptor, int mode) {
        return posix_spawn_file_actions_addopen(&actions_, descriptor, "/dev/null", mode, 0);
    }

    // A program that starts with an output closed would get the next file that it opens as that
    // output, and write its messages into it.
    int Keep(int output) {
        if (fcntl(output, F_GETFD) < 0) {
            return Empty(output, O_WRONLY);
        }
        // A descriptor copied onto itself loses its close-on-exec flag.
        return posix_spawn_file_actions_adddup2(&actions_, output, output);
    }

    posix_spawn_file_actions_t actions_;
};

// No signal blocked, none ignored.
class StandardSignals {
  public:
    StandardSignals() {
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_init(&attributes_);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~StandardSignals() { posix_spawnattr_destroy(&attributes_); }
    StandardSignals(const StandardSignals &) = delete;
    StandardSignals &operator=(const StandardSignals &) = delete;

    const posix_spawnattr_t *Get() const { return &attributes_; }

  private:
    posix_spawnattr_t attributes_;
};

int WaitFor(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) {
            return TAVO_CORE_FAIL(tavo::kFileUnusable);
        }
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// The kernel reports a missing interpreter of a script as it does a missing program.
tavo::ErrorCode StartError(int error, const char *program) {
    const tavo::ErrorCode code = tavo::FileError(error);
    return code == tavo::kFileMissing && TLIBCFileExist(program) ? tavo::kFileUnusable : code;
}

// `arguments` begins with the program and ends with a null.
int Run(const char **arguments) {
    Descriptors descriptors;
    if (const int error = descriptors.Arrange(); error != 0) {
        return TAVO_CORE_FAIL(tavo::FileError(error));
    }
    const StandardSignals signals;
    const BlockedChildSignal blocked;
    const WaitableChildren waitable;
    pid_t pid = 0;
    const int error = posix_spawn(&pid, arguments[0], descriptors.Get(), signals.Get(),
                                  const_cast<char *const *>(arguments), environ);
    if (error != 0) {
        return TAVO_CORE_FAIL(StartError(error, arguments[0]));
    }
    return WaitFor(pid);
}

int CountArguments(const char *first, va_list rest) {
    va_list walk;
    va_copy(walk, rest);
    int count = 0;
    for (const char *argument = first; argument != nullptr; argument = va_arg(walk, const char *)) {
        ++count;
    }
    va_end(walk);
    return count;
}

// The vector of a program, its arguments and the null behind them.
tavo::MallocPtr<const char *> ArgumentVector(const char *program, const char *first, va_list rest) {
    const char **arguments = nullptr;
    if (!tavo::Resize(arguments, CountArguments(first, rest) + 2)) {
        return nullptr;
    }
    const char **end = arguments;
    *end++ = program;
    for (const char *argument = first; argument != nullptr; argument = va_arg(rest, const char *)) {
        *end++ = argument;
    }
    *end = nullptr;
    return tavo::MallocPtr<const char *>(arguments);
}

}  // namespace

int TLIBCExec(const char *szProgram, const char *szArg1, const char *szArg2, const char *szArg3,
              const char *szArg4) {
    if (szProgram == nullptr) {
        return TAVO_CORE_FAIL(tavo::kBadParameter);
    }
    const char *arguments[] = {szProgram, szArg1, szArg2, szArg3, szArg4, nullptr};
    return Run(arguments);
}

int TLIBCExecl(const char *szProgram, int /*nOptions*/, const char *szArg, ...) {
    if (szProgram == nullptr) {
        return TAVO_CORE_FAIL(tavo::kBadParameter);
    }
    va_list rest;
    va_start(rest, szArg);
    const tavo::MallocPtr<const char *> arguments = ArgumentVector(szProgram, szArg, rest);
    va_end(rest);
    if (!arguments) {
        return TAVO_CORE_FAIL(tavo::kOutOfMemory);
    }
    return Run(arguments.get());
}

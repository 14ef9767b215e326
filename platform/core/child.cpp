// posix_spawn shares the caller's memory until the program starts, so unlike fork its cost does not
// grow with that memory. No shell is involved: arguments reach the program unchanged.
//
// Waiting with a limit sleeps on a pidfd (Linux 5.3). If the kernel does not support it, or the
// process has no free descriptor, the child is polled every few milliseconds. In both cases the
// status is collected only at the end: until then the kernel does not reuse the process ID, which
// is also the ID of the process group, so a signal to the group cannot reach an unrelated process.
#include "child.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "base/descriptor.h"

namespace tavo {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// The standard descriptors of a program.
class Descriptors {
  public:
    Descriptors() { posix_spawn_file_actions_init(&actions_); }
    ~Descriptors() { posix_spawn_file_actions_destroy(&actions_); }
    Descriptors(const Descriptors &) = delete;
    Descriptors &operator=(const Descriptors &) = delete;

    // Uses `input` as standard input; it must not be a standard output descriptor. kNoInput gives
    // empty input. Returns 0 or an errno.
    int Arrange(int input) {
        const int error = input == Child::kNoInput
                              ? Empty(STDIN_FILENO, O_RDONLY)
                              : posix_spawn_file_actions_adddup2(&actions_, input, STDIN_FILENO);
        if (error != 0) {
            return error;
        }
        for (const int output : {STDOUT_FILENO, STDERR_FILENO}) {
            if (const int failed = Keep(output); failed != 0) {
                return failed;
            }
        }
        return posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
    }

    const posix_spawn_file_actions_t *Get() const { return &actions_; }

  private:
    int Empty(int descriptor, int mode) {
        return posix_spawn_file_actions_addopen(&actions_, descriptor, "/dev/null", mode, 0);
    }

    // If a program started with an output closed, the next file that it opens would become that
    // output, and its messages would be written into the file.
    int Keep(int output) {
        if (fcntl(output, F_GETFD) < 0) {
            return Empty(output, O_WRONLY);
        }
        // A descriptor copied onto itself loses its close-on-exec flag.
        return posix_spawn_file_actions_adddup2(&actions_, output, output);
    }

    posix_spawn_file_actions_t actions_;
};

// No blocked and no ignored signals; optionally a process group of its own.
class Attributes {
  public:
    explicit Attributes(Child::Group group) {
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_init(&attributes_);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        const int lead = group == Child::Group::kOwn ? POSIX_SPAWN_SETPGROUP : 0;
        posix_spawnattr_setflags(&attributes_, static_cast<short>(POSIX_SPAWN_SETSIGMASK |
                                                                  POSIX_SPAWN_SETSIGDEF | lead));
    }
    ~Attributes() { posix_spawnattr_destroy(&attributes_); }
    Attributes(const Attributes &) = delete;
    Attributes &operator=(const Attributes &) = delete;

    const posix_spawnattr_t *Get() const { return &attributes_; }

  private:
    posix_spawnattr_t attributes_;
};

// A process whose status was collected elsewhere has ended as well.
bool HasEnded(pid_t pid) {
    siginfo_t info = {};
    const int result = waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT);
    return result != 0 || info.si_pid == pid;
}

// A descriptor that is readable once the process has ended; close-on-exec.
int OpenProcess(pid_t pid) {
    return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
}

// Sleeps until the process of the pidfd ends, at most for `time`; a signal may end the sleep
// earlier.
void Pause(const Descriptor &process, milliseconds time) {
    constexpr milliseconds kLookAgain(10);
    constexpr milliseconds kLongest = std::chrono::hours(1);  // far below the limit of an int
    const milliseconds most = process.IsOpen() ? kLongest : kLookAgain;
    pollfd ended = {process.Get(), POLLIN, 0};  // poll ignores a negative descriptor
    poll(&ended, 1, static_cast<int>(std::min(time, most).count()));
}

}  // namespace

int Child::Start(const char *const *arguments, int input, Group group) {
    Descriptors descriptors;
    if (const int error = descriptors.Arrange(input); error != 0) {
        return error;
    }
    const Attributes attributes(group);
    return posix_spawn(&pid_, arguments[0], descriptors.Get(), attributes.Get(),
                       const_cast<char *const *>(arguments), environ);
}

bool Child::EndsWithin(milliseconds time) const {
    const steady_clock::time_point deadline = steady_clock::now() + time;
    const Descriptor process(OpenProcess(pid_));
    while (!HasEnded(pid_)) {
        const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
        if (left <= milliseconds::zero()) {
            return false;
        }
        Pause(process, left);
    }
    return true;
}

void Child::EndGroup(milliseconds grace) const {
    kill(-pid_, SIGTERM);
    EndsWithin(grace);
    kill(-pid_, SIGKILL);
    kill(pid_, SIGKILL);  // it may have joined another group
}

int Child::Wait() const {
    int status = 0;
    if (Uninterrupted([&] { return waitpid(pid_, &status, 0); }) < 0) {
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace tavo

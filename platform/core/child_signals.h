// Handling of SIGCHLD while waiting for a program. It is the only part of running programs that
// affects the whole process.
//
// If a caller ignores SIGCHLD, or has set SA_NOCLDWAIT, the kernel discards the exit status. During
// the call the signal therefore has its default action. Other children of the caller that end
// during that time stay zombies until the caller exits or waits for them. As in system(), the
// signal is blocked in the calling thread, so that a handler that waits for all children does not
// collect the status. A handler in another thread can still do so, which cannot be prevented here.
#ifndef TAVO_PLATFORM_CORE_CHILD_SIGNALS_H
#define TAVO_PLATFORM_CORE_CHILD_SIGNALS_H

#include <csignal>
#include <mutex>

namespace tavo {

// While an object exists, ended children can be waited for. Calls in several threads share the
// change: the first that needs it makes it, the last one undoes it.
class WaitableChildren {
  public:
    WaitableChildren();
    ~WaitableChildren();
    WaitableChildren(const WaitableChildren &) = delete;
    WaitableChildren &operator=(const WaitableChildren &) = delete;

  private:
    static bool DropsChildren(const struct sigaction &action);
    static void Restore();

    static std::mutex mutex_;
    static int users_;
    static bool replaced_;
    static struct sigaction saved_;
};

// Blocks SIGCHLD in the calling thread.
class BlockedChildSignal {
  public:
    BlockedChildSignal();
    ~BlockedChildSignal();
    BlockedChildSignal(const BlockedChildSignal &) = delete;
    BlockedChildSignal &operator=(const BlockedChildSignal &) = delete;

  private:
    sigset_t before_;
};

}  // namespace tavo

#endif

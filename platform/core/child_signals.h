// SIGCHLD while a program is awaited, the one thing about running programs that concerns the whole
// process.
//
// A caller that ignores it, or that asked with SA_NOCLDWAIT not to be told of its children, would
// have the kernel drop the exit status; for the time of the call the signal then has its default
// action. Children of the caller's own that end in that time stay zombies until the caller ends or
// waits for them. And as in system(), the signal is blocked in the calling thread, so that a
// handler that waits for every child does not take the status away; one that runs in another thread
// still may, which cannot be helped from here.
#ifndef TAVO_PLATFORM_CORE_CHILD_SIGNALS_H
#define TAVO_PLATFORM_CORE_CHILD_SIGNALS_H

#include <csignal>
#include <mutex>

namespace tavo {

// While one of these lives, ended children can be waited for. Calls in several threads share the
// change: the first that needs it makes it, the last one out undoes it.
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

// Keeps SIGCHLD from the calling thread.
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

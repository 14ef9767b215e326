#include "child_signals.h"

namespace tavo {

constinit std::mutex WaitableChildren::mutex_;
constinit int WaitableChildren::users_ = 0;
constinit bool WaitableChildren::replaced_ = false;
constinit struct sigaction WaitableChildren::saved_ = {};

WaitableChildren::WaitableChildren() {
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

WaitableChildren::~WaitableChildren() {
    const std::lock_guard lock(mutex_);
    if (--users_ == 0 && replaced_) {
        Restore();
        replaced_ = false;
    }
}

bool WaitableChildren::DropsChildren(const struct sigaction &action) {
    return action.sa_handler == SIG_IGN || (action.sa_flags & SA_NOCLDWAIT) != 0;
}

// A handler that the caller has installed since then is kept.
void WaitableChildren::Restore() {
    struct sigaction current;
    sigaction(SIGCHLD, nullptr, &current);
    if (current.sa_handler == SIG_DFL) {
        sigaction(SIGCHLD, &saved_, nullptr);
    }
}

BlockedChildSignal::BlockedChildSignal() {
    sigset_t child;
    sigemptyset(&child);
    sigaddset(&child, SIGCHLD);
    pthread_sigmask(SIG_BLOCK, &child, &before_);
}

BlockedChildSignal::~BlockedChildSignal() {
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

}  // namespace tavo

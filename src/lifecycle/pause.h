// Waits for a lock of another process by polling, with growing pauses, because flock has no
// timeout.
#ifndef TAVO_SRC_LIFECYCLE_PAUSE_H
#define TAVO_SRC_LIFECYCLE_PAUSE_H

#include <time.h>

#include <algorithm>
#include <chrono>

namespace tavo {

inline void Pause(std::chrono::milliseconds length) {
    const timespec time = {.tv_sec = length.count() / 1000,
                           .tv_nsec = length.count() % 1000 * 1'000'000};
    nanosleep(&time, nullptr);
}

enum class LockAttempt { kLocked, kBusy, kFailed };

// Calls attempt() until its result is not kBusy or the time limit is over. Returns the last result.
template <typename Attempt>
LockAttempt WaitForLock(std::chrono::milliseconds limit, Attempt attempt) {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds kLongest{50};
    const Clock::time_point end = Clock::now() + limit;
    for (std::chrono::milliseconds pause{1};; pause = std::min(pause * 2, kLongest)) {
        const LockAttempt result = attempt();
        if (result != LockAttempt::kBusy || Clock::now() >= end) {
            return result;
        }
        Pause(pause);
    }
}

}  // namespace tavo

#endif

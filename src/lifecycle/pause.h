// Waits for a lock of another process by polling, with growing pauses and a time limit. flock
// itself has no timeout.
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

class Pauses {
  public:
    explicit Pauses(std::chrono::milliseconds limit) : end_(Clock::now() + limit) {}

    // Pauses and returns true. Returns false at once if the time limit is over.
    bool Next() {
        if (Clock::now() >= end_) {
            return false;
        }
        Pause(length_);
        length_ = std::min(length_ * 2, kLongest);
        return true;
    }

  private:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds kLongest{50};

    Clock::time_point end_;
    std::chrono::milliseconds length_{1};
};

}  // namespace tavo

#endif

// Waits until a process opens a file, such as a lock file.
#ifndef TAVO_TESTS_SUPPORT_OPEN_WATCH_H
#define TAVO_TESTS_SUPPORT_OPEN_WATCH_H

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <string>

namespace tavo::test {

// Watches the file for the lifetime of the object.
class OpenWatch {
  public:
    explicit OpenWatch(const std::string &path) {
        EXPECT_GE(inotify_add_watch(events_, path.c_str(), IN_OPEN), 0) << path;
    }
    ~OpenWatch() { close(events_); }
    OpenWatch(const OpenWatch &) = delete;
    OpenWatch &operator=(const OpenWatch &) = delete;

    // Returns false if the file was not opened within the time limit.
    bool WaitForOpen() const {
        constexpr int kLong = 20'000;  // milliseconds
        pollfd event = {events_, POLLIN, 0};
        return poll(&event, 1, kLong) == 1;
    }

  private:
    int events_ = inotify_init1(IN_CLOEXEC);
};

}  // namespace tavo::test

#endif

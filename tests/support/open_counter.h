// Counts how often a file is opened.
#ifndef TAVO_TESTS_SUPPORT_OPEN_COUNTER_H
#define TAVO_TESTS_SUPPORT_OPEN_COUNTER_H

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cstring>

namespace tavo::test {

// Runs `call` and returns how often it opened the file `path`.
template <typename Call>
int CountOpens(const char *path, Call call) {
    const int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    // Closing is watched too, because inotify merges equal consecutive events.
    EXPECT_GE(inotify_add_watch(watch, path, IN_OPEN | IN_CLOSE), 0);
    call();
    char buffer[1 << 14];
    const ssize_t size = read(watch, buffer, sizeof(buffer));
    int count = 0;
    for (ssize_t i = 0; i < size; i += static_cast<ssize_t>(sizeof(inotify_event))) {
        inotify_event event;
        memcpy(&event, buffer + i, sizeof(event));
        count += (event.mask & IN_OPEN) != 0 ? 1 : 0;
    }
    close(watch);
    return count;
}

}  // namespace tavo::test

#endif

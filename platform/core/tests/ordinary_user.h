// Runs a call as a user who is subject to file permissions, unlike root.
#ifndef TAVO_PLATFORM_CORE_TESTS_ORDINARY_USER_H
#define TAVO_PLATFORM_CORE_TESTS_ORDINARY_USER_H

#include <grp.h>
#include <sys/mman.h>
#include <unistd.h>

#include <utility>

#include "child_process.h"
#include "file_support.h"

namespace tavo::test {

constexpr uid_t kOrdinaryUser = 65534;

// The result and error (see ResultAndError) of `call` in a child process that is not root.
template <typename Call>
std::pair<int, unsigned int> AsOrdinaryUser(Call call) {
    using Answer = std::pair<int, unsigned int>;
    void *shared =
        mmap(nullptr, sizeof(Answer), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    auto *answer = new (shared) Answer(0, 0);
    const int status = StatusInChild([&] {
        const bool root = geteuid() == 0;
        if (!root || (setgroups(0, nullptr) == 0 && setgid(kOrdinaryUser) == 0 &&
                      setuid(kOrdinaryUser) == 0)) {
            *answer = ResultAndError(call);
        }
        return 0;
    });
    EXPECT_EQ(status, 0);
    const Answer copy = *answer;
    munmap(shared, sizeof(Answer));
    return copy;
}

}  // namespace tavo::test

#endif

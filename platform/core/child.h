// A program that this process starts, and waits for.
#ifndef TAVO_PLATFORM_CORE_CHILD_H
#define TAVO_PLATFORM_CORE_CHILD_H

#include <sys/types.h>

#include <chrono>

#include "child_signals.h"

namespace tavo {

// Lives from before the start of the program until its status is taken: for so long SIGCHLD is as
// it must be. One object starts one program.
class Child {
  public:
    static constexpr int kNoInput = -1;
    enum class Group { kCallers, kOwn };

    Child() = default;
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    // Starts arguments[0]; a null ends the arguments. Its standard input is the descriptor `input`,
    // which is none of the outputs', or empty. 0 or an errno.
    int Start(const char *const *arguments, int input, Group group);

    // Whether it ends within `time`. Its status stays to be taken, and so its number its own.
    bool EndsWithin(std::chrono::milliseconds time) const;

    // Ends it and every other process of the group that it was started in, which is its own: asks
    // them first, and gives it `grace` to follow.
    void EndGroup(std::chrono::milliseconds grace) const;

    // Waits for it and takes its status: 0..255, 128 + n after signal n, -1 when another thread
    // took it.
    int Wait() const;

  private:
    BlockedChildSignal blocked_;
    WaitableChildren waitable_;
    pid_t pid_ = 0;
};

}  // namespace tavo

#endif

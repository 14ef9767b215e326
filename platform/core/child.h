// Starts a program and waits for it.
#ifndef TAVO_PLATFORM_CORE_CHILD_H
#define TAVO_PLATFORM_CORE_CHILD_H

#include <sys/types.h>

#include <chrono>

#include "child_signals.h"

namespace tavo {

// Must exist from before the start of the program until its status is collected, because it keeps
// SIGCHLD in the required state for that time. One object starts one program.
class Child {
  public:
    static constexpr int kNoInput = -1;
    enum class Group { kCallers, kOwn };

    Child() = default;
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    // Starts arguments[0]; the arguments are null-terminated. Standard input is the descriptor
    // `input`, which must not be one of the outputs, or empty for kNoInput. Returns 0 or an errno.
    int Start(const char *const *arguments, int input, Group group);

    // Whether the program ends within `time`. Does not collect the status, so the process ID stays
    // valid.
    bool EndsWithin(std::chrono::milliseconds time) const;

    // Terminates the program and all other processes of its own group: first with SIGTERM, then,
    // after up to `grace`, with SIGKILL.
    void EndGroup(std::chrono::milliseconds grace) const;

    // Waits for the program and collects its status: 0..255, 128 + n after signal n, -1 if another
    // thread collected it.
    int Wait() const;

  private:
    BlockedChildSignal blocked_;
    WaitableChildren waitable_;
    pid_t pid_ = 0;
};

}  // namespace tavo

#endif

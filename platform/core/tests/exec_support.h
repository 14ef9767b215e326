// Common parts of the tests of running programs: temporary descriptors and signal actions.
#ifndef TAVO_PLATFORM_CORE_TESTS_EXEC_SUPPORT_H
#define TAVO_PLATFORM_CORE_TESTS_EXEC_SUPPORT_H

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>

#include "temporary_folder.h"

namespace tavo::test {

// Temporarily replaces descriptor `number` with an opened file, or closes it for "".
class Descriptor {
  public:
    Descriptor(int number, const std::string &path)
        : number_(number), saved_(fcntl(number, F_DUPFD_CLOEXEC, 100)) {
        std::fflush(nullptr);
        close(number);
        if (!path.empty()) {
            const int file = open(path.c_str(), O_RDWR | O_CREAT, 0600);
            dup2(file, number);
            if (file != number) {
                close(file);
            }
        }
    }
    ~Descriptor() {
        if (saved_ >= 0) {
            dup2(saved_, number_);
            close(saved_);
        } else {
            close(number_);
        }
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

  private:
    int number_;
    int saved_;
};

// The standard output of the programs that `call` runs.
template <typename Call>
std::string OutputOf(Call call) {
    const TemporaryFolder folder;
    {
        const Descriptor output(STDOUT_FILENO, folder / "output");
        call();
    }
    return ReadFile(folder / "output");
}

// Temporarily changes the action of a signal.
class SignalAction {
  public:
    SignalAction(int signal, void (*handler)(int), int flags = 0) : signal_(signal) {
        struct sigaction action = {};
        action.sa_handler = handler;
        action.sa_flags = flags;
        sigaction(signal, &action, &before_);
    }
    ~SignalAction() { sigaction(signal_, &before_, nullptr); }
    SignalAction(const SignalAction &) = delete;
    SignalAction &operator=(const SignalAction &) = delete;

  private:
    int signal_;
    struct sigaction before_;
};

inline struct sigaction ActionOf(int signal) {
    struct sigaction action;
    sigaction(signal, nullptr, &action);
    return action;
}

}  // namespace tavo::test

#endif

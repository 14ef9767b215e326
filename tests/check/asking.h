// A child process for calls that never return.
#ifndef TAVO_TESTS_CHECK_ASKING_H
#define TAVO_TESTS_CHECK_ASKING_H

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

namespace tavo::test {

// Runs `ask` in a child process, so that the caller can observe and kill it.
class Asking {
  public:
    explicit Asking(const std::function<void()> &ask) : pid_(fork()) {
        if (pid_ == 0) {
            ask();
            _exit(0);
        }
    }
    ~Asking() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    Asking(const Asking &) = delete;
    Asking &operator=(const Asking &) = delete;

    // The state of the process ("S" for sleeping, "Z" for terminated), its processor time and its
    // memory, from fields 3, 14, 15 and 23 of proc_pid_stat(5).
    std::string Look() const {
        std::ifstream file("/proc/" + std::to_string(pid_) + "/stat");
        const std::vector<std::string> fields{std::istream_iterator<std::string>(file), {}};
        return fields.size() < 23 ? "gone"
                                  : fields[2] + " for " + fields[13] + " + " + fields[14] +
                                        " ticks with " + fields[22] + " bytes";
    }

    // Waits until the process sleeps and returns its state, "S for ...". If the state changes
    // within a short time after that, returns a text with both states.
    std::string LookAsleep() const {
        using std::chrono::steady_clock;
        using namespace std::chrono_literals;
        const auto deadline = steady_clock::now() + 20s;
        while (!Look().starts_with("S") && steady_clock::now() < deadline) {
            std::this_thread::sleep_for(1ms);
        }
        const std::string look = Look();
        std::this_thread::sleep_for(300ms);
        const std::string later = Look();
        return look == later ? look : "at first " + look + ", then " + later;
    }

  private:
    pid_t pid_;
};

}  // namespace tavo::test

#endif

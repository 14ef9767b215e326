// A question that is never answered.
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

// A process that asks, to be watched and ended from outside.
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

    // Its state ("S" when it sleeps, "Z" when it is over), processor time and memory, in fields 3,
    // 14, 15 and 23 of proc_pid_stat(5).
    std::string Look() const {
        std::ifstream file("/proc/" + std::to_string(pid_) + "/stat");
        const std::vector<std::string> fields{std::istream_iterator<std::string>(file), {}};
        return fields.size() < 23 ? "gone"
                                  : fields[2] + " for " + fields[13] + " + " + fields[14] +
                                        " ticks with " + fields[22] + " bytes";
    }

    // The look that it has from falling asleep on, for a while at least: "S for ...". A text that
    // tells both looks where they differ.
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

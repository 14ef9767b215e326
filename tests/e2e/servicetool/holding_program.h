// A program with a given name that holds a port, like a service of the appliance.
#ifndef TAVO_TESTS_SERVICETOOL_HOLDING_PROGRAM_H
#define TAVO_TESTS_SERVICETOOL_HOLDING_PROGRAM_H

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <string>

namespace tavo::test {

class HoldingProgram {
  public:
    // Creates the program `path` and starts it as a system user, with `socket` open.
    HoldingProgram(const std::string &path, int socket, uid_t user = 0) {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::filesystem::copy_file("/bin/sleep", path,
                                   std::filesystem::copy_options::skip_existing);
        int started[2];
        if (pipe2(started, O_CLOEXEC) != 0) {
            throw std::runtime_error("no pipe");
        }
        pid_ = fork();
        if (pid_ == 0) {
            // The duplicate remains open in the program.
            const bool ready = dup(socket) >= 0 && setuid(user) == 0;
            if (ready) {
                execl(path.c_str(), path.c_str(), "1000", nullptr);
            }
            [[maybe_unused]] const auto written = write(started[1], "", 1);
            _exit(127);
        }
        close(started[1]);
        char failed = 0;
        const bool runs = pid_ > 0 && read(started[0], &failed, 1) == 0;
        close(started[0]);
        if (!runs) {
            throw std::runtime_error(path + " cannot be started");
        }
    }
    ~HoldingProgram() {
        End();
        waitpid(pid_, nullptr, 0);
    }
    HoldingProgram(const HoldingProgram &) = delete;
    HoldingProgram &operator=(const HoldingProgram &) = delete;

    // Kills the process without waiting for it: it remains in the process table as a zombie.
    void End() {
        kill(pid_, SIGKILL);
        siginfo_t info;
        waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT);
    }

    pid_t Pid() const { return pid_; }

    // The process id as "(pid 812)".
    std::string PidText() const { return "(pid " + std::to_string(pid_) + ')'; }

  private:
    pid_t pid_ = -1;
};

}  // namespace tavo::test

#endif

// The launcher on a terminal: `appliance run -- bash` must behave like any other shell.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using testing::HasSubstr;
using testing::Not;

// A run on a terminal of its own.
class Terminal {
  public:
    explicit Terminal(std::vector<std::string> command) {
        pid_ = forkpty(&terminal_, nullptr, nullptr, nullptr);
        if (pid_ == 0) {
            command.insert(command.begin(), {APPLIANCE, "run", "--"});
            std::vector<char *> arguments(command.size() + 1);
            std::transform(command.begin(), command.end(), arguments.begin(),
                           [](std::string &argument) { return argument.data(); });
            execv(arguments[0], arguments.data());
            _exit(125);
        }
    }
    ~Terminal() {
        close(terminal_);
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    void Type(const std::string &keys) const {
        EXPECT_EQ(write(terminal_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }

    // The output up to and including `end`; the test fails if it does not appear.
    std::string Until(const std::string &end) const {
        std::string shown;
        pollfd event = {terminal_, POLLIN, 0};
        char c;
        while (!shown.ends_with(end)) {
            if (poll(&event, 1, 10000) != 1 || read(terminal_, &c, 1) != 1) {
                ADD_FAILURE() << "no \"" << end << "\" in \"" << shown << "\"";
                break;
            }
            shown += c;
        }
        return shown;
    }

    void SignalLauncher(int signal) const { kill(pid_, signal); }

    int Wait() {
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

  private:
    int terminal_ = -1;
    pid_t pid_ = 0;
};

// A Perl script that prints the signals that it receives.
std::string SignalTeller(const std::string &first) {
    return first +
           "$| = 1; $SIG{INT} = sub { print qq(caught\\n) };"
           "$SIG{TERM} = sub { print qq(over\\n); exit 5 };"
           "print qq(ready\\n); sleep 600 while 1";
}

TEST(Terminal, SendsAnInterruptToTheCommand) {
    Terminal terminal({"perl", "-e", SignalTeller("")});
    terminal.Until("ready\r\n");
    terminal.Type("\x03");
    terminal.Until("caught\r\n");
    terminal.SignalLauncher(SIGTERM);
    terminal.Until("over\r\n");
    EXPECT_EQ(terminal.Wait(), 5);
}

TEST(Terminal, DecidesAloneWhomAnInterruptReaches) {
    // A command in its own process group is in the background. The interrupt is not meant for it,
    // so the launcher, which receives it, must not forward it.
    Terminal terminal({"perl", "-e", SignalTeller("setpgrp(0, 0);")});
    terminal.Until("ready\r\n");
    terminal.Type("\x03");
    terminal.Until("^C");
    // Signals are delivered in numerical order, so the launcher handles the interrupt before this
    // one.
    terminal.SignalLauncher(SIGTERM);
    EXPECT_EQ(terminal.Until("over\r\n"), "over\r\n");
    EXPECT_EQ(terminal.Wait(), 5);
}

TEST(Terminal, GivesAShellItsJobs) {
    Terminal terminal({"bash", "--norc", "-i"});
    // The terminal echoes the input; the quotes distinguish it from the output.
    terminal.Type("case $- in *m*) echo has 'jobs';; esac\n");
    EXPECT_THAT(terminal.Until("has jobs\r\n"), Not(HasSubstr("no job control")));
    // An interrupt ends the command that the shell runs, not the shell.
    terminal.Type("sh -c 'echo now \"sleeping\"; exec sleep 600'\n");
    terminal.Until("now sleeping\r\n");
    terminal.Type("\x03");
    terminal.Type("echo $((40 + 2))\n");
    terminal.Until("42\r\n");
    terminal.Type("exit 6\n");
    EXPECT_EQ(terminal.Wait(), 6);
}

}  // namespace

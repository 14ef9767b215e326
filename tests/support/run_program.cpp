#include "run_program.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace tavo::test {
namespace {

[[noreturn]] void Fail(int error, const std::string &what) {
    throw std::system_error(error, std::generic_category(), what);
}

// Input and outputs are files in memory, so no pipe can fill up and nothing has to be polled.
class MemoryFile {
  public:
    explicit MemoryFile(std::string_view contents = {})
        : fd_(memfd_create("run_program", MFD_CLOEXEC)) {
        if (fd_ < 0) {
            Fail(errno, "memfd_create");
        }
        if (write(fd_, contents.data(), contents.size()) != static_cast<ssize_t>(contents.size()) ||
            lseek(fd_, 0, SEEK_SET) != 0) {
            Fail(errno, "memory file");
        }
    }
    ~MemoryFile() { close(fd_); }
    MemoryFile(const MemoryFile &) = delete;
    MemoryFile &operator=(const MemoryFile &) = delete;

    int Descriptor() const { return fd_; }

    std::string Contents() const {
        std::string contents(static_cast<std::size_t>(lseek(fd_, 0, SEEK_END)), '\0');
        if (pread(fd_, contents.data(), contents.size(), 0) !=
            static_cast<ssize_t>(contents.size())) {
            Fail(errno, "memory file");
        }
        return contents;
    }

  private:
    int fd_;
};

// The environment of the test, with `settings` replacing variables of the same name.
std::vector<std::string> Environment(const std::vector<std::string> &settings) {
    std::vector<std::string> variables = settings;
    for (char **variable = environ; *variable != nullptr; ++variable) {
        const std::size_t name = std::strcspn(*variable, "=") + 1;
        const bool replaced = std::any_of(
            settings.begin(), settings.end(),
            [&](const auto &setting) { return setting.compare(0, name, *variable, name) == 0; });
        if (!replaced) {
            variables.emplace_back(*variable);
        }
    }
    return variables;
}

std::vector<char *> Pointers(std::vector<std::string> &texts) {
    std::vector<char *> pointers;
    for (std::string &text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

ProgramResult RunProgram(const std::vector<std::string> &arguments, std::string_view input,
                         const std::vector<std::string> &environment) {
    const MemoryFile in(input);
    const MemoryFile out;
    const MemoryFile err;
    std::vector<std::string> argument_texts = arguments;
    std::vector<std::string> environment_texts = Environment(environment);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in.Descriptor(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out.Descriptor(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err.Descriptor(), STDERR_FILENO);
    pid_t pid = 0;
    const int error =
        posix_spawnp(&pid, argument_texts[0].c_str(), &actions, nullptr,
                     Pointers(argument_texts).data(), Pointers(environment_texts).data());
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        Fail(error, arguments[0]);
    }

    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) {
            Fail(errno, "waitpid");
        }
    }
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), out.Contents(),
            err.Contents()};
}

// LD_PRELOAD is split at spaces, which the path may contain; LD_LIBRARY_PATH is not (ld.so(8)).
std::vector<std::string> Preloading(const std::string &path, std::vector<std::string> environment) {
    const std::size_t slash = path.rfind('/');
    environment.push_back("LD_PRELOAD=" + path.substr(slash + 1));
    environment.push_back("LD_LIBRARY_PATH=" + path.substr(0, slash));
    return environment;
}

}  // namespace tavo::test

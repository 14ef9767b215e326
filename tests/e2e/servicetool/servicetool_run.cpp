#include "servicetool_run.h"

#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace tavo::test {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> Command(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), SERVICETOOL);
    return arguments;
}

[[noreturn]] void Become(std::vector<std::string> command,
                         const std::vector<std::string> &environment) {
    unsetenv("NO_COLOR");
    for (const std::string &setting : environment) {
        const std::size_t equals = setting.find('=');
        setenv(setting.substr(0, equals).c_str(), setting.substr(equals + 1).c_str(), 1);
    }
    std::vector<char *> arguments;
    for (std::string &argument : command) {
        arguments.push_back(argument.data());
    }
    arguments.push_back(nullptr);
    execv(arguments[0], arguments.data());
    _exit(127);
}

// Everything until the other side is closed, with newlines as they were written.
std::string ReadTerminal(int terminal) {
    std::string shown;
    char c;
    while (read(terminal, &c, 1) == 1) {
        if (c != '\r') {
            shown += c;
        }
    }
    return shown;
}

}  // namespace

ProgramResult ServiceTool(std::vector<std::string> arguments, std::string_view input) {
    return RunProgram(Command(std::move(arguments)), input);
}

ProgramResult ServiceToolPreloading(const std::string &library,
                                    std::vector<std::string> arguments) {
    return RunProgram(Command(std::move(arguments)), "",
                      Preloading(library, {"ASAN_OPTIONS=verify_asan_link_order=0"}));
}

ServiceToolForEveryone::ServiceToolForEveryone() {
    const fs::path program = SERVICETOOL;
    const fs::path target = folder_.Path();
    fs::copy_file(program, target / program.filename());
    for (const fs::directory_entry &entry :
         fs::directory_iterator(program.parent_path().parent_path() / "lib")) {
        const fs::path name = entry.path().filename();
        if (name.string().find(".so.") != std::string::npos) {
            fs::copy_file(entry.path(), target / name);
        }
    }
    fs::permissions(target, fs::perms{0755});
}

std::vector<std::string> ServiceToolForEveryone::Command() const {
    return {"env", "LD_LIBRARY_PATH=" + folder_.Path(),
            folder_ / fs::path(SERVICETOOL).filename().string()};
}

std::string ServiceToolOnTerminal(std::vector<std::string> arguments, unsigned short columns,
                                  const std::vector<std::string> &environment,
                                  unsigned short lines) {
    const winsize size{lines, columns, 0, 0};
    int terminal = -1;
    const pid_t pid = forkpty(&terminal, nullptr, nullptr, &size);
    if (pid < 0) {
        throw std::runtime_error("no terminal");
    }
    if (pid == 0) {
        Become(Command(std::move(arguments)), environment);
    }
    std::string shown = ReadTerminal(terminal);
    close(terminal);
    waitpid(pid, nullptr, 0);
    return shown;
}

std::string GoodServiceAnd(const std::string &more) {
    return "[web]\ntitle=\"Web\"\ndesc=\"Pages\"\ndst.ports=\"80/tcp\"\n" + more;
}

}  // namespace tavo::test

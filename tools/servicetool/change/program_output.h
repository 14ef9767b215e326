// Keeps what programs print apart from what servicetool prints: the library runs programs, plugins
// too, that write to the standard output and error of the caller.
#ifndef TAVO_SERVICETOOL_CHANGE_PROGRAM_OUTPUT_H
#define TAVO_SERVICETOOL_CHANGE_PROGRAM_OUTPUT_H

#include <string>
#include <string_view>
#include <vector>

namespace tavo::tool {

// While one lives, standard output and error are a file in memory. Where that cannot be made both
// are standard error, and nothing is kept: it is quoted as a reason where it is there, and nothing
// is decided by it.
class ProgramOutput {
  public:
    // Throws std::system_error where standard output cannot be kept from the programs.
    ProgramOutput();
    ~ProgramOutput() { End(); }
    ProgramOutput(const ProgramOutput &) = delete;
    ProgramOutput &operator=(const ProgramOutput &) = delete;

    // Puts the real ones back. The lines that the programs printed.
    std::vector<std::string> End();

    // Standard error as it was before.
    static int StandardError();

  private:
    std::string Caught() const;

    int caught_ = -1;
    int stdout_ = -1;
};

// The last line of a program, such as "cp: error writing '/tmp/chat.sc': No space left on device",
// with or without the folder of the program; empty where there is none.
std::string LastWordOf(std::string_view program, const std::vector<std::string> &lines);

}  // namespace tavo::tool

#endif

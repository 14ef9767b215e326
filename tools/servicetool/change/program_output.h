// Separates the output of programs from that of servicetool: the library runs programs, including
// plugins, that write to the standard output and error of the caller.
#ifndef TAVO_SERVICETOOL_CHANGE_PROGRAM_OUTPUT_H
#define TAVO_SERVICETOOL_CHANGE_PROGRAM_OUTPUT_H

#include <string>
#include <string_view>
#include <vector>

#include "base/descriptor.h"

namespace tavo::tool {

// Redirects standard output and error to a file in memory. If that cannot be created, both go to
// standard error and no lines are kept. The lines are only quoted in messages; nothing depends on
// them.
class ProgramOutput {
  public:
    // Throws std::system_error if standard output cannot be redirected.
    ProgramOutput();
    ~ProgramOutput() { End(); }
    ProgramOutput(const ProgramOutput &) = delete;
    ProgramOutput &operator=(const ProgramOutput &) = delete;

    // Ends the redirection and returns the lines that the programs printed.
    std::vector<std::string> End();

    // The descriptor of the real standard error.
    static int StandardError();

  private:
    Descriptor caught_;
    Descriptor stdout_;
};

// The last line that starts with the name or path of the program, such as "cp: error writing
// '/tmp/chat.sc': No space left on device"; empty if there is none.
std::string LastWordOf(std::string_view program, const std::vector<std::string> &lines);

}  // namespace tavo::tool

#endif

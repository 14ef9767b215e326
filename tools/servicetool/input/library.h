// What the callers of the library share: its failures, its memory, its log lines and the output of
// the programs that it runs.
#ifndef TAVO_SERVICETOOL_INPUT_LIBRARY_H
#define TAVO_SERVICETOOL_INPUT_LIBRARY_H

#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "base/descriptor.h"
#include "tavocore.h"

namespace tavo::tool {

// Clears the error state, so that an earlier failure is not attributed to the next call.
void ForgetFailure();

// The text for a system error among the library's error codes, such as "a file cannot be opened or
// used"; empty for other codes.
std::string SystemReason(unsigned int code);

// Call this after a failed call, with its error code. Throws std::bad_alloc if it was out of
// memory, and std::runtime_error with `what` and the reason if the system refused a file or a
// folder: then the failure is not an answer, and later results may be wrong.
void ThrowIfSystemFailed(const std::string &what, unsigned int code = TLIBCErrGet());

// The libraries return null when out of memory; here that throws std::bad_alloc.
template <typename Owner>
Owner OrThrow(Owner owner) {
    if (!owner) {
        throw std::bad_alloc();
    }
    return owner;
}

// Sets whether the lines that the library logs are printed from now on. servicetool reports the
// reasons for failures itself.
void ShowLibraryLog(bool show);

// Whether the lines are also written to the system log: all of them if they are printed, else only
// those about a change. Queries may be frequent, and each would repeat the lines about a file that
// cannot be read.
bool KeepsLog();

// Prints a line to standard error, escaped and after "log: ", if printing is on. Lines may contain
// text from files, so syslog(3) must not copy them to the terminal unescaped.
void PrintLogLine(std::string_view line) noexcept;

// Keeps the output of programs apart from that of servicetool: the library runs programs, including
// plugins, that write to the standard output and error of the caller. Redirects both to a file in
// memory. If that cannot be created, both go to standard error and no lines are kept. The lines are
// only quoted in messages; nothing depends on them.
class ProgramOutput {
  public:
    // Throws std::system_error if standard output cannot be redirected.
    ProgramOutput();
    ~ProgramOutput() { End(); }
    ProgramOutput(const ProgramOutput &) = delete;
    ProgramOutput &operator=(const ProgramOutput &) = delete;

    // Ends the redirection and returns the lines that the programs printed.
    std::vector<std::string> End();

  private:
    Descriptor caught_;
    Descriptor stdout_;
};

}  // namespace tavo::tool

#endif

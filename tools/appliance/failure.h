// A failure of the launcher itself; main() prints it and exits with kOwnFailure.
#ifndef TAVO_TOOLS_APPLIANCE_FAILURE_H
#define TAVO_TOOLS_APPLIANCE_FAILURE_H

#include <cctype>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>

namespace tavo {

// The exit statuses that env and timeout use, so that a caller can distinguish failures of the
// launcher from those of the command.
constexpr int kOwnFailure = 125;
constexpr int kCannotRun = 126;
constexpr int kNotFound = 127;

class Failure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The text of a system error for the end of a sentence: "no such file or directory".
inline std::string ErrorText(int error) {
    std::string text = std::generic_category().message(error);
    text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
    return text;
}

// Throws the failure of a system call with the text of errno.
[[noreturn]] inline void FailWithErrno(const std::string &what) {
    throw Failure(what + ": " + ErrorText(errno));
}

}  // namespace tavo

#endif

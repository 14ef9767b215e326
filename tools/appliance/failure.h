// What keeps the launcher itself from doing its work; main() prints it and ends with kOwnFailure.
#ifndef TAVO_TOOLS_APPLIANCE_FAILURE_H
#define TAVO_TOOLS_APPLIANCE_FAILURE_H

#include <cctype>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>

namespace tavo {

// The statuses that env and timeout use, so that a caller can tell the launcher's own failures from
// the command's.
constexpr int kOwnFailure = 125;
constexpr int kCannotRun = 126;
constexpr int kNotFound = 127;

class Failure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// A system error in words, as the end of a sentence: "no such file or directory".
inline std::string ErrorText(int error) {
    std::string text = std::generic_category().message(error);
    text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
    return text;
}

// The failure of a system call, errno told in words.
[[noreturn]] inline void FailWithErrno(const std::string &what) {
    throw Failure(what + ": " + ErrorText(errno));
}

}  // namespace tavo

#endif

// Reads files given as FILE arguments, and the names in a folder.
#ifndef TAVO_SERVICETOOL_INPUT_INPUT_FILE_H
#define TAVO_SERVICETOOL_INPUT_INPUT_FILE_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/descriptor.h"

namespace tavo::tool {

// The FILE argument for standard input, and its name in messages.
inline constexpr std::string_view kStandardInput = "-";
inline constexpr std::string_view kStandardInputName = "<stdin>";

// The system's text for an error number, in lower case like all messages.
std::string ErrorText(int error);

// Whether the error of a failed access means that the path does not exist. After any other error
// that is unknown.
bool IsAbsence(int error);

struct FileContents {
    std::string text = {};
    std::string problem = {};  // why the file cannot be read, as "permission denied"; else empty
    bool absent = false;       // the problem is that the path does not exist
    bool dangling = false;     // the problem is that the target of the link does not exist
};

// Reads a regular file. Any other kind of file is a problem; never blocks on a pipe or a device.
FileContents ReadRegularFile(const std::string &path);

// Reads from an open file, pipe or terminal to its end. A folder is a problem.
FileContents ReadAll(int descriptor);

// The path without symbolic links; "" if there is none, as for standard input.
std::string RealPathOf(const std::string &path);

// The names of all entries of a folder, sorted. Returns nullopt with errno set if it cannot be
// listed.
std::optional<std::vector<std::string>> NamesIn(const std::string &folder);

// An unnamed file that contains `text`, for functions that take a path.
class MemoryFile {
  public:
    // Throws std::system_error if the file cannot be created.
    explicit MemoryFile(std::string_view text);

    std::string Path() const { return "/proc/self/fd/" + std::to_string(file_.Get()); }

  private:
    Descriptor file_;
};

}  // namespace tavo::tool

#endif
